#include "zentrel/transfer/device_pairing.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "transfer/internal/link_support.h"
#include "transfer/internal/tls_channel.h"
#include "zentrel/platform/log.h"
#include "zentrel/transfer/device_identity.h"

using namespace zt::transfer_internal;

namespace {

enum MessageType : std::uint8_t { kHello = 1, kCommitment = 2, kNonce = 3, kReveal = 4, kDecision = 5 };
constexpr std::size_t kNonceSize = 32;
constexpr std::size_t kMaxMessage = 1024;

ZTError pairingError(ZTDevicePairingError code, const std::string& description) {
  return makeError(ZTDevicePairingErrorDomain, code, description);
}

std::string sha256(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
  return std::string(reinterpret_cast<char*>(digest), length);
}

std::string commitmentFor(const std::string& initiatorFingerprint, const std::string& responderFingerprint,
                          const std::string& initiatorNonce) {
  return sha256("zentrel pairing commitment 1\n" + initiatorFingerprint + "\n" + responderFingerprint + "\n" + initiatorNonce);
}

// A blocking TLS session on a non-blocking socket, every call bounded by one deadline.
class Session {
 public:
  Session(int fd, SSLPtr ssl, Clock::time_point deadline) : fd_(fd), ssl_(std::move(ssl)), deadline_(deadline) {
    int flags = ::fcntl(fd_.fd, F_GETFL);
    ::fcntl(fd_.fd, F_SETFL, flags | O_NONBLOCK);
    attachSocket(ssl_.get(), fd_.fd);
  }
  ~Session() {
    if (handshaken_) {
      ERR_clear_error();
      SSL_shutdown(ssl_.get());
      ERR_clear_error();
    }
  }

  SSL* ssl() { return ssl_.get(); }

  // Runs `operation` until it succeeds, fails or the deadline passes.
  template <class Operation>
  bool drive(Operation operation, ZTError* error, const char* what) {
    for (int round = 0; round < 1000000; ++round) {
      ERR_clear_error();
      errno = 0;
      int status = operation();
      if (status == 1) return true;
      int sslError = SSL_get_error(ssl_.get(), status);
      if (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE) {
        if (!waitFor(fd_.fd, sslError == SSL_ERROR_WANT_WRITE, deadline_)) {
          ZTSetError(error, pairingError(ZTDevicePairingErrorTimedOut,
                                         std::string("The other device did not answer in time (") + what + ")."));
          return false;
        }
        continue;
      }
      std::string reasons = openSSLErrors("");
      if (sslError == SSL_ERROR_ZERO_RETURN || sslError == SSL_ERROR_SYSCALL || reasons.find("unexpected eof") != std::string::npos) {
        ZTSetError(error, pairingError(ZTDevicePairingErrorConnection,
                                       std::string("The other device closed the connection (") + what + ")."));
      } else {
        ZTSetError(error, pairingError(handshaken_ ? ZTDevicePairingErrorConnection : ZTDevicePairingErrorTLS,
                                       std::string("The secure connection failed (") + what + "): " + reasons + "."));
      }
      return false;
    }
    ZTSetError(error, pairingError(ZTDevicePairingErrorTimedOut, "The other device did not answer in time."));
    return false;
  }

  bool handshake(ZTError* error) {
    handshaken_ = drive([&] { return SSL_do_handshake(ssl_.get()); }, error, "handshake");
    return handshaken_;
  }

  bool send(MessageType type, const std::string& payload, ZTError* error) {
    std::string frame;
    frame += static_cast<char>(type);
    frame += static_cast<char>(payload.size() >> 8);
    frame += static_cast<char>(payload.size() & 0xff);
    frame += payload;
    std::size_t done = 0;
    while (done < frame.size()) {
      std::size_t written = 0;
      if (!drive([&] { return SSL_write_ex(ssl_.get(), frame.data() + done, frame.size() - done, &written); }, error, "sending")) {
        return false;
      }
      done += written;
    }
    return true;
  }

  bool receiveExactly(std::size_t length, std::string& bytes, ZTError* error) {
    bytes.assign(length, '\0');
    std::size_t done = 0;
    while (done < length) {
      std::size_t count = 0;
      if (!drive([&] { return SSL_read_ex(ssl_.get(), bytes.data() + done, length - done, &count); }, error, "receiving")) {
        return false;
      }
      done += count;
    }
    return true;
  }

