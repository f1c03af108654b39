#pragma once
// The kernel's routing state over NETLINK_ROUTE, as reachability needs it: the flags for one
// address now, and a socket that becomes readable when links, addresses or routes change.

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "zentrel/networking/reachability.h"

struct sockaddr;

namespace zt::internal {

struct IPAddress {
  int family = 0;  // AF_INET or AF_INET6
  std::array<std::uint8_t, 16> bytes{};

  // From a sockaddr_in or sockaddr_in6; nullopt for a null pointer or another family.
  static std::optional<IPAddress> fromSocketAddress(const sockaddr* address);
  std::size_t length() const;  // 4 or 16
  bool isAny() const;          // 0.0.0.0 or ::
  std::string text() const;
  friend bool operator==(const IPAddress&, const IPAddress&) = default;
};

// The flags for the address with the routing state as it is now (see reachability.h for what each
// means); nullopt when the kernel cannot be asked. Any thread: each call has its own socket.
std::optional<ZTReachabilityFlags> reachabilityFlagsForAddress(const IPAddress& address);

// Orders flags from best to worst: reachable without connecting, reachable, not reachable.
int reachabilityRank(ZTReachabilityFlags flags);

// A netlink socket joined to the link, IPv4/IPv6 address and IPv4/IPv6 route groups. Non-blocking.
class RouteChangeSocket {
 public:
  RouteChangeSocket() = default;
  RouteChangeSocket(RouteChangeSocket&& other) noexcept;
  RouteChangeSocket& operator=(RouteChangeSocket&& other) noexcept;
  ~RouteChangeSocket();

  // Opens the socket; on failure returns an invalid one and sets errno.
  static RouteChangeSocket open();
  bool isValid() const { return fd_ >= 0; }
  int fileDescriptor() const { return fd_; }
  // Reads what is queued (at most a bounded number of reads); true when anything was read or the
  // kernel dropped messages for want of room (a change in either case).
  bool drain();

 private:
  int fd_ = -1;
};

}  // namespace zt::internal
