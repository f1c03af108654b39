#include "crashguard/support/crashguard_test_support.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace zt::test {

PrivateFolder::PrivateFolder() {
  std::string pattern = "/tmp/zt-crashguard-test-XXXXXX";
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

PrivateFolder::~PrivateFolder() {
  std::error_code code;
  std::filesystem::remove_all(path_, code);
}

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

void writeFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
  if (!out) throw std::runtime_error("cannot write " + path);
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

RunningChild startChild(const std::string& program, const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment, const std::string& folder) {
  RunningChild child;
  static int serial = 0;
  child.outputPath = folder + "/child-output-" + std::to_string(++serial) + ".txt";
  std::map<std::string, std::string> merged;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    const auto equals = text.find('=');
    if (equals != std::string::npos) merged[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const auto& [key, value] : environment) merged[key] = value;
  std::vector<std::string> envStrings;
  for (const auto& [key, value] : merged) envStrings.push_back(key + "=" + value);
  std::vector<char*> envp;
  for (auto& text : envStrings) envp.push_back(text.data());
  envp.push_back(nullptr);
  std::vector<std::string> argStrings{program};
  argStrings.insert(argStrings.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& text : argStrings) argv.push_back(text.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, child.outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = -1;
  const int status = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (status != 0) throw std::runtime_error("posix_spawn failed for " + program);
  child.pid = pid;
  return child;
}

ChildResult waitChild(const RunningChild& child, std::chrono::milliseconds deadline) {
  ChildResult result;
  int status = 0;
  const bool ended = waitUntil(
      [&] {
        const pid_t got = ::waitpid(child.pid, &status, WNOHANG);
        return got == child.pid;
      },
      deadline);
  if (!ended) {
    result.timedOut = true;
    ::kill(child.pid, SIGKILL);
    ::waitpid(child.pid, &status, 0);
  }
  if (WIFEXITED(status)) {
    result.exited = true;
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  result.output = readFile(child.outputPath).value_or("");
  return result;
}

ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment, std::chrono::milliseconds deadline) {
  PrivateFolder outputFolder;
  return waitChild(startChild(program, arguments, environment, outputFolder.path()), deadline);
}

std::string childProgram() { return ZT_CRASHGUARD_CHILD; }

std::string selfProgram() {
  char buffer[4096];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (length <= 0) throw std::runtime_error("cannot read /proc/self/exe");
  return std::string(buffer, static_cast<std::size_t>(length));
}

}  // namespace zt::test
