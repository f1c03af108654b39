#include "transfer/internal/secure_channel.h"

#include <utility>

namespace zt::handoff_internal {

namespace {
ZTSecureLink::ChannelCompletion adapt(SecuredChannelCompletion completion) {
  return [completion = std::move(completion)](std::shared_ptr<ZTStreamChannel> channel,
                                              const std::optional<ZTPairedDevice>& peer, const ZTError& error) {
    if (channel) completion(std::move(channel), peer ? peer->name : std::string(), std::nullopt);
    else completion(nullptr, {}, error);
  };
}
}  // namespace

std::shared_ptr<ZTSecureLinkAttempt> secureAcceptedChannel(const std::shared_ptr<ZTSecureLink>& link,
                                                           std::shared_ptr<ZTStreamChannel> plain,
                                                           const std::shared_ptr<ZTRunLoop>& runLoop,
                                                           SecuredChannelCompletion completion) {
  return link->acceptChannel(std::move(plain), runLoop, adapt(std::move(completion)));
}

std::shared_ptr<ZTSecureLinkAttempt> secureConnectedChannel(const std::shared_ptr<ZTSecureLink>& link, const std::string& host,
                                                            std::uint16_t port, const std::shared_ptr<ZTRunLoop>& runLoop,
                                                            SecuredChannelCompletion completion) {
  return link->connectChannel(host, port, runLoop, adapt(std::move(completion)));
}

}  // namespace zt::handoff_internal
