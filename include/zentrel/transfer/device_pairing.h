#pragma once
// ZTDevicePairing: makes two devices trust each other, once, by numeric comparison.
//
// The initiator connects to the responder over TCP. Inside a TLS 1.3 connection that accepts any
// certificate (it is what is being decided), the two exchange device names, then:
//   1. the initiator sends a commitment: SHA-256 over both certificates' fingerprints and a random
//      32-byte nonce of its own;
//   2. the responder sends its own random nonce;
//   3. the initiator reveals its nonce, and the responder checks it against the commitment;
//   4. both compute a six-digit code from both fingerprints and both nonces, and show it;
//   5. each user confirms that both screens show the same code (the confirm callback); each side
//      tells the other its answer. Only when both confirm does each side add the other to its
//      ZTPairedDevices list.
// The fingerprints are those of the certificates actually presented in the TLS handshake, so a man
// in the middle relaying between the two with keys of its own makes each side compute its code
// from different fingerprints, and the commitment keeps it from choosing a nonce that would make
// the two codes agree: the users see different codes and refuse.
//
// Threads: the calls block the calling thread until the pairing ends, fails or the timeout passes
// (waiting for the user included); call them from a worker thread or a command-line tool, never from
// a thread whose run loop others wait on. The confirm callback runs on the calling thread; if it
// throws, the exception is logged and counts as a refusal.
// Bad input: a peer that breaks the protocol, sends oversized or malformed messages, fails the
// commitment check or goes silent ends the pairing with a ZTError (domain ZTDevicePairingErrorDomain)
// and nothing is added to the paired list.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/transfer/paired_devices.h"

class ZTDeviceIdentity;

inline constexpr const char* ZTDevicePairingErrorDomain = "ZTDevicePairingErrorDomain";
enum ZTDevicePairingError : std::int64_t {
  ZTDevicePairingErrorConnection = 1,        // cannot listen, connect or accept; connection refused or lost
  ZTDevicePairingErrorTimedOut = 2,          // no answer, or no decision, within the timeout
  ZTDevicePairingErrorProtocol = 3,          // the peer sent something this protocol does not allow
  ZTDevicePairingErrorCommitmentMismatch = 4,// the revealed nonce does not match the commitment
  ZTDevicePairingErrorRefusedHere = 5,       // the user of this device did not confirm the code
  ZTDevicePairingErrorRefusedByPeer = 6,     // the other device's user did not confirm
  ZTDevicePairingErrorTLS = 7,               // the TLS handshake failed
  ZTDevicePairingErrorStore = 8,             // both confirmed, but the paired list could not be written
};

// What the user is asked to compare.
struct ZTPairingCandidate {
  std::string code;              // six decimal digits, "004217"
  std::string peerName;          // the name the peer gives itself (not authenticated: the code is)
  std::string peerFingerprint;   // canonical fingerprint of the certificate the peer presented
  bool isInitiator = false;      // whether this side connected
};

struct ZTPairingOptions {
  // For the whole pairing, the user's decision included.
  std::chrono::milliseconds timeout = std::chrono::minutes(2);
};

class ZT_API ZTDevicePairing {
 public:
  // Returns the user's decision: true when the code shown on both devices is the same.
  using ConfirmCallback = std::function<bool(const ZTPairingCandidate& candidate)>;

  // The code both sides compute; exposed for tests and tools that show how it is made. Fingerprints
  // in canonical form, nonces of 32 bytes.
  static std::string codeFor(const std::string& initiatorFingerprint, const std::string& responderFingerprint,
                             const std::string& initiatorNonce, const std::string& responderNonce);

  // Initiator: connects to host:port (a name or a numeric IPv4/IPv6 address) and pairs. Returns the
  // device added to `paired`, or nullopt with *error.
  static std::optional<ZTPairedDevice> pairWithDevice(const std::string& host, std::uint16_t port,
                                                      const std::shared_ptr<ZTDeviceIdentity>& identity,
                                                      const std::shared_ptr<ZTPairedDevices>& paired,
                                                      const ConfirmCallback& confirm,
                                                      const ZTPairingOptions& options = {}, ZTError* error = nullptr);
};

// Responder: a listening TCP socket (IPv6 with IPv4 mapped, or IPv4 alone where IPv6 is off) that
// accepts pairing connections. Owns its socket; closes it when destroyed. One thread at a time.
class ZT_API ZTPairingListener {
 public:
  // Listens on `port` (0: a free port chosen by the system) on every address, or on loopback only.
  static std::unique_ptr<ZTPairingListener> create(std::uint16_t port, bool loopbackOnly = false, ZTError* error = nullptr);
  ~ZTPairingListener();
  ZTPairingListener(const ZTPairingListener&) = delete;
  ZTPairingListener& operator=(const ZTPairingListener&) = delete;

  std::uint16_t port() const { return port_; }
  // Waits for one initiator (within the timeout) and pairs with it.
  std::optional<ZTPairedDevice> acceptAndPair(const std::shared_ptr<ZTDeviceIdentity>& identity,
                                              const std::shared_ptr<ZTPairedDevices>& paired,
                                              const ZTDevicePairing::ConfirmCallback& confirm,
                                              const ZTPairingOptions& options = {}, ZTError* error = nullptr);

 private:
  ZTPairingListener(int fd, std::uint16_t port) : fd_(fd), port_(port) {}
  int fd_;
  std::uint16_t port_;
};
