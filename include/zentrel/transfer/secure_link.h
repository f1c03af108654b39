#pragma once
// ZTSecureLink: the authenticated, encrypted connection every hand-off travels over — mutual
// TLS 1.3 in which each side presents its ZTDeviceIdentity and accepts only a peer whose
// certificate fingerprint is in its ZTPairedDevices list. The result is a pair of socket streams
// (zentrel/platform/stream.h) whose channel is the TLS connection: what the application writes is
// encrypted, what it reads was sent by the paired peer and nobody else.
//
// An unpaired peer, or one that presents the fingerprint of a paired device without its key, fails
// the handshake: the completion receives a ZTError (domain ZTSecureLinkErrorDomain) and no
// application byte is sent or accepted. Only TLS 1.3 is spoken, session tickets are not issued
// (a peer closing with unread tickets would reset the connection and lose data in flight), and
// closing the output stream sends close_notify, so the peer reads every byte and then the end; an
// input stream whose peer vanished without close_notify (a killed process, a cut connection) ends
// in ErrorOccurred, not EndEncountered, so a truncated transfer is never taken for a complete one.
//
// Threads: the handshake runs on the given run loop, driven by its file-descriptor sources (no
// thread of its own); the completion runs on that loop's thread, exactly once unless the attempt is
// cancelled first. The streams it hands over are unopened and unscheduled: schedule them in a run
// loop and open them (their open completes at once, the handshake being done), and use them from
// that loop's thread. A link may be shared between threads; it reads the paired list at each
// handshake, so a device paired later is accepted without making a new link.
// A completion that throws is caught and logged; the link keeps working.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/paired_devices.h"

class ZTDeviceIdentity;
class ZTRunLoop;

inline constexpr const char* ZTSecureLinkErrorDomain = "ZTSecureLinkErrorDomain";
enum ZTSecureLinkError : std::int64_t {
  ZTSecureLinkErrorUnpairedPeer = 1,   // the peer's certificate is not a paired device's
  ZTSecureLinkErrorHandshake = 2,      // the TLS handshake failed for another reason (our side refused by the peer included)
  ZTSecureLinkErrorConnection = 3,     // cannot resolve, connection refused, reset or closed during the handshake
  ZTSecureLinkErrorTimedOut = 4,       // the handshake did not finish in time
  ZTSecureLinkErrorSetup = 5,          // the identity could not be loaded into TLS
};

// A secured connection: the streams over it (the TLS channel under a ZTStreamPair) and the paired
// device at the other end.
struct ZTSecureConnection {
  std::shared_ptr<ZTInputStream> inputStream;
  std::shared_ptr<ZTOutputStream> outputStream;
  ZTPairedDevice peer;
};

// A handshake under way. cancel() (on the run loop's thread) stops it, closes the socket and makes
// sure the completion is not called. Dropping the handle does not cancel.
class ZT_API ZTSecureLinkAttempt {
 public:
  virtual ~ZTSecureLinkAttempt() = default;
  virtual void cancel() = 0;
};

class ZT_API ZTSecureLink : public std::enable_shared_from_this<ZTSecureLink> {
 public:
  // `connection` is set on success; otherwise `error` says why.
  using Completion = std::function<void(std::optional<ZTSecureConnection> connection, const ZTError& error)>;

  // A link for this identity and its paired list. nullptr with *error when the key or certificate
  // cannot be used for TLS.
  static std::shared_ptr<ZTSecureLink> create(const std::shared_ptr<ZTDeviceIdentity>& identity,
                                              const std::shared_ptr<ZTPairedDevices>& paired, ZTError* error = nullptr);
  // The identity and paired list of the default folder (ZTDeviceIdentity::defaultFolder()).
  static std::shared_ptr<ZTSecureLink> createDefault(ZTError* error = nullptr);

  ~ZTSecureLink();
  ZTSecureLink(const ZTSecureLink&) = delete;
  ZTSecureLink& operator=(const ZTSecureLink&) = delete;

  const std::shared_ptr<ZTDeviceIdentity>& identity() const;
  const std::shared_ptr<ZTPairedDevices>& pairedDevices() const;

  // Limit for one handshake, connecting included. Default 30 s.
  void setHandshakeTimeout(std::chrono::milliseconds timeout);
  std::chrono::milliseconds handshakeTimeout() const;

  // Server side: secures a connection accepted by a ZTStreamListener (or any plain channel, e.g.
  // ZTSocketStreamChannelCreate over an accepted socket). The link takes the channel: it is closed
  // on failure and belongs to the streams on success.
  std::shared_ptr<ZTSecureLinkAttempt> acceptConnection(std::shared_ptr<ZTStreamChannel> connection,
                                                        const std::shared_ptr<ZTRunLoop>& runLoop, Completion completion);
  // Client side: connects to host:port and secures the connection. The name is resolved on the
  // calling thread (give a numeric address to avoid waiting); each address is tried in turn.
  std::shared_ptr<ZTSecureLinkAttempt> connectToHost(const std::string& host, std::uint16_t port,
                                                     const std::shared_ptr<ZTRunLoop>& runLoop, Completion completion);

  // The same two, handing over the secured channel itself (handshake done, peer checked) instead of
  // streams over it: for a layer that exchanges messages of its own first and then makes the
  // streams (ZTStream::streamPairWithChannel). The channel is set on success, with the peer.
  using ChannelCompletion = std::function<void(std::shared_ptr<ZTStreamChannel> channel,
                                               const std::optional<ZTPairedDevice>& peer, const ZTError& error)>;
  std::shared_ptr<ZTSecureLinkAttempt> acceptChannel(std::shared_ptr<ZTStreamChannel> connection,
                                                     const std::shared_ptr<ZTRunLoop>& runLoop,
                                                     ChannelCompletion completion);
  std::shared_ptr<ZTSecureLinkAttempt> connectChannel(const std::string& host, std::uint16_t port,
                                                      const std::shared_ptr<ZTRunLoop>& runLoop,
                                                      ChannelCompletion completion);

  struct Impl;

 private:
  explicit ZTSecureLink(std::unique_ptr<Impl> impl);
  std::shared_ptr<ZTSecureLinkAttempt> connect(const std::string& host, std::uint16_t port,
                                               const std::shared_ptr<ZTRunLoop>& runLoop, Completion completion,
                                               ChannelCompletion channelCompletion);
  std::unique_ptr<Impl> impl_;
};
