#include "zentrel/transfer/secure_link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <exception>

#include "transfer/internal/link_support.h"
#include "transfer/internal/tls_channel.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/transfer/device_identity.h"

using namespace zt::transfer_internal;

struct ZTSecureLink::Impl {
  std::shared_ptr<ZTDeviceIdentity> identity;
  std::shared_ptr<ZTPairedDevices> paired;
  SSLCtxPtr serverContext;
  SSLCtxPtr clientContext;
  std::atomic<std::int64_t> timeoutMilliseconds{30000};
};

namespace {

// "address:port" of the peer on the other end of an accepted connection, for messages.
std::string describePeer(ZTStreamChannel& connection) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  char host[INET6_ADDRSTRLEN] = {};
  if (::getpeername(connection.fileDescriptor(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return "the connecting device";
  }
  if (address.ss_family == AF_INET) {
    auto* v4 = reinterpret_cast<sockaddr_in*>(&address);
    ::inet_ntop(AF_INET, &v4->sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(v4->sin_port));
  }
  if (address.ss_family == AF_INET6) {
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&address);
    ::inet_ntop(AF_INET6, &v6->sin6_addr, host, sizeof host);
    return "[" + std::string(host) + "]:" + std::to_string(ntohs(v6->sin6_port));
  }
  return "the connecting device";
}

// One handshake on a run loop: re-arms a descriptor source for whatever the channel waits for,
// until the channel is open, fails, the deadline passes or the attempt is cancelled.
class Attempt final : public ZTSecureLinkAttempt, public std::enable_shared_from_this<Attempt> {
 public:
  // With a channel completion, the secured channel itself is handed over instead of streams.
  Attempt(std::shared_ptr<TLSChannel> channel, std::shared_ptr<ZTRunLoop> runLoop, ZTSecureLink::Completion completion,
          ZTSecureLink::ChannelCompletion channelCompletion)
      : channel_(std::move(channel)),
        runLoop_(std::move(runLoop)),
        completion_(std::move(completion)),
        channelCompletion_(std::move(channelCompletion)) {}

  void start(std::chrono::milliseconds timeout) {
    keepAlive_ = shared_from_this();  // until finished or cancelled: the caller may drop its handle
    auto weak = weak_from_this();
    timer_ = runLoop_->scheduleTimer(timeout, false, [weak](ZTTimer&) {
      if (auto self = weak.lock()) {
        self->finish(makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorTimedOut,
                               "The secure handshake did not finish in time."));
      }
    });
    auto self = shared_from_this();
    if (!runLoop_->post([self] { self->step(); })) {
      finished_ = true;
      disarm();
      if (channel_) channel_->close();
      keepAlive_.reset();
    }
  }

  void cancel() override {
    if (finished_) return;
    finished_ = true;
    disarm();
    if (channel_) channel_->close();
    completion_ = nullptr;
    keepAlive_.reset();
    channelCompletion_ = nullptr;
  }

  void failNow(const ZTError& error) {
    auto self = shared_from_this();
    if (!runLoop_->post([self, error] { self->finish(error); })) finished_ = true;
  }

 private:
  void disarm() {
    for (auto& source : sources_) {
      if (source) source->cancel();
      source.reset();
    }
    if (timer_) timer_->invalidate();
    timer_.reset();
  }

