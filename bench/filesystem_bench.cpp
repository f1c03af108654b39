// Path normalization and base tests against std::filesystem's lexical normalization on the same
// inputs, MIME lookups against a bare hash-table probe, and temporary files against mkstemps in the
// same folder.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "filesystem/internal/mime_database.h"
#include "zentrel/filesystem/file_types.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/paths.h"
#include "zentrel/filesystem/temporary_files.h"

namespace {

const std::vector<std::string>& paths() {
  static const std::vector<std::string> inputs = {
      "/home/user/Documents/../Projects/./zentrel//src/filesystem/paths.cpp",
      "/home/user/Documents/Reports/2024/summary.pdf",
      "/a/b/c/",
      "relative/./path/../x",
      "/var//tmp/./cache/../items/1234",
      "/usr/share/mime/globs2",
  };
  return inputs;
}

struct BasePair {
  std::string base;
  std::string path;
};
const std::vector<BasePair>& basePairs() {
  static const std::vector<BasePair> pairs = {
      {"/home/user/Documents", "/home/user/Documents/Reports/2024/summary.pdf"},
      {"/home/user/Documents/", "/home/user/Documents"},
      {"/a/b", "/a/bc/d"},
      {"/var//tmp/./cache", "/var/tmp/cache/../cache/items/1"},
  };
  return pairs;
}

void BM_ZTNormalizePath(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& path : paths()) benchmark::DoNotOptimize(ZTNormalizePath(path));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths().size()));
}
BENCHMARK(BM_ZTNormalizePath);

void BM_Baseline_LexicallyNormal(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& path : paths()) {
      benchmark::DoNotOptimize(std::filesystem::path(path).lexically_normal().string());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths().size()));
}
BENCHMARK(BM_Baseline_LexicallyNormal);

void BM_ZTIsPathBasePathOfPath(benchmark::State& state) {
  for (auto _ : state) {
    for (const BasePair& pair : basePairs()) benchmark::DoNotOptimize(ZTIsPathBasePathOfPath(pair.base, pair.path));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(basePairs().size()));
}
BENCHMARK(BM_ZTIsPathBasePathOfPath);

// The same test built from std::filesystem: normalize both lexically and compare component-wise.
bool lexicalBase(const std::string& base, const std::string& path) {
  const std::filesystem::path b = std::filesystem::path(base).lexically_normal();
  const std::filesystem::path p = std::filesystem::path(path).lexically_normal();
  auto bi = b.begin();
  auto pi = p.begin();
  for (; bi != b.end() && pi != p.end(); ++bi, ++pi) {
    if (bi->empty()) break;  // trailing separator of the base
    if (*bi != *pi) return false;
  }
  if (bi != b.end() && !bi->empty()) return false;
  return pi != p.end() && !pi->empty();
}

void BM_Baseline_LexicalBaseTest(benchmark::State& state) {
  for (auto _ : state) {
    for (const BasePair& pair : basePairs()) benchmark::DoNotOptimize(lexicalBase(pair.base, pair.path));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(basePairs().size()));
}
BENCHMARK(BM_Baseline_LexicalBaseTest);

// The comparison form also resolves symbolic links, which costs system calls.
void BM_zt_isBasePathOfPath_ResolvingLinks(benchmark::State& state) {
  for (auto _ : state) {
    for (const BasePair& pair : basePairs()) benchmark::DoNotOptimize(zt::isBasePathOfPath(pair.base, pair.path));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(basePairs().size()));
}
BENCHMARK(BM_zt_isBasePathOfPath_ResolvingLinks);

const std::vector<std::string>& extensions() {
  static const std::vector<std::string> list = {"pdf", "JPG", "odt", "webm", "txt", "zt-unknown", "flac", "html"};
  return list;
}

void BM_ZTMimeTypeForFileExtension(benchmark::State& state) {
  ZTMimeTypeForFileExtension("pdf");  // the first call loads the database
  for (auto _ : state) {
    for (const std::string& extension : extensions()) benchmark::DoNotOptimize(ZTMimeTypeForFileExtension(extension));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(extensions().size()));
}
BENCHMARK(BM_ZTMimeTypeForFileExtension);

