#include "networking/internal/route_netlink.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
// After net/if.h, whose definitions the kernel headers then leave alone.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

namespace zt::internal {
namespace {

#ifndef ARPHRD_RAWIP
constexpr unsigned short ARPHRD_RAWIP = 519;
#endif

// A netlink socket for one question, closed when it goes.
class NetlinkQuery {
 public:
  NetlinkQuery() {
    fd_ = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd_ < 0) return;
    // The kernel answers at once; the time limit only keeps a wedged kernel from holding a caller.
    const timeval limit{1, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~NetlinkQuery() {
    if (fd_ >= 0) ::close(fd_);
  }
  NetlinkQuery(const NetlinkQuery&) = delete;
  NetlinkQuery& operator=(const NetlinkQuery&) = delete;

  bool isValid() const { return fd_ >= 0; }

  // Sends the request and hands each answering message to onMessage until the answer is complete:
  // one message (or an error) for a plain request, NLMSG_DONE for a dump. False when the kernel
  // could not be asked or did not answer in time; *kernelError receives a negative errno the
  // kernel answered with.
  template <class OnMessage>
  bool ask(nlmsghdr* request, bool dump, int* kernelError, OnMessage&& onMessage) {
    static std::atomic<std::uint32_t> sequence{1};
    request->nlmsg_seq = sequence.fetch_add(1, std::memory_order_relaxed);
    request->nlmsg_flags = NLM_F_REQUEST | (dump ? NLM_F_DUMP : 0);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(fd_, request, request->nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0) {
      return false;
    }
    *kernelError = 0;
    alignas(nlmsghdr) static thread_local char buffer[32768];
    // A dump of a routing table with a full Internet view is some 10^6 routes; at ~30 per read that
    // is well below this bound, which only stops a kernel that never says it is done.
    constexpr int kMaximumReads = 200000;
    for (int reads = 0; reads < kMaximumReads; ++reads) {
      const ssize_t received = ::recv(fd_, buffer, sizeof buffer, 0);
      if (received < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      auto remaining = static_cast<unsigned int>(received);
      for (auto* message = reinterpret_cast<nlmsghdr*>(buffer); NLMSG_OK(message, remaining);
           message = NLMSG_NEXT(message, remaining)) {
        if (message->nlmsg_seq != request->nlmsg_seq) continue;
        if (message->nlmsg_type == NLMSG_DONE) return true;
        if (message->nlmsg_type == NLMSG_ERROR) {
          if (message->nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr))) return false;
          *kernelError = static_cast<const nlmsgerr*>(NLMSG_DATA(message))->error;
          return true;
        }
        onMessage(message);
        if (!dump) return true;
      }
    }
    return false;
  }

