#pragma once
// Two devices on one machine for the hand-off tests: each has its own configuration folder (its
// identity and paired list), and the second one can be played by another process — a copy of this
// test program started with ZT_HANDOFF_PEER set, which runs a peer role (see handoff_peer.cpp)
// instead of the tests.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/platform/mutex.h"
#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/paired_devices.h"
#include "zentrel/transfer/secure_link.h"

namespace zt::test::handoff {

using Seconds = std::chrono::duration<double>;

struct Device {
  std::string configHome;  // what XDG_CONFIG_HOME is for this device
  std::shared_ptr<ZTDeviceIdentity> identity;
  std::shared_ptr<ZTPairedDevices> paired;
  std::shared_ptr<ZTSecureLink> link;
};
// A device whose configuration lives in folder/name.
Device makeDevice(const std::string& folder, const std::string& name);
// Each device imports the other's exported line.
void pairDevices(Device& a, Device& b);

// The test file's bytes: byte i is (i * 131 + 7) mod 256.
std::vector<std::uint8_t> patternBytes(std::uint64_t offset, std::size_t count);
void writePatternFile(const std::string& path, std::uint64_t size);
bool fileHasPattern(const std::string& path, std::uint64_t size);

// A peer process. Its standard output is collected line by line; its standard input stays open
// until closeInput(), which some roles wait for.
class Peer {
 public:
  // Starts this program in the role `role`, with the extra environment.
  static std::unique_ptr<Peer> start(const std::string& role, const std::map<std::string, std::string>& environment);
  ~Peer();

  // Runs the main run loop until a line beginning with `prefix` has come, or the time is up.
  std::optional<std::string> waitForLine(const std::string& prefix, Seconds timeout = Seconds(30));
  bool hasLine(const std::string& prefix) const;
  std::vector<std::string> lines() const;
  void closeInput();
  void kill();
  // Runs the main run loop until the process has ended; its exit status, or nullopt on timeout.
  std::optional<int> waitForExit(Seconds timeout = Seconds(30));

 private:
  Peer() = default;
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::thread reader_;
  mutable ZTMutex mutex_;
  std::vector<std::string> lines_ ZT_GUARDED_BY(mutex_);
  bool ended_ ZT_GUARDED_BY(mutex_) = false;
  std::optional<int> status_;
};

}  // namespace zt::test::handoff
