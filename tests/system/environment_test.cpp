#include "zentrel/system/environment.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "system/internal/queries.h"
#include "system/support/machine_root.h"

namespace {

using namespace zt::system_internal;
using zt::test::fixedEnvironment;

TEST(TestEnvironment, TheThreeMarksOfAHarness) {
  EXPECT_FALSE(runningInTestEnvironment(fixedEnvironment({})));
  EXPECT_TRUE(runningInTestEnvironment(fixedEnvironment({{"ZT2UITests", "YES"}})));
  EXPECT_FALSE(runningInTestEnvironment(fixedEnvironment({{"ZT2UITests", "yes"}})));
  EXPECT_FALSE(runningInTestEnvironment(fixedEnvironment({{"ZT2UITests", "NO"}})));
  EXPECT_TRUE(runningInTestEnvironment(fixedEnvironment({{"XCTestConfigurationFilePath", ""}})));
  EXPECT_TRUE(runningInTestEnvironment(
      fixedEnvironment({{"DYLD_INSERT_LIBRARIES", "/a/libX.dylib:/b/libXCTTargetBootstrapInject.dylib"}})));
  EXPECT_FALSE(runningInTestEnvironment(fixedEnvironment({{"DYLD_INSERT_LIBRARIES", "/a/libX.dylib"}})));

  zt::test::ScopedEnvironment ui("ZT2UITests", nullptr);
  zt::test::ScopedEnvironment config("XCTestConfigurationFilePath", nullptr);
  zt::test::ScopedEnvironment inserted("DYLD_INSERT_LIBRARIES", nullptr);
  EXPECT_FALSE(ZTIsRunningInTestEnvironment());
  {
    zt::test::ScopedEnvironment marked("ZT2UITests", "YES");
    EXPECT_TRUE(ZTIsRunningInTestEnvironment());
  }
  EXPECT_FALSE(ZTIsRunningInTestEnvironment());
}

TEST(Debugger, TracerPidOfProcessStatus) {
  EXPECT_EQ(tracerPid("Name:\tcat\nState:\tR (running)\nTgid:\t42\nPid:\t42\nPPid:\t1\nTracerPid:\t0\nUid:\t0\n"), 0);
  EXPECT_EQ(tracerPid("Name:\tcat\nTracerPid:\t3141\n"), 3141);
  EXPECT_EQ(tracerPid("Name:\tcat\n"), std::nullopt);
  EXPECT_EQ(tracerPid("TracerPid:\tx\n"), std::nullopt);
  EXPECT_EQ(tracerPid("TracerPid:"), std::nullopt);
}

TEST(Debugger, SeenOnlyWhileATracerIsAttached) {
  if (ZTIsDebuggerAttached()) GTEST_SKIP() << "this test runs under a debugger";
  // A child asks its parent (this process) to trace it, then reports what it sees.
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(2);
    ::_exit(ZTIsDebuggerAttached() ? 0 : 1);
  }
  int status = 0;
  // A traced child stops on signals for its tracer; this one receives none and runs to its end.
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "tracing is not permitted here";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the traced child did not see its tracer";
}

}  // namespace
