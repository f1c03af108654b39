#include "common/descriptor_limit.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace zt::test {

DescriptorLimit::DescriptorLimit(unsigned limit) {
  rlimit current{};
  ::getrlimit(RLIMIT_NOFILE, &current);
  previous_ = current.rlim_cur;
  if (current.rlim_cur > limit) {
    current.rlim_cur = limit;
    ::setrlimit(RLIMIT_NOFILE, &current);
  }
}

DescriptorLimit::~DescriptorLimit() {
  release();
  rlimit current{};
  ::getrlimit(RLIMIT_NOFILE, &current);
  current.rlim_cur = previous_;
  ::setrlimit(RLIMIT_NOFILE, &current);
}

int DescriptorLimit::exhaust(int leaveFree) {
  // Bounded by the limit itself: open fails with EMFILE once every number below it is taken.
  for (int i = 0; i < 1 << 20; ++i) {
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd < 0) break;
    held_.push_back(fd);
  }
  for (int i = 0; i < leaveFree && !held_.empty(); ++i) {
    ::close(held_.back());
    held_.pop_back();
  }
  return static_cast<int>(held_.size());
}

void DescriptorLimit::release() {
  for (const int fd : held_) ::close(fd);
  held_.clear();
}

int openDescriptorCount() {
  DIR* folder = ::opendir("/proc/self/fd");
  if (folder == nullptr) return -1;
  int count = 0;
  while (const dirent* entry = ::readdir(folder)) {
    if (entry->d_name[0] != '.') ++count;
  }
  ::closedir(folder);
  return count - 1;  // the listing's own descriptor
}

unsigned long long residentBytes() {
  FILE* status = std::fopen("/proc/self/status", "re");
  if (status == nullptr) return 0;
  char line[256];
  unsigned long long kilobytes = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::strncmp(line, "VmRSS:", 6) == 0) {
      std::sscanf(line + 6, "%llu", &kilobytes);
      break;
    }
  }
  std::fclose(status);
  return kilobytes * 1024;
}

}  // namespace zt::test