  // Receives one message, which must be of `type` and carry `size` bytes (any size up to the limit
  // when size is 0).
  bool receive(MessageType type, std::size_t size, std::string& payload, ZTError* error) {
    std::string header;
    if (!receiveExactly(3, header, error)) return false;
    auto length = static_cast<std::size_t>(static_cast<unsigned char>(header[1]) << 8 | static_cast<unsigned char>(header[2]));
    if (static_cast<std::uint8_t>(header[0]) != type || length > kMaxMessage || (size != 0 && length != size)) {
      ZTSetError(error, pairingError(ZTDevicePairingErrorProtocol,
                                     "The other device sent a message this pairing protocol does not expect."));
      return false;
    }
    return receiveExactly(length, payload, error);
  }

 private:
  FdCloser fd_;
  SSLPtr ssl_;
  Clock::time_point deadline_;
  bool handshaken_ = false;
};

bool callConfirm(const ZTDevicePairing::ConfirmCallback& confirm, const ZTPairingCandidate& candidate) {
  if (!confirm) return false;
  try {
    return confirm(candidate);
  } catch (const std::exception& exception) {
    ZTLogf("ZTDevicePairing: the confirmation callback threw, taken as a refusal: %s", exception.what());
  } catch (...) {
    ZTLog("ZTDevicePairing: the confirmation callback threw, taken as a refusal");
  }
  return false;
}

std::optional<ZTPairedDevice> runPairing(int fd, bool initiator, const std::shared_ptr<ZTDeviceIdentity>& identity,
                                         const std::shared_ptr<ZTPairedDevices>& paired,
                                         const ZTDevicePairing::ConfirmCallback& confirm, Clock::time_point deadline,
                                         ZTError* error) {
  FdCloser owned(fd);
  if (!identity || !paired) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorStore, "Pairing needs this device's identity and its paired list."));
    return std::nullopt;
  }
  std::string problem;
  SSLCtxPtr context = makeTLSContext(*identity, !initiator, &problem);
  SSLPtr ssl(context ? SSL_new(context.get()) : nullptr);
  if (!ssl) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorTLS, "Cannot start TLS: " + (problem.empty() ? openSSLErrors() : problem)));
    return std::nullopt;
  }
  PeerCheck check;  // any certificate: the code decides
  installPeerCheck(ssl.get(), &check);
  if (initiator) SSL_set_connect_state(ssl.get());
  else SSL_set_accept_state(ssl.get());
  Session session(owned.release(), std::move(ssl), deadline);
  if (!session.handshake(error)) return std::nullopt;
  std::string peerFingerprint = zt::transfer_internal::peerFingerprint(session.ssl());
  if (peerFingerprint.empty() || peerFingerprint != check.fingerprint) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorTLS, "The other device presented no certificate."));
    return std::nullopt;
  }
  if (peerFingerprint == identity->fingerprint()) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorProtocol, "The other device has this device's own identity."));
    return std::nullopt;
  }

  std::string peerName;
  if (!session.send(kHello, identity->deviceName(), error) || !session.receive(kHello, 0, peerName, error)) return std::nullopt;
  if (!isValidDeviceName(peerName)) peerName = "Unnamed device";

  const std::string& initiatorFingerprint = initiator ? identity->fingerprint() : peerFingerprint;
  const std::string& responderFingerprint = initiator ? peerFingerprint : identity->fingerprint();
  std::string ownNonce(kNonceSize, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(ownNonce.data()), kNonceSize) != 1) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorTLS, "No random numbers for the pairing nonce."));
    return std::nullopt;
  }
  std::string initiatorNonce, responderNonce;
  if (initiator) {
    initiatorNonce = ownNonce;
    if (!session.send(kCommitment, commitmentFor(initiatorFingerprint, responderFingerprint, initiatorNonce), error) ||
        !session.receive(kNonce, kNonceSize, responderNonce, error) || !session.send(kReveal, initiatorNonce, error)) {
      return std::nullopt;
    }
  } else {
    responderNonce = ownNonce;
    std::string commitment;
    if (!session.receive(kCommitment, 32, commitment, error) || !session.send(kNonce, responderNonce, error) ||
        !session.receive(kReveal, kNonceSize, initiatorNonce, error)) {
      return std::nullopt;
    }
    if (commitmentFor(initiatorFingerprint, responderFingerprint, initiatorNonce) != commitment) {
      ZTSetError(error, pairingError(ZTDevicePairingErrorCommitmentMismatch,
                                     "The other device's nonce does not match its commitment: someone may be interfering. "
                                     "Nothing was paired."));
      return std::nullopt;
    }
  }

  ZTPairingCandidate candidate;
  candidate.code = ZTDevicePairing::codeFor(initiatorFingerprint, responderFingerprint, initiatorNonce, responderNonce);
  candidate.peerName = peerName;
  candidate.peerFingerprint = peerFingerprint;
  candidate.isInitiator = initiator;
  const bool accepted = callConfirm(confirm, candidate);
  if (!session.send(kDecision, accepted ? "y" : "n", error)) return std::nullopt;
  if (!accepted) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorRefusedHere, "The code was not confirmed on this device. Nothing was paired."));
    return std::nullopt;
  }
  std::string decision;
  if (!session.receive(kDecision, 1, decision, error)) return std::nullopt;
  if (decision != "y") {
    ZTSetError(error, pairingError(ZTDevicePairingErrorRefusedByPeer,
                                   "The code was not confirmed on the other device. Nothing was paired."));
    return std::nullopt;
  }
  ZTPairedDevice device{peerName, peerFingerprint};
  ZTError storeError;
  if (!paired->add(device, &storeError)) {
    ZTValue info = ZTValue::dictionary();
    info[ZTLocalizedDescriptionKey] = "Both devices confirmed, but the paired list could not be saved: " +
                                      storeError.localizedDescription();
    info[ZTUnderlyingErrorKey] = storeError.toValue();
    ZTSetError(error, ZTError(ZTDevicePairingErrorDomain, ZTDevicePairingErrorStore, std::move(info)));
    return std::nullopt;
  }
  return device;
}

}  // namespace

