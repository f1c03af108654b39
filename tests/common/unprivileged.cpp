#include "common/unprivileged.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace zt::test {
namespace {
constexpr uid_t kNobody = 65534;
constexpr int kCannotSwitch = 126;
constexpr int kCannotStart = 127;

void skipBecauseTheUserCannotBeSwitched() { GTEST_SKIP() << "cannot run as the unprivileged user nobody here"; }
}  // namespace

bool ranUnprivilegedInAChild() {
  if (::geteuid() != 0) return false;
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  if (info == nullptr) return false;
  // Everything the child needs is made before fork: between fork and exec it may only make
  // async-signal-safe calls.
  std::vector<std::string> environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "TMPDIR=", 7) != 0) environment.emplace_back(*variable);
  }
  environment.emplace_back("TMPDIR=/tmp");
  std::vector<char*> envp;
  for (auto& variable : environment) envp.push_back(variable.data());
  envp.push_back(nullptr);
  std::string program = "/proc/self/exe";
  std::string filter = std::string("--gtest_filter=") + info->test_suite_name() + "." + info->name();
  std::string noShuffle = "--gtest_shuffle=0";
  std::string once = "--gtest_repeat=1";
  char* argv[] = {program.data(), filter.data(), noShuffle.data(), once.data(), nullptr};
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child < 0) {
    ADD_FAILURE() << "cannot start the unprivileged run: " << std::strerror(errno);
    return true;
  }
  if (child == 0) {
    if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(kCannotSwitch);
    ::execve(program.c_str(), argv, envp.data());
    ::_exit(kCannotStart);
  }
  int status = 0;
  pid_t waited = -1;
  for (int attempt = 0; attempt < 64; ++attempt) {
    waited = ::waitpid(child, &status, 0);
    if (waited == child || errno != EINTR) break;
  }
  if (waited != child || !WIFEXITED(status)) {
    ADD_FAILURE() << "the unprivileged run of this test did not end normally";
    return true;
  }
  if (WEXITSTATUS(status) == kCannotSwitch || WEXITSTATUS(status) == kCannotStart) {
    skipBecauseTheUserCannotBeSwitched();
    return true;
  }
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the unprivileged run of this test failed; its output is above";
  return true;
}

}  // namespace zt::test
