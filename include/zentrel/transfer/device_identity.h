#pragma once
// ZTDeviceIdentity: who this device is to the devices it hands files to — a long-term Ed25519 key
// pair, a self-signed certificate made from it, and a device name.
//
// The identity is made on first use and kept in a folder of its own (by default
// $XDG_CONFIG_HOME/zentrel/handoff/, or ~/.config/zentrel/handoff/ when XDG_CONFIG_HOME is unset or
// not absolute). The folder is created with mode 0700 and its files with mode 0600; each file is
// written whole (temporary file beside it, fsync, rename, fsync of the folder), so a crash while
// the identity is made leaves either no identity or a complete one. A process that wants an
// identity of its own (two devices played by two processes on one machine) points XDG_CONFIG_HOME,
// or the folder argument, elsewhere.
//
// The fingerprint that other devices pair with is the SHA-256 digest of the certificate's DER
// encoding. Its canonical text is 64 lower-case hexadecimal digits; ZTFingerprintDisplayString()
// shows it in groups of four for people to compare.
//
// Threads: an identity may be shared between threads freely; only its name can change, under a lock.
// Bad input: unreadable, malformed or mismatched key and certificate files, a folder that is not a
// folder, or one whose mode lets others in, give a ZTError (domain ZTDeviceIdentityErrorDomain) and
// never a crash; nothing is overwritten then, so a damaged identity is left for the user to look at.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

inline constexpr const char* ZTDeviceIdentityErrorDomain = "ZTDeviceIdentityErrorDomain";
enum ZTDeviceIdentityError : std::int64_t {
  ZTDeviceIdentityErrorFolder = 1,     // the folder cannot be made, or is unsafe (not 0700, not ours)
  ZTDeviceIdentityErrorUnreadable = 2, // a file exists but cannot be read or parsed
  ZTDeviceIdentityErrorMismatch = 3,   // the certificate does not belong to the key
  ZTDeviceIdentityErrorWrite = 4,      // a file could not be written whole
  ZTDeviceIdentityErrorCrypto = 5,     // the key or certificate could not be made
};

// The canonical form of a fingerprint: 64 lower-case hexadecimal digits. Accepts upper or lower
// case with any spaces, colons or dashes between the digits; nullopt for anything else.
ZT_API std::optional<std::string> ZTFingerprintFromString(const std::string& text);
// "3f2a 91c0 ..." — the canonical form in 16 groups of four, separated by spaces.
ZT_API std::string ZTFingerprintDisplayString(const std::string& fingerprint);
// The canonical fingerprint of a DER-encoded certificate (SHA-256 of the bytes).
ZT_API std::string ZTFingerprintOfCertificateDER(const std::vector<std::uint8_t>& der);

class ZT_API ZTDeviceIdentity {
 public:
  // $XDG_CONFIG_HOME/zentrel/handoff (or ~/.config/zentrel/handoff), read at each call.
  static std::string defaultFolder();
  // The host name, or "Linux device" when it cannot be read.
  static std::string defaultDeviceName();

  // Loads the identity kept in `folder` (defaultFolder() when empty), making the folder, the key
  // and the certificate when they do not exist yet. nullptr with *error on failure.
  static std::shared_ptr<ZTDeviceIdentity> loadOrCreate(const std::string& folder = {}, ZTError* error = nullptr);

  ~ZTDeviceIdentity();
  ZTDeviceIdentity(const ZTDeviceIdentity&) = delete;
  ZTDeviceIdentity& operator=(const ZTDeviceIdentity&) = delete;

  const std::string& folder() const;
  // The name other devices see (stored in the folder's "device-name" file when set, the host name
  // otherwise).
  std::string deviceName() const;
  // Stores a new device name for this identity (written whole). Names are one line of at most 255
  // bytes of UTF-8; an empty name, a control character or invalid UTF-8 is refused.
  bool setDeviceName(const std::string& name, ZTError* error = nullptr);

  const std::string& fingerprint() const;
  std::string fingerprintDisplayString() const { return ZTFingerprintDisplayString(fingerprint()); }
  // The certificate in DER and PEM form, and the private key in PEM (PKCS #8) form; for handing to
  // a TLS library. The key is secret: do not log or send it.
  const std::vector<std::uint8_t>& certificateDER() const;
  const std::string& certificatePEM() const;
  const std::string& privateKeyPEM() const;

 private:
  struct Impl;
  explicit ZTDeviceIdentity(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};