  void step() {
    if (finished_) return;
    for (auto& source : sources_) {
      if (source) source->cancel();
      source.reset();
    }
    ZTError error;
    ZTStreamChannelResult result = channel_->open(&error);
    if (result.status == ZTStreamChannelStatus::Done) {
      finish(std::nullopt);
      return;
    }
    if (result.status != ZTStreamChannelStatus::WouldBlock) {
      finish(error);
      return;
    }
    auto wanted = static_cast<std::uint32_t>(channel_->readinessWanted(ZTStreamChannelOperation::Open));
    auto weak = weak_from_this();
    auto callback = [weak](ZTFileDescriptorSource&) {
      if (auto self = weak.lock()) self->step();
    };
    // One source per descriptor and loop: a connection still being made and TLS both wait on one
    // direction at a time, and writability is what a connect in progress waits for.
    int fd = channel_->fileDescriptor();
    bool writable = (wanted & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Writable)) != 0;
    sources_[0] = runLoop_->addFileDescriptorSource(
        fd, writable ? ZTFileDescriptorSource::Event::Writable : ZTFileDescriptorSource::Event::Readable, callback);
    if (!sources_[0]) {
      finish(makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, "The connection cannot be watched by the run loop."));
    }
  }

  void finish(std::optional<ZTError> failure) {
    if (finished_) return;
    finished_ = true;
    auto keepAlive = std::move(keepAlive_);  // this attempt lives until the handler has returned
    disarm();
    auto completion = std::move(completion_);
    completion_ = nullptr;
    if (auto channelCompletion = std::move(channelCompletion_)) {
      channelCompletion_ = nullptr;
      std::shared_ptr<ZTStreamChannel> secured;
      std::optional<ZTPairedDevice> peer;
      ZTError channelError;
      if (failure) {
        if (channel_) channel_->close();
        channelError = *failure;
      } else {
        peer = channel_->peer();
        secured = channel_;
      }
      channel_.reset();
      try {
        channelCompletion(std::move(secured), peer, channelError);
      } catch (const std::exception& exception) {
        ZTLogf("ZTSecureLink: a completion handler threw: %s", exception.what());
      } catch (...) {
        ZTLog("ZTSecureLink: a completion handler threw an exception that is not a std::exception");
      }
      return;
    }
    std::optional<ZTSecureConnection> connection;
    ZTError error;
    if (failure) {
      if (channel_) channel_->close();
      error = *failure;
    } else {
      ZTStreamPair pair = ZTStream::streamPairWithChannel(channel_);
      connection = ZTSecureConnection{pair.inputStream, pair.outputStream, channel_->peer().value_or(ZTPairedDevice{})};
    }
    channel_.reset();
    if (!completion) return;
    try {
      completion(std::move(connection), error);
    } catch (const std::exception& exception) {
      ZTLogf("ZTSecureLink: a completion handler threw: %s", exception.what());
    } catch (...) {
      ZTLog("ZTSecureLink: a completion handler threw an exception that is not a std::exception");
    }
  }

  std::shared_ptr<TLSChannel> channel_;
  std::shared_ptr<ZTRunLoop> runLoop_;
  ZTSecureLink::Completion completion_;
  ZTSecureLink::ChannelCompletion channelCompletion_;
  std::shared_ptr<ZTTimer> timer_;
  std::shared_ptr<ZTFileDescriptorSource> sources_[1];
  bool finished_ = false;
  std::shared_ptr<Attempt> keepAlive_;
};

}  // namespace

ZTSecureLink::ZTSecureLink(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ZTSecureLink::~ZTSecureLink() = default;

std::shared_ptr<ZTSecureLink> ZTSecureLink::create(const std::shared_ptr<ZTDeviceIdentity>& identity,
                                                   const std::shared_ptr<ZTPairedDevices>& paired, ZTError* error) {
  if (!identity || !paired) {
    ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorSetup, "A secure link needs an identity and a paired list."));
    return nullptr;
  }
  auto impl = std::make_unique<Impl>();
  impl->identity = identity;
  impl->paired = paired;
  std::string problem;
  impl->serverContext = makeTLSContext(*identity, true, &problem);
  if (impl->serverContext) impl->clientContext = makeTLSContext(*identity, false, &problem);
  if (!impl->clientContext) {
    ZTSetError(error, makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorSetup, "The device identity cannot be used for TLS: " + problem));
    return nullptr;
  }
  return std::shared_ptr<ZTSecureLink>(new ZTSecureLink(std::move(impl)));
}

std::shared_ptr<ZTSecureLink> ZTSecureLink::createDefault(ZTError* error) {
  auto identity = ZTDeviceIdentity::loadOrCreate({}, error);
  if (!identity) return nullptr;
  auto paired = ZTPairedDevices::load(identity, error);
  if (!paired) return nullptr;
  return create(identity, paired, error);
}

const std::shared_ptr<ZTDeviceIdentity>& ZTSecureLink::identity() const { return impl_->identity; }
const std::shared_ptr<ZTPairedDevices>& ZTSecureLink::pairedDevices() const { return impl_->paired; }

void ZTSecureLink::setHandshakeTimeout(std::chrono::milliseconds timeout) {
  impl_->timeoutMilliseconds = std::max<std::int64_t>(1, timeout.count());
}
std::chrono::milliseconds ZTSecureLink::handshakeTimeout() const { return std::chrono::milliseconds(impl_->timeoutMilliseconds.load()); }

