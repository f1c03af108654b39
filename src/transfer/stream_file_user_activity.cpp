#include "zentrel/transfer/stream_file_user_activity.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "zentrel/operations/cross_thread_calls.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/thread.h"

void ZTStreamFileUserActivityDelegate::userActivityDidStartStreamFile(ZTStreamFileUserActivity&) {}
void ZTStreamFileUserActivityDelegate::userActivityStreamFileProgress(ZTStreamFileUserActivity&, float) {}
void ZTStreamFileUserActivityDelegate::userActivityDidFailStreamFile(ZTStreamFileUserActivity&) {}

ZTStreamFileUserActivity::ZTStreamFileUserActivity(std::shared_ptr<ZTUserActivity> userActivity)
    : userActivity_(std::move(userActivity)) {
  fileOperationQueue_ = ZTOperationQueue::create(ZTThreadWithRunLoop::sharedThread<ZTStreamFileUserActivity>());
  fileOperationQueue_->setMaxConcurrentOperationCount(1);
  fileOperationQueue_->setName("ZTStreamFileUserActivity file operations");
}

void ZTStreamFileUserActivity::attachToUserActivity() {
  if (userActivity_) userActivity_->setDelegate(std::weak_ptr<ZTUserActivityDelegate>(shared_from_this()));
}

ZTStreamFileUserActivity::~ZTStreamFileUserActivity() { invalidateBase(); }

double ZTStreamFileUserActivity::now() const {
  return timeSource_ ? timeSource_() : ZTDate::now().timeIntervalSinceReferenceDate();
}

void ZTStreamFileUserActivity::setTimeSource(std::function<double()> timeSource) { timeSource_ = std::move(timeSource); }

void ZTStreamFileUserActivity::invalidate() { invalidateBase(); }

void ZTStreamFileUserActivity::invalidateBase() {
  invalidated_ = true;
  if (userActivity_) {
    userActivity_->setDelegate({});
    userActivity_.reset();
  }
  if (auto queue = std::move(fileOperationQueue_)) {
    queue->cancelAllOperations();
    queue->dispose();  // waits for the copy under way
  }
}

void ZTStreamFileUserActivity::invalidateAndNotifyDelegateAboutFail() {
  invalidate();
  std::weak_ptr<ZTStreamFileUserActivity> weakSelf = weak_from_this();
  // The delegate is taken now: a failure reported from the destructor still reaches it.
  auto delegate = delegate_.lock();
  if (!delegate) return;
  ZTStreamFileUserActivity* raw = this;
  performOnMainThreadSynchronouslyIfPossible([weakSelf, delegate, raw] {
    auto self = weakSelf.lock();
    if (!self) return;
    try {
      delegate->userActivityDidFailStreamFile(*raw);
    } catch (const std::exception& e) {
      ZTLogf("%s userActivityDidFailStreamFile: threw: %s",
             "-[ZTStreamFileUserActivity invalidateAndNotifyDelegateAboutFail]", e.what());
    } catch (...) {
      ZTLogf("%s userActivityDidFailStreamFile: threw", "-[ZTStreamFileUserActivity invalidateAndNotifyDelegateAboutFail]");
    }
  });
}

void ZTStreamFileUserActivity::callDelegate(const char* what,
                                            const std::function<void(ZTStreamFileUserActivityDelegate&)>& call) {
  auto delegate = delegate_.lock();
  if (!delegate) return;
  try {
    call(*delegate);
  } catch (const std::exception& e) {
    ZTLogf("%s: the delegate threw: %s", what, e.what());
  } catch (...) {
    ZTLogf("%s: the delegate threw", what);
  }
}

void ZTStreamFileUserActivity::performOnMainThreadIfAlive(std::function<void(ZTStreamFileUserActivity&)> call) {
  std::weak_ptr<ZTStreamFileUserActivity> weakSelf = weak_from_this();
  performOnMainThreadSynchronouslyIfPossible([weakSelf, call = std::move(call)] {
    if (auto self = weakSelf.lock()) call(*self);
  });
}

