#include "zentrel/system/environment.h"

#include "system/internal/queries.h"
#include "system/internal/text_files.h"

namespace zt::system_internal {

bool runningInTestEnvironment(const Environment& env) {
  if (env("ZT2UITests") == std::optional<std::string>("YES")) return true;
  if (env("XCTestConfigurationFilePath")) return true;
  auto inserted = env("DYLD_INSERT_LIBRARIES");
  return inserted && inserted->find("libXCTTargetBootstrapInject.dylib") != std::string::npos;
}

std::optional<std::int64_t> tracerPid(std::string_view procStatus) {
  std::size_t start = 0;
  while (start < procStatus.size()) {
    std::size_t end = procStatus.find('\n', start);
    if (end == std::string_view::npos) end = procStatus.size();
    std::string_view line = procStatus.substr(start, end - start);
    start = end + 1;
    constexpr std::string_view key = "TracerPid:";
    if (line.substr(0, key.size()) == key) {
      auto pid = parseUnsigned(line.substr(key.size()));
      if (!pid || *pid > 0x7fffffffu) return std::nullopt;
      return static_cast<std::int64_t>(*pid);
    }
  }
  return std::nullopt;
}

}  // namespace zt::system_internal

bool ZTIsRunningInTestEnvironment() {
  return zt::system_internal::runningInTestEnvironment(zt::system_internal::processEnvironment());
}

bool ZTIsDebuggerAttached() {
  auto text = zt::system_internal::readTextFile("/proc/self/status", 256u * 1024u);
  auto pid = text ? zt::system_internal::tracerPid(*text) : std::nullopt;
  return pid && *pid != 0;
}
