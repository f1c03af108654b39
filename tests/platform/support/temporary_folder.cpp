#include "temporary_folder.h"

#include <ftw.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace zt::test {

namespace {
int openUp(const char* path, const struct stat* info, int type, struct FTW*) {
  if (type == FTW_D || type == FTW_DNR) chmod(path, (info->st_mode & 07777) | 0700);
  return 0;
}
int removeOne(const char* path, const struct stat*, int, struct FTW*) {
  remove(path);
  return 0;
}
}  // namespace

TemporaryFolder::TemporaryFolder(std::string base) {
  if (base.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    base = tmp && *tmp ? tmp : "/tmp";
  }
  std::string pattern = base + "/zt-fm-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (!mkdtemp(buffer.data())) ADD_FAILURE() << "mkdtemp failed under " << base;
  path_ = buffer.data();
}

TemporaryFolder::~TemporaryFolder() {
  nftw(path_.c_str(), openUp, 32, FTW_PHYS);
  nftw(path_.c_str(), removeOne, 32, FTW_PHYS | FTW_DEPTH);
}

void writeBytes(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) ADD_FAILURE() << "cannot write " << path;
}

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

bool pathExists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

bool permissionChecksBypassed() { return geteuid() == 0; }

}  // namespace zt::test
