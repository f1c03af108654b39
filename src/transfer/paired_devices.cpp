#include "zentrel/transfer/paired_devices.h"

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "transfer/internal/link_support.h"
#include "zentrel/transfer/device_identity.h"

using namespace zt::transfer_internal;

namespace {
constexpr const char* kListFile = "paired-devices.json";
constexpr const char* kLinePrefix = "zentrel-device";
constexpr std::size_t kMaxDevices = 10000;

ZTError pairedError(ZTPairedDevicesError code, const std::string& description) {
  return makeError(ZTPairedDevicesErrorDomain, code, description);
}

bool parseList(const std::string& text, std::vector<ZTPairedDevice>& devices, std::string& problem) {
  nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
  if (document.is_discarded() || !document.is_object()) {
    problem = "it is not a JSON object";
    return false;
  }
  auto list = document.find("devices");
  if (list == document.end() || !list->is_array() || list->size() > kMaxDevices) {
    problem = "it has no list of devices";
    return false;
  }
  devices.clear();
  for (const auto& entry : *list) {
    if (!entry.is_object() || !entry.contains("name") || !entry.contains("fingerprint") || !entry["name"].is_string() ||
        !entry["fingerprint"].is_string()) {
      problem = "an entry is not {\"name\": text, \"fingerprint\": text}";
      return false;
    }
    auto fingerprint = ZTFingerprintFromString(entry["fingerprint"].get<std::string>());
    std::string name = entry["name"].get<std::string>();
    if (!fingerprint || !isValidDeviceName(name)) {
      problem = "an entry has an invalid name or fingerprint";
      return false;
    }
    devices.push_back({name, *fingerprint});
  }
  return true;
}
}  // namespace

std::string ZTDeviceExportLine(const ZTDeviceIdentity& identity) {
  return std::string(kLinePrefix) + " " + identity.fingerprint() + " " + identity.deviceName();
}

std::optional<ZTPairedDevice> ZTParseDeviceExportLine(const std::string& line, ZTError* error) {
  auto bad = [&](const std::string& why) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorBadLine,
                                  "This is not a device line (\"zentrel-device <fingerprint> <name>\"): " + why + "."));
    return std::nullopt;
  };
  if (line.size() > 4096) return bad("it is too long");
  std::size_t begin = line.find_first_not_of(" \t\r\n");
  std::size_t end = line.find_last_not_of(" \t\r\n");
  if (begin == std::string::npos) return bad("it is empty");
  std::string text = line.substr(begin, end - begin + 1);
  std::string prefix = std::string(kLinePrefix) + " ";
  if (text.compare(0, prefix.size(), prefix) != 0) return bad("it does not begin with \"zentrel-device\"");
  std::size_t fingerprintStart = text.find_first_not_of(' ', prefix.size());
  std::size_t fingerprintEnd = fingerprintStart == std::string::npos ? std::string::npos : text.find(' ', fingerprintStart);
  if (fingerprintEnd == std::string::npos) return bad("it has no device name");
  auto fingerprint = ZTFingerprintFromString(text.substr(fingerprintStart, fingerprintEnd - fingerprintStart));
  if (!fingerprint) return bad("the fingerprint is not 64 hexadecimal digits");
  std::size_t nameStart = text.find_first_not_of(' ', fingerprintEnd);
  std::string name = nameStart == std::string::npos ? std::string() : text.substr(nameStart);
  if (!isValidDeviceName(name)) return bad("the device name is empty, too long or not plain text");
  return ZTPairedDevice{name, *fingerprint};
}

ZTPairedDevices::ZTPairedDevices(std::string path, std::string ownFingerprint)
    : path_(std::move(path)), ownFingerprint_(std::move(ownFingerprint)) {}

std::shared_ptr<ZTPairedDevices> ZTPairedDevices::load(const std::shared_ptr<ZTDeviceIdentity>& identity, ZTError* error) {
  if (!identity) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorUnreadable, "There is no device identity to keep paired devices for."));
    return nullptr;
  }
  std::shared_ptr<ZTPairedDevices> list(new ZTPairedDevices(identity->folder() + "/" + kListFile, identity->fingerprint()));
  if (!list->reload(error)) return nullptr;
  return list;
}

