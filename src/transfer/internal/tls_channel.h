#pragma once
// The TLS 1.3 channel under a secured stream pair: a ZTStreamChannel that runs OpenSSL directly on
// the descriptor of a plain socket channel (which it owns and first opens, for a connection still
// being made). Its open() is the handshake, then — so that the client learns whether the server
// accepted its certificate before it sends anything — the server's one-byte "accepted" message,
// which the client consumes. Used from one thread at a time, as every channel.

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <vector>

#include "transfer/internal/link_support.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/paired_devices.h"

namespace zt::transfer_internal {

// Who a TLS endpoint accepts. With `paired` null, any certificate is accepted (pairing decides
// afterwards); otherwise only one whose fingerprint is in the list.
struct PeerCheck {
  std::shared_ptr<ZTPairedDevices> paired;
  std::string fingerprint;      // of the certificate the peer presented (set during the handshake)
  bool rejected = false;        // the certificate was not a paired device's
  std::optional<ZTPairedDevice> device;
};

// Installs the verification of `check` on `ssl`; the check must outlive the handshake.
void installPeerCheck(SSL* ssl, PeerCheck* check);

class TLSChannel final : public ZTStreamChannel {
 public:
  TLSChannel(std::shared_ptr<ZTStreamChannel> inner, SSLPtr ssl, bool server, std::shared_ptr<ZTPairedDevices> paired,
             std::string peerDescription);
  ~TLSChannel() override;

  int fileDescriptor() const override;
  ZTStreamChannelResult open(ZTError* error) override;
  ZTStreamChannelResult read(std::uint8_t* buffer, std::size_t length, ZTError* error) override;
  ZTStreamChannelResult write(const std::uint8_t* buffer, std::size_t length, ZTError* error) override;
  ZTStreamChannelReadiness readinessWanted(ZTStreamChannelOperation operation) const override;
  std::size_t pendingBytes() const override;
  bool shutdownWrite(ZTError* error) override;
  void close() override;

  const std::optional<ZTPairedDevice>& peer() const { return check_.device; }
  SSL* ssl() const { return ssl_.get(); }

 private:
  enum class Stage { Connecting, Handshaking, Confirming, Ready, Failed, Closed };
  ZTStreamChannelResult fail(ZTError* error, std::int64_t code, const std::string& description);
  ZTStreamChannelResult wouldBlock(ZTStreamChannelOperation operation, int sslError);
  ZTError handshakeError(int sslError, std::int64_t* code);
  bool flushPendingWrite(ZTError* error, ZTStreamChannelResult* result);

  std::shared_ptr<ZTStreamChannel> inner_;
  SSLPtr ssl_;
  bool server_;
  std::string peerDescription_;
  PeerCheck check_;
  Stage stage_ = Stage::Connecting;
  ZTStreamChannelReadiness wanted_[3] = {ZTStreamChannelReadiness::Both, ZTStreamChannelReadiness::Readable,
                                         ZTStreamChannelReadiness::Writable};
  // Bytes of a record OpenSSL could not finish sending: they were reported as taken and are
  // handed to SSL_write again, unchanged, before anything else.
  std::vector<std::uint8_t> pendingWrite_;
  bool sentCloseNotify_ = false;
};

}  // namespace zt::transfer_internal
