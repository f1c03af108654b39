#include "filesystem/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "zentrel/platform/log.h"

namespace zt::test {

namespace {

// The scratch folders alive in this process, with the process that made each: a forked child
// shares the list but must not remove its parent's folders.
struct LiveFolder {
  std::string path;
  pid_t owner;
};

struct Registry {
  ZTMutex mutex;
  std::vector<LiveFolder> folders ZT_GUARDED_BY(mutex);
};

Registry& registry() {
  static Registry* const live = [] {
    auto* created = new Registry;  // never destroyed: the exit hook below still uses it
    std::atexit([] {
      Registry& r = registry();
      std::vector<std::string> mine;
      {
        ZTLockGuard lock(r.mutex);
        for (const LiveFolder& folder : r.folders) {
          if (folder.owner == ::getpid()) mine.push_back(folder.path);
        }
      }
      for (const std::string& path : mine) removeTree(path);
    });
    return created;
  }();
  return *live;
}

}  // namespace

bool removeTree(const std::string& path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (!error) return true;
  // Give back the access a test took away, folder by folder (links are not followed), then retry.
  std::vector<std::string> pending{path};
  for (std::size_t i = 0; i < pending.size() && i < 100000; ++i) {
    struct stat st {};
    if (::lstat(pending[i].c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
    ::chmod(pending[i].c_str(), 0700);
    for (std::filesystem::directory_iterator it(pending[i], error), end; !error && it != end; it.increment(error)) {
      pending.push_back(it->path().string());
    }
  }
  error.clear();
  std::filesystem::remove_all(path, error);
  return !error;
}

ScratchFolder::ScratchFolder() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && base[0] == '/' ? base : "/tmp") + "/zt-fs-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << "cannot create a scratch folder from " << pattern;
    return;
  }
  path_ = pattern;
  Registry& r = registry();
  ZTLockGuard lock(r.mutex);
  r.folders.push_back({path_, ::getpid()});
}

ScratchFolder::~ScratchFolder() {
  if (path_.empty()) return;
  EXPECT_TRUE(removeTree(path_)) << "scratch folder left behind: " << path_;
  Registry& r = registry();
  ZTLockGuard lock(r.mutex);
  r.folders.erase(std::remove_if(r.folders.begin(), r.folders.end(),
                                 [this](const LiveFolder& folder) { return folder.path == path_; }),
                  r.folders.end());
}

void finishChildProcess(bool ok) { std::exit(ok ? 0 : 1); }

std::string ScratchFolder::operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out) << "cannot write " << path;
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(out.good()) << "cannot write " << path;
}

void makeDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  ASSERT_FALSE(error) << "cannot create " << path << ": " << error.message();
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

bool isRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::size_t fileSize(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? static_cast<std::size_t>(st.st_size) : 0;
}

}  // namespace zt::test
