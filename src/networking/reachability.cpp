#include "zentrel/networking/reachability.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>
#include <vector>

#include "networking/internal/route_netlink.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/notification_center.h"
#include "zentrel/platform/run_loop.h"

namespace zt::internal {

namespace {
constexpr std::size_t kMaximumHostNameLength = 1024;
constexpr std::size_t kMaximumResolvedAddresses = 16;

std::optional<IPAddress> numericAddress(const std::string& text) {
  IPAddress address;
  if (::inet_pton(AF_INET, text.c_str(), address.bytes.data()) == 1) {
    address.family = AF_INET;
    return address;
  }
  if (::inet_pton(AF_INET6, text.c_str(), address.bytes.data()) == 1) {
    address.family = AF_INET6;
    return address;
  }
  return std::nullopt;
}

// Blocks for as long as the resolver takes: call it on a worker.
std::vector<IPAddress> resolve(const std::string& hostName) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;  // one answer per address, not one per socket type
  addrinfo* answers = nullptr;
  std::vector<IPAddress> addresses;
  if (::getaddrinfo(hostName.c_str(), nullptr, &hints, &answers) != 0) return addresses;
  for (const addrinfo* answer = answers; answer != nullptr && addresses.size() < kMaximumResolvedAddresses;
       answer = answer->ai_next) {
    const auto address = IPAddress::fromSocketAddress(answer->ai_addr);
    if (address && std::find(addresses.begin(), addresses.end(), *address) == addresses.end()) {
      addresses.push_back(*address);
    }
  }
  ::freeaddrinfo(answers);
  return addresses;
}
}  // namespace

// What a ZTReachability watches, and its watch. Shared with the resolver and the main loop's
// callbacks through weak references, so that neither keeps it alive.
struct ReachabilityTarget : std::enable_shared_from_this<ReachabilityTarget> {
  std::string hostName;  // empty for an address target
  std::optional<IPAddress> address;
  bool localWiFi = false;

  mutable ZTMutex mutex;
  // nullopt until the name has been resolved once; empty when it did not resolve.
  std::optional<std::vector<IPAddress>> resolved ZT_GUARDED_BY(mutex);
  bool resolving ZT_GUARDED_BY(mutex) = false;
  bool resolveAgain ZT_GUARDED_BY(mutex) = false;
  std::weak_ptr<ZTReachability> owner ZT_GUARDED_BY(mutex);
  RouteChangeSocket socket ZT_GUARDED_BY(mutex);
  std::shared_ptr<ZTFileDescriptorSource> source ZT_GUARDED_BY(mutex);
  bool notifying ZT_GUARDED_BY(mutex) = false;

  // Main thread only: the status last reported.
  ZTNetworkStatus lastStatus = ZTNotReachable;

  std::optional<ZTReachabilityFlags> flags() const {
    if (address) return reachabilityFlagsForAddress(*address);
    std::vector<IPAddress> addresses;
    {
      ZTLockGuard lock(mutex);
      if (!resolved) return std::nullopt;
      addresses = *resolved;
    }
    std::optional<ZTReachabilityFlags> best;
    bool asked = addresses.empty();
    for (const auto& each : addresses) {
      const auto flags = reachabilityFlagsForAddress(each);
      if (!flags) continue;
      asked = true;
      if (!best || reachabilityRank(*flags) < reachabilityRank(*best)) best = flags;
    }
    if (!asked) return std::nullopt;
    return best.value_or(0);
  }

  ZTNetworkStatus statusFor(std::optional<ZTReachabilityFlags> flags) const {
    if (!flags) return ZTNotReachable;
    return localWiFi ? ZTReachability::localWiFiStatusForFlags(*flags) : ZTReachability::networkStatusForFlags(*flags);
  }

  // Resolves the host name on a worker; a request while one runs makes it run once more after.
  void startResolving() {
    if (hostName.empty()) return;
    {
      ZTLockGuard lock(mutex);
      if (resolving) {
        resolveAgain = true;
        return;
      }
      resolving = true;
    }
    ZTDispatchQueue::global()->async([weak = weak_from_this(), name = hostName] {
      // A bounded number of rounds: each further one needs a change reported while resolving.
      for (int round = 0; round < 8; ++round) {
        auto addresses = resolve(name);
        auto self = weak.lock();
        if (!self) return;
        bool again = false;
        bool watching = false;
        {
          ZTLockGuard lock(self->mutex);
          self->resolved = std::move(addresses);
          again = std::exchange(self->resolveAgain, false);
          if (!again) self->resolving = false;
          watching = self->notifying;
        }
        if (watching) self->reportOnMainThread();
        if (!again) return;
      }
      if (auto self = weak.lock()) {
        ZTLockGuard lock(self->mutex);
        self->resolving = false;
      }
    });
  }

