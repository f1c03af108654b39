#include "zentrel/transfer/user_activity.h"

#include <exception>
#include <utility>
#include <vector>

#include "transfer/internal/activity_message.h"
#include "transfer/internal/message_exchange.h"
#include "transfer/internal/secure_channel.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/secure_link.h"
#include "zentrel/transfer/service_discovery.h"

using zt::handoff_internal::activityError;
using zt::handoff_internal::MessageExchange;

void ZTUserActivityDelegate::userActivityDidReceiveInputStream(ZTUserActivity&, std::shared_ptr<ZTInputStream>,
                                                               std::shared_ptr<ZTOutputStream>) {}
void ZTUserActivityDelegate::userActivityDidFailToAdvertise(ZTUserActivity&, const ZTError&) {}
void ZTUserActivityDelegate::userActivityDidFailToContinue(ZTUserActivity&, const ZTError&) {}

namespace {

// Connections in the handshake or the activity message at one time; more are closed at once, so
// that a flood of connections that never finish cannot use up the process's descriptors.
constexpr std::size_t kMaxPendingConnections = 16;

template <class F>
void guarded(const char* what, F&& call) {
  try {
    call();
  } catch (const std::exception& e) {
    ZTLogf("ZTUserActivity: %s threw: %s", what, e.what());
  } catch (...) {
    ZTLogf("ZTUserActivity: %s threw", what);
  }
}

std::shared_ptr<ZTSecureLink> linkOrDefault(std::shared_ptr<ZTSecureLink> link, ZTError* error) {
  if (link) return link;
  return ZTSecureLink::createDefault(error);
}

}  // namespace

struct ZTUserActivity::Impl {
  // Sending side.
  std::shared_ptr<ZTStreamListener> listener;
  std::unique_ptr<ZTHandoffAdvertiser> advertiser;
  // Connections between accept and hand-over: the handshake, then the activity message.
  struct Pending {
    std::shared_ptr<ZTSecureLinkAttempt> attempt;
    std::shared_ptr<MessageExchange> exchange;
  };
  std::vector<std::shared_ptr<Pending>> pending;
  // Receiving side: the secured channel left after the activity message.
  std::shared_ptr<ZTStreamChannel> channel;
  bool continued = false;
  bool streamsTaken = false;

  static void accepted(const std::shared_ptr<ZTUserActivity>& activity, std::shared_ptr<ZTStreamChannel> plain);
  static void remove(ZTUserActivity& activity, const std::shared_ptr<Pending>& pending) {
    auto& list = activity.impl_->pending;
    std::erase(list, pending);
  }
  static void failToContinue(ZTUserActivity& activity, const ZTError& error) {
    ZTLogf("ZTUserActivity: a receiver could not continue \"%s\": %s", activity.activityType_.c_str(),
           error.localizedDescription().c_str());
    if (auto delegate = activity.delegate())
      guarded("userActivityDidFailToContinue", [&] { delegate->userActivityDidFailToContinue(activity, error); });
  }
};

ZTUserActivity::ZTUserActivity(std::string activityType)
    : activityType_(std::move(activityType)), impl_(std::make_unique<Impl>()) {}

std::shared_ptr<ZTUserActivity> ZTUserActivity::create(std::string activityType) {
  return std::shared_ptr<ZTUserActivity>(new ZTUserActivity(std::move(activityType)));
}

ZTUserActivity::~ZTUserActivity() { invalidate(); }

void ZTUserActivity::setUserInfo(ZTValue userInfo) {
  userInfo_ = userInfo.isDictionary() ? std::move(userInfo) : ZTValue::dictionary();
}

std::uint16_t ZTUserActivity::port() const { return impl_->listener ? impl_->listener->port() : 0; }

bool ZTUserActivity::isCurrent() const { return impl_->listener != nullptr; }

bool ZTUserActivity::isAdvertised() const { return impl_->advertiser && impl_->advertiser->isRegistered(); }

