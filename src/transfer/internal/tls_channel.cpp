#include "transfer/internal/tls_channel.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/secure_link.h"

namespace zt::transfer_internal {

namespace {
constexpr std::uint8_t kAcceptedMessage = 0x5a;
constexpr std::size_t kMaxRecord = 16384;

int checkIndex() {
  static int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

int verifyPeer(int, X509_STORE_CTX* store) {
  SSL* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto* check = ssl ? static_cast<PeerCheck*>(SSL_get_ex_data(ssl, checkIndex())) : nullptr;
  if (!check) return 0;
  // Only the certificate the peer signs with is judged; a chain sent along is ignored, since trust
  // comes from the exact certificate (its fingerprint), not from an issuer.
  if (X509_STORE_CTX_get_error_depth(store) != 0) return 1;
  X509* certificate = X509_STORE_CTX_get_current_cert(store);
  unsigned char* der = nullptr;
  int length = certificate ? i2d_X509(certificate, &der) : -1;
  if (length <= 0) return 0;
  std::vector<std::uint8_t> bytes(der, der + length);
  OPENSSL_free(der);
  check->fingerprint = ZTFingerprintOfCertificateDER(bytes);
  if (!check->paired) return 1;
  check->device = check->paired->deviceWithFingerprint(check->fingerprint);
  if (check->device) {
    X509_STORE_CTX_set_error(store, X509_V_OK);
    return 1;
  }
  check->rejected = true;
  X509_STORE_CTX_set_error(store, X509_V_ERR_CERT_REJECTED);
  return 0;
}
}  // namespace

void installPeerCheck(SSL* ssl, PeerCheck* check) {
  SSL_set_ex_data(ssl, checkIndex(), check);
  SSL_set_verify(ssl, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, verifyPeer);
}

TLSChannel::TLSChannel(std::shared_ptr<ZTStreamChannel> inner, SSLPtr ssl, bool server, std::shared_ptr<ZTPairedDevices> paired,
                       std::string peerDescription)
    : inner_(std::move(inner)), ssl_(std::move(ssl)), server_(server), peerDescription_(std::move(peerDescription)) {
  check_.paired = std::move(paired);
  installPeerCheck(ssl_.get(), &check_);
}

TLSChannel::~TLSChannel() { close(); }

int TLSChannel::fileDescriptor() const { return stage_ == Stage::Closed ? -1 : inner_->fileDescriptor(); }

ZTStreamChannelResult TLSChannel::fail(ZTError* error, std::int64_t code, const std::string& description) {
  stage_ = Stage::Failed;
  ZTSetError(error, makeError(ZTSecureLinkErrorDomain, code, description));
  return {ZTStreamChannelStatus::Failed, 0};
}

ZTStreamChannelResult TLSChannel::wouldBlock(ZTStreamChannelOperation operation, int sslError) {
  wanted_[static_cast<int>(operation)] =
      sslError == SSL_ERROR_WANT_WRITE ? ZTStreamChannelReadiness::Writable : ZTStreamChannelReadiness::Readable;
  return {ZTStreamChannelStatus::WouldBlock, 0};
}

ZTError TLSChannel::handshakeError(int sslError, std::int64_t* code) {
  *code = ZTSecureLinkErrorHandshake;
  if (check_.rejected) {
    ERR_clear_error();
    *code = ZTSecureLinkErrorUnpairedPeer;
    return makeError(ZTSecureLinkErrorDomain, *code,
                     "The device at " + peerDescription_ + " is not paired with this device (its certificate fingerprint is " +
                         ZTFingerprintDisplayString(check_.fingerprint) + "). Pair the two devices first.");
  }
  std::string reasons = openSSLErrors("");
  if (sslError == SSL_ERROR_SYSCALL || sslError == SSL_ERROR_ZERO_RETURN ||
      reasons.find("unexpected eof") != std::string::npos) {
    *code = ZTSecureLinkErrorConnection;
    std::string why = errno != 0 && sslError == SSL_ERROR_SYSCALL ? std::string(": ") + std::strerror(errno) : std::string();
    return makeError(ZTSecureLinkErrorDomain, *code,
                     "The connection to " + peerDescription_ + " closed during the secure handshake" + why + ".");
  }
  if (reasons.find("alert bad certificate") != std::string::npos || reasons.find("alert unknown ca") != std::string::npos ||
      reasons.find("alert certificate required") != std::string::npos ||
      reasons.find("alert certificate unknown") != std::string::npos) {
    return makeError(ZTSecureLinkErrorDomain, *code,
                     "The device at " + peerDescription_ +
                         " refused this device's certificate: this device is not paired with it. (" + reasons + ")");
  }
  return makeError(ZTSecureLinkErrorDomain, *code,
                   "The secure handshake with " + peerDescription_ + " failed: " + (reasons.empty() ? "unknown reason" : reasons) + ".");
}

ZTStreamChannelResult TLSChannel::open(ZTError* error) {
  switch (stage_) {
    case Stage::Ready:
      return {ZTStreamChannelStatus::Done, 0};
    case Stage::Failed:
    case Stage::Closed:
      ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, "The secure connection is closed."));
      return {ZTStreamChannelStatus::Failed, 0};
    case Stage::Connecting: {
      ZTError innerError;
      ZTStreamChannelResult result = inner_->open(&innerError);
      if (result.status == ZTStreamChannelStatus::WouldBlock) {
        wanted_[0] = inner_->readinessWanted(ZTStreamChannelOperation::Open);
        return result;
      }
      if (result.status != ZTStreamChannelStatus::Done) {
        ZTValue info = ZTValue::dictionary();
        bool refused = innerError.domain() == ZTPOSIXErrorDomain && innerError.code() == ECONNREFUSED;
        info[ZTLocalizedDescriptionKey] = refused ? "The connection to " + peerDescription_ + " was refused."
                                                  : "Cannot connect to " + peerDescription_ + ": " +
                                                        innerError.localizedDescription();
        info[ZTUnderlyingErrorKey] = innerError.toValue();
        stage_ = Stage::Failed;
        ZTSetError(error, ZTError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, std::move(info)));
        return {ZTStreamChannelStatus::Failed, 0};
      }
      if (!attachSocket(ssl_.get(), inner_->fileDescriptor())) {
        return fail(error, ZTSecureLinkErrorSetup, "Cannot start TLS: " + openSSLErrors());
      }
      if (server_) SSL_set_accept_state(ssl_.get());
      else SSL_set_connect_state(ssl_.get());
      stage_ = Stage::Handshaking;
      [[fallthrough]];
    }
    case Stage::Handshaking: {
      ERR_clear_error();
      errno = 0;
      int status = SSL_do_handshake(ssl_.get());
      if (status != 1) {
        int sslError = SSL_get_error(ssl_.get(), status);
        if (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE) {
          return wouldBlock(ZTStreamChannelOperation::Open, sslError);
        }
        std::int64_t code = 0;
        ZTError failure = handshakeError(sslError, &code);
        stage_ = Stage::Failed;
        ZTSetError(error, failure);
        return {ZTStreamChannelStatus::Failed, 0};
      }
      if (SSL_version(ssl_.get()) != TLS1_3_VERSION || (check_.paired && !check_.device)) {
        return fail(error, ZTSecureLinkErrorHandshake, "The secure handshake with " + peerDescription_ + " did not authenticate it.");
      }
      stage_ = Stage::Confirming;
      [[fallthrough]];
    }
    case Stage::Confirming: {
      ERR_clear_error();
      errno = 0;
      std::size_t moved = 0;
      std::uint8_t byte = kAcceptedMessage;
      int status = server_ ? SSL_write_ex(ssl_.get(), &byte, 1, &moved) : SSL_read_ex(ssl_.get(), &byte, 1, &moved);
      if (status != 1) {
        int sslError = SSL_get_error(ssl_.get(), status);
        if (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE) {
          return wouldBlock(ZTStreamChannelOperation::Open, sslError);
        }
        std::int64_t code = 0;
        ZTError failure = handshakeError(sslError, &code);
        stage_ = Stage::Failed;
        ZTSetError(error, failure);
        return {ZTStreamChannelStatus::Failed, 0};
      }
      if (!server_ && byte != kAcceptedMessage) {
        return fail(error, ZTSecureLinkErrorHandshake, "The device at " + peerDescription_ + " does not speak this protocol.");
      }
      stage_ = Stage::Ready;
      return {ZTStreamChannelStatus::Done, 0};
    }
  }
  return {ZTStreamChannelStatus::Failed, 0};
}

