#include "zentrel/networking/reachability.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "zentrel/platform/notification_center.h"
#include "zentrel/platform/run_loop.h"

namespace {

constexpr auto kDeadline = std::chrono::seconds(10);

sockaddr_in ipv4(const char* text) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  ::inet_pton(AF_INET, text, &address.sin_addr);
  return address;
}

sockaddr_in6 ipv6(const char* text) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  ::inet_pton(AF_INET6, text, &address.sin6_addr);
  return address;
}

template <class Address>
std::shared_ptr<ZTReachability> reachabilityFor(const Address& address) {
  return ZTReachability::reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&address));
}

constexpr ZTReachabilityFlags R = kZTReachabilityFlagsReachable;
constexpr ZTReachabilityFlags CR = kZTReachabilityFlagsConnectionRequired;
constexpr ZTReachabilityFlags OnTraffic = kZTReachabilityFlagsConnectionOnTraffic;
constexpr ZTReachabilityFlags OnDemand = kZTReachabilityFlagsConnectionOnDemand;
constexpr ZTReachabilityFlags Intervention = kZTReachabilityFlagsInterventionRequired;
constexpr ZTReachabilityFlags Direct = kZTReachabilityFlagsIsDirect;
constexpr ZTReachabilityFlags Local = kZTReachabilityFlagsIsLocalAddress;
constexpr ZTReachabilityFlags Transient = kZTReachabilityFlagsTransientConnection;

TEST(ReachabilityStatusRules, NetworkAndLinkLocalRulesOverEveryFlagThatMatters) {
  struct Row {
    ZTReachabilityFlags flags;
    ZTNetworkStatus network;
    ZTNetworkStatus linkLocal;
  };
  const Row rows[] = {
      {0, ZTNotReachable, ZTNotReachable},
      {Direct | Local | Transient, ZTNotReachable, ZTNotReachable},  // nothing counts without Reachable
      {R, ZTReachable, ZTNotReachable},
      {R | Direct, ZTReachable, ZTReachable},
      {R | Direct | Local, ZTReachable, ZTReachable},
      {R | Transient, ZTReachable, ZTNotReachable},
      {R | CR, ZTNotReachable, ZTNotReachable},
      {R | CR | Direct, ZTNotReachable, ZTReachable},  // the link-local rule ignores connecting
      {R | CR | OnTraffic, ZTReachable, ZTNotReachable},
      {R | CR | OnDemand, ZTReachable, ZTNotReachable},
      {R | CR | OnTraffic | Intervention, ZTNotReachable, ZTNotReachable},
      {R | CR | OnDemand | Intervention, ZTNotReachable, ZTNotReachable},
      {R | CR | Intervention, ZTNotReachable, ZTNotReachable},
      {R | Intervention, ZTReachable, ZTNotReachable},  // intervention matters only when connecting
      {CR | OnTraffic, ZTNotReachable, ZTNotReachable},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(ZTReachabilityFlagsDescription(row.flags));
    EXPECT_EQ(ZTReachability::networkStatusForFlags(row.flags), row.network);
    EXPECT_EQ(ZTReachability::localWiFiStatusForFlags(row.flags), row.linkLocal);
  }
  EXPECT_EQ(ZTReachabilityFlagsDescription(0), "none");
  EXPECT_EQ(ZTReachabilityFlagsDescription(R | Direct | Local), "Reachable, IsLocalAddress, IsDirect");
}

TEST(Reachability, RefusesTargetsThatNameNothing) {
  EXPECT_FALSE(ZTReachability::reachabilityWithHostName(""));
  EXPECT_FALSE(ZTReachability::reachabilityWithHostName(std::string("host\0name", 9)));
  EXPECT_FALSE(ZTReachability::reachabilityWithHostName(std::string(1025, 'a')));
  EXPECT_FALSE(ZTReachability::reachabilityWithAddress(nullptr));
  sockaddr_un local{};
  local.sun_family = AF_UNIX;
  EXPECT_FALSE(reachabilityFor(local));

  const auto internet = ZTReachability::reachabilityForInternetConnection();
  const auto linkLocal = ZTReachability::reachabilityForLocalWiFi();
  ASSERT_TRUE(internet && linkLocal);
  EXPECT_FALSE(internet->localWiFiRef());
  EXPECT_TRUE(linkLocal->localWiFiRef());
  EXPECT_EQ(internet->targetDescription(), "0.0.0.0");
  EXPECT_EQ(linkLocal->targetDescription(), "169.254.0.0");
  internet->stopNotifier();  // never started: harmless
  internet->setRequestString("GET /");
  EXPECT_EQ(internet->requestString(), "GET /");
}

