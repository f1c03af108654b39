#pragma once
// Helpers for the crash guard's tests: a private folder, whole-file reads and writes, child
// processes of the crash-guard helper program with a private environment, a log capture.

#include <time.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zt::test {

// A fresh folder under /tmp, removed with everything in it when the object goes away.
class PrivateFolder {
 public:
  PrivateFolder();
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  const std::string& path() const { return path_; }
  std::string add(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::optional<std::string> readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);
bool exists(const std::string& path);

// How a child ended.
struct ChildResult {
  bool exited = false;     // ended through exit
  int exitCode = -1;       // when exited
  int signal = 0;          // the signal that ended it, when it did not exit
  bool timedOut = false;   // still running at the deadline (then killed)
  std::string output;      // standard output and standard error together
};

// Runs program with arguments and extra environment variables; waits up to the deadline.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment,
                     std::chrono::milliseconds deadline = std::chrono::seconds(30));

// A child started without waiting; its output goes to a file in the given folder.
struct RunningChild {
  int pid = -1;
  std::string outputPath;
};
RunningChild startChild(const std::string& program, const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment, const std::string& folder);
ChildResult waitChild(const RunningChild& child, std::chrono::milliseconds deadline);

// Waits until the predicate holds, checking every millisecond; false at the deadline.
template <class Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() > end) return false;
    struct timespec pause {0, 1000000};
    ::nanosleep(&pause, nullptr);
  }
  return true;
}

// The crash-guard helper program built with the tests.
std::string childProgram();
// This test program.
std::string selfProgram();

}  // namespace zt::test