void BM_ZTIsFileExtensionOfType(benchmark::State& state) {
  ZTIsFileExtensionOfType("jpg", ZTFileTypeImage);
  for (auto _ : state) {
    for (const std::string& extension : extensions()) {
      benchmark::DoNotOptimize(ZTIsFileExtensionOfType(extension, ZTFileTypeImage));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(extensions().size()));
}
BENCHMARK(BM_ZTIsFileExtensionOfType);

// Peer baseline: a prepared hash table from lower-case extension to MIME type, probed with a
// lower-cased copy of the key; the least any extension lookup can cost.
void BM_Baseline_HashTableProbe(benchmark::State& state) {
  std::unordered_map<std::string, std::string> table;
  for (const std::string& extension : extensions()) table.emplace(extension, "application/octet-stream");
  for (auto _ : state) {
    for (const std::string& extension : extensions()) {
      std::string key = extension;
      for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      const auto it = table.find(key);
      benchmark::DoNotOptimize(it == table.end() ? std::string("application/octet-stream") : it->second);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(extensions().size()));
}
BENCHMARK(BM_Baseline_HashTableProbe);

// What a lookup would cost if the database were read again each time.
void BM_MimeDatabaseLoad(benchmark::State& state) {
  const std::vector<std::string> folders = zt::fs_internal::MimeDatabase::standardFolders();
  for (auto _ : state) benchmark::DoNotOptimize(zt::fs_internal::MimeDatabase::load(folders).isEmpty());
}
BENCHMARK(BM_MimeDatabaseLoad)->Unit(benchmark::kMillisecond);

// Temporary files in one folder. Every form leaves the folder as it found it, so the loop can run
// any number of times.
struct ScratchFolder {
  std::string path;
  ScratchFolder() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/zt-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) path = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
};

// The owning form: create exclusively, hand back path and descriptor; the caller removes the file
// and the handle closes the descriptor.
void BM_ZTTempFile(benchmark::State& state) {
  ScratchFolder folder;
  for (auto _ : state) {
    ZTError error;
    std::optional<ZTTemporaryFile> file = ZTTempFile(folder.path, ".part", &error);
    if (!file) {
      state.SkipWithError(error.description().c_str());
      break;
    }
    ::unlink(file->path.c_str());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ZTTempFile);

// The same in the library's private folder, which is checked (open, fstat) on every call.
void BM_ZTTempFile_PrivateFolder(benchmark::State& state) {
  ScratchFolder folder;
  ::setenv("TMPDIR", folder.path.c_str(), 1);
  for (auto _ : state) {
    ZTError error;
    std::optional<ZTTemporaryFile> file = ZTTempFile("", ".part", &error);
    if (!file) {
      state.SkipWithError(error.description().c_str());
      break;
    }
    ::unlink(file->path.c_str());
  }
  ::unsetenv("TMPDIR");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ZTTempFile_PrivateFolder);

// ZTTempName creates the file, deletes it and answers the name; its creation descriptor stays open
// by design. To keep the process within its descriptor limit the loop closes it again: the few
// lowest free descriptors are noted before the call (open() hands out the lowest free one), and
// those of them open after it are closed. The bookkeeping costs a few fcntl calls per item.
void BM_ZTTempName(benchmark::State& state) {
  ScratchFolder folder;
  for (auto _ : state) {
    int freeBefore[4];
    int found = 0;
    for (int fd = 0; fd < 1 << 16 && found < 4; ++fd) {
      if (::fcntl(fd, F_GETFD) == -1) freeBefore[found++] = fd;
    }
    benchmark::DoNotOptimize(ZTTempName(folder.path, ".part"));
    for (int i = 0; i < found; ++i) {
      if (::fcntl(freeBefore[i], F_GETFD) != -1) ::close(freeBefore[i]);
    }
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ZTTempName);

// Peer: mkstemps in the same folder, then unlink and close — what ZTTempFile and ZTTempName do
// with the C library alone.
void BM_Baseline_mkstempsUnlink(benchmark::State& state) {
  ScratchFolder folder;
  const std::string templatePath = folder.path + "/XXXXXX.part";
  for (auto _ : state) {
    std::string name = templatePath;
    const int fd = ::mkstemps(name.data(), 5);
    ::unlink(name.c_str());
    ::close(fd);
    benchmark::DoNotOptimize(name);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_mkstempsUnlink);

}  // namespace

BENCHMARK_MAIN();
