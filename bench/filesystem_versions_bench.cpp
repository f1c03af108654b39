// Listing the versions of a document in a folder of 10,000 files against a plain readdir of the
// same folder: the listing should cost about one directory pass.
//
// Two folders: "unrelated" holds 10,000 files that share nothing with the document's name;
// "lookalike" holds 10,000 files named "Report-<n>.pdf", which pass the quick stem and extension
// test and reach the naming table. Each holds the document and four conflict copies.

#include <benchmark/benchmark.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "zentrel/filesystem/file_version.h"
#include "zentrel/filesystem/file_version_conflicts.h"

namespace {

void touch(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd >= 0) ::close(fd);
}

struct Folder {
  std::string path;
  explicit Folder(bool lookalikes) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zt-versions-bench-XXXXXX";
    path = ::mkdtemp(pattern.data()) ? pattern : std::string();
    for (int i = 0; i < 10000; ++i)
      touch(path + (lookalikes ? "/Report-" + std::to_string(i) + ".pdf" : "/photo-" + std::to_string(i) + ".jpg"));
    touch(path + "/Report.pdf");
    touch(path + "/Report.sync-conflict-20240305-140733-ABCDEFG.pdf");
    touch(path + "/Report (conflicted copy 2024-03-05 140733).pdf");
    touch(path + "/Report_conflict-20240305-140733.pdf");
    touch(path + "/Report (Bob's conflicted copy 2024-03-05) (1).pdf");
  }
  ~Folder() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
};

Folder& folder(bool lookalikes) {
  static Folder unrelated(false);
  static Folder lookalike(true);
  return lookalikes ? lookalike : unrelated;
}

void BM_ListVersions(benchmark::State& state) {
  const ZTFileURL url = ZTFileURL::fileURLWithPath(folder(state.range(0) != 0).path + "/Report.pdf");
  for (auto _ : state) {
    auto versions = zt::allVersionsOfItemAtURL(url);
    if (versions.size() != 5) state.SkipWithError("expected the document and four copies");
    benchmark::DoNotOptimize(versions);
  }
}
BENCHMARK(BM_ListVersions)->ArgName("lookalikes")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// Peer: opendir + readdir over every entry, touching each name.
void BM_PlainReaddir(benchmark::State& state) {
  const std::string path = folder(state.range(0) != 0).path;
  for (auto _ : state) {
    std::size_t entries = 0;
    std::size_t bytes = 0;
    if (DIR* directory = ::opendir(path.c_str())) {
      while (const struct dirent* entry = ::readdir(directory)) {
        ++entries;
        bytes += std::char_traits<char>::length(entry->d_name);
      }
      ::closedir(directory);
    }
    benchmark::DoNotOptimize(entries);
    benchmark::DoNotOptimize(bytes);
  }
}
BENCHMARK(BM_PlainReaddir)->ArgName("lookalikes")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
