#pragma once
// Finding hand-off activities on the local network: DNS-SD over multicast DNS through the Avahi
// daemon. ZTHandoffAdvertiser publishes one activity as a service of type "_zentrel-handoff._tcp";
// ZTHandoffBrowser reports such services as they appear and disappear, resolved to a host, an
// address and a port, with their TXT records.
//
// TXT records of a hand-off service: "activity" (the activity type), "name" (the device name),
// "version" (the hand-off protocol version) and "fingerprint" (the advertising device's certificate
// fingerprint, so a receiver can tell a paired device before connecting; it proves nothing by
// itself: the TLS handshake does).
//
// Discovery is optional: without a reachable Avahi daemon (not installed, not running, no system
// bus) create() fails with a ZTError in ZTServiceDiscoveryErrorDomain, code
// ZTServiceDiscoveryErrorNoDaemon, "The Avahi service discovery daemon is not running…", and
// connecting to an explicit host and port still works.
//
// Threads: Avahi is driven by the given run loop (the main one by default) through its
// file-descriptor sources and timers, with no thread of its own. Create, use and destroy an
// advertiser or browser on that loop's thread; its callbacks run there. A callback that throws is
// caught and logged; discovery goes on. Destroying the object withdraws the service or stops
// browsing, and no callback runs afterwards.
// Bad input: TXT records that are too long, services that fail to resolve and daemon restarts give
// errors through the callbacks, never a crash.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

class ZTRunLoop;

inline constexpr const char* ZTHandoffServiceType = "_zentrel-handoff._tcp";
inline constexpr const char* ZTHandoffProtocolVersion = "1";
inline constexpr const char* ZTHandoffTXTActivityKey = "activity";
inline constexpr const char* ZTHandoffTXTNameKey = "name";
inline constexpr const char* ZTHandoffTXTVersionKey = "version";
inline constexpr const char* ZTHandoffTXTFingerprintKey = "fingerprint";

inline constexpr const char* ZTServiceDiscoveryErrorDomain = "ZTServiceDiscoveryErrorDomain";
enum ZTServiceDiscoveryError : std::int64_t {
  ZTServiceDiscoveryErrorNoDaemon = 1,      // no Avahi daemon reachable
  ZTServiceDiscoveryErrorBadArgument = 2,   // a name or TXT record the protocol cannot carry
  ZTServiceDiscoveryErrorFailed = 3,        // the daemon refused or failed (text from Avahi in the description)
  ZTServiceDiscoveryErrorDisconnected = 4,  // the daemon went away while advertising or browsing
};

// One resolved hand-off service.
struct ZTHandoffService {
  std::string serviceName;   // the DNS-SD instance name (unique on the network)
  std::string domain;        // normally "local"
  int interfaceIndex = -1;
  bool isIPv6 = false;
  std::string hostName;      // e.g. "laptop.local"
  std::string address;      // numeric, e.g. "192.168.1.20" or "fe80::1%2"
  std::uint16_t port = 0;
  std::map<std::string, std::string> txt;

  std::string activityType() const { return value(ZTHandoffTXTActivityKey); }
  std::string deviceName() const { return value(ZTHandoffTXTNameKey); }
  std::string protocolVersion() const { return value(ZTHandoffTXTVersionKey); }
  std::string fingerprint() const { return value(ZTHandoffTXTFingerprintKey); }

 private:
  std::string value(const char* key) const {
    auto found = txt.find(key);
    return found == txt.end() ? std::string() : found->second;
  }
};

class ZT_API ZTHandoffAdvertiser {
 public:
  struct Description {
    std::string serviceName;     // shown to people; the device name is a good one. Renamed on collision ("name #2")
    std::uint16_t port = 0;
    std::string activityType;
    std::string deviceName;
    std::string fingerprint;
  };
  // Called when the service is registered (error empty), and on a later failure (daemon gone,
  // collision that could not be resolved).
  using StateCallback = std::function<void(ZTHandoffAdvertiser& advertiser, const ZTError* error)>;

  // Starts advertising on `runLoop` (ZTRunLoop::main() when null). nullptr with *error when the
  // daemon cannot be reached or the description is unusable.
  static std::unique_ptr<ZTHandoffAdvertiser> create(const Description& description, StateCallback callback,
                                                     const std::shared_ptr<ZTRunLoop>& runLoop = nullptr,
                                                     ZTError* error = nullptr);
  virtual ~ZTHandoffAdvertiser() = default;
  // The name actually registered (after any renaming).
  virtual std::string serviceName() const = 0;
  virtual bool isRegistered() const = 0;
};

class ZT_API ZTHandoffBrowser {
 public:
  struct Callbacks {
    std::function<void(const ZTHandoffService& service)> appeared;
    // The service reported by `appeared` with this name, interface and protocol is gone.
    std::function<void(const ZTHandoffService& service)> disappeared;
    // Browsing stopped with an error (daemon gone).
    std::function<void(const ZTError& error)> failed;
  };

  static std::unique_ptr<ZTHandoffBrowser> create(Callbacks callbacks, const std::shared_ptr<ZTRunLoop>& runLoop = nullptr,
                                                  ZTError* error = nullptr);
  virtual ~ZTHandoffBrowser() = default;
};