TEST(Reachability, ThisMachinesOwnAddressesAreLocalAndDirect) {
  const auto loopback = reachabilityFor(ipv4("127.0.0.1"));
  ASSERT_TRUE(loopback);
  EXPECT_EQ(loopback->currentReachabilityFlags(), R | Local | Direct);
  EXPECT_EQ(loopback->currentReachabilityStatus(), ZTReachable);
  EXPECT_FALSE(loopback->connectionRequired());

  // A numeric host name needs no resolver and answers at once, from any thread.
  const auto numeric = ZTReachability::reachabilityWithHostName("127.0.0.1");
  ASSERT_TRUE(numeric);
  std::optional<ZTReachabilityFlags> fromAnotherThread;
  std::thread([&] { fromAnotherThread = numeric->currentReachabilityFlags(); }).join();
  EXPECT_EQ(fromAnotherThread, R | Local | Direct);
}

TEST(Reachability, HostNamesAreResolvedByTheSystemResolver) {
  const auto localhost = ZTReachability::reachabilityWithHostName("localhost");
  ASSERT_TRUE(localhost);
  const auto start = std::chrono::steady_clock::now();
  while (!localhost->currentReachabilityFlags() && std::chrono::steady_clock::now() - start < kDeadline) {
    ZTRunLoop::current()->runOnce(std::chrono::milliseconds(5));
  }
  const auto flags = localhost->currentReachabilityFlags();
  ASSERT_TRUE(flags) << "localhost did not resolve within the deadline";
  EXPECT_EQ(*flags & (R | Local), R | Local);
  EXPECT_EQ(localhost->currentReachabilityStatus(), ZTReachable);

  // A name no resolver knows ends up with no flag, rather than unreadable flags.
  const auto nowhere = ZTReachability::reachabilityWithHostName("no-such-host.invalid");
  ASSERT_TRUE(nowhere);
  const auto begun = std::chrono::steady_clock::now();
  while (!nowhere->currentReachabilityFlags() && std::chrono::steady_clock::now() - begun < std::chrono::seconds(30)) {
    ZTRunLoop::current()->runOnce(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(nowhere->currentReachabilityFlags(), ZTReachabilityFlags{0});
  EXPECT_EQ(nowhere->currentReachabilityStatus(), ZTNotReachable);
}

// ---------------------------------------------------------------------------------------------
// In a network namespace of its own, where this test adds links and routes and takes them away.
// The test re-runs itself in a child process that has unshared its network namespace, so that the
// child starts with a fresh main run loop and the machine's own network is never touched.

constexpr const char* kChildVariable = "ZT_REACHABILITY_PRIVATE_NETWORK";

bool ip(const std::string& arguments) {
  const std::string command = "ip " + arguments + " >/dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

struct Observed {
  int notifications = 0;
  bool allOnMainThread = true;
};

// Runs the main loop until the object reports `status` through a notification and a fresh query.
bool waitForNotifiedStatus(ZTReachability& reachability, Observed& observed, int notificationsBefore,
                           ZTNetworkStatus status) {
  auto loop = ZTRunLoop::main();
  loop->runWithCondition(
      [&] { return !(observed.notifications > notificationsBefore && reachability.currentReachabilityStatus() == status); },
      kDeadline);
  return observed.notifications > notificationsBefore && reachability.currentReachabilityStatus() == status;
}

void privateNetworkScenario() {
  ASSERT_TRUE(ip("link set lo up"));
  // veth0 carries the routes; its peer's state is veth0's carrier.
  ASSERT_TRUE(ip("link add veth0 type veth peer name veth1"));
  ASSERT_TRUE(ip("addr add 192.0.2.1/24 dev veth0"));
  ASSERT_TRUE(ip("-6 addr add 2001:db8:1::1/64 dev veth0 nodad"));
  ASSERT_TRUE(ip("link set veth0 up"));
  ASSERT_TRUE(ip("link set veth1 up"));

  const auto far = reachabilityFor(ipv4("198.51.100.7"));
  const auto near = reachabilityFor(ipv4("192.0.2.77"));
  const auto nearV6 = reachabilityFor(ipv6("2001:db8:1::5"));
  const auto own = reachabilityFor(ipv4("192.0.2.1"));
  const auto internet = ZTReachability::reachabilityForInternetConnection();
  const auto linkLocal = ZTReachability::reachabilityForLocalWiFi();
  ASSERT_TRUE(far && near && nearV6 && own && internet && linkLocal);

  EXPECT_EQ(far->currentReachabilityFlags(), ZTReachabilityFlags{0});
  EXPECT_EQ(near->currentReachabilityFlags(), R | Direct);
  EXPECT_EQ(nearV6->currentReachabilityFlags(), R | Direct);
  EXPECT_EQ(own->currentReachabilityFlags(), R | Local | Direct);
  EXPECT_EQ(internet->currentReachabilityStatus(), ZTNotReachable);
  EXPECT_EQ(linkLocal->currentReachabilityStatus(), ZTNotReachable);

  Observed observed;
  auto center = ZTNotificationCenter::defaultCenter();
  auto observer = center->addObserverForName(kNetworkReachabilityChangedNotification, far.get(), nullptr,
                                             [&](const ZTNotification& notification) {
                                               ++observed.notifications;
                                               if (!ZTRunLoop::main()->isCurrent()) observed.allOnMainThread = false;
                                               EXPECT_EQ(notification.object.get(), far.get());
                                             });
  ASSERT_TRUE(far->startNotifier());
  ASSERT_TRUE(internet->startNotifier());
  ASSERT_TRUE(linkLocal->startNotifier());

  // A route through a gateway: reachable, not direct.
  ASSERT_TRUE(ip("route add 198.51.100.0/24 via 192.0.2.254 dev veth0"));
  ASSERT_TRUE(waitForNotifiedStatus(*far, observed, 0, ZTReachable));
  EXPECT_EQ(far->currentReachabilityFlags(), R);

  // The link loses its carrier: the route stays but a connection is required first.
  ASSERT_TRUE(ip("link set veth1 down"));
  ASSERT_TRUE(waitForNotifiedStatus(*far, observed, 1, ZTNotReachable));
  EXPECT_EQ(far->currentReachabilityFlags(), R | CR);
  EXPECT_TRUE(far->connectionRequired());
  ASSERT_TRUE(ip("link set veth1 up"));
  ASSERT_TRUE(waitForNotifiedStatus(*far, observed, 2, ZTReachable));

  // Route removed: not reachable again, and one notification per change of status.
  ASSERT_TRUE(ip("route del 198.51.100.0/24"));
  ASSERT_TRUE(waitForNotifiedStatus(*far, observed, 3, ZTNotReachable));
  EXPECT_EQ(far->currentReachabilityFlags(), ZTReachabilityFlags{0});
  EXPECT_TRUE(observed.allOnMainThread);

  // A change that keeps the status posts nothing.
  const int before = observed.notifications;
  ASSERT_TRUE(ip("route add 203.0.113.0/24 via 192.0.2.254 dev veth0"));
  ZTRunLoop::main()->runWithCondition([] { return true; }, std::chrono::milliseconds(300));
  EXPECT_EQ(observed.notifications, before);

  // A default route makes the Internet reachable; the link-local network then goes through the
  // gateway, which is not direct, until it has a link route of its own.
  Observed internetObserved;
  auto internetObserver = center->addObserverForName(kNetworkReachabilityChangedNotification, internet.get(), nullptr,
                                                     [&](const ZTNotification&) { ++internetObserved.notifications; });
  ASSERT_TRUE(ip("route add default via 192.0.2.254"));
  ASSERT_TRUE(waitForNotifiedStatus(*internet, internetObserved, 0, ZTReachable));
  EXPECT_EQ(linkLocal->currentReachabilityFlags(), R);
  EXPECT_EQ(linkLocal->currentReachabilityStatus(), ZTNotReachable);
  Observed linkLocalObserved;
  auto linkLocalObserver = center->addObserverForName(kNetworkReachabilityChangedNotification, linkLocal.get(), nullptr,
                                                      [&](const ZTNotification&) { ++linkLocalObserved.notifications; });
  ASSERT_TRUE(ip("route add 169.254.0.0/16 dev veth0"));
  ASSERT_TRUE(waitForNotifiedStatus(*linkLocal, linkLocalObserved, 0, ZTReachable));
  EXPECT_EQ(linkLocal->currentReachabilityFlags(), R | Direct);

  // A point-to-point link makes the connection transient.
  ASSERT_TRUE(ip("tuntap add mode tun tun0"));
  ASSERT_TRUE(ip("link set tun0 up"));
  ASSERT_TRUE(ip("route add 198.51.100.0/24 dev tun0"));
  const auto flags = far->currentReachabilityFlags();
  ASSERT_TRUE(flags);
  EXPECT_EQ(*flags & (R | Transient | Direct), R | Transient | Direct);

  // An observer that throws does not stop later notifications.
  auto thrower = center->addObserverForName(kNetworkReachabilityChangedNotification, internet.get(), nullptr,
                                            [](const ZTNotification&) { throw std::runtime_error("observer failed"); });
  ASSERT_TRUE(ip("route del default"));
  ASSERT_TRUE(waitForNotifiedStatus(*internet, internetObserved, 1, ZTNotReachable));
  center->removeObserver(thrower);
  ASSERT_TRUE(ip("route add default via 192.0.2.254"));
  ASSERT_TRUE(waitForNotifiedStatus(*internet, internetObserved, 2, ZTReachable));

  // Stopped: changes are no longer reported.
  far->stopNotifier();
  const int stopped = observed.notifications;
  ASSERT_TRUE(ip("route del 198.51.100.0/24"));
  ZTRunLoop::main()->runWithCondition([] { return true; }, std::chrono::milliseconds(300));
  EXPECT_EQ(observed.notifications, stopped);
  center->removeObserver(observer);
  center->removeObserver(internetObserver);
  center->removeObserver(linkLocalObserver);
}

TEST(ReachabilityInAPrivateNetwork, FlagsFollowRoutesAndLinksAndChangesAreNotifiedOnTheMainThread) {
  if (std::getenv(kChildVariable) != nullptr) {
    privateNetworkScenario();
    return;
  }
  int output[2];
  ASSERT_EQ(::pipe2(output, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::dup2(output[1], STDOUT_FILENO);
    ::dup2(output[1], STDERR_FILENO);
    if (::unshare(CLONE_NEWNET) != 0) {
      std::fprintf(stderr, "unshare(CLONE_NEWNET) failed: %s\n", std::strerror(errno));
      ::_exit(77);
    }
    if (std::system("ip -V >/dev/null 2>&1") != 0) {
      std::fprintf(stderr, "the ip command (iproute2) is not installed\n");
      ::_exit(77);
    }
    ::setenv(kChildVariable, "1", 1);
    char filter[] = "--gtest_filter=ReachabilityInAPrivateNetwork.*";
    char self[] = "/proc/self/exe";
    char* arguments[] = {self, filter, nullptr};
    ::execv(self, arguments);
    std::fprintf(stderr, "cannot run the test binary again: %s\n", std::strerror(errno));
    ::_exit(78);
  }
  ::close(output[1]);
  std::string text;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd ready{output[0], POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
    char buffer[4096];
    const ssize_t count = ::read(output[0], buffer, sizeof buffer);
    if (count <= 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(output[0]);
  int status = 0;
  if (std::chrono::steady_clock::now() >= deadline) ::kill(child, SIGKILL);
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "the child was killed (deadline passed?)\n" << text;
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no private network namespace here: " << text;
  EXPECT_EQ(WEXITSTATUS(status), 0) << text;
  EXPECT_NE(text.find("[  PASSED  ] 1 test."), std::string::npos) << text;
}

}  // namespace
