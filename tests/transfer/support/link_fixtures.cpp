#include "transfer/support/link_fixtures.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

namespace zt::test {

LinkScratchFolder::LinkScratchFolder() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && base[0] == '/' ? base : "/tmp") + "/zt-link-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

LinkScratchFolder::~LinkScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

TestDevice makeTestDevice(const std::string& folder, const std::string& name) {
  ZTError error;
  TestDevice device;
  device.identity = ZTDeviceIdentity::loadOrCreate(folder + "/" + name, &error);
  if (!device.identity) ADD_FAILURE() << error.description();
  if (!device.identity) return device;
  EXPECT_TRUE(device.identity->setDeviceName(name, &error)) << error.description();
  device.paired = ZTPairedDevices::load(device.identity, &error);
  if (!device.paired) ADD_FAILURE() << error.description();
  return device;
}

void pairByExportedLines(const TestDevice& a, const TestDevice& b) {
  ZTError error;
  EXPECT_TRUE(a.paired->importLine(ZTDeviceExportLine(*b.identity), &error)) << error.description();
  EXPECT_TRUE(b.paired->importLine(ZTDeviceExportLine(*a.identity), &error)) << error.description();
}

}  // namespace zt::test
