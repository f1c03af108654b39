#pragma once
// Scenarios for fault injection: each does one thing the library promises to do safely (write its
// crash log, move or copy a file, watch a folder) in its own folder, with counting armed only
// around the library's work, then checks the promise held whatever call failed. They run in child
// processes of zt_fault_tests with the fault-injection library preloaded (fault/fault_injection.c).
//
// Adding one: write a function `void name(Scenario& s)` in scenarios.cpp and add a line to
// kScenarios there. The driver runs it once to count its calls and once per call with that call
// failing; nothing else is needed.

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace zt::fault {

class Scenario {
 public:
  explicit Scenario(std::filesystem::path folder);

  // The scenario's own folder (empty at the start, and the only place whose calls count).
  const std::filesystem::path& folder() const { return folder_; }
  // Runs `work` with counting armed: its calls are the injection points.
  void armed(const std::function<void()>& work);
  // Records a broken promise; the scenario goes on and the child exits with status 1.
  void require(bool condition, const std::string& what);
  int brokenPromises() const { return broken_; }

 private:
  std::filesystem::path folder_;
  int broken_ = 0;
};

struct ScenarioEntry {
  const char* name;
  // The call families that count (ZT_FAULT_CALLS), e.g. "open,write,fsync,rename".
  const char* families;
  void (*run)(Scenario&);
};

std::span<const ScenarioEntry> scenarios();

// The child's side: runs the named scenario in the folder; the process exit status.
int runScenario(const std::string& name, const std::string& folder);

}  // namespace zt::fault