bool ZTPairedDevices::reload(ZTError* error) {
  std::string text;
  int failure = 0;
  std::vector<ZTPairedDevice> devices;
  if (!readSmallFile(path_, 16 * 1024 * 1024, text, &failure)) {
    if (failure != ENOENT) {
      ZTSetError(error, pairedError(ZTPairedDevicesErrorUnreadable,
                                    "The paired devices list \"" + path_ + "\" cannot be read: " + std::strerror(failure) + "."));
      return false;
    }
  } else {
    std::string problem;
    if (!parseList(text, devices, problem)) {
      ZTSetError(error, pairedError(ZTPairedDevicesErrorUnreadable,
                                    "The paired devices list \"" + path_ + "\" is damaged: " + problem + "."));
      return false;
    }
  }
  ZTLockGuard lock(mutex_);
  devices_ = std::move(devices);
  return true;
}

std::vector<ZTPairedDevice> ZTPairedDevices::devices() const {
  ZTLockGuard lock(mutex_);
  return devices_;
}

std::optional<ZTPairedDevice> ZTPairedDevices::deviceWithFingerprint(const std::string& fingerprint) const {
  auto canonical = ZTFingerprintFromString(fingerprint);
  if (!canonical) return std::nullopt;
  ZTLockGuard lock(mutex_);
  for (const auto& device : devices_) {
    if (device.fingerprint == *canonical) return device;
  }
  return std::nullopt;
}

bool ZTPairedDevices::writeLocked(const std::vector<ZTPairedDevice>& devices, ZTError* error) {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& device : devices) list.push_back({{"name", device.name}, {"fingerprint", device.fingerprint}});
  nlohmann::json document = {{"version", 1}, {"devices", list}};
  int failure = 0;
  if (!writeFileWhole(path_, document.dump(2) + "\n", 0600, &failure)) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorWrite,
                                  "The paired devices list \"" + path_ + "\" cannot be written: " + std::strerror(failure) + "."));
    return false;
  }
  devices_ = devices;
  return true;
}

bool ZTPairedDevices::add(const ZTPairedDevice& device, ZTError* error) {
  auto fingerprint = ZTFingerprintFromString(device.fingerprint);
  if (!fingerprint) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorBadLine, "The fingerprint is not 64 hexadecimal digits."));
    return false;
  }
  if (!isValidDeviceName(device.name)) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorBadName,
                                  "A device name must be one line of 1 to 255 bytes of text without control characters."));
    return false;
  }
  if (*fingerprint == ownFingerprint_) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorOwnDevice, "This is this device's own fingerprint."));
    return false;
  }
  ZTLockGuard lock(mutex_);
  std::vector<ZTPairedDevice> devices = devices_;
  bool renamed = false;
  for (auto& existing : devices) {
    if (existing.fingerprint == *fingerprint) {
      existing.name = device.name;
      renamed = true;
    }
  }
  if (!renamed) {
    if (devices.size() >= kMaxDevices) {
      ZTSetError(error, pairedError(ZTPairedDevicesErrorWrite, "The paired devices list is full."));
      return false;
    }
    devices.push_back({device.name, *fingerprint});
  }
  return writeLocked(devices, error);
}

bool ZTPairedDevices::importLine(const std::string& line, ZTError* error) {
  auto device = ZTParseDeviceExportLine(line, error);
  return device && add(*device, error);
}

bool ZTPairedDevices::forget(const std::string& nameOrFingerprint, ZTError* error) {
  auto fingerprint = ZTFingerprintFromString(nameOrFingerprint);
  ZTLockGuard lock(mutex_);
  std::vector<ZTPairedDevice> kept;
  for (const auto& device : devices_) {
    if (device.name != nameOrFingerprint && (!fingerprint || device.fingerprint != *fingerprint)) kept.push_back(device);
  }
  if (kept.size() == devices_.size()) {
    ZTSetError(error, pairedError(ZTPairedDevicesErrorNotFound, "No paired device is called \"" + nameOrFingerprint + "\"."));
    return false;
  }
  return writeLocked(kept, error);
}
