#include "system/support/machine_root.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "zentrel/platform/log.h"

namespace zt::test {

MachineRoot::MachineRoot() {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/zt-system-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
  path_ = pattern;
}

MachineRoot::~MachineRoot() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

std::string MachineRoot::write(std::string_view relative, std::string_view contents) const {
  std::filesystem::path full = path_ + std::string(relative);
  std::error_code error;
  std::filesystem::create_directories(full.parent_path(), error);
  std::ofstream out(full, std::ios::binary | std::ios::trunc);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  out.close();
  if (!out) ADD_FAILURE() << "cannot write " << full;
  return full.string();
}

std::string MachineRoot::makeFolder(std::string_view relative) const {
  std::string full = path_ + std::string(relative);
  std::error_code error;
  std::filesystem::create_directories(full, error);
  if (error) ADD_FAILURE() << "cannot create " << full;
  return full;
}

std::string MachineRoot::read(std::string_view relative) const {
  std::ifstream in(path_ + std::string(relative), std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

system_internal::Environment fixedEnvironment(std::vector<std::pair<std::string, std::string>> pairs) {
  return [pairs = std::move(pairs)](const char* name) -> std::optional<std::string> {
    for (const auto& [key, value] : pairs) {
      if (key == name) return value;
    }
    return std::nullopt;
  };
}

std::optional<std::string> commandOutput(const std::string& command) {
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return std::nullopt;
  std::string output;
  char buffer[4096];
  while (std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, got);
  int status = ::pclose(pipe);
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return output;
}

bool programInstalled(const char* name) {
  return commandOutput(std::string("command -v ") + name + " >/dev/null 2>&1").has_value();
}

}  // namespace zt::test
