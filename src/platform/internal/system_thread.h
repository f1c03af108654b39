#pragma once
// Kernel thread ids, cached per thread (the main thread's id equals the process id).
#include <sys/syscall.h>
#include <unistd.h>

namespace zt::internal {
inline long currentSystemThreadId() {
  thread_local const long tid = static_cast<long>(::syscall(SYS_gettid));
  return tid;
}
inline bool callingThreadIsMain() { return currentSystemThreadId() == static_cast<long>(::getpid()); }
}  // namespace zt::internal