bool ZTUserActivity::becomeCurrent(ZTError* error) {
  if (isCurrent()) return true;
  if (invalidated_) {
    ZTSetError(error, activityError(ZTUserActivityErrorInvalidated, "The activity was invalidated."));
    return false;
  }
  if (impl_->continued) {
    ZTSetError(error, activityError(ZTUserActivityErrorCannotListen,
                                    "An activity continued from another device cannot become current here."));
    return false;
  }
  if (!zt::handoff_internal::encodeActivityMessage({activityType_, userInfo_}, error)) return false;
  secureLink_ = linkOrDefault(secureLink_, error);
  if (!secureLink_) return false;

  std::weak_ptr<ZTUserActivity> weakSelf = weak_from_this();
  ZTError listenError;
  auto listener = ZTStreamListener::create(
      *ZTRunLoop::main(), loopbackOnly_ ? "127.0.0.1" : "", requestedPort_,
      [weakSelf](ZTStreamListener&, std::shared_ptr<ZTStreamChannel> connection) {
        if (auto self = weakSelf.lock()) Impl::accepted(self, std::move(connection));
        else if (connection) connection->close();
      },
      &listenError);
  if (!listener) {
    ZTValue info = ZTValue::dictionary();
    info[ZTLocalizedDescriptionKey] = "Cannot listen for receivers on port " + std::to_string(requestedPort_) + ": " +
                                      listenError.localizedDescription();
    info[ZTUnderlyingErrorKey] = listenError.toValue();
    ZTSetError(error, ZTError(ZTUserActivityErrorDomain, ZTUserActivityErrorCannotListen, std::move(info)));
    return false;
  }
  impl_->listener = std::move(listener);

  const auto& identity = secureLink_->identity();
  ZTHandoffAdvertiser::Description description;
  description.deviceName = identity ? identity->deviceName() : ZTDeviceIdentity::defaultDeviceName();
  description.serviceName = description.deviceName;
  description.port = impl_->listener->port();
  description.activityType = activityType_;
  description.fingerprint = identity ? identity->fingerprint() : std::string();
  const auto advertisingFailed = [weakSelf](const ZTError& failure) {
    auto self = weakSelf.lock();
    if (!self) return;
    ZTLogf("ZTUserActivity: advertising \"%s\" failed (%s); receivers can still connect to port %u",
           self->activityType_.c_str(), failure.localizedDescription().c_str(), static_cast<unsigned>(self->port()));
    if (auto delegate = self->delegate())
      guarded("userActivityDidFailToAdvertise", [&] { delegate->userActivityDidFailToAdvertise(*self, failure); });
  };
  ZTError advertiseError;
  impl_->advertiser = ZTHandoffAdvertiser::create(
      description,
      [advertisingFailed](ZTHandoffAdvertiser&, const ZTError* failure) {
        if (failure) advertisingFailed(*failure);
      },
      ZTRunLoop::main(), &advertiseError);
  if (!impl_->advertiser) {
    // Told on a later turn, so that the caller has returned from becomeCurrent first.
    (void)ZTRunLoop::main()->post([advertisingFailed, advertiseError] { advertisingFailed(advertiseError); });
  }
  return true;
}

void ZTUserActivity::Impl::accepted(const std::shared_ptr<ZTUserActivity>& activity, std::shared_ptr<ZTStreamChannel> plain) {
  if (activity->invalidated_ || !activity->secureLink_) {
    if (plain) plain->close();
    return;
  }
  if (activity->impl_->pending.size() >= kMaxPendingConnections) {
    ZTLogf("ZTUserActivity: %zu connections are already being set up for \"%s\"; another one is turned away",
           activity->impl_->pending.size(), activity->activityType_.c_str());
    if (plain) plain->close();
    return;
  }
  auto pending = std::make_shared<Pending>();
  activity->impl_->pending.push_back(pending);
  std::weak_ptr<ZTUserActivity> weakActivity = activity;
  std::weak_ptr<Pending> weakPending = pending;
  pending->attempt = zt::handoff_internal::secureAcceptedChannel(
      activity->secureLink_, std::move(plain), ZTRunLoop::main(),
      [weakActivity, weakPending](std::shared_ptr<ZTStreamChannel> secured, const std::string&,
                                  const std::optional<ZTError>& failure) {
        auto self = weakActivity.lock();
        auto pendingNow = weakPending.lock();
        if (!self || !pendingNow || self->invalidated_) {
          if (secured) secured->close();
          return;
        }
        if (failure || !secured) {
          Impl::remove(*self, pendingNow);
          Impl::failToContinue(*self, failure ? *failure : activityError(ZTUserActivityErrorConnectionClosed, "No channel."));
          return;
        }
        ZTError encodeError;
        auto message = zt::handoff_internal::encodeActivityMessage({self->activityType_, self->userInfo_}, &encodeError);
        if (!message) {
          secured->close();
          Impl::remove(*self, pendingNow);
          Impl::failToContinue(*self, encodeError);
          return;
        }
        pendingNow->exchange = MessageExchange::write(
            ZTRunLoop::main(), secured, std::move(*message), std::chrono::duration<double>(kContinueTimeoutSeconds),
            [weakActivity, weakPending, secured](const std::optional<ZTError>& writeError) {
              auto activityNow = weakActivity.lock();
              auto stillPending = weakPending.lock();
              if (!activityNow || !stillPending || activityNow->invalidated_) {
                secured->close();
                return;
              }
              Impl::remove(*activityNow, stillPending);
              if (writeError) {
                secured->close();
                Impl::failToContinue(*activityNow, *writeError);
                return;
              }
              if (!activityNow->supportsContinuationStreams_) {
                // The receiver has the activity; there is nothing more to say to it.
                secured->close();
                return;
              }
              ZTStreamPair pair = ZTStream::streamPairWithChannel(secured);
              auto delegate = activityNow->delegate();
              if (!delegate) {
                pair.inputStream->close();
                pair.outputStream->close();
                return;
              }
              guarded("userActivityDidReceiveInputStream", [&] {
                delegate->userActivityDidReceiveInputStream(*activityNow, pair.inputStream, pair.outputStream);
              });
            });
      });
}