ZTStreamChannelResult TLSChannel::read(std::uint8_t* buffer, std::size_t length, ZTError* error) {
  if (stage_ != Stage::Ready) {
    ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, "The secure connection is not open."));
    return {ZTStreamChannelStatus::Failed, 0};
  }
  if (length == 0) return {ZTStreamChannelStatus::Done, 0};
  ERR_clear_error();
  errno = 0;
  std::size_t count = 0;
  int status = SSL_read_ex(ssl_.get(), buffer, length, &count);
  if (status == 1) return {ZTStreamChannelStatus::Done, count};
  int sslError = SSL_get_error(ssl_.get(), status);
  switch (sslError) {
    case SSL_ERROR_WANT_READ:
    case SSL_ERROR_WANT_WRITE:
      return wouldBlock(ZTStreamChannelOperation::Read, sslError);
    case SSL_ERROR_ZERO_RETURN:
      return {ZTStreamChannelStatus::End, 0};
    default: {
      std::string reasons = openSSLErrors("");
      int savedErrno = errno;
      stage_ = Stage::Failed;
      std::string why = reasons.find("unexpected eof") != std::string::npos || (sslError == SSL_ERROR_SYSCALL && savedErrno == 0)
                            ? "the connection ended without the sender closing it (data may be missing)"
                        : sslError == SSL_ERROR_SYSCALL ? std::strerror(savedErrno)
                                                        : reasons;
      ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection,
                                  "Reading from " + peerDescription_ + " failed: " + why + "."));
      return {ZTStreamChannelStatus::Failed, 0};
    }
  }
}

