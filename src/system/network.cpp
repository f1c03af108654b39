#include "zentrel/system/network.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "zentrel/platform/log.h"

namespace zt::system_internal {

namespace {

constexpr unsigned kRouteUp = 0x0001;      // RTF_UP
constexpr unsigned kRouteReject = 0x0200;  // RTF_REJECT
constexpr std::size_t kMaxInterfaces = 4096;

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    std::size_t begin = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
    if (i > begin) out.push_back(line.substr(begin, i - begin));
  }
  return out;
}

std::optional<std::uint64_t> parseHex(std::string_view text) {
  if (text.empty() || text.size() > 16) return std::nullopt;
  std::uint64_t value = 0;
  for (char c : text) {
    int digit;
    if (c >= '0' && c <= '9') digit = c - '0';
    else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    else return std::nullopt;
    value = value * 16 + static_cast<std::uint64_t>(digit);
  }
  return value;
}

template <typename Visit>
void forEachLine(std::string_view text, Visit visit) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    visit(text.substr(start, end - start));
    start = end + 1;
  }
}

bool isHardwareEthernet(const std::string& classNet, const std::string& name) {
  auto type = readFirstLine(classNet + "/" + name + "/type");
  if (!type || parseUnsigned(*type) != 1u) return false;  // ARPHRD_ETHER: Ethernet and Wi-Fi
  struct stat info;
  return ::stat((classNet + "/" + name + "/device").c_str(), &info) == 0;
}

}  // namespace

std::optional<std::string> defaultRouteInterface(std::string_view procNetRoute) {
  std::optional<std::string> best;
  std::uint64_t bestMetric = std::numeric_limits<std::uint64_t>::max();
  forEachLine(procNetRoute, [&](std::string_view line) {
    auto f = fields(line);
    // Iface Destination Gateway Flags RefCnt Use Metric Mask ...
    if (f.size() < 8) return;
    auto destination = parseHex(f[1]), flags = parseHex(f[3]), mask = parseHex(f[7]);
    auto metric = parseUnsigned(f[6]);
    if (!destination || !flags || !mask || !metric) return;  // the header line, or garbage
    if (*destination != 0 || *mask != 0 || !(*flags & kRouteUp) || (*flags & kRouteReject)) return;
    if (!best || *metric < bestMetric) {
      best = std::string(f[0]);
      bestMetric = *metric;
    }
  });
  return best;
}

std::optional<std::string> defaultRouteInterfaceIPv6(std::string_view procNetIPv6Route) {
  std::optional<std::string> best;
  std::uint64_t bestMetric = std::numeric_limits<std::uint64_t>::max();
  forEachLine(procNetIPv6Route, [&](std::string_view line) {
    auto f = fields(line);
    // destination prefix-length source source-prefix next-hop metric refcount use flags device
    if (f.size() < 10 || f[0].size() != 32) return;
    auto prefix = parseHex(f[1]), metric = parseHex(f[5]), flags = parseHex(f[8]);
    if (!prefix || !metric || !flags) return;
    if (f[0] != std::string_view("00000000000000000000000000000000") || *prefix != 0) return;
    if (!(*flags & kRouteUp) || (*flags & kRouteReject) || f[9] == "lo") return;
    if (!best || *metric < bestMetric) {
      best = std::string(f[9]);
      bestMetric = *metric;
    }
  });
  return best;
}