void ZTStreamFileUserActivity::notifyDelegateAboutProgressUsingTransferredDataSize(std::uint64_t size) {
  if (totalFileSize_ == 0) return;
  auto delegate = delegate_.lock();
  if (!delegate || !delegate->respondsToStreamFileProgress()) return;
  size = std::min(size, totalFileSize_);
  const float progress = static_cast<float>(static_cast<double>(size) / static_cast<double>(totalFileSize_));
  const double time = now();
  if (time - notifiedStreamFileProgressTime_ >= 0.1 && progress - notifiedStreamFileProgress_ >= 0.01f) {
    notifiedStreamFileProgressTime_ = time;
    notifiedStreamFileProgress_ = progress;
    callDelegate("-[ZTStreamFileUserActivity notifyDelegateAboutProgressUsingTransferredDataSize:]",
                 [&](ZTStreamFileUserActivityDelegate& d) { d.userActivityStreamFileProgress(*this, progress); });
  }
}

void ZTStreamFileUserActivity::openStream(const std::shared_ptr<ZTStream>& stream) {
  if (!stream || stream->streamStatus() != ZTStreamStatus::NotOpen) {
    ZTLogf("%s stream.streamStatus != NSStreamStatusNotOpen", "-[ZTStreamFileUserActivity openStream:]");
    invalidateAndNotifyDelegateAboutFail();
    return;
  }
  stream->setDelegate(std::weak_ptr<ZTStreamDelegate>(shared_from_this()));
  stream->scheduleInRunLoop(*ZTRunLoop::main(), ZTDefaultRunLoopMode);
  stream->open();
}

void ZTStreamFileUserActivity::closeStream(const std::shared_ptr<ZTStream>& stream) {
  if (!stream) return;
  stream->setDelegate({});
  stream->close();
  stream->removeFromRunLoop(*ZTRunLoop::main(), ZTDefaultRunLoopMode);
}

void ZTStreamFileUserActivity::stream(ZTStream& stream, ZTStreamEvent event) {
  // Keeps this object alive through handlers that may drop the last outside reference.
  auto self = shared_from_this();
  switch (event) {
    case ZTStreamEvent::OpenCompleted:
      handleOpenCompletedEventForStream(stream);
      break;
    case ZTStreamEvent::HasBytesAvailable:
      handleHasBytesAvailableEventForStream(stream);
      break;
    case ZTStreamEvent::HasSpaceAvailable:
      handleHasSpaceAvailableEventForStream(stream);
      break;
    case ZTStreamEvent::ErrorOccurred:
      handleErrorOccurredEventForStream(stream);
      break;
    case ZTStreamEvent::EndEncountered:
      handleEndEncounteredEventForStream(stream);
      break;
    default:
      break;
  }
}

void ZTStreamFileUserActivity::handleOpenCompletedEventForStream(ZTStream& stream) {
  ZTLogf("%s %s successfully opened!", "-[ZTStreamFileUserActivity handleOpenCompletedEventForStream:]",
         descriptionForStream(stream).c_str());
  performOnMainThreadIfAlive([](ZTStreamFileUserActivity& self) {
    self.callDelegate("-[ZTStreamFileUserActivity handleOpenCompletedEventForStream:]_block_invoke",
                      [&](ZTStreamFileUserActivityDelegate& d) { d.userActivityDidStartStreamFile(self); });
  });
}

void ZTStreamFileUserActivity::handleHasBytesAvailableEventForStream(ZTStream&) {}
void ZTStreamFileUserActivity::handleHasSpaceAvailableEventForStream(ZTStream&) {}
void ZTStreamFileUserActivity::handleEndEncounteredEventForStream(ZTStream&) {}

void ZTStreamFileUserActivity::handleErrorOccurredEventForStream(ZTStream& stream) {
  ZTLogf("%s %s error %s", "-[ZTStreamFileUserActivity handleErrorOccurredEventForStream:]",
         descriptionForStream(stream).c_str(), stream.streamError().value_or(ZTError()).description().c_str());
  invalidateAndNotifyDelegateAboutFail();
}

std::string ZTStreamFileUserActivity::descriptionForStream(const ZTStream&) const {
  throw ZTInternalInconsistencyException(
      ZTAbstractMethodReason("descriptionForStream:", ZTDebugClassNameForObject(this)));
}
