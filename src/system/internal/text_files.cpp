#include "system/internal/text_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

namespace zt::system_internal {

std::optional<std::string> readTextFile(const std::string& path, std::size_t maxBytes) {
  if (path.empty() || path.find('\0') != std::string::npos) return std::nullopt;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  std::string text;
  char buffer[4096];
  bool ok = true;
  // Each pass either adds bytes, ends the file, or fails; bytes are bounded by maxBytes, and
  // interruptions by the retry budget.
  for (int interruptions = 0;;) {
    ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR && ++interruptions < 100) continue;
      ok = false;
      break;
    }
    if (got == 0) break;
    if (text.size() + static_cast<std::size_t>(got) > maxBytes) {
      ok = false;
      break;
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  if (!ok) return std::nullopt;
  return text;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view space = " \t\r\n\f\v";
  auto first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  auto last = text.find_last_not_of(space);
  return text.substr(first, last - first + 1);
}

std::optional<std::string> readFirstLine(const std::string& path, std::size_t maxBytes) {
  auto text = readTextFile(path, maxBytes);
  if (!text) return std::nullopt;
  std::string_view view = *text;
  view = view.substr(0, view.find('\n'));
  view = trimmed(view);
  if (view.empty()) return std::nullopt;
  return std::string(view);
}

std::optional<std::uint64_t> parseUnsigned(std::string_view text) {
  text = trimmed(text);
  if (text.empty() || text.size() > 20) return std::nullopt;
  std::uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    auto digit = static_cast<std::uint64_t>(c - '0');
    if (value > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) return std::nullopt;
    value = value * 10 + digit;
  }
  return value;
}

std::optional<std::uint64_t> meminfoBytes(std::string_view meminfo, std::string_view key) {
  std::size_t start = 0;
  while (start < meminfo.size()) {
    std::size_t end = meminfo.find('\n', start);
    if (end == std::string_view::npos) end = meminfo.size();
    std::string_view line = meminfo.substr(start, end - start);
    start = end + 1;
    if (line.size() <= key.size() || line.substr(0, key.size()) != key || line[key.size()] != ':') continue;
    std::string_view value = trimmed(line.substr(key.size() + 1));
    std::uint64_t multiplier = 1;
    if (value.size() > 2 && value.substr(value.size() - 2) == "kB") {
      multiplier = 1024;
      value = value.substr(0, value.size() - 2);
    }
    auto number = parseUnsigned(value);
    if (!number) return std::nullopt;
    if (*number > std::numeric_limits<std::uint64_t>::max() / multiplier) return std::nullopt;
    return *number * multiplier;
  }
  return std::nullopt;
}

std::uint64_t freeMemoryFromMeminfo(std::string_view meminfo) {
  return meminfoBytes(meminfo, "MemFree").value_or(0);
}

std::uint64_t otherMemoryFromMeminfo(std::string_view meminfo) {
  auto total = meminfoBytes(meminfo, "MemTotal");
  if (!total) return 0;
  std::uint64_t used = 0;
  for (std::string_view key : {"MemFree", "Active", "Inactive", "Unevictable", "SUnreclaim", "KernelStack",
                               "PageTables"}) {
    auto part = meminfoBytes(meminfo, key);
    if (!part) return 0;
    if (*part > std::numeric_limits<std::uint64_t>::max() - used) return 0;
    used += *part;
  }
  return used > *total ? 0 : *total - used;
}

std::uint64_t freeMemoryAmountAt(const std::string& root) {
  auto text = readTextFile(root + "/proc/meminfo", 256u * 1024u);
  return text ? freeMemoryFromMeminfo(*text) : 0;
}

std::uint64_t otherMemoryAmountAt(const std::string& root) {
  auto text = readTextFile(root + "/proc/meminfo", 256u * 1024u);
  return text ? otherMemoryFromMeminfo(*text) : 0;
}

}  // namespace zt::system_internal
