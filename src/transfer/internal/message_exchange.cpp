#include "transfer/internal/message_exchange.h"

#include <utility>

#include "zentrel/transfer/user_activity.h"

namespace zt::handoff_internal {
namespace {
// Channel calls made in one go before the exchange yields to the loop (each moves at least a byte).
constexpr int kMaxCallsPerStep = 64;
}  // namespace

MessageExchange::MessageExchange(std::shared_ptr<ZTRunLoop> runLoop, std::shared_ptr<ZTStreamChannel> channel)
    : runLoop_(std::move(runLoop)), channel_(std::move(channel)) {}

MessageExchange::~MessageExchange() { stopWaiting(); }

std::shared_ptr<MessageExchange> MessageExchange::write(std::shared_ptr<ZTRunLoop> runLoop,
                                                        std::shared_ptr<ZTStreamChannel> channel,
                                                        std::vector<std::uint8_t> bytes,
                                                        std::chrono::duration<double> timeout, WriteDone done) {
  std::shared_ptr<MessageExchange> exchange(new MessageExchange(std::move(runLoop), std::move(channel)));
  exchange->buffer_ = std::move(bytes);
  exchange->writeDone_ = std::move(done);
  exchange->start(timeout);
  return exchange;
}

std::shared_ptr<MessageExchange> MessageExchange::read(std::shared_ptr<ZTRunLoop> runLoop,
                                                       std::shared_ptr<ZTStreamChannel> channel,
                                                       std::chrono::duration<double> timeout, ReadDone done) {
  std::shared_ptr<MessageExchange> exchange(new MessageExchange(std::move(runLoop), std::move(channel)));
  exchange->reading_ = true;
  exchange->buffer_.resize(4);
  exchange->readDone_ = std::move(done);
  exchange->start(timeout);
  return exchange;
}

void MessageExchange::start(std::chrono::duration<double> timeout) {
  std::weak_ptr<MessageExchange> weakSelf = weak_from_this();
  timer_ = runLoop_->scheduleTimer(timeout, false, [weakSelf](ZTTimer&) {
    if (auto self = weakSelf.lock())
      self->finish(activityError(ZTUserActivityErrorTimedOut, "The peer did not complete the activity exchange in time."));
  });
  (void)runLoop_->post([weakSelf] {
    if (auto self = weakSelf.lock()) self->step();
  });
}

void MessageExchange::cancel() {
  finished_ = true;
  stopWaiting();
  writeDone_ = nullptr;
  readDone_ = nullptr;
}

void MessageExchange::stopWaiting() {
  if (readSource_) readSource_->cancel();
  if (writeSource_) writeSource_->cancel();
  readSource_.reset();
  writeSource_.reset();
}

void MessageExchange::step() {
  if (finished_) return;
  auto keep = shared_from_this();
  stopWaiting();
  for (int calls = 0; calls < kMaxCallsPerStep; ++calls) {
    ZTError error;
    if (!reading_) {
      if (done_ == buffer_.size()) return finish(std::nullopt);
      const auto result = channel_->write(buffer_.data() + done_, buffer_.size() - done_, &error);
      switch (result.status) {
        case ZTStreamChannelStatus::Done: done_ += result.count; continue;
        case ZTStreamChannelStatus::WouldBlock: return waitFor(ZTStreamChannelOperation::Write);
        default:
          return finish(activityError(ZTUserActivityErrorConnectionClosed,
                                      "The connection failed while the activity was sent: " + error.localizedDescription()));
      }
    }
    const auto result = channel_->read(buffer_.data() + done_, buffer_.size() - done_, &error);
    switch (result.status) {
      case ZTStreamChannelStatus::Done: break;
      case ZTStreamChannelStatus::WouldBlock: return waitFor(ZTStreamChannelOperation::Read);
      case ZTStreamChannelStatus::End:
        return finish(activityError(ZTUserActivityErrorConnectionClosed, "The peer closed the connection before sending the activity."));
      default:
        return finish(activityError(ZTUserActivityErrorConnectionClosed,
                                    "The connection failed before the activity arrived: " + error.localizedDescription()));
    }
    done_ += result.count;
    if (done_ < buffer_.size()) continue;
    if (bodyLength_ == 0) {
      auto length = decodeActivityMessageLength(buffer_.data(), &error);
      if (!length) return finish(error);
      bodyLength_ = *length;
      buffer_.assign(bodyLength_, 0);
      done_ = 0;
      continue;
    }
    return finish(std::nullopt);
  }
  std::weak_ptr<MessageExchange> weakSelf = weak_from_this();
  (void)runLoop_->post([weakSelf] {
    if (auto self = weakSelf.lock()) self->step();
  });
}

void MessageExchange::waitFor(ZTStreamChannelOperation operation) {
  const auto wanted = channel_->readinessWanted(operation);
  std::weak_ptr<MessageExchange> weakSelf = weak_from_this();
  const auto ready = [weakSelf](ZTFileDescriptorSource&) {
    if (auto self = weakSelf.lock()) self->step();
  };
  const int fd = channel_->fileDescriptor();
  const auto bits = static_cast<std::uint32_t>(wanted);
  if (bits & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Readable))
    readSource_ = runLoop_->addFileDescriptorSource(fd, ZTFileDescriptorSource::Event::Readable, ready);
  if (bits & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Writable))
    writeSource_ = runLoop_->addFileDescriptorSource(fd, ZTFileDescriptorSource::Event::Writable, ready);
  if (!readSource_ && !writeSource_) {
    (void)runLoop_->post([weakSelf] {
      if (auto self = weakSelf.lock()) self->step();
    });
  }
}

void MessageExchange::finish(std::optional<ZTError> error) {
  if (finished_) return;
  finished_ = true;
  stopWaiting();
  if (timer_) timer_->invalidate();
  auto keep = shared_from_this();
  if (!reading_) {
    if (auto done = std::move(writeDone_)) done(error);
    return;
  }
  if (error) {
    if (auto done = std::move(readDone_)) done(std::nullopt, error);
    return;
  }
  ZTError parseError;
  auto message = decodeActivityMessageBody(buffer_, &parseError);
  buffer_.clear();
  if (auto done = std::move(readDone_)) {
    if (message) done(std::move(message), std::nullopt);
    else done(std::nullopt, parseError);
  }
}

}  // namespace zt::handoff_internal
