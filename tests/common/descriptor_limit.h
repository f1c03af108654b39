#pragma once
// Running out of file descriptors on purpose: the soft RLIMIT_NOFILE is lowered for the life of
// the object and every descriptor below it taken, so the code under test meets EMFILE. Meant for
// death-test children (the limit is process-wide); the destructor gives everything back.

#include <vector>

namespace zt::test {

class DescriptorLimit {
 public:
  // Lowers the soft limit to `limit` (never raises it).
  explicit DescriptorLimit(unsigned limit);
  ~DescriptorLimit();
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  // Opens /dev/null until the limit is reached, then closes `leaveFree` of those descriptors.
  // Returns how many it holds.
  int exhaust(int leaveFree = 0);
  // Closes every descriptor exhaust() took.
  void release();

 private:
  unsigned long long previous_ = 0;
  std::vector<int> held_;
};

// Descriptors the process has open now (/proc/self/fd).
int openDescriptorCount();

// The process's resident memory in bytes (VmRSS of /proc/self/status); 0 when unreadable.
unsigned long long residentBytes();

}  // namespace zt::test