bool TLSChannel::flushPendingWrite(ZTError* error, ZTStreamChannelResult* result) {
  if (pendingWrite_.empty()) return true;
  ERR_clear_error();
  errno = 0;
  std::size_t written = 0;
  int status = SSL_write_ex(ssl_.get(), pendingWrite_.data(), pendingWrite_.size(), &written);
  if (status == 1) {
    pendingWrite_.erase(pendingWrite_.begin(), pendingWrite_.begin() + static_cast<std::ptrdiff_t>(written));
    if (pendingWrite_.empty()) return true;
    *result = wouldBlock(ZTStreamChannelOperation::Write, SSL_ERROR_WANT_WRITE);
    return false;
  }
  int sslError = SSL_get_error(ssl_.get(), status);
  if (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE) {
    *result = wouldBlock(ZTStreamChannelOperation::Write, sslError);
    return false;
  }
  int savedErrno = errno;
  std::string reasons = openSSLErrors("");
  stage_ = Stage::Failed;
  ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection,
                              "Writing to " + peerDescription_ + " failed: " +
                                  (sslError == SSL_ERROR_SYSCALL && savedErrno != 0 ? std::strerror(savedErrno) : reasons) + "."));
  *result = {ZTStreamChannelStatus::Failed, 0};
  return false;
}

