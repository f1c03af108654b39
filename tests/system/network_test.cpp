#include "zentrel/system/network.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"
#include "system/support/machine_root.h"

namespace {

using namespace zt::system_internal;

constexpr const char* kRouteHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

// A laptop on Wi-Fi with a wired dock: both carry a default route, the dock's metric is lower.
constexpr const char* kLaptopRoutes =
    "wlp2s0\t00000000\t0102A8C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
    "enp0s31f6\t00000000\t0100000A\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
    "enp0s31f6\t0000000A\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n"
    "wlp2s0\t0002A8C0\t00000000\t0001\t0\t0\t600\t00FFFFFF\t0\t0\t0\n";

// Lays out a network interface the way sysfs shows it.
void addInterface(const zt::test::MachineRoot& root, const std::string& name, int type, bool hardware,
                  const std::string& address) {
  root.write("/sys/class/net/" + name + "/type", std::to_string(type) + "\n");
  root.write("/sys/class/net/" + name + "/address", address + "\n");
  if (hardware) root.makeFolder("/sys/class/net/" + name + "/device");
}

TEST(NetworkRoles, PrimaryCarriesTheDefaultRoute) {
  EXPECT_EQ(defaultRouteInterface(std::string(kRouteHeader) + kLaptopRoutes), "enp0s31f6");
  EXPECT_EQ(defaultRouteInterface(kRouteHeader), std::nullopt);
  // A rejecting default route (RTF_REJECT) leads nowhere.
  EXPECT_EQ(defaultRouteInterface("lo\t00000000\t00000000\t0201\t0\t0\t0\t00000000\t0\t0\t0\n"), std::nullopt);
  // IPv6: the default route via eth0, not the rejecting one on lo.
  const std::string ipv6 =
      "00000000000000000000000000000000 00 00000000000000000000000000000000 00 fe800000000000000000000000000001 "
      "00000400 00000001 00000000 00450003     eth0\n"
      "00000000000000000000000000000000 00 00000000000000000000000000000000 00 00000000000000000000000000000000 "
      "ffffffff 00000001 00000000 00200200       lo\n";
  EXPECT_EQ(defaultRouteInterfaceIPv6(ipv6), "eth0");

  zt::test::MachineRoot laptop;
  laptop.write("/proc/net/route", std::string(kRouteHeader) + kLaptopRoutes);
  addInterface(laptop, "lo", 772, false, "00:00:00:00:00:00");
  addInterface(laptop, "docker0", 1, false, "02:42:ac:11:00:01");
  addInterface(laptop, "enp0s31f6", 1, true, "54:e1:ad:12:34:56");
  addInterface(laptop, "wlp2s0", 1, true, "a4:34:d9:ab:cd:ef");
  auto roles = interfaceRolesAt(laptop.path());
  EXPECT_EQ(roles.primary, "enp0s31f6");
  EXPECT_EQ(roles.secondary, "wlp2s0");
  EXPECT_EQ(macAddressStringAt(laptop.path()), "54:e1:ad:12:34:56");

  // Offline: no default route, so the hardware interfaces take the places in name order.
  laptop.write("/proc/net/route", kRouteHeader);
  roles = interfaceRolesAt(laptop.path());
  EXPECT_EQ(roles.primary, "enp0s31f6");
  EXPECT_EQ(roles.secondary, "wlp2s0");

  // On a VPN the tunnel carries the default route; it has no hardware address.
  zt::test::MachineRoot vpn;
  vpn.write("/proc/net/route", std::string(kRouteHeader) + "tun0\t00000000\t00000000\t0001\t0\t0\t50\t00000000\t0\t0\t0\n");
  addInterface(vpn, "tun0", 65534, false, "");
  addInterface(vpn, "eth0", 1, true, "52:54:00:12:34:56");
  EXPECT_EQ(interfaceRolesAt(vpn.path()).primary, "tun0");
  EXPECT_EQ(interfaceRolesAt(vpn.path()).secondary, "eth0");
  zt::test::LogCapture log;
  EXPECT_EQ(macAddressStringAt(vpn.path()), "");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"GetMACAddress failed with code 0x00000016"});
}

TEST(NetworkRoles, MissingOrDamagedSourcesGiveNoAddress) {
  zt::test::MachineRoot bare;
  zt::test::LogCapture log;
  EXPECT_EQ(macAddressStringAt(bare.path()), "");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"FindEthernetInterfaces failed with code 0x00000002"});

  EXPECT_EQ(parseHardwareAddress("54:E1:AD:12:34:56"), (std::array<std::uint8_t, 6>{0x54, 0xe1, 0xad, 0x12, 0x34, 0x56}));
  for (const char* bad : {"", "54:e1:ad:12:34", "54:e1:ad:12:34:5g", "54-e1-ad-12-34-56", "54:e1:ad:12:34:56:78",
                          "00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00"}) {
    EXPECT_EQ(parseHardwareAddress(bad), std::nullopt) << bad;
  }
  // Garbage route lines are ignored, not trusted.
  EXPECT_EQ(defaultRouteInterface("eth0 00000000 zz 0003 0 0 x 00000000\n\n\t\neth1\n"), std::nullopt);
  EXPECT_EQ(defaultRouteInterfaceIPv6("garbage\n" + std::string(40, '0')), std::nullopt);
}

TEST(EthernetIP, PrimaryAddressWinsOverTheSecondary) {
  const InterfaceRoles roles{"enp0s31f6", "wlp2s0"};
  // The secondary's address is seen first; the primary's still wins.
  EXPECT_EQ(chooseEthernetIP({{"lo", "127.0.0.1"}, {"wlp2s0", "192.168.2.10"}, {"enp0s31f6", "10.0.0.5"},
                              {"enp0s31f6", "10.0.0.6"}},
                             roles),
            "10.0.0.5");
  // Without a primary address, the secondary's last one.
  EXPECT_EQ(chooseEthernetIP({{"wlp2s0", "192.168.2.10"}, {"wlp2s0", "192.168.2.11"}}, roles), "192.168.2.11");
  EXPECT_EQ(chooseEthernetIP({{"lo", "127.0.0.1"}, {"docker0", "172.17.0.1"}}, roles), std::nullopt);
  EXPECT_EQ(chooseEthernetIP({}, InterfaceRoles{}), std::nullopt);
}

TEST(NetworkIdentity, RunningMachineAnswersWithItsOwnInterface) {
  auto route = zt::test::commandOutput("ip -o route show default 2>/dev/null");
  if (!route || route->find(" dev ") == std::string::npos) GTEST_SKIP() << "no default route to compare with";
  std::string rest = route->substr(route->find(" dev ") + 5);
  const std::string device = rest.substr(0, rest.find(' '));
  auto address = readFirstLine("/sys/class/net/" + device + "/address");
  if (address && parseHardwareAddress(*address)) {
    EXPECT_EQ(ZTGetMACAddressString(), *address);
  }
  // The address answered is one of this machine's: a socket can be bound to it.
  auto ip = ethernetIP();
  if (!ip) GTEST_SKIP() << device << " has no IPv4 address";
  sockaddr_in local{};
  local.sin_family = AF_INET;
  ASSERT_EQ(inet_pton(AF_INET, ip->c_str(), &local.sin_addr), 1) << *ip;
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local), 0) << *ip;
  ::close(fd);
}

}  // namespace
