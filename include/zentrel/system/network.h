#pragma once
// The machine's own network identity: the hardware address of its primary interface and its IPv4
// address, for licensing, logging or telling one machine from another.
//
// Which interface is which: the primary interface ("en0") is the one that carries the default route
// (the IPv4 route with the lowest metric, else the IPv6 one); the secondary ("en1") is the first
// other Ethernet or Wi-Fi interface backed by hardware, in name order. With no default route at
// all, the first two such hardware interfaces take the two places. Virtual interfaces (loopback,
// bridges, tunnels, veth pairs) are never the secondary one.
//
// Both functions may be called from any thread; they read /proc and /sys afresh on each call and
// keep nothing. They never throw.

#include <optional>
#include <string>

#include "zentrel/platform/export.h"

// The primary interface's hardware address as "%02x:%02x:%02x:%02x:%02x:%02x" (lower case, from
// /sys/class/net/<interface>/address). The empty string when there is no primary interface, or it
// has no six-byte hardware address (a tunnel, for example); the failure is logged as
// "FindEthernetInterfaces failed with code 0x%08x" (no primary interface) or
// "GetMACAddress failed with code 0x%08x" (no address), with an errno value as the code.
[[nodiscard]] ZT_API std::string ZTGetMACAddressString();

// The IPv4 address, in dotted decimal, of the primary interface (its first address); failing that,
// of the secondary one (its last address). nullopt when neither has an IPv4 address or the
// interface list cannot be read.
[[nodiscard]] ZT_API std::optional<std::string> ethernetIP();