  void reportOnMainThread() {
    (void)ZTRunLoop::main()->post([weak = weak_from_this()] {
      if (auto self = weak.lock()) self->evaluateOnMainThread();
    });
  }

  void evaluateOnMainThread();
  void networkChangedOnMainThread();
};

// Called on the main thread with the flags now; posts the notification when the status moved.
void ReachabilityCallback(ReachabilityTarget& target, std::optional<ZTReachabilityFlags> flags,
                          const std::shared_ptr<ZTReachability>& info) {
  const ZTNetworkStatus status = target.statusFor(flags);
  if (status == target.lastStatus) return;
  target.lastStatus = status;
  try {
    ZTNotificationCenter::defaultCenter()->postNotificationName(kNetworkReachabilityChangedNotification, info);
  } catch (const std::exception& error) {
    ZTLogf("ERROR: an observer of %s threw: %s", kNetworkReachabilityChangedNotification, error.what());
  } catch (...) {
    ZTLogf("ERROR: an observer of %s threw", kNetworkReachabilityChangedNotification);
  }
}

void ReachabilityTarget::evaluateOnMainThread() {
  std::shared_ptr<ZTReachability> info;
  {
    ZTLockGuard lock(mutex);
    if (!notifying) return;
    info = owner.lock();
  }
  if (info) ReachabilityCallback(*this, flags(), info);
}

void ReachabilityTarget::networkChangedOnMainThread() {
  {
    ZTLockGuard lock(mutex);
    if (!socket.isValid() || !socket.drain()) return;
  }
  // A changed network may answer a name differently (another resolver, another view).
  startResolving();
  evaluateOnMainThread();
}

}  // namespace zt::internal

using zt::internal::IPAddress;
using zt::internal::ReachabilityTarget;

std::string ZTReachabilityFlagsDescription(ZTReachabilityFlags flags) {
  static constexpr std::pair<ZTReachabilityFlags, const char*> kNames[] = {
      {kZTReachabilityFlagsTransientConnection, "TransientConnection"},
      {kZTReachabilityFlagsReachable, "Reachable"},
      {kZTReachabilityFlagsConnectionRequired, "ConnectionRequired"},
      {kZTReachabilityFlagsConnectionOnTraffic, "ConnectionOnTraffic"},
      {kZTReachabilityFlagsInterventionRequired, "InterventionRequired"},
      {kZTReachabilityFlagsConnectionOnDemand, "ConnectionOnDemand"},
      {kZTReachabilityFlagsIsLocalAddress, "IsLocalAddress"},
      {kZTReachabilityFlagsIsDirect, "IsDirect"},
      {kZTReachabilityFlagsIsWWAN, "IsWWAN"},
  };
  std::string text;
  for (const auto& [flag, name] : kNames) {
    if (flags & flag) text += (text.empty() ? "" : ", ") + std::string(name);
  }
  return text.empty() ? "none" : text;
}

ZTReachability::ZTReachability(std::shared_ptr<ReachabilityTarget> target) : reachabilityRef_(std::move(target)) {
  localWiFiRef_ = reachabilityRef_->localWiFi;
}

ZTReachability::~ZTReachability() { stopNotifier(); }

std::shared_ptr<ZTReachability> ZTReachability::reachabilityWithHostName(const std::string& hostName) {
  if (hostName.empty() || hostName.size() > zt::internal::kMaximumHostNameLength ||
      hostName.find('\0') != std::string::npos) {
    return nullptr;
  }
  auto target = std::make_shared<ReachabilityTarget>();
  target->hostName = hostName;
  if (auto numeric = zt::internal::numericAddress(hostName)) {
    ZTLockGuard lock(target->mutex);
    target->resolved = std::vector<IPAddress>{*numeric};
  }
  std::shared_ptr<ZTReachability> reachability(new ZTReachability(target));
  {
    ZTLockGuard lock(target->mutex);
    target->owner = reachability;
    if (target->resolved) return reachability;
  }
  target->startResolving();
  return reachability;
}

std::shared_ptr<ZTReachability> ZTReachability::reachabilityWithAddress(const sockaddr* address) {
  auto ip = IPAddress::fromSocketAddress(address);
  if (!ip) return nullptr;
  auto target = std::make_shared<ReachabilityTarget>();
  target->address = *ip;
  std::shared_ptr<ZTReachability> reachability(new ZTReachability(target));
  ZTLockGuard lock(target->mutex);
  target->owner = reachability;
  return reachability;
}

