#pragma once
// Test helpers for the system queries: a private folder laid out as another machine's root (its
// /proc, /sys and /etc files written by the test), a log capture, a scoped environment variable and
// a way to ask a real program for its answer.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "system/internal/queries.h"
#include "common/log_and_environment.h"

namespace zt::test {

// A fresh folder under $TMPDIR (else /tmp), removed with everything in it when the object goes.
class MachineRoot {
 public:
  MachineRoot();
  ~MachineRoot();
  MachineRoot(const MachineRoot&) = delete;
  MachineRoot& operator=(const MachineRoot&) = delete;

  const std::string& path() const { return path_; }
  // Writes a file at a path below the root ("/proc/meminfo"), making its folders; fails the test
  // on error. Returns the full path.
  std::string write(std::string_view relative, std::string_view contents) const;
  std::string makeFolder(std::string_view relative) const;
  std::string read(std::string_view relative) const;

 private:
  std::string path_;
};

// An environment made of the given pairs only.
system_internal::Environment fixedEnvironment(std::vector<std::pair<std::string, std::string>> pairs);

// Runs a shell command and returns its standard output, or nullopt when it cannot be started or
// exits with a non-zero status.
std::optional<std::string> commandOutput(const std::string& command);
bool programInstalled(const char* name);

}  // namespace zt::test