std::string ZTDevicePairing::codeFor(const std::string& initiatorFingerprint, const std::string& responderFingerprint,
                                     const std::string& initiatorNonce, const std::string& responderNonce) {
  std::string digest = sha256("zentrel pairing code 1\n" + initiatorFingerprint + "\n" + responderFingerprint + "\n" +
                              initiatorNonce + responderNonce);
  std::uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = value << 8 | static_cast<unsigned char>(digest[static_cast<std::size_t>(i)]);
  std::string code = std::to_string(value % 1000000);
  return std::string(6 - code.size(), '0') + code;
}

std::optional<ZTPairedDevice> ZTDevicePairing::pairWithDevice(const std::string& host, std::uint16_t port,
                                                              const std::shared_ptr<ZTDeviceIdentity>& identity,
                                                              const std::shared_ptr<ZTPairedDevices>& paired,
                                                              const ConfirmCallback& confirm, const ZTPairingOptions& options,
                                                              ZTError* error) {
  const auto deadline = Clock::now() + options.timeout;
  std::string problem;
  bool refused = false;
  int fd = connectWithDeadline(host, port, deadline, &problem, &refused);
  if (fd < 0) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorConnection,
                                   refused ? "The connection to " + host + ":" + std::to_string(port) +
                                                 " was refused: is the other device waiting (zt pair --listen)?"
                                           : problem + "."));
    return std::nullopt;
  }
  return runPairing(fd, true, identity, paired, confirm, deadline, error);
}

std::unique_ptr<ZTPairingListener> ZTPairingListener::create(std::uint16_t port, bool loopbackOnly, ZTError* error) {
  std::string problem;
  std::uint16_t bound = 0;
  int fd = listenOn(port, loopbackOnly, &bound, &problem);
  if (fd < 0) {
    ZTSetError(error, pairingError(ZTDevicePairingErrorConnection, problem + "."));
    return nullptr;
  }
  int flags = ::fcntl(fd, F_GETFL);
  ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  return std::unique_ptr<ZTPairingListener>(new ZTPairingListener(fd, bound));
}

ZTPairingListener::~ZTPairingListener() {
  if (fd_ >= 0) ::close(fd_);
}

std::optional<ZTPairedDevice> ZTPairingListener::acceptAndPair(const std::shared_ptr<ZTDeviceIdentity>& identity,
                                                               const std::shared_ptr<ZTPairedDevices>& paired,
                                                               const ZTDevicePairing::ConfirmCallback& confirm,
                                                               const ZTPairingOptions& options, ZTError* error) {
  const auto deadline = Clock::now() + options.timeout;
  for (int round = 0; round < 1000000; ++round) {
    int fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) return runPairing(fd, false, identity, paired, confirm, deadline, error);
    if (errno == EINTR || errno == ECONNABORTED) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      ZTSetError(error, pairingError(ZTDevicePairingErrorConnection, std::string("Cannot accept a connection: ") + std::strerror(errno) + "."));
      return std::nullopt;
    }
    if (!waitFor(fd_, false, deadline)) break;
  }
  ZTSetError(error, pairingError(ZTDevicePairingErrorTimedOut, "No device asked to pair in time."));
  return std::nullopt;
}