 private:
  int fd_ = -1;
};

void addAttribute(nlmsghdr* message, std::size_t capacity, unsigned short type, const void* data, std::size_t length) {
  const std::size_t at = NLMSG_ALIGN(message->nlmsg_len);
  const std::size_t size = RTA_LENGTH(length);
  if (at + RTA_ALIGN(size) > capacity) return;
  auto* attribute = reinterpret_cast<rtattr*>(reinterpret_cast<char*>(message) + at);
  attribute->rta_type = type;
  attribute->rta_len = static_cast<unsigned short>(size);
  std::memcpy(RTA_DATA(attribute), data, length);
  message->nlmsg_len = static_cast<std::uint32_t>(at + RTA_ALIGN(size));
}

// What one route says about the way out.
struct RouteChoice {
  unsigned char type = RTN_UNSPEC;
  int outputInterface = 0;
  bool hasGateway = false;
  std::uint32_t priority = 0;
};

RouteChoice readRoute(const nlmsghdr* message) {
  RouteChoice choice;
  const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(message));
  choice.type = route->rtm_type;
  int length = static_cast<int>(RTM_PAYLOAD(message));
  for (const rtattr* attribute = RTM_RTA(route); RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
    const std::size_t payload = RTA_PAYLOAD(attribute);
    switch (attribute->rta_type) {
      case RTA_OIF:
        if (payload >= sizeof(int)) std::memcpy(&choice.outputInterface, RTA_DATA(attribute), sizeof(int));
        break;
      case RTA_GATEWAY:
      case RTA_VIA:
        choice.hasGateway = true;
        break;
      case RTA_PRIORITY:
        if (payload >= sizeof(std::uint32_t)) std::memcpy(&choice.priority, RTA_DATA(attribute), sizeof(std::uint32_t));
        break;
      case RTA_MULTIPATH: {
        // The first next hop stands for the route.
        if (payload < sizeof(rtnexthop)) break;
        const auto* hop = static_cast<const rtnexthop*>(RTA_DATA(attribute));
        if (hop->rtnh_len < sizeof(rtnexthop) || hop->rtnh_len > payload) break;
        if (choice.outputInterface == 0) choice.outputInterface = hop->rtnh_ifindex;
        int hopLength = static_cast<int>(hop->rtnh_len - RTNH_LENGTH(0));
        for (const rtattr* inner = RTNH_DATA(hop); RTA_OK(inner, hopLength); inner = RTA_NEXT(inner, hopLength)) {
          if (inner->rta_type == RTA_GATEWAY || inner->rta_type == RTA_VIA) choice.hasGateway = true;
        }
        break;
      }
      default:
        break;
    }
  }
  return choice;
}

struct LinkState {
  unsigned int flags = 0;
  unsigned short type = 0;
};

std::optional<LinkState> askLink(NetlinkQuery& query, int index) {
  struct {
    nlmsghdr header;
    ifinfomsg link;
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
  request.header.nlmsg_type = RTM_GETLINK;
  request.link.ifi_family = AF_UNSPEC;
  request.link.ifi_index = index;
  std::optional<LinkState> state;
  int kernelError = 0;
  const bool answered = query.ask(&request.header, false, &kernelError, [&](const nlmsghdr* message) {
    if (message->nlmsg_type != RTM_NEWLINK || message->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) return;
    const auto* link = static_cast<const ifinfomsg*>(NLMSG_DATA(message));
    state = LinkState{link->ifi_flags, link->ifi_type};
  });
  if (!answered || kernelError != 0) return std::nullopt;
  return state;
}

std::optional<ZTReachabilityFlags> flagsForRoute(NetlinkQuery& query, const RouteChoice& route) {
  switch (route.type) {
    case RTN_LOCAL:
      return kZTReachabilityFlagsReachable | kZTReachabilityFlagsIsLocalAddress | kZTReachabilityFlagsIsDirect;
    case RTN_UNICAST:
      break;
    default:  // unreachable, blackhole, prohibit, throw, ...
      return ZTReachabilityFlags{0};
  }
  ZTReachabilityFlags flags = kZTReachabilityFlagsReachable;
  if (!route.hasGateway) flags |= kZTReachabilityFlagsIsDirect;
  if (route.outputInterface > 0) {
    const auto link = askLink(query, route.outputInterface);
    // A link gone between the two questions: its routes are going with it.
    if (!link) return ZTReachabilityFlags{0};
    if ((link->flags & IFF_RUNNING) == 0 || (link->flags & IFF_UP) == 0) flags |= kZTReachabilityFlagsConnectionRequired;
    if (link->flags & IFF_POINTOPOINT) flags |= kZTReachabilityFlagsTransientConnection;
    if (link->type == ARPHRD_RAWIP) flags |= kZTReachabilityFlagsIsWWAN;
    if (link->flags & IFF_LOOPBACK) flags |= kZTReachabilityFlagsIsDirect;
  }
  return flags;
}

// The route the kernel takes to one address (what `ip route get` shows).
std::optional<ZTReachabilityFlags> flagsForRouteTo(NetlinkQuery& query, const IPAddress& address) {
  struct {
    nlmsghdr header;
    rtmsg route;
    char attributes[64];
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
  request.header.nlmsg_type = RTM_GETROUTE;
  request.route.rtm_family = static_cast<unsigned char>(address.family);
  request.route.rtm_dst_len = static_cast<unsigned char>(address.length() * 8);
  addAttribute(&request.header, sizeof request, RTA_DST, address.bytes.data(), address.length());
  std::optional<RouteChoice> route;
  int kernelError = 0;
  if (!query.ask(&request.header, false, &kernelError, [&](const nlmsghdr* message) {
        if (message->nlmsg_type == RTM_NEWROUTE && message->nlmsg_len >= NLMSG_LENGTH(sizeof(rtmsg))) {
          route = readRoute(message);
        }
      })) {
    return std::nullopt;
  }
  // ENETUNREACH, EHOSTUNREACH, EACCES (prohibit), EINVAL (blackhole): no way there.
  if (kernelError != 0 || !route) return ZTReachabilityFlags{0};
  return flagsForRoute(query, *route);
}

// For the any address: the best default route of its family, in any table but the local one.
std::optional<ZTReachabilityFlags> flagsForDefaultRoute(NetlinkQuery& query, int family) {
  struct {
    nlmsghdr header;
    rtmsg route;
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
  request.header.nlmsg_type = RTM_GETROUTE;
  request.route.rtm_family = static_cast<unsigned char>(family);
  std::vector<RouteChoice> defaults;
  int kernelError = 0;
  if (!query.ask(&request.header, true, &kernelError, [&](const nlmsghdr* message) {
        if (message->nlmsg_type != RTM_NEWROUTE || message->nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) return;
        const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(message));
        if (route->rtm_dst_len != 0 || route->rtm_table == RT_TABLE_LOCAL || route->rtm_type != RTN_UNICAST) return;
        if (defaults.size() < 64) defaults.push_back(readRoute(message));
      }) ||
      kernelError != 0) {
    return std::nullopt;
  }
  std::optional<ZTReachabilityFlags> best;
  for (const auto& route : defaults) {
    const auto flags = flagsForRoute(query, route);
    if (flags && (!best || reachabilityRank(*flags) < reachabilityRank(*best))) best = flags;
  }
  return best.value_or(0);
}

}  // namespace

std::optional<IPAddress> IPAddress::fromSocketAddress(const sockaddr* address) {
  if (address == nullptr) return std::nullopt;
  IPAddress result;
  if (address->sa_family == AF_INET) {
    sockaddr_in v4{};
    std::memcpy(&v4, address, sizeof v4);
    result.family = AF_INET;
    std::memcpy(result.bytes.data(), &v4.sin_addr, 4);
    return result;
  }
  if (address->sa_family == AF_INET6) {
    sockaddr_in6 v6{};
    std::memcpy(&v6, address, sizeof v6);
    result.family = AF_INET6;
    std::memcpy(result.bytes.data(), &v6.sin6_addr, 16);
    return result;
  }
  return std::nullopt;
}

std::size_t IPAddress::length() const { return family == AF_INET6 ? 16 : 4; }

bool IPAddress::isAny() const {
  for (std::size_t i = 0; i < length(); ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

std::string IPAddress::text() const {
  char text[INET6_ADDRSTRLEN] = {};
  if (::inet_ntop(family, bytes.data(), text, sizeof text) == nullptr) return {};
  return text;
}

int reachabilityRank(ZTReachabilityFlags flags) {
  if ((flags & kZTReachabilityFlagsReachable) == 0) return 2;
  return (flags & kZTReachabilityFlagsConnectionRequired) ? 1 : 0;
}

std::optional<ZTReachabilityFlags> reachabilityFlagsForAddress(const IPAddress& address) {
  NetlinkQuery query;
  if (!query.isValid()) return std::nullopt;
  return address.isAny() ? flagsForDefaultRoute(query, address.family) : flagsForRouteTo(query, address);
}

RouteChangeSocket RouteChangeSocket::open() {
  RouteChangeSocket socket;
  const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (fd < 0) return socket;
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return socket;
  }
  socket.fd_ = fd;
  return socket;
}

RouteChangeSocket::RouteChangeSocket(RouteChangeSocket&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }

RouteChangeSocket& RouteChangeSocket::operator=(RouteChangeSocket&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

RouteChangeSocket::~RouteChangeSocket() {
  if (fd_ >= 0) ::close(fd_);
}

bool RouteChangeSocket::drain() {
  if (fd_ < 0) return false;
  bool changed = false;
  char buffer[16384];
  // What the kernel queued now; a socket that keeps filling is read again at the next readiness.
  constexpr int kMaximumReads = 256;
  for (int reads = 0; reads < kMaximumReads; ++reads) {
    const ssize_t received = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (received > 0) {
      changed = true;
      continue;
    }
    if (received < 0 && errno == EINTR) continue;
    if (received < 0 && errno == ENOBUFS) {
      changed = true;  // messages were dropped: something changed
      continue;
    }
    break;
  }
  return changed;
}

}  // namespace zt::internal