ZTStreamChannelResult TLSChannel::write(const std::uint8_t* buffer, std::size_t length, ZTError* error) {
  if (stage_ != Stage::Ready || sentCloseNotify_) {
    ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, "The secure connection is not open for writing."));
    return {ZTStreamChannelStatus::Failed, 0};
  }
  ZTStreamChannelResult result;
  if (!flushPendingWrite(error, &result)) return result;
  if (length == 0) return {ZTStreamChannelStatus::Done, 0};
  length = std::min(length, kMaxRecord);
  ERR_clear_error();
  errno = 0;
  std::size_t written = 0;
  int status = SSL_write_ex(ssl_.get(), buffer, length, &written);
  if (status == 1) return {ZTStreamChannelStatus::Done, written};
  int sslError = SSL_get_error(ssl_.get(), status);
  if (sslError == SSL_ERROR_WANT_WRITE || sslError == SSL_ERROR_WANT_READ) {
    // OpenSSL has taken the bytes into a record it could not finish sending; it must be offered the
    // same bytes again. They count as written, and are kept for the next call.
    pendingWrite_.assign(buffer, buffer + length);
    wouldBlock(ZTStreamChannelOperation::Write, sslError);
    return {ZTStreamChannelStatus::Done, length};
  }
  int savedErrno = errno;
  std::string reasons = openSSLErrors("");
  stage_ = Stage::Failed;
  ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection,
                              "Writing to " + peerDescription_ + " failed: " +
                                  (sslError == SSL_ERROR_SYSCALL && savedErrno != 0 ? std::strerror(savedErrno) : reasons) + "."));
  return {ZTStreamChannelStatus::Failed, 0};
}

ZTStreamChannelReadiness TLSChannel::readinessWanted(ZTStreamChannelOperation operation) const {
  if (operation == ZTStreamChannelOperation::Write && !pendingWrite_.empty()) return ZTStreamChannelReadiness::Writable;
  return wanted_[static_cast<int>(operation)];
}

std::size_t TLSChannel::pendingBytes() const {
  return stage_ == Stage::Ready ? static_cast<std::size_t>(SSL_pending(ssl_.get())) : 0;
}

bool TLSChannel::shutdownWrite(ZTError* error) {
  if (sentCloseNotify_ || stage_ != Stage::Ready) {
    sentCloseNotify_ = true;
    return inner_->shutdownWrite(error);
  }
  // Bytes already reported as written must reach the peer before close_notify: wait for the socket,
  // bounded, since shutting down has no "try again" of its own.
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  int fd = inner_->fileDescriptor();
  for (int round = 0; round < 100000; ++round) {
    ZTStreamChannelResult result;
    if (flushPendingWrite(error, &result)) break;
    if (result.status == ZTStreamChannelStatus::Failed) return false;
    if (!waitFor(fd, readinessWanted(ZTStreamChannelOperation::Write) == ZTStreamChannelReadiness::Writable, deadline)) {
      stage_ = Stage::Failed;
      ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection,
                                  "The last bytes could not be sent to " + peerDescription_ + " in time."));
      return false;
    }
  }
  for (int round = 0; round < 100000; ++round) {
    ERR_clear_error();
    int status = SSL_shutdown(ssl_.get());
    if (status >= 0) break;
    int sslError = SSL_get_error(ssl_.get(), status);
    if ((sslError != SSL_ERROR_WANT_WRITE && sslError != SSL_ERROR_WANT_READ) ||
        !waitFor(fd, sslError == SSL_ERROR_WANT_WRITE, deadline)) {
      openSSLErrors();
      break;
    }
  }
  sentCloseNotify_ = true;
  return inner_->shutdownWrite(error);
}

void TLSChannel::close() {
  if (stage_ == Stage::Closed) return;
  if (stage_ == Stage::Ready && !sentCloseNotify_) {
    ERR_clear_error();
    if (pendingWrite_.empty()) SSL_shutdown(ssl_.get());  // best effort, without waiting
    openSSLErrors();
    sentCloseNotify_ = true;
  }
  stage_ = Stage::Closed;
  inner_->close();
}

}  // namespace zt::transfer_internal
