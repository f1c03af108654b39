#pragma once
// ZTPairedDevices: the devices this device trusts — each a name and a certificate fingerprint —
// kept in the identity's folder as "paired-devices.json" (mode 0600, written whole: temporary file
// beside it, fsync, rename, fsync of the folder). Hand-off connections accept a peer only when its
// certificate's fingerprint is in this list.
//
// A device enters the list by pairing (ZTDevicePairing, both users confirm the same code) or by
// importing the one-line text another device exports ("zentrel-device <fingerprint> <name>"), which
// lets scripts pair two devices without prompts. Fingerprints are unique in the list; names are
// for people and need not be, but forget() by name removes every device of that name.
//
// Threads: every member may be called from any thread; the list is guarded by a lock, and each
// change is written to the file before the call returns. Two processes sharing one folder see each
// other's changes after reload().
// Bad input: a malformed list file gives a ZTError (domain ZTPairedDevicesErrorDomain) on load and
// is not overwritten; a malformed import line or fingerprint is refused with a ZTError, never a crash.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"

class ZTDeviceIdentity;

inline constexpr const char* ZTPairedDevicesErrorDomain = "ZTPairedDevicesErrorDomain";
enum ZTPairedDevicesError : std::int64_t {
  ZTPairedDevicesErrorUnreadable = 1,   // the list file exists but cannot be read or parsed
  ZTPairedDevicesErrorWrite = 2,        // the list could not be written whole
  ZTPairedDevicesErrorBadLine = 3,      // an import line is not "zentrel-device <fingerprint> <name>"
  ZTPairedDevicesErrorBadName = 4,      // empty, too long, control characters or invalid UTF-8
  ZTPairedDevicesErrorOwnDevice = 5,    // the fingerprint is this device's own
  ZTPairedDevicesErrorNotFound = 6,     // forget() of a name no paired device has
};

struct ZTPairedDevice {
  std::string name;
  std::string fingerprint;  // canonical form (ZTFingerprintFromString)
  friend bool operator==(const ZTPairedDevice&, const ZTPairedDevice&) = default;
};

// This device's line for another device to import: "zentrel-device <fingerprint> <name>".
ZT_API std::string ZTDeviceExportLine(const ZTDeviceIdentity& identity);
// Reads such a line (surrounding white space ignored). nullopt with *error when malformed.
ZT_API std::optional<ZTPairedDevice> ZTParseDeviceExportLine(const std::string& line, ZTError* error = nullptr);

class ZT_API ZTPairedDevices {
 public:
  // The list kept in the folder of `identity` (its own fingerprint is never accepted into it).
  // An absent file is an empty list. nullptr with *error when the file is unreadable.
  static std::shared_ptr<ZTPairedDevices> load(const std::shared_ptr<ZTDeviceIdentity>& identity, ZTError* error = nullptr);

  std::vector<ZTPairedDevice> devices() const;
  std::optional<ZTPairedDevice> deviceWithFingerprint(const std::string& fingerprint) const;
  bool contains(const std::string& fingerprint) const { return deviceWithFingerprint(fingerprint).has_value(); }

  // Adds the device, or renames it when its fingerprint is already there; then writes the list.
  bool add(const ZTPairedDevice& device, ZTError* error = nullptr);
  // add() of a line made by ZTDeviceExportLine on the other device.
  bool importLine(const std::string& line, ZTError* error = nullptr);
  // Removes every device called `name`, or the device whose fingerprint `name` is; then writes.
  bool forget(const std::string& nameOrFingerprint, ZTError* error = nullptr);
  // Reads the file again (changes made by another process).
  bool reload(ZTError* error = nullptr);

  const std::string& path() const { return path_; }

 private:
  ZTPairedDevices(std::string path, std::string ownFingerprint);
  bool writeLocked(const std::vector<ZTPairedDevice>& devices, ZTError* error) ZT_REQUIRES(mutex_);
  const std::string path_;
  const std::string ownFingerprint_;
  mutable ZTMutex mutex_;
  std::vector<ZTPairedDevice> devices_ ZT_GUARDED_BY(mutex_);
};
