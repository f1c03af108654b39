// `zt guard --id ID [--retry] -- CMD [ARGS...]`: runs a command under the crash guard.
//
// The guard keeps one record per ID in <caches folder>/zt-guard.plist while the command runs. A
// command that dies from a signal crashed, and its record stays: the next run with the same ID is
// refused until --retry is given. The signals a person or the session uses to stop a program
// (SIGINT, SIGTERM, SIGHUP) are not crashes, and neither is a non-zero exit: the command ran to its
// end and said it failed. zt forwards SIGINT, SIGQUIT, SIGTERM and SIGHUP to the command and waits
// for it, so stopping zt stops the command and the outcome is still recorded.
//
// Exit code: the command's own; 128 + the signal when it died from one; 75 when the guard refused
// to run it; 126 when it could not be started, 127 when it was not found.
//
// zt stands in for the command's process: a crash record written for the command must survive
// zt's own orderly exit, so zt ends with _exit() (output flushed first) and the logger's exit-time
// restore of the launch-time file does not run.

#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/crashguard/risk_crash_logger.h"
#include "zentrel/filesystem/standard_directories.h"

extern char** environ;

namespace ztool {
namespace {

constexpr int kRefusedExitCode = 75;

volatile sig_atomic_t commandPid = 0;

void forwardToCommand(int signal) {
  const pid_t pid = commandPid;
  if (pid > 0) ::kill(pid, signal);
}

// Thrown out of the guarded block when the command crashed, so that its record stays.
struct CommandCrashed {
  int signal;
};

bool isStopRequest(int signal) { return signal == SIGINT || signal == SIGTERM || signal == SIGHUP; }

std::string signalText(int signal) {
  const char* description = ::strsignal(signal);
  return "signal " + std::to_string(signal) + (description ? std::string(", ") + description : std::string());
}

// Starts the command, waits for it with the stop signals forwarded, and answers its wait status;
// -1 with errno when it could not be started.
int runCommand(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  for (const auto& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  struct sigaction forward {};
  forward.sa_handler = forwardToCommand;
  sigemptyset(&forward.sa_mask);
  forward.sa_flags = SA_RESTART;
  struct sigaction previous[4];
  const int stopSignals[4] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
  for (int i = 0; i < 4; ++i) ::sigaction(stopSignals[i], &forward, &previous[i]);

  pid_t pid = -1;
  const int spawnError = ::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
  int status = -1;
  if (spawnError == 0) {
    commandPid = pid;
    // Bounded by the command's life: waitpid returns when it ends; EINTR only repeats the wait.
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    commandPid = 0;
  }
  for (int i = 0; i < 4; ++i) ::sigaction(stopSignals[i], &previous[i], nullptr);
  if (spawnError != 0) {
    errno = spawnError;
    return -1;
  }
  return status;
}

[[noreturn]] void finish(int code) {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
  ::_exit(code);
}

int runGuard(const std::string& identifier, bool retry, const std::vector<std::string>& command) {
  const std::string name = command.front();
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistName("zt-guard.plist");
  if (!logger) return 1;
  int exitCode = 0;
  bool ranAnyway = false;
  try {
    const bool ran = logger->performOperationWithIdentifier(
        identifier,
        [&] {
          if (!ranAnyway) std::cerr << "zt guard: no crash on record for '" << identifier << "'; running " << name << ".\n";
          const int status = runCommand(command);
          if (status < 0) {
            const int error = errno;
            exitCode = error == ENOENT ? 127 : 126;
            std::cerr << "zt guard: could not start " << name << " (" << std::strerror(error)
                      << "); nothing ran, so nothing is on record for '" << identifier << "'.\n";
            return;
          }
          if (WIFSIGNALED(status)) {
            const int signal = WTERMSIG(status);
            exitCode = 128 + signal;
            if (!isStopRequest(signal)) throw CommandCrashed{signal};
            std::cerr << "zt guard: " << name << " was stopped (" << signalText(signal)
                      << "); that is not a crash, so the record for '" << identifier << "' is cleared.\n";
            return;
          }
          exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 1;
          if (exitCode == 0) {
            std::cerr << "zt guard: " << name << " finished normally; the record for '" << identifier << "' is cleared.\n";
          } else {
            std::cerr << "zt guard: " << name << " exited with code " << exitCode
                      << "; that is a failure, not a crash, so the record for '" << identifier << "' is cleared.\n";
          }
        },
        [&] {
          if (!retry) return false;
          ranAnyway = true;
          std::cerr << "zt guard: " << name << " crashed the last time it ran with --id " << identifier
                    << "; running it anyway because of --retry.\n";
          return true;
        });
    if (!ran) {
      std::cerr << "zt guard: not running " << name << ": it crashed the last time it ran with --id " << identifier
                << ". Add --retry to run it anyway.\n";
      return kRefusedExitCode;
    }
  } catch (const CommandCrashed& crash) {
    std::cerr << "zt guard: " << name << " crashed (" << signalText(crash.signal)
              << "); the crash stays on record, and the next run with --id " << identifier
              << " will be refused unless you add --retry.\n";
  }
  return exitCode;
}

}  // namespace

void addGuardCommand(CLI::App& app) {
  auto* command = app.add_subcommand(
      "guard",
      "Run a command under the crash guard: after it crashes (dies from a signal), later runs with the same "
      "--id are refused until --retry is given. Records live in " + ZTCachesDirectoryAdd("zt-guard.plist") + ".");
  command->footer("Exit status: the command's own; 128 + the signal when it was stopped or crashed; 126 or 127 when it\n"
      "could not be started; 1 when zt refused to run it or could not keep the record; 2 for a bad command line.\n\n"
      "Example: zt guard --id backup -- rsync -a ~/Documents /mnt/backup");
  static std::string identifier;
  static bool retry = false;
  static std::vector<std::string> arguments;
  command->add_option("--id", identifier, "What to remember the command by")->required();
  command->add_flag("--retry", retry, "Run the command even though it crashed last time");
  command->add_option("command", arguments, "The command and its arguments, after --")->required();
  command->callback([] {
    if (identifier.empty()) {
      std::cerr << "zt guard: the --id must not be empty.\n";
      finish(2);
    }
    finish(runGuard(identifier, retry, arguments));
  });
}

}  // namespace ztool
