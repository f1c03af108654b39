#pragma once
// Devices for the secure-link tests: each a folder of its own under a fresh temporary folder,
// holding an identity and a paired list, as two machines would.

#include <memory>
#include <string>

#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/paired_devices.h"

namespace zt::test {

// A fresh folder removed with its content when the object goes away.
class LinkScratchFolder {
 public:
  LinkScratchFolder();
  ~LinkScratchFolder();
  LinkScratchFolder(const LinkScratchFolder&) = delete;
  LinkScratchFolder& operator=(const LinkScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

struct TestDevice {
  std::shared_ptr<ZTDeviceIdentity> identity;
  std::shared_ptr<ZTPairedDevices> paired;
};

// A device whose identity lives in <folder>/<name>, called `name`.
TestDevice makeTestDevice(const std::string& folder, const std::string& name);
// Each device imports the other's exported line.
void pairByExportedLines(const TestDevice& a, const TestDevice& b);

}  // namespace zt::test
