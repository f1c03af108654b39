#include "zentrel/crashguard/signal_guard.h"

#include <setjmp.h>
#include <signal.h>

#include <cstring>

#include "zentrel/platform/mutex.h"

namespace {

constexpr int kSignals[] = {SIGABRT, SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGPIPE};
constexpr int kSignalCount = sizeof kSignals / sizeof kSignals[0];

// The innermost guarded call of this thread, where a signal jumps back to.
struct GuardFrame {
  sigjmp_buf buffer;
  GuardFrame* outer;
};
thread_local GuardFrame* currentFrame = nullptr;

// Installation is counted across threads: the first active call installs, the last restores. The
// previous actions are written before the handler is installed and read by the handler only while
// it is installed.
ZTMutex installationMutex;
int activeGuards ZT_GUARDED_BY(installationMutex) = 0;
struct sigaction previousActions[kSignalCount];

int slotOf(int signal) {
  for (int i = 0; i < kSignalCount; ++i) {
    if (kSignals[i] == signal) return i;
  }
  return -1;
}

// A signal outside any guarded call of this thread goes to what was in place before.
void passOn(int signal, siginfo_t* info, void* context) {
  const int slot = slotOf(signal);
  if (slot < 0) return;
  const struct sigaction& previous = previousActions[slot];
  if (previous.sa_flags & SA_SIGINFO) {
    if (previous.sa_sigaction) previous.sa_sigaction(signal, info, context);
    return;
  }
  if (previous.sa_handler == SIG_IGN) return;
  if (previous.sa_handler == SIG_DFL) {
    // Back to the default action for this signal and let it happen: a fault repeats when the handler
    // returns, a sent signal is sent again.
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    ::sigaction(signal, &fallback, nullptr);
    ::raise(signal);
    return;
  }
  previous.sa_handler(signal);
}

void indexingCrashHandler(int signal, siginfo_t* info, void* context) {
  GuardFrame* frame = currentFrame;
  if (frame == nullptr) {
    passOn(signal, info, context);
    return;
  }
  siglongjmp(frame->buffer, signal);
}

void install() {
  ZTLockGuard lock(installationMutex);
  if (activeGuards++ > 0) return;
  struct sigaction action {};
  action.sa_sigaction = indexingCrashHandler;
  action.sa_flags = SA_NODEFER | SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  for (int i = 0; i < kSignalCount; ++i) ::sigaction(kSignals[i], &action, &previousActions[i]);
}

void restore() {
  ZTLockGuard lock(installationMutex);
  if (--activeGuards > 0) return;
  for (int i = 0; i < kSignalCount; ++i) ::sigaction(kSignals[i], &previousActions[i], nullptr);
}

struct Installation {
  Installation() { install(); }
  ~Installation() { restore(); }
};

}  // namespace

bool executeInTryCatchWithSignalHandler(const std::function<void()>& block) {
  Installation installation;
  GuardFrame frame;
  frame.outer = currentFrame;
  struct FramePop {
    GuardFrame& frame;
    ~FramePop() { currentFrame = frame.outer; }
  } pop{frame};
  // The mask is saved and restored by the jump, so a signal the callback blocked stays as before.
  if (sigsetjmp(frame.buffer, 1) != 0) return false;
  currentFrame = &frame;
  if (block) block();
  return true;
}