InterfaceRoles interfaceRolesAt(const std::string& root, bool wantSecondary) {
  InterfaceRoles roles;
  if (auto text = readTextFile(root + "/proc/net/route")) {
    if (auto name = defaultRouteInterface(*text)) roles.primary = *name;
  }
  if (roles.primary.empty()) {
    if (auto text = readTextFile(root + "/proc/net/ipv6_route", 16u << 20)) {
      if (auto name = defaultRouteInterfaceIPv6(*text)) roles.primary = *name;
    }
  }
  if (!roles.primary.empty() && !wantSecondary) return roles;
  const std::string classNet = root + "/sys/class/net";
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(classNet.c_str())) {
    while (names.size() < kMaxInterfaces) {
      struct dirent* entry = ::readdir(dir);
      if (!entry) break;
      std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      names.push_back(std::move(name));
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  for (const auto& name : names) {
    if (name == roles.primary || !isHardwareEthernet(classNet, name)) continue;
    if (roles.primary.empty()) {
      roles.primary = name;
    } else {
      roles.secondary = name;
      break;
    }
  }
  return roles;
}

std::optional<std::array<std::uint8_t, 6>> parseHardwareAddress(std::string_view text) {
  text = trimmed(text);
  if (text.size() != 17) return std::nullopt;
  std::array<std::uint8_t, 6> bytes{};
  for (std::size_t i = 0; i < 6; ++i) {
    if (i > 0 && text[i * 3 - 1] != ':') return std::nullopt;
    auto byte = parseHex(text.substr(i * 3, 2));
    if (!byte) return std::nullopt;
    bytes[i] = static_cast<std::uint8_t>(*byte);
  }
  return bytes;
}

std::string macAddressStringAt(const std::string& root) {
  InterfaceRoles roles = interfaceRolesAt(root, false);
  if (roles.primary.empty()) {
    ZTLogf("FindEthernetInterfaces failed with code 0x%08x", static_cast<unsigned>(ENOENT));
    return {};
  }
  errno = 0;
  auto text = readFirstLine(root + "/sys/class/net/" + roles.primary + "/address");
  int code = errno != 0 ? errno : EINVAL;
  auto bytes = text ? parseHardwareAddress(*text) : std::nullopt;
  if (!bytes) {
    ZTLogf("GetMACAddress failed with code 0x%08x", static_cast<unsigned>(text ? EINVAL : code));
    return {};
  }
  char out[18];
  std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", (*bytes)[0], (*bytes)[1], (*bytes)[2], (*bytes)[3],
                (*bytes)[4], (*bytes)[5]);
  return out;
}

std::optional<std::string> chooseEthernetIP(const std::vector<InterfaceAddress>& addresses,
                                            const InterfaceRoles& roles) {
  std::optional<std::string> secondary;
  for (const auto& address : addresses) {
    if (!roles.primary.empty() && address.interface == roles.primary) return address.ipv4;
    if (!roles.secondary.empty() && address.interface == roles.secondary) secondary = address.ipv4;
  }
  return secondary;
}

}  // namespace zt::system_internal

std::string ZTGetMACAddressString() { return zt::system_internal::macAddressStringAt(""); }

std::optional<std::string> ethernetIP() {
  using namespace zt::system_internal;
  // Most machines have an address on the primary interface: one request for it spares listing
  // every address and looking the secondary interface up.
  InterfaceRoles roles = interfaceRolesAt("", false);
  if (!roles.primary.empty() && roles.primary.size() < IFNAMSIZ) {
    if (int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); fd >= 0) {
      struct ifreq request {};
      std::memcpy(request.ifr_name, roles.primary.c_str(), roles.primary.size() + 1);
      request.ifr_addr.sa_family = AF_INET;
      const bool found = ::ioctl(fd, SIOCGIFADDR, &request) == 0;
      ::close(fd);
      char text[INET_ADDRSTRLEN];
      const auto* address = reinterpret_cast<const struct sockaddr_in*>(&request.ifr_addr);
      if (found && ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text)) return std::string(text);
    }
  }
  struct ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return std::nullopt;
  std::vector<InterfaceAddress> addresses;
  for (struct ifaddrs* item = list; item && addresses.size() < 65536; item = item->ifa_next) {
    if (!item->ifa_addr || item->ifa_addr->sa_family != AF_INET || !item->ifa_name) continue;
    char text[INET_ADDRSTRLEN];
    const auto* address = reinterpret_cast<const struct sockaddr_in*>(item->ifa_addr);
    if (!::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text)) continue;
    addresses.push_back({item->ifa_name, text});
  }
  ::freeifaddrs(list);
  return chooseEthernetIP(addresses, interfaceRolesAt("", true));
}
