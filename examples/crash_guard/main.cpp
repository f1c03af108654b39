// An operation that may crash the program, run under the crash guard: after it has crashed once,
// the next run asks the application whether to try again. A child process plays the run that
// crashed.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/crash_guard

#include <zentrel/crashguard/risk_crash_logger.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

int main() {
  char folderTemplate[] = "/tmp/crash_guard_example.XXXXXX";
  if (::mkdtemp(folderTemplate) == nullptr) return 1;
  const std::string folder = folderTemplate;
  const std::string log = folder + "/crashes.plist";

  std::cout.flush();
  const pid_t child = ::fork();
  if (child == 0) {
    auto guard = ZTRiskCrashLogger::createWithCrashesLogPlistPath(log);
    guard->performOperationWithIdentifier("import old catalogue", [] { std::abort(); });
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  std::cout << "the first run " << (WIFSIGNALED(status) ? "crashed" : "did not crash") << " while importing\n";

  bool refused = false, retried = false;
  {
    auto guard = ZTRiskCrashLogger::createWithCrashesLogPlistPath(log);
    refused = !guard->performOperationWithIdentifier(
        "import old catalogue", [] {}, [] { return false; });  // the user says: do not try again
    std::cout << "the next run was " << (refused ? "refused" : "NOT refused") << "\n";
    retried = guard->performOperationWithIdentifier(
        "import old catalogue", [] { std::cout << "imported, this time\n"; }, [] { return true; });
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return WIFSIGNALED(status) && refused && retried ? 0 : 1;
}
