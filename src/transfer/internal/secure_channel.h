#pragma once
// The hand-off's view of the secure link: a secured channel (handshake done, peer checked) rather
// than streams, because the activity layer speaks on the channel first (the activity message) and
// only then makes the continuation streams over it.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/platform/error.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/secure_link.h"

namespace zt::handoff_internal {

// `channel` is set on success, with the paired peer's name; otherwise `error` says why.
using SecuredChannelCompletion =
    std::function<void(std::shared_ptr<ZTStreamChannel> channel, const std::string& peerName, const std::optional<ZTError>& error)>;

std::shared_ptr<ZTSecureLinkAttempt> secureAcceptedChannel(const std::shared_ptr<ZTSecureLink>& link,
                                                           std::shared_ptr<ZTStreamChannel> plain,
                                                           const std::shared_ptr<ZTRunLoop>& runLoop,
                                                           SecuredChannelCompletion completion);
std::shared_ptr<ZTSecureLinkAttempt> secureConnectedChannel(const std::shared_ptr<ZTSecureLink>& link, const std::string& host,
                                                            std::uint16_t port, const std::shared_ptr<ZTRunLoop>& runLoop,
                                                            SecuredChannelCompletion completion);

}  // namespace zt::handoff_internal
