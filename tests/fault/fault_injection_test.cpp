// Every call site in turn: each scenario (scenarios.h) runs once in a child process to count the
// calls it makes into its folder, then once per call with that call failing, with ENOSPC, EIO,
// EACCES and EMFILE in turn. A child must exit 0: the library kept its promises whatever failed.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fault/scenarios.h"

extern char** environ;

namespace zt::fault {
// Test names and failure messages show the scenario's name.
void PrintTo(const ScenarioEntry& entry, std::ostream* out) { *out << entry.name; }
}  // namespace zt::fault

namespace fs = std::filesystem;

namespace {

const char* const kErrors[] = {"ENOSPC", "EIO", "EACCES", "EMFILE"};

struct ChildResult {
  int status = -1;  // exit status; 128 + signal when killed; -1 when it could not be started
  std::string output;
  long calls = -1;
  std::string failedCall;
};

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Runs this program as the scenario's child with the injection library preloaded.
ChildResult runChild(const std::string& scenario, const char* families, long failAt, const char* error,
                     const fs::path& work) {
  const fs::path folder = work / "scenario";
  const fs::path other = fs::path("/dev/shm") / work.filename();
  std::error_code ignored;
  fs::remove_all(folder, ignored);
  fs::remove_all(other, ignored);
  for (const char* sub : {"tmp", "run", "cache"}) fs::create_directories(folder / sub);
  fs::create_directories(other);
  fs::permissions(folder / "run", fs::perms::owner_all);
  const fs::path report = work / "report";
  const fs::path output = work / "output";
  fs::remove(report, ignored);

  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (text.rfind("ZT_FAULT_", 0) == 0 || text.rfind("LD_PRELOAD=", 0) == 0 || text.rfind("TMPDIR=", 0) == 0 ||
        text.rfind("XDG_RUNTIME_DIR=", 0) == 0 || text.rfind("XDG_CACHE_HOME=", 0) == 0 ||
        text.rfind("ASAN_OPTIONS=", 0) == 0) {
      continue;
    }
    environment.push_back(text);
  }
  // In AddressSanitizer builds the preloaded library comes before the sanitizer's runtime, which
  // the runtime refuses unless told that this order is intended.
  const char* asanOptions = std::getenv("ASAN_OPTIONS");
  environment.push_back(std::string("ASAN_OPTIONS=") + (asanOptions != nullptr ? asanOptions : "") +
                        (asanOptions != nullptr && *asanOptions != '\0' ? ":" : "") + "verify_asan_link_order=0");
  environment.push_back(std::string("LD_PRELOAD=") + ZT_FAULT_INJECTION_LIBRARY);
  environment.push_back("ZT_FAULT_SCOPE=" + folder.string() + ":" + other.string());
  environment.push_back(std::string("ZT_FAULT_CALLS=") + families);
  environment.push_back("ZT_FAULT_AT=" + std::to_string(failAt));
  environment.push_back(std::string("ZT_FAULT_ERRNO=") + error);
  environment.push_back("ZT_FAULT_REPORT=" + report.string());
  environment.push_back("ZT_FAULT_START_DISARMED=1");
  environment.push_back("ZT_FAULT_OTHER_FILE_SYSTEM=" + other.string());
  environment.push_back("TMPDIR=" + (folder / "tmp").string());
  environment.push_back("XDG_RUNTIME_DIR=" + (folder / "run").string());
  environment.push_back("XDG_CACHE_HOME=" + (folder / "cache").string());
  std::vector<char*> envp;
  for (std::string& text : environment) envp.push_back(text.data());
  envp.push_back(nullptr);

  std::string self = fs::read_symlink("/proc/self/exe").string();
  std::string flag = "--fault-scenario";
  std::string name = scenario;
  std::string where = folder.string();
  char* argv[] = {self.data(), flag.data(), name.data(), where.data(), nullptr};

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = -1;
  ChildResult result;
  const int spawned = posix_spawn(&pid, self.c_str(), &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return result;

  // A scenario takes well under a second; one that hangs is killed and counts as a failure.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  int status = 0;
  for (;;) {
    const pid_t done = ::waitpid(pid, &status, WNOHANG);
    if (done == pid) break;
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.output = readAll(output);
  std::istringstream lines(readAll(report));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("calls ", 0) == 0) result.calls = std::stol(line.substr(6));
    if (line.rfind("failed ", 0) == 0) result.failedCall = line.substr(7);
  }
  fs::remove_all(other, ignored);
  return result;
}

class FaultInjection : public ::testing::TestWithParam<zt::fault::ScenarioEntry> {
 protected:
  void SetUp() override {
    work_ = fs::temp_directory_path() / ("zt-fault-" + std::to_string(::getpid()) + "-" + GetParam().name);
    fs::create_directories(work_);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(work_, ignored);
  }
  fs::path work_;
};

TEST_P(FaultInjection, KeepsItsPromisesWhicheverCallFails) {
  const zt::fault::ScenarioEntry& scenario = GetParam();
  const ChildResult clean = runChild(scenario.name, scenario.families, 0, "EIO", work_);
  ASSERT_EQ(clean.status, 0) << "without faults\n" << clean.output;
  ASSERT_GT(clean.calls, 0) << "the scenario passes no injection point";

  const long points = clean.calls;
  for (long at = 1; at <= points; ++at) {
    for (const char* error : kErrors) {
      const ChildResult run = runChild(scenario.name, scenario.families, at, error, work_);
      EXPECT_EQ(run.status, 0) << scenario.name << ": call " << at << " of " << points << " failing with " << error
                               << " (" << run.failedCall << ")\n"
                               << run.output;
    }
  }
  std::cout << "[ fault    ] " << scenario.name << ": " << points << " injection points, each with "
            << std::size(kErrors) << " errors\n";
  RecordProperty("injection_points", static_cast<int>(points));
}

INSTANTIATE_TEST_SUITE_P(Scenarios, FaultInjection, ::testing::ValuesIn(zt::fault::scenarios().begin(),
                                                                        zt::fault::scenarios().end()),
                         [](const auto& entry) { return std::string(entry.param.name); });

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--fault-scenario") return zt::fault::runScenario(argv[2], argv[3]);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
