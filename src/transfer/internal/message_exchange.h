#pragma once
// Writing or reading the activity message on a channel, without blocking, on a run loop: the
// channel is retried when its descriptor becomes ready for what it asked (readinessWanted), and the
// exchange gives up after a time limit. One exchange per channel at a time; used from the run
// loop's thread. The result is reported once, unless cancel() came first.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "transfer/internal/activity_message.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"

namespace zt::handoff_internal {

class MessageExchange : public std::enable_shared_from_this<MessageExchange> {
 public:
  using WriteDone = std::function<void(const std::optional<ZTError>& error)>;
  using ReadDone = std::function<void(std::optional<ActivityMessage> message, const std::optional<ZTError>& error)>;

  static std::shared_ptr<MessageExchange> write(std::shared_ptr<ZTRunLoop> runLoop, std::shared_ptr<ZTStreamChannel> channel,
                                                std::vector<std::uint8_t> bytes, std::chrono::duration<double> timeout,
                                                WriteDone done);
  static std::shared_ptr<MessageExchange> read(std::shared_ptr<ZTRunLoop> runLoop, std::shared_ptr<ZTStreamChannel> channel,
                                               std::chrono::duration<double> timeout, ReadDone done);
  ~MessageExchange();
  void cancel();

 private:
  MessageExchange(std::shared_ptr<ZTRunLoop> runLoop, std::shared_ptr<ZTStreamChannel> channel);
  void start(std::chrono::duration<double> timeout);
  void step();
  void waitFor(ZTStreamChannelOperation operation);
  void stopWaiting();
  void finish(std::optional<ZTError> error);

  std::shared_ptr<ZTRunLoop> runLoop_;
  std::shared_ptr<ZTStreamChannel> channel_;
  bool reading_ = false;
  std::vector<std::uint8_t> buffer_;
  std::size_t done_ = 0;
  std::size_t bodyLength_ = 0;  // reading: 0 while the header is read
  WriteDone writeDone_;
  ReadDone readDone_;
  std::shared_ptr<ZTFileDescriptorSource> readSource_;
  std::shared_ptr<ZTFileDescriptorSource> writeSource_;
  std::shared_ptr<ZTTimer> timer_;
  bool finished_ = false;
};

}  // namespace zt::handoff_internal
