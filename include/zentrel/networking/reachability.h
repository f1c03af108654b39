#pragma once
// ZTReachability: whether a host or an address can be reached with the network as it is now, and
// a notification when that changes.
//
// The answer comes from the kernel's routing state, read over a NETLINK_ROUTE socket: the route
// the kernel would take to the target and the link it leaves by. Nothing is sent to the target.
// The flags keep the values applications know from other systems; on Linux they mean:
//
//   flag                         value     set when
//   ---------------------------  --------  -----------------------------------------------------------
//   TransientConnection          1 << 0    the route leaves by a point-to-point link (IFF_POINTOPOINT:
//                                          PPP, WireGuard, tun)
//   Reachable                    1 << 1    the kernel has a unicast or local route to the address
//                                          (for the any address: a default route of its family),
//                                          whether or not its link has carrier now
//   ConnectionRequired           1 << 2    that route's link is not running (administratively up but
//                                          no carrier, IFF_RUNNING clear): it must connect first
//   ConnectionOnTraffic          1 << 3    never: Linux does not bring links up on traffic
//   InterventionRequired         1 << 4    never: the kernel asks no one for credentials
//   ConnectionOnDemand           1 << 5    never: as ConnectionOnTraffic
//   IsLocalAddress               1 << 16   the address is one of this machine's own (route type local)
//   IsDirect                     1 << 17   the route has no gateway: the address is on an attached link
//   IsWWAN                       1 << 18   the link is a mobile-broadband modem (ARPHRD_RAWIP)
//
// No route, or an unreachable, prohibit or blackhole route, gives no flag at all. For a host name,
// the flags are those of the best of its addresses (reachable without connecting, else reachable,
// else none); a name that does not resolve has no flag.
//
// Status: the network rule (networkStatusForFlags) and the link-local rule
// (localWiFiStatusForFlags) turn flags into ZTNotReachable or ZTReachable.
//
// Threads: currentReachabilityStatus(), connectionRequired() and currentReachabilityFlags() may be
// called from any thread; they ask the kernel synchronously (two netlink round trips, tens of
// microseconds) and never wait for name resolution. Host names are resolved with getaddrinfo on
// ZTDispatchQueue::global(), never on the calling thread: until the first answer the flags cannot
// be read (std::nullopt, status ZTNotReachable). A started notifier watches the kernel's link,
// address and route changes through a file-descriptor source of ZTRunLoop::main(), resolves host
// names again after each change, and posts "kNetworkReachabilityChangedNotification" on
// ZTNotificationCenter::defaultCenter(), on the main thread, with the ZTReachability as its object,
// whenever the status changes. The main run loop must be turning for that.
//
// Ownership: held by std::shared_ptr. The object owns its target (the address or host name, its
// resolved addresses, the netlink watch) and stops its notifier when destroyed; a resolution still
// running then finishes into nothing. requestString and responseString are not synchronised: one
// thread at a time.
//
// Bad input: an empty host name, one with a NUL byte or longer than 1024 bytes, a null address and
// an address of a family other than AF_INET and AF_INET6 are refused (nullptr). A kernel that does
// not answer (no netlink, seccomp) makes the flags unreadable, never an exception.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "zentrel/platform/export.h"

struct sockaddr;

inline constexpr const char* kNetworkReachabilityChangedNotification = "kNetworkReachabilityChangedNotification";

enum ZTNetworkStatus : std::int64_t { ZTNotReachable = 0, ZTReachable = 1 };

using ZTReachabilityFlags = std::uint32_t;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsTransientConnection = 1u << 0;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsReachable = 1u << 1;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsConnectionRequired = 1u << 2;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsConnectionOnTraffic = 1u << 3;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsInterventionRequired = 1u << 4;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsConnectionOnDemand = 1u << 5;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsIsLocalAddress = 1u << 16;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsIsDirect = 1u << 17;
inline constexpr ZTReachabilityFlags kZTReachabilityFlagsIsWWAN = 1u << 18;

// The flags as words ("Reachable, IsDirect"), "none" for no flag; for logs and tools.
ZT_API std::string ZTReachabilityFlagsDescription(ZTReachabilityFlags flags);

namespace zt::internal {
struct ReachabilityTarget;
}  // namespace zt::internal

class ZT_API ZTReachability : public std::enable_shared_from_this<ZTReachability> {
 public:
  [[nodiscard]] static std::shared_ptr<ZTReachability> reachabilityWithHostName(const std::string& hostName);
  // An IPv4 (sockaddr_in) or IPv6 (sockaddr_in6) address; its family says which. The port is ignored.
  [[nodiscard]] static std::shared_ptr<ZTReachability> reachabilityWithAddress(const sockaddr* address);
  // The IPv4 any address 0.0.0.0: reachable when the machine has an IPv4 default route.
  [[nodiscard]] static std::shared_ptr<ZTReachability> reachabilityForInternetConnection();
  // The IPv4 link-local network 169.254.0.0, judged by the link-local rule (localWiFiRef is true).
  [[nodiscard]] static std::shared_ptr<ZTReachability> reachabilityForLocalWiFi();

  ~ZTReachability();
  ZTReachability(const ZTReachability&) = delete;
  ZTReachability& operator=(const ZTReachability&) = delete;

  // Starts watching the kernel's network state on the main run loop. Starting again is harmless
  // (the watch is renewed). False when the netlink socket cannot be opened or the main run loop
  // refuses the source.
  bool startNotifier();
  // Stops watching; harmless when not started. Any thread.
  void stopNotifier();

  // The status now: ZTNotReachable when the flags cannot be read, else the link-local rule when
  // localWiFiRef() is set, else the network rule.
  ZTNetworkStatus currentReachabilityStatus() const;
  // The ConnectionRequired flag now; false when the flags cannot be read.
  bool connectionRequired() const;
  // The flags now; std::nullopt when they cannot be read (name not yet resolved, kernel silent).
  std::optional<ZTReachabilityFlags> currentReachabilityFlags() const;

  // Reachable clear: not reachable. Reachable without ConnectionRequired: reachable. With
  // ConnectionRequired: reachable only when ConnectionOnTraffic or ConnectionOnDemand is set and
  // InterventionRequired is clear.
  static ZTNetworkStatus networkStatusForFlags(ZTReachabilityFlags flags);
  // Reachable exactly when both Reachable and IsDirect are set.
  static ZTNetworkStatus localWiFiStatusForFlags(ZTReachabilityFlags flags);

  bool localWiFiRef() const { return localWiFiRef_; }
  // What the object watches: the host name, or the address as text ("198.51.100.7", "::1").
  std::string targetDescription() const;

  const std::string& requestString() const { return requestString_; }
  void setRequestString(std::string text) { requestString_ = std::move(text); }
  const std::string& responseString() const { return responseString_; }
  void setResponseString(std::string text) { responseString_ = std::move(text); }

 private:
  explicit ZTReachability(std::shared_ptr<zt::internal::ReachabilityTarget> target);
  friend struct zt::internal::ReachabilityTarget;

  std::shared_ptr<zt::internal::ReachabilityTarget> reachabilityRef_;
  bool localWiFiRef_ = false;
  std::string requestString_;
  std::string responseString_;
};
