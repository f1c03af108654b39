#pragma once
// ZTUserActivity: something a user is doing on one device that another device can continue — the
// activity type (a reverse-DNS text naming what it is), user info (a ZTValue dictionary), and,
// when it supports continuation streams, a pair of streams between the two devices once the other
// one has continued it.
//
// Sending side: create(), set the user info and supportsContinuationStreams, set a delegate, call
// becomeCurrent(). The activity listens on a TCP port (IPv4 and IPv6; a free one unless setPort()
// chose one; port() tells which) and advertises itself on the local network through DNS-SD
// ("_zentrel-handoff._tcp", see service_discovery.h). Without an Avahi daemon advertising fails —
// the delegate hears userActivityDidFailToAdvertise and a line is logged — but the port keeps
// working: a receiver given host and port directly still connects. Each receiver that connects
// gets the activity, and the delegate is told userActivityDidReceiveInputStream with the
// continuation streams (not yet open).
//
// Receiving side: continueActivityAtHost() (or continueActivity() with a browse result) connects,
// and hands over the activity as the sender described it; getContinuationStreamsWithCompletionHandler
// then gives the streams (once).
//
// Every connection is mutual TLS 1.3 between paired devices (ZTSecureLink): a peer that is not in
// the paired list fails the handshake and is given nothing, not even the activity. Inside TLS the
// sender first sends the activity — its type and user info as one JSON message after a 4-byte
// big-endian length, at most kMaxActivityMessageSize bytes — and then the continuation streams carry
// exactly what the two sides write, nothing else; the end of the sender's output stream
// (TLS close_notify) is the end of the receiver's input stream. A malformed, oversized or missing
// message ends the attempt with a ZTError in ZTUserActivityErrorDomain; nothing crashes.
//
// Threads: create and use an activity on the main thread. The network work runs on the main run
// loop, so the delegate calls and completions come on the main thread while the application runs
// ZTRunLoop::main(). A delegate method or completion that throws is caught and logged; the activity
// goes on.
// Ownership: held by std::shared_ptr; the delegate is held weakly. Destroying a current activity
// stops listening and advertising; streams already handed over live on.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

class ZTInputStream;
class ZTOutputStream;
class ZTSecureLink;
class ZTUserActivity;
struct ZTHandoffService;

inline constexpr const char* ZTUserActivityErrorDomain = "ZTUserActivityErrorDomain";
enum ZTUserActivityError : std::int64_t {
  ZTUserActivityErrorMalformedMessage = 1,  // the activity message is not what this protocol sends
  ZTUserActivityErrorMessageTooLarge = 2,   // its announced length exceeds kMaxActivityMessageSize
  ZTUserActivityErrorConnectionClosed = 3,  // the peer closed (or reset) before the activity arrived
  ZTUserActivityErrorTimedOut = 4,          // no activity within the time limit
  ZTUserActivityErrorNoStreams = 5,         // not continued, not supporting streams, or already taken
  ZTUserActivityErrorInvalidated = 6,       // the activity was invalidated
  ZTUserActivityErrorCannotListen = 7,      // becomeCurrent could not listen on the port
};

// Told about the sending side's connections, on the main thread. Every method is optional.
class ZT_API ZTUserActivityDelegate {
 public:
  virtual ~ZTUserActivityDelegate() = default;
  // A receiver continued the activity: streams to it, not yet open (schedule and open them).
  virtual void userActivityDidReceiveInputStream(ZTUserActivity& activity, std::shared_ptr<ZTInputStream> inputStream,
                                                 std::shared_ptr<ZTOutputStream> outputStream);
  // Advertising on the local network failed (no Avahi daemon, for one); the port still works.
  virtual void userActivityDidFailToAdvertise(ZTUserActivity& activity, const ZTError& error);
  // A receiver connected but could not be given the activity (handshake refused: an unpaired
  // device, a connection lost).
  virtual void userActivityDidFailToContinue(ZTUserActivity& activity, const ZTError& error);
};

class ZT_API ZTUserActivity : public std::enable_shared_from_this<ZTUserActivity> {
 public:
  static constexpr std::uint32_t kMaxActivityMessageSize = 1024 * 1024;
  // How long a receiver waits for the handshake and the activity message.
  static constexpr double kContinueTimeoutSeconds = 30.0;