namespace {
std::shared_ptr<ZTSecureLinkAttempt> begin(ZTSecureLink::Impl& impl, std::shared_ptr<ZTStreamChannel> plain, bool server,
                                           std::string description, const std::shared_ptr<ZTRunLoop>& runLoop,
                                           ZTSecureLink::Completion completion, std::optional<ZTError> earlyFailure,
                                           ZTSecureLink::ChannelCompletion channelCompletion = {}) {
  std::shared_ptr<ZTRunLoop> loop = runLoop ? runLoop : ZTRunLoop::current();
  SSLPtr ssl;
  if (!earlyFailure) {
    ssl.reset(SSL_new(server ? impl.serverContext.get() : impl.clientContext.get()));
    if (!ssl) earlyFailure = makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorSetup, "Cannot start TLS: " + openSSLErrors());
  }
  std::shared_ptr<TLSChannel> channel;
  if (!earlyFailure) {
    channel = std::make_shared<TLSChannel>(plain, std::move(ssl), server, impl.paired, std::move(description));
  }
  auto attempt = std::make_shared<Attempt>(channel, loop, std::move(completion), std::move(channelCompletion));
  if (earlyFailure) {
    if (plain) plain->close();
    attempt->failNow(*earlyFailure);
  } else {
    attempt->start(std::chrono::milliseconds(impl.timeoutMilliseconds.load()));
  }
  return attempt;
}
}  // namespace

std::shared_ptr<ZTSecureLinkAttempt> ZTSecureLink::acceptConnection(std::shared_ptr<ZTStreamChannel> connection,
                                                                    const std::shared_ptr<ZTRunLoop>& runLoop, Completion completion) {
  std::optional<ZTError> failure;
  if (!connection) failure = makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, "There is no connection to secure.");
  const std::string description = connection ? describePeer(*connection) : "the connecting device";
  return begin(*impl_, std::move(connection), true, description, runLoop, std::move(completion), failure);
}

std::shared_ptr<ZTSecureLinkAttempt> ZTSecureLink::acceptChannel(std::shared_ptr<ZTStreamChannel> connection,
                                                                 const std::shared_ptr<ZTRunLoop>& runLoop,
                                                                 ChannelCompletion completion) {
  std::optional<ZTError> failure;
  if (!connection) failure = makeError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, "There is no connection to secure.");
  const std::string description = connection ? describePeer(*connection) : "the connecting device";
  return begin(*impl_, std::move(connection), true, description, runLoop, {}, failure, std::move(completion));
}

std::shared_ptr<ZTSecureLinkAttempt> ZTSecureLink::connectChannel(const std::string& host, std::uint16_t port,
                                                                  const std::shared_ptr<ZTRunLoop>& runLoop,
                                                                  ChannelCompletion completion) {
  return connect(host, port, runLoop, {}, std::move(completion));
}

std::shared_ptr<ZTSecureLinkAttempt> ZTSecureLink::connectToHost(const std::string& host, std::uint16_t port,
                                                                 const std::shared_ptr<ZTRunLoop>& runLoop, Completion completion) {
  return connect(host, port, runLoop, std::move(completion), {});
}

std::shared_ptr<ZTSecureLinkAttempt> ZTSecureLink::connect(const std::string& host, std::uint16_t port,
                                                           const std::shared_ptr<ZTRunLoop>& runLoop, Completion completion,
                                                           ChannelCompletion channelCompletion) {
  std::string description = (host.find(':') != std::string::npos ? "[" + host + "]" : host) + ":" + std::to_string(port);
  ZTError connectError;
  auto plain = ZTSocketStreamChannelConnect(host, port, &connectError);
  std::optional<ZTError> failure;
  if (!plain) {
    ZTValue info = ZTValue::dictionary();
    info[ZTLocalizedDescriptionKey] = "Cannot connect to " + description + ": " + connectError.localizedDescription();
    info[ZTUnderlyingErrorKey] = connectError.toValue();
    failure = ZTError(ZTSecureLinkErrorDomain, ZTSecureLinkErrorConnection, std::move(info));
  }
  return begin(*impl_, std::move(plain), false, description, runLoop, std::move(completion), failure,
               std::move(channelCompletion));
}