std::shared_ptr<ZTReachability> ZTReachability::reachabilityForInternetConnection() {
  sockaddr_in any{};
  any.sin_family = AF_INET;
  return reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&any));
}

std::shared_ptr<ZTReachability> ZTReachability::reachabilityForLocalWiFi() {
  sockaddr_in linkLocal{};
  linkLocal.sin_family = AF_INET;
  linkLocal.sin_addr.s_addr = htonl(0xA9FE0000u);  // 169.254.0.0
  auto reachability = reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&linkLocal));
  if (reachability) {
    reachability->reachabilityRef_->localWiFi = true;
    reachability->localWiFiRef_ = true;
  }
  return reachability;
}

bool ZTReachability::startNotifier() {
  stopNotifier();
  auto& target = *reachabilityRef_;
  auto socket = zt::internal::RouteChangeSocket::open();
  if (!socket.isValid()) {
    ZTLogf("ERROR: cannot watch the network for %s: %s", targetDescription().c_str(), std::strerror(errno));
    return false;
  }
  const int fd = socket.fileDescriptor();
  auto loop = ZTRunLoop::main();
  std::weak_ptr<ReachabilityTarget> weak = reachabilityRef_;
  // The status reported first is the one now; the notification tells of changes from it.
  const ZTNetworkStatus now = currentReachabilityStatus();
  {
    ZTLockGuard lock(target.mutex);
    target.socket = std::move(socket);
    target.notifying = true;
  }
  (void)loop->post([weak, now] {
    if (auto self = weak.lock()) self->lastStatus = now;
  });
  auto source = loop->addFileDescriptorSource(fd, ZTFileDescriptorSource::Event::Readable, [weak](ZTFileDescriptorSource&) {
    if (auto self = weak.lock()) self->networkChangedOnMainThread();
  });
  ZTLockGuard lock(target.mutex);
  if (!source) {
    target.notifying = false;
    target.socket = {};
    return false;
  }
  target.source = std::move(source);
  return true;
}

void ZTReachability::stopNotifier() {
  auto& target = *reachabilityRef_;
  std::shared_ptr<ZTFileDescriptorSource> source;
  zt::internal::RouteChangeSocket socket;
  {
    ZTLockGuard lock(target.mutex);
    target.notifying = false;
    source = std::move(target.source);
    socket = std::move(target.socket);
  }
  if (!source) return;
  source->cancel();
  auto loop = ZTRunLoop::main();
  if (!loop->isCurrent()) {
    // The loop stops watching the descriptor when it next turns; close it only after that, so
    // the number cannot be reused meanwhile.
    auto holder = std::make_shared<zt::internal::RouteChangeSocket>(std::move(socket));
    (void)loop->post([holder] { *holder = {}; });
  }
}

std::optional<ZTReachabilityFlags> ZTReachability::currentReachabilityFlags() const { return reachabilityRef_->flags(); }

ZTNetworkStatus ZTReachability::currentReachabilityStatus() const {
  return reachabilityRef_->statusFor(currentReachabilityFlags());
}

bool ZTReachability::connectionRequired() const {
  const auto flags = currentReachabilityFlags();
  return flags && (*flags & kZTReachabilityFlagsConnectionRequired);
}

ZTNetworkStatus ZTReachability::networkStatusForFlags(ZTReachabilityFlags flags) {
  if ((flags & kZTReachabilityFlagsReachable) == 0) return ZTNotReachable;
  if ((flags & kZTReachabilityFlagsConnectionRequired) == 0) return ZTReachable;
  const bool automatic = (flags & (kZTReachabilityFlagsConnectionOnTraffic | kZTReachabilityFlagsConnectionOnDemand)) != 0;
  if (automatic && (flags & kZTReachabilityFlagsInterventionRequired) == 0) return ZTReachable;
  return ZTNotReachable;
}

ZTNetworkStatus ZTReachability::localWiFiStatusForFlags(ZTReachabilityFlags flags) {
  const ZTReachabilityFlags both = kZTReachabilityFlagsReachable | kZTReachabilityFlagsIsDirect;
  return (flags & both) == both ? ZTReachable : ZTNotReachable;
}

std::string ZTReachability::targetDescription() const {
  const auto& target = *reachabilityRef_;
  return target.address ? target.address->text() : target.hostName;
}