  using ContinueCompletion =
      std::function<void(std::shared_ptr<ZTUserActivity> activity, const std::optional<ZTError>& error)>;
  using ContinuationStreamsCompletion =
      std::function<void(std::shared_ptr<ZTInputStream> inputStream, std::shared_ptr<ZTOutputStream> outputStream,
                         const std::optional<ZTError>& error)>;

  [[nodiscard]] static std::shared_ptr<ZTUserActivity> create(std::string activityType);
  ~ZTUserActivity();
  ZTUserActivity(const ZTUserActivity&) = delete;
  ZTUserActivity& operator=(const ZTUserActivity&) = delete;

  const std::string& activityType() const { return activityType_; }
  const ZTValue& userInfo() const { return userInfo_; }
  // A dictionary; anything else is stored as an empty dictionary. Must fit, as JSON, in
  // kMaxActivityMessageSize (becomeCurrent refuses it otherwise).
  void setUserInfo(ZTValue userInfo);
  bool supportsContinuationStreams() const { return supportsContinuationStreams_; }
  void setSupportsContinuationStreams(bool value) { supportsContinuationStreams_ = value; }

  std::shared_ptr<ZTUserActivityDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<ZTUserActivityDelegate> delegate) { delegate_ = std::move(delegate); }

  // The TLS link (identity and paired devices) connections use. Default: ZTSecureLink::createDefault()
  // on first need.
  std::shared_ptr<ZTSecureLink> secureLink() const { return secureLink_; }
  void setSecureLink(std::shared_ptr<ZTSecureLink> link) { secureLink_ = std::move(link); }

  // Sending side. The port to listen on (0, the default: one the system picks); set before
  // becomeCurrent.
  void setPort(std::uint16_t port) { requestedPort_ = port; }
  // The port listened on while current, else 0.
  std::uint16_t port() const;
  // Listen only on loopback (tests, demonstrations); set before becomeCurrent.
  void setLoopbackOnly(bool value) { loopbackOnly_ = value; }
  // Starts listening and advertising. False with an error when the port cannot be listened on,
  // the secure link cannot be made, the user info is too large, or the activity was continued
  // from elsewhere (a receiving activity cannot become current). Calling it again while current
  // does nothing and answers true.
  bool becomeCurrent(ZTError* error = nullptr);
  bool isCurrent() const;
  // Whether advertising on the local network is running (false when it failed or has not started).
  bool isAdvertised() const;
  // Stops listening and advertising, and refuses to hand over streams. Idempotent.
  void invalidate();
  bool isInvalidated() const { return invalidated_; }

  // Receiving side. Connects to host:port (a name or numeric address) through the link (the
  // default link when null), checks the peer, reads the activity, and calls completion on the main
  // thread with the activity or the error (ZTSecureLinkErrorDomain for a refused connection or an
  // unpaired peer, ZTUserActivityErrorDomain for a bad or missing message).
  static void continueActivityAtHost(const std::string& host, std::uint16_t port, ContinueCompletion completion,
                                     std::shared_ptr<ZTSecureLink> link = nullptr);
  // The same for a service found by ZTHandoffBrowser.
  static void continueActivity(const ZTHandoffService& service, ContinueCompletion completion,
                               std::shared_ptr<ZTSecureLink> link = nullptr);
  // The name of the paired device at the other end of a continued activity (empty on the sending side).
  const std::string& peerName() const { return peerName_; }
  // Hands over the continuation streams, not yet open, once; later calls, calls on an activity
  // that was not continued, or one not supporting continuation streams get an error. The completion
  // runs on the main thread on a later turn of its run loop.
  void getContinuationStreamsWithCompletionHandler(ContinuationStreamsCompletion completion);

  struct Impl;

 private:
  explicit ZTUserActivity(std::string activityType);
  friend struct Impl;
  std::string activityType_;
  ZTValue userInfo_ = ZTValue::dictionary();
  bool supportsContinuationStreams_ = false;
  std::weak_ptr<ZTUserActivityDelegate> delegate_;
  std::shared_ptr<ZTSecureLink> secureLink_;
  std::uint16_t requestedPort_ = 0;
  bool loopbackOnly_ = false;
  bool invalidated_ = false;
  std::string peerName_;
  std::unique_ptr<Impl> impl_;
};