void ZTUserActivity::invalidate() {
  if (invalidated_) return;
  invalidated_ = true;
  impl_->advertiser.reset();
  if (auto listener = std::move(impl_->listener)) listener->close();
  for (auto& pending : impl_->pending) {
    if (pending->exchange) pending->exchange->cancel();
    if (pending->attempt) pending->attempt->cancel();
  }
  impl_->pending.clear();
  if (auto channel = std::move(impl_->channel)) {
    if (!impl_->streamsTaken) channel->close();
  }
}

void ZTUserActivity::continueActivityAtHost(const std::string& host, std::uint16_t port, ContinueCompletion completion,
                                            std::shared_ptr<ZTSecureLink> link) {
  const auto deliver = [completion](std::shared_ptr<ZTUserActivity> activity, std::optional<ZTError> error) {
    (void)ZTRunLoop::main()->post([completion, activity = std::move(activity), error = std::move(error)] {
      if (completion) guarded("the continue completion", [&] { completion(activity, error); });
    });
  };
  ZTError linkError;
  link = linkOrDefault(std::move(link), &linkError);
  if (!link) return deliver(nullptr, linkError);
  // The handshake, then the message; the exchange keeps itself alive through its callbacks' captures.
  struct State {
    std::shared_ptr<ZTSecureLinkAttempt> attempt;
    std::shared_ptr<MessageExchange> exchange;
  };
  auto state = std::make_shared<State>();
  const bool onMain = ZTRunLoop::main()->isCurrent();
  auto begin = [state, link, host, port, deliver] {
    state->attempt = zt::handoff_internal::secureConnectedChannel(
        link, host, port, ZTRunLoop::main(),
        [state, link, deliver](std::shared_ptr<ZTStreamChannel> channel, const std::string& peerName,
                               const std::optional<ZTError>& error) {
          if (error || !channel) {
            state->attempt.reset();
            return deliver(nullptr, error ? *error : activityError(ZTUserActivityErrorConnectionClosed, "No channel."));
          }
          state->exchange = MessageExchange::read(
              ZTRunLoop::main(), channel, std::chrono::duration<double>(kContinueTimeoutSeconds),
              [state, link, channel, peerName, deliver](std::optional<zt::handoff_internal::ActivityMessage> message,
                                                        const std::optional<ZTError>& readError) {
                state->attempt.reset();
                (void)ZTRunLoop::main()->post([state] { state->exchange.reset(); });
                if (!message) {
                  channel->close();
                  return deliver(nullptr, readError);
                }
                auto activity = create(message->activityType);
                activity->userInfo_ = std::move(message->userInfo);
                activity->supportsContinuationStreams_ = true;
                activity->secureLink_ = link;
                activity->peerName_ = peerName;
                activity->impl_->continued = true;
                activity->impl_->channel = channel;
                deliver(activity, std::nullopt);
              });
        });
  };
  if (onMain) begin();
  else (void)ZTRunLoop::main()->post(std::move(begin));
}

void ZTUserActivity::continueActivity(const ZTHandoffService& service, ContinueCompletion completion,
                                      std::shared_ptr<ZTSecureLink> link) {
  const std::string host = !service.address.empty() ? service.address : service.hostName;
  continueActivityAtHost(host, service.port, std::move(completion), std::move(link));
}

void ZTUserActivity::getContinuationStreamsWithCompletionHandler(ContinuationStreamsCompletion completion) {
  std::optional<ZTError> error;
  ZTStreamPair pair;
  if (invalidated_) {
    error = activityError(ZTUserActivityErrorInvalidated, "The activity was invalidated.");
  } else if (!impl_->continued || !impl_->channel) {
    error = activityError(ZTUserActivityErrorNoStreams, impl_->streamsTaken
                                                            ? "The continuation streams were already handed over."
                                                            : "The activity was not continued from another device.");
  } else if (!supportsContinuationStreams_) {
    error = activityError(ZTUserActivityErrorNoStreams, "The activity does not support continuation streams.");
  } else {
    pair = ZTStream::streamPairWithChannel(std::move(impl_->channel));
    impl_->streamsTaken = true;
  }
  (void)ZTRunLoop::main()->post([completion = std::move(completion), pair, error] {
    if (completion)
      guarded("the continuation streams completion", [&] { completion(pair.inputStream, pair.outputStream, error); });
  });
}
