// Path normalization and base tests against std::filesystem's lexical normalization on the same
// inputs, and MIME lookups against a bare hash-table probe.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "filesystem/internal/mime_database.h"
#include "zentrel/filesystem/file_types.h"
#include "zentrel/filesystem/path_strings.h"
#include "zentrel/filesystem/paths.h"

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

}  // namespace

BENCHMARK_MAIN();
