#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "zentrel/crashguard/signal_guard.h"

namespace {

constexpr int kGuardedSignals[] = {SIGABRT, SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGPIPE};

struct sigaction currentAction(int signal) {
  struct sigaction action {};
  ::sigaction(signal, nullptr, &action);
  return action;
}

void markerHandler(int) {}

// Installs a handler of the test's own on every guarded signal, and puts the old actions back.
class OwnHandlers {
 public:
  OwnHandlers() {
    for (int i = 0; i < 6; ++i) {
      struct sigaction action {};
      action.sa_handler = markerHandler;
      sigemptyset(&action.sa_mask);
      ::sigaction(kGuardedSignals[i], &action, &saved_[i]);
    }
  }
  ~OwnHandlers() {
    for (int i = 0; i < 6; ++i) ::sigaction(kGuardedSignals[i], &saved_[i], nullptr);
  }

 private:
  struct sigaction saved_[6];
};

void expectOwnHandlersInPlace() {
  for (int signal : kGuardedSignals) {
    const struct sigaction action = currentAction(signal);
    EXPECT_EQ(action.sa_handler, &markerHandler) << "signal " << signal;
  }
}

TEST(SignalGuard, ACallbackWithoutSignalsRunsAndAnswersTrue) {
  OwnHandlers own;
  int ran = 0;
  EXPECT_TRUE(executeInTryCatchWithSignalHandler([&] {
    ++ran;
    const struct sigaction inside = currentAction(SIGSEGV);
    EXPECT_NE(inside.sa_handler, &markerHandler);
    EXPECT_TRUE(inside.sa_flags & SA_NODEFER);
  }));
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(executeInTryCatchWithSignalHandler({}));
  expectOwnHandlersInPlace();
}

TEST(SignalGuard, FatalSignalsInsideTheCallbackAnswerFalseAndRestoreThePreviousActions) {
  OwnHandlers own;
  void* page = ::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  EXPECT_FALSE(executeInTryCatchWithSignalHandler([page] { *static_cast<volatile int*>(page) = 1; }));
  ::munmap(page, 4096);
  EXPECT_FALSE(executeInTryCatchWithSignalHandler([] { std::abort(); }));
  for (int signal : kGuardedSignals) {
    EXPECT_FALSE(executeInTryCatchWithSignalHandler([signal] { ::raise(signal); })) << signal;
  }
  // A write to a pipe nobody reads.
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  ::close(fds[0]);
  EXPECT_FALSE(executeInTryCatchWithSignalHandler([&] {
    const char byte = 1;
    (void)!::write(fds[1], &byte, 1);
  }));
  ::close(fds[1]);
  expectOwnHandlersInPlace();

  // The process goes on normally, also guarding again.
  EXPECT_TRUE(executeInTryCatchWithSignalHandler([] {}));
}

TEST(SignalGuard, ExceptionsPassThroughAfterTheActionsAreRestored) {
  OwnHandlers own;
  EXPECT_THROW((void)executeInTryCatchWithSignalHandler([] { throw std::runtime_error("parse failed"); }),
               std::runtime_error);
  expectOwnHandlersInPlace();
}

TEST(SignalGuard, NestedAndConcurrentGuardsCatchInTheRightPlace) {
  OwnHandlers own;
  bool innerResult = true;
  EXPECT_TRUE(executeInTryCatchWithSignalHandler([&] {
    innerResult = executeInTryCatchWithSignalHandler([] { ::raise(SIGFPE); });
  }));
  EXPECT_FALSE(innerResult);

  int refused[2] = {0, 0};
  std::thread threads[2];
  for (int i = 0; i < 2; ++i) {
    threads[i] = std::thread([&refused, i] {
      for (int round = 0; round < 50; ++round) {
        if (!executeInTryCatchWithSignalHandler([] { ::raise(SIGSEGV); })) ++refused[i];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(refused[0], 50);
  EXPECT_EQ(refused[1], 50);
  expectOwnHandlersInPlace();
}

}  // namespace
