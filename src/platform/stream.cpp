// Streams: one core per stream holds the state every kind shares (status, error, delegate, the run
// loop and its modes, which event is due) and a kind-specific part (file, memory, channel).
//
// Events are never delivered from inside a call on the stream: a due event is posted to the run
// loop ("the pump", at most one posted at a time, so one event per turn), or, for channels,
// delivered from the callback of a descriptor watch. A watch is armed for one readiness report
// and then dropped: adding a descriptor to the loop reports readiness that already exists, which
// keeps has-bytes-available level-triggered without relying on edges.

#include "zentrel/platform/stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <set>
#include <vector>

#include "platform/internal/file_system.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/uuid.h"

void ZTStreamDelegate::stream(ZTStream&, ZTStreamEvent) {}

namespace {

constexpr int kInterruptedRetries = 64;
// Waits of a blocking (unscheduled) socket call that ended without progress before it gives up.
constexpr int kBlockingWaitLimit = 1 << 20;
constexpr int kTemporaryNameAttempts = 16;

bool isOpenLike(ZTStreamStatus status) {
  return status == ZTStreamStatus::Open || status == ZTStreamStatus::Reading || status == ZTStreamStatus::Writing;
}

void callDelegate(const std::shared_ptr<ZTStreamDelegate>& delegate, ZTStream& stream, ZTStreamEvent event) {
  if (!delegate || event == ZTStreamEvent::None) return;
  try {
    delegate->stream(stream, event);
  } catch (const std::exception& e) {
    ZTLogf("ERROR: a stream delegate threw while handling event %u: %s", static_cast<unsigned>(event), e.what());
  } catch (...) {
    ZTLogf("ERROR: a stream delegate threw while handling event %u", static_cast<unsigned>(event));
  }
}

// Cancels descriptor watches and closes the duplicate descriptors they watched, on the loop's own
// thread: a descriptor closed while the loop still has it registered could be reused by another
// source before the loop lets go of it.
void retireWatches(const std::shared_ptr<ZTRunLoop>& loop, std::vector<std::shared_ptr<ZTFileDescriptorSource>> sources,
                   std::vector<int> descriptors) {
  if (sources.empty() && descriptors.empty()) return;
  auto finish = [](std::vector<std::shared_ptr<ZTFileDescriptorSource>>& s, std::vector<int>& d) {
    for (auto& source : s) source->cancel();
    for (int fd : d) ::close(fd);
  };
  if (!loop || loop->isCurrent()) {
    finish(sources, descriptors);
    return;
  }
  auto shared = std::make_shared<std::pair<decltype(sources), decltype(descriptors)>>(std::move(sources),
                                                                                    std::move(descriptors));
  if (!loop->post([shared, finish] { finish(shared->first, shared->second); })) finish(shared->first, shared->second);
}

}  // namespace

namespace zt::internal {

struct StreamCore {
  enum class Kind { Input, Output };
  explicit StreamCore(Kind k) : kind(k) {}
  virtual ~StreamCore() = default;
  StreamCore(const StreamCore&) = delete;
  StreamCore& operator=(const StreamCore&) = delete;

  template <class Stream>
  static std::shared_ptr<Stream> makeStream(std::shared_ptr<StreamCore> core) {
    std::shared_ptr<Stream> stream(new Stream(core));
    core->owner = stream;
    return stream;
  }
  static StreamCore& of(ZTStream& stream) { return *stream.core_; }

  // --- operations behind the public calls

  void open() ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    if (closing.load() || status.load() != ZTStreamStatus::NotOpen) return;
    status = ZTStreamStatus::Opening;
    openBackendLocked();
    updateLocked();
  }

  void close() ZT_EXCLUDES(mutex) {
    if (closing.exchange(true)) return;
    wake();
    ZTLockGuard lock(mutex);
    if (status.load() != ZTStreamStatus::Error) status = ZTStreamStatus::Closed;
    retireWatchesLocked();
    closeBackendLocked();
    ++generation;
    pumpPosted = false;
  }

  void setDelegate(std::weak_ptr<ZTStreamDelegate> d) ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    delegate = std::move(d);
  }
  std::shared_ptr<ZTStreamDelegate> currentDelegate() ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    return delegate.lock();
  }
  std::optional<ZTError> currentError() ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    return error;
  }

  void schedule(ZTRunLoop& loop, std::string_view mode) ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    if (runLoop && runLoop.get() != &loop)
      throw ZTInternalInconsistencyException("A stream is scheduled in one run loop at a time.");
    if (!runLoop) {
      runLoop = loop.shared_from_this();
      ++generation;
      pumpPosted = false;
    }
    modes.emplace(mode);
    updateLocked();
  }

  void unschedule(ZTRunLoop& loop, std::string_view mode) ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    if (runLoop.get() != &loop) return;
    if (auto found = modes.find(mode); found != modes.end()) modes.erase(found);
    if (!modes.empty()) return;
    retireWatchesLocked();
    runLoop.reset();
    ++generation;
    pumpPosted = false;
  }

  std::int64_t read(std::uint8_t* buffer, std::size_t length) ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    if (kind != Kind::Input || closing.load()) return -1;
    if (status.load() == ZTStreamStatus::AtEnd) return 0;
    if (status.load() == ZTStreamStatus::Opening && !completeOpenLocked())
      return status.load() == ZTStreamStatus::Error || closing.load() ? -1 : 0;
    if (!isOpenLike(status.load())) return -1;
    if (!buffer && length > 0) return -1;
    status = ZTStreamStatus::Reading;
    const std::int64_t count = readBackendLocked(buffer, length);
    if (status.load() == ZTStreamStatus::Reading) status = ZTStreamStatus::Open;
    wantsEvent = true;
    updateLocked();
    return count;
  }

  std::int64_t write(const std::uint8_t* buffer, std::size_t length) ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    if (kind != Kind::Output || closing.load()) return -1;
    if (status.load() == ZTStreamStatus::Opening && !completeOpenLocked())
      return status.load() == ZTStreamStatus::Error || closing.load() ? -1 : 0;
    if (!isOpenLike(status.load())) return -1;
    if (!buffer && length > 0) return -1;
    status = ZTStreamStatus::Writing;
    const std::int64_t count = writeBackendLocked(buffer, length);
    if (status.load() == ZTStreamStatus::Writing) status = ZTStreamStatus::Open;
    wantsEvent = true;
    updateLocked();
    return count;
  }

  bool getBuffer(std::uint8_t** buffer, std::size_t* length) ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    if (!buffer || !length || closing.load() || !isOpenLike(status.load())) return false;
    return getBufferLocked(buffer, length);
  }
  bool hasBytesAvailable() ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    return !closing.load() && isOpenLike(status.load()) && hasBytesLocked();
  }
  bool hasSpaceAvailable() ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    return !closing.load() && isOpenLike(status.load()) && hasSpaceLocked();
  }

  // --- event delivery

  // The event due now, if any; `take` consumes it.
  ZTStreamEvent nextEventLocked(bool take) ZT_REQUIRES(mutex) {
    if (!runLoop || modes.empty() || closing.load()) return ZTStreamEvent::None;
    if (openCompletedDue) {
      if (take) openCompletedDue = false;
      return ZTStreamEvent::OpenCompleted;
    }
    const ZTStreamStatus now = status.load();
    if (now == ZTStreamStatus::Error) {
      if (errorReported) return ZTStreamEvent::None;
      if (take) errorReported = true;
      return ZTStreamEvent::ErrorOccurred;
    }
    if (now == ZTStreamStatus::AtEnd) {
      if (endReported) return ZTStreamEvent::None;
      if (take) endReported = true;
      return ZTStreamEvent::EndEncountered;
    }
    if (now == ZTStreamStatus::Open && wantsEvent && dataReadyLocked()) {
      if (take) {
        wantsEvent = false;
        readinessConsumedLocked();
      }
      return kind == Kind::Input ? ZTStreamEvent::HasBytesAvailable : ZTStreamEvent::HasSpaceAvailable;
    }
    return ZTStreamEvent::None;
  }

  // After any change: posts the pump when an event is due, else lets the kind wait for readiness
  // (from the loop's thread only; another thread posts the pump, which does it there).
  void updateLocked() ZT_REQUIRES(mutex) {
    if (!runLoop || modes.empty() || closing.load()) return;
    const ZTStreamStatus now = status.load();
    if (now == ZTStreamStatus::NotOpen || now == ZTStreamStatus::Closed) return;
    if (nextEventLocked(false) != ZTStreamEvent::None) {
      postPumpLocked();
      return;
    }
    if (now == ZTStreamStatus::Error || now == ZTStreamStatus::AtEnd) return;
    if (runLoop->isCurrent()) {
      waitForReadinessLocked();
    } else {
      postPumpLocked();
    }
  }

  void postPumpLocked() ZT_REQUIRES(mutex) {
    if (pumpPosted) return;
    pumpPosted = true;
    std::weak_ptr<ZTStream> weak = owner;
    const std::uint64_t expected = generation;
    if (!runLoop->post([weak, expected] {
          if (auto stream = weak.lock()) of(*stream).pump(*stream, expected);
        }))
      pumpPosted = false;
  }

  void pump(ZTStream& stream, std::uint64_t expected) ZT_EXCLUDES(mutex) {
    ZTStreamEvent event = ZTStreamEvent::None;
    std::shared_ptr<ZTStreamDelegate> target;
    {
      ZTLockGuard lock(mutex);
      if (expected != generation) return;
      pumpPosted = false;
      if (status.load() == ZTStreamStatus::Opening) progressOpenLocked();
      event = nextEventLocked(true);
      target = delegate.lock();
    }
    callDelegate(target, stream, event);
    ZTLockGuard lock(mutex);
    updateLocked();
  }

  // A descriptor watch of this stream reported readiness (on the loop's thread).
  void watchFired(ZTStream& stream, ZTFileDescriptorSource& source) ZT_EXCLUDES(mutex) {
    ZTStreamEvent event = ZTStreamEvent::None;
    std::shared_ptr<ZTStreamDelegate> target;
    {
      ZTLockGuard lock(mutex);
      if (!takeWatchLocked(source)) return;
      if (status.load() == ZTStreamStatus::Opening) progressOpenLocked();
      event = nextEventLocked(true);
      target = delegate.lock();
    }
    callDelegate(target, stream, event);
    ZTLockGuard lock(mutex);
    updateLocked();
  }

  // --- helpers for the kinds

  void openedLocked() ZT_REQUIRES(mutex) {
    status = ZTStreamStatus::Open;
    openCompletedDue = true;
    wantsEvent = true;
  }
  void failLocked(ZTError failure) ZT_REQUIRES(mutex) {
    status = ZTStreamStatus::Error;
    error = std::move(failure);
    retireWatchesLocked();
  }
  bool scheduledLocked() const ZT_REQUIRES(mutex) { return runLoop && !modes.empty(); }

  // --- what each kind provides (mutex held)

  virtual void openBackendLocked() ZT_REQUIRES(mutex) = 0;
  virtual void closeBackendLocked() ZT_REQUIRES(mutex) = 0;
  // Called by a read or write on a stream still opening: true once open.
  virtual bool completeOpenLocked() ZT_REQUIRES(mutex) { return false; }
  virtual void progressOpenLocked() ZT_REQUIRES(mutex) {}
  virtual std::int64_t readBackendLocked(std::uint8_t*, std::size_t) ZT_REQUIRES(mutex) { return -1; }
  virtual std::int64_t writeBackendLocked(const std::uint8_t*, std::size_t) ZT_REQUIRES(mutex) { return -1; }
  virtual bool getBufferLocked(std::uint8_t**, std::size_t*) ZT_REQUIRES(mutex) { return false; }
  virtual bool hasBytesLocked() ZT_REQUIRES(mutex) { return false; }
  virtual bool hasSpaceLocked() ZT_REQUIRES(mutex) { return false; }
  // Whether has-bytes / has-space can be told now.
  virtual bool dataReadyLocked() ZT_REQUIRES(mutex) = 0;
  virtual void readinessConsumedLocked() ZT_REQUIRES(mutex) {}
  virtual void waitForReadinessLocked() ZT_REQUIRES(mutex) {}
  virtual bool takeWatchLocked(ZTFileDescriptorSource&) ZT_REQUIRES(mutex) { return false; }
  virtual void retireWatchesLocked() ZT_REQUIRES(mutex) {}
  // Ends a blocking wait of another thread (close() from elsewhere). Lock not held.
  virtual void wake() {}

  const Kind kind;
  std::weak_ptr<ZTStream> owner;  // set once, before the stream is handed out
  ZTMutex mutex;
  std::atomic<ZTStreamStatus> status{ZTStreamStatus::NotOpen};
  std::atomic<bool> closing{false};
  std::optional<ZTError> error ZT_GUARDED_BY(mutex);
  std::weak_ptr<ZTStreamDelegate> delegate ZT_GUARDED_BY(mutex);
  std::shared_ptr<ZTRunLoop> runLoop ZT_GUARDED_BY(mutex);
  std::set<std::string, std::less<>> modes ZT_GUARDED_BY(mutex);
  std::uint64_t generation ZT_GUARDED_BY(mutex) = 0;  // stale posted pumps compare unequal
  bool pumpPosted ZT_GUARDED_BY(mutex) = false;
  bool openCompletedDue ZT_GUARDED_BY(mutex) = false;
  bool errorReported ZT_GUARDED_BY(mutex) = false;
  bool endReported ZT_GUARDED_BY(mutex) = false;
  bool wantsEvent ZT_GUARDED_BY(mutex) = false;  // the next has-bytes / has-space may be told
};

}  // namespace zt::internal

using zt::internal::StreamCore;

namespace {

// ---------------------------------------------------------------------------------------------
// Memory

class MemoryInputCore final : public StreamCore {
 public:
  explicit MemoryInputCore(ZTBytes data) : StreamCore(Kind::Input), data_(std::move(data)) {}

  void openBackendLocked() override ZT_REQUIRES(mutex) {
    openedLocked();
    if (data_.empty()) status = ZTStreamStatus::AtEnd;
  }
  void closeBackendLocked() override ZT_REQUIRES(mutex) {}
  std::int64_t readBackendLocked(std::uint8_t* buffer, std::size_t length) override ZT_REQUIRES(mutex) {
    const std::size_t count = std::min(length, data_.size() - offset_);
    if (count > 0) std::memmove(buffer, data_.data() + offset_, count);
    offset_ += count;
    if (offset_ == data_.size()) status = ZTStreamStatus::AtEnd;
    return static_cast<std::int64_t>(count);
  }
  bool getBufferLocked(std::uint8_t** buffer, std::size_t* length) override ZT_REQUIRES(mutex) {
    if (offset_ >= data_.size()) return false;
    *buffer = data_.data() + offset_;
    *length = data_.size() - offset_;
    return true;
  }
  bool hasBytesLocked() override ZT_REQUIRES(mutex) { return offset_ < data_.size(); }
  bool dataReadyLocked() override ZT_REQUIRES(mutex) { return true; }

 private:
  ZTBytes data_ ZT_GUARDED_BY(mutex);
  std::size_t offset_ ZT_GUARDED_BY(mutex) = 0;
};

class MemoryOutputCore final : public StreamCore {
 public:
  MemoryOutputCore() : StreamCore(Kind::Output) {}

  void openBackendLocked() override ZT_REQUIRES(mutex) { openedLocked(); }
  void closeBackendLocked() override ZT_REQUIRES(mutex) {}
  std::int64_t writeBackendLocked(const std::uint8_t* buffer, std::size_t length) override ZT_REQUIRES(mutex) {
    data_.insert(data_.end(), buffer, buffer + length);
    return static_cast<std::int64_t>(length);
  }
  bool hasSpaceLocked() override ZT_REQUIRES(mutex) { return true; }
  bool dataReadyLocked() override ZT_REQUIRES(mutex) { return true; }

  ZTBytes written() ZT_EXCLUDES(mutex) {
    ZTLockGuard lock(mutex);
    return data_;
  }

 private:
  ZTBytes data_ ZT_GUARDED_BY(mutex);
};

// ---------------------------------------------------------------------------------------------
// Files

bool usablePath(const std::string& path) { return !path.empty() && path.find('\0') == std::string::npos; }

class FileInputCore final : public StreamCore {
 public:
  explicit FileInputCore(std::string path) : StreamCore(Kind::Input), path_(std::move(path)) {}
  ~FileInputCore() override {
    if (fd_ >= 0) ::close(fd_);
  }

  void openBackendLocked() override ZT_REQUIRES(mutex) {
    if (!usablePath(path_)) return failLocked(ZTFileErrorWithPOSIXCode(ENOENT, path_, true));
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return failLocked(ZTFileErrorWithPOSIXCode(errno, path_, true));
    struct stat st {};
    if (::fstat(fd_, &st) == 0 && S_ISDIR(st.st_mode)) {
      ::close(fd_);
      fd_ = -1;
      return failLocked(ZTFileErrorWithPOSIXCode(EISDIR, path_, true));
    }
    openedLocked();
  }
  void closeBackendLocked() override ZT_REQUIRES(mutex) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  std::int64_t readBackendLocked(std::uint8_t* buffer, std::size_t length) override ZT_REQUIRES(mutex) {
    if (length == 0) return 0;
    length = std::min<std::size_t>(length, SSIZE_MAX);
    for (int attempt = 0; attempt < kInterruptedRetries; ++attempt) {
      const ssize_t n = ::read(fd_, buffer, length);
      if (n > 0) return n;
      if (n == 0) {
        status = ZTStreamStatus::AtEnd;
        return 0;
      }
      if (errno != EINTR) break;
    }
    failLocked(ZTFileErrorWithPOSIXCode(errno, path_, true));
    return -1;
  }
  bool hasBytesLocked() override ZT_REQUIRES(mutex) { return true; }
  bool dataReadyLocked() override ZT_REQUIRES(mutex) { return true; }

 private:
  const std::string path_;
  int fd_ ZT_GUARDED_BY(mutex) = -1;
};

// Writes into a temporary file beside the destination, which replaces the destination when the
// stream is closed; appending, and writing to something that is not a regular file (a device),
// go straight to the destination.
class FileOutputCore final : public StreamCore {
 public:
  FileOutputCore(std::string path, bool append) : StreamCore(Kind::Output), path_(std::move(path)), append_(append) {}
  ~FileOutputCore() override {
    if (fd_ >= 0) ::close(fd_);
    if (!temporaryPath_.empty()) ::unlink(temporaryPath_.c_str());
  }

  void openBackendLocked() override ZT_REQUIRES(mutex) {
    if (!usablePath(path_)) return failLocked(ZTFileErrorWithPOSIXCode(ENOENT, path_, false));
    destination_ = path_;
    struct stat st {};
    bool exists = ::lstat(path_.c_str(), &st) == 0;
    if (exists && S_ISLNK(st.st_mode)) {
      // Writing through a link replaces what it points to, not the link.
      if (char* resolved = ::realpath(path_.c_str(), nullptr)) {
        destination_ = resolved;
        std::free(resolved);
        exists = ::stat(destination_.c_str(), &st) == 0;
      } else {
        exists = false;
      }
    }
    if (append_ || (exists && !S_ISREG(st.st_mode))) {
      const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (append_ ? O_APPEND : O_TRUNC);
      fd_ = ::open(destination_.c_str(), flags, 0666);
      if (fd_ < 0) return failLocked(ZTFileErrorWithPOSIXCode(errno, path_, false));
      return openedLocked();
    }
    const std::size_t slash = destination_.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string() : destination_.substr(0, slash + 1);
    const std::string name = destination_.substr(slash == std::string::npos ? 0 : slash + 1);
    int failure = 0;
    for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
      std::string candidate = folder + "." + name.substr(0, 160) + "." + ZTUUIDString();
      fd_ = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
      if (fd_ >= 0) {
        temporaryPath_ = std::move(candidate);
        break;
      }
      failure = errno;
      if (failure != EEXIST) break;
    }
    if (fd_ < 0) return failLocked(ZTFileErrorWithPOSIXCode(failure, path_, false));
    if (exists) (void)::fchmod(fd_, st.st_mode & 07777);
    openedLocked();
  }

  void closeBackendLocked() override ZT_REQUIRES(mutex) {
    if (fd_ < 0) return;
    if (temporaryPath_.empty()) {
      ::close(fd_);
      fd_ = -1;
      return;
    }
    int failure = 0;
    if (::fsync(fd_) < 0) failure = errno;
    if (::close(fd_) < 0 && failure == 0 && errno != EINTR) failure = errno;
    fd_ = -1;
    if (failure == 0 && ::rename(temporaryPath_.c_str(), destination_.c_str()) < 0) failure = errno;
    if (failure != 0) {
      ::unlink(temporaryPath_.c_str());
      temporaryPath_.clear();
      status = ZTStreamStatus::Error;
      error = ZTFileErrorWithPOSIXCode(failure, path_, false);
      return;
    }
    temporaryPath_.clear();
    zt::platform_internal::syncFolderOf(destination_);
  }

  std::int64_t writeBackendLocked(const std::uint8_t* buffer, std::size_t length) override ZT_REQUIRES(mutex) {
    if (length == 0) return 0;
    length = std::min<std::size_t>(length, SSIZE_MAX);
    if (zt::platform_internal::writeAll(fd_, buffer, length)) return static_cast<std::int64_t>(length);
    const int failure = errno;
    ::close(fd_);
    fd_ = -1;
    if (!temporaryPath_.empty()) ::unlink(temporaryPath_.c_str());
    temporaryPath_.clear();
    failLocked(ZTFileErrorWithPOSIXCode(failure, path_, false));
    return -1;
  }
  bool hasSpaceLocked() override ZT_REQUIRES(mutex) { return true; }
  bool dataReadyLocked() override ZT_REQUIRES(mutex) { return true; }

 private:
  const std::string path_;
  const bool append_;
  std::string destination_ ZT_GUARDED_BY(mutex);
  std::string temporaryPath_ ZT_GUARDED_BY(mutex);
  int fd_ ZT_GUARDED_BY(mutex) = -1;
};

// ---------------------------------------------------------------------------------------------
// Channels

ZTStreamChannelResult channelThrew(const char* call, ZTError* error) {
  try {
    throw;
  } catch (const std::exception& e) {
    ZTLogf("ERROR: a stream channel threw from %s: %s", call, e.what());
  } catch (...) {
    ZTLogf("ERROR: a stream channel threw from %s", call);
  }
  ZTSetError(error, ZTError::posix(EIO));
  return {ZTStreamChannelStatus::Failed, 0};
}

// The channel the two streams of a pair share; it is closed when both streams are done with it.
class SharedChannel {
 public:
  explicit SharedChannel(std::shared_ptr<ZTStreamChannel> channel) : channel_(std::move(channel)) {}
  ~SharedChannel() { closeChannel(); }
  SharedChannel(const SharedChannel&) = delete;
  SharedChannel& operator=(const SharedChannel&) = delete;

  int fileDescriptor() ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return -1;
    try {
      return channel_->fileDescriptor();
    } catch (...) {
      channelThrew("fileDescriptor", nullptr);
      return -1;
    }
  }
  ZTStreamChannelResult open(ZTError* error) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return closedResult(error);
    try {
      return channel_->open(error);
    } catch (...) {
      return channelThrew("open", error);
    }
  }
  ZTStreamChannelResult read(std::uint8_t* buffer, std::size_t length, ZTError* error) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return closedResult(error);
    try {
      return channel_->read(buffer, length, error);
    } catch (...) {
      return channelThrew("read", error);
    }
  }
  ZTStreamChannelResult write(const std::uint8_t* buffer, std::size_t length, ZTError* error) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return closedResult(error);
    try {
      return channel_->write(buffer, length, error);
    } catch (...) {
      return channelThrew("write", error);
    }
  }
  ZTStreamChannelReadiness readinessWanted(ZTStreamChannelOperation operation) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return ZTStreamChannelReadiness::None;
    try {
      return channel_->readinessWanted(operation);
    } catch (...) {
      channelThrew("readinessWanted", nullptr);
      return ZTStreamChannelReadiness::None;
    }
  }
  std::size_t pendingBytes() ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return 0;
    try {
      return channel_->pendingBytes();
    } catch (...) {
      channelThrew("pendingBytes", nullptr);
      return 0;
    }
  }

  // The input (or output) stream is done with the channel; the output also ends the writing side.
  void finish(StreamCore::Kind kind) ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    if (!channel_) return;
    if (kind == StreamCore::Kind::Output) {
      outputDone_ = true;
      try {
        ZTError ignored;
        channel_->shutdownWrite(&ignored);
      } catch (...) {
        channelThrew("shutdownWrite", nullptr);
      }
    } else {
      inputDone_ = true;
    }
    if (inputDone_ && outputDone_) closeChannelLocked();
  }

 private:
  static ZTStreamChannelResult closedResult(ZTError* error) {
    ZTSetError(error, ZTError::posix(EBADF));
    return {ZTStreamChannelStatus::Failed, 0};
  }
  void closeChannel() ZT_EXCLUDES(mutex_) {
    ZTLockGuard lock(mutex_);
    closeChannelLocked();
  }
  void closeChannelLocked() ZT_REQUIRES(mutex_) {
    if (!channel_) return;
    try {
      channel_->close();
    } catch (...) {
      channelThrew("close", nullptr);
    }
    channel_.reset();
  }

  ZTMutex mutex_;
  std::shared_ptr<ZTStreamChannel> channel_ ZT_GUARDED_BY(mutex_);
  bool inputDone_ ZT_GUARDED_BY(mutex_) = false;
  bool outputDone_ ZT_GUARDED_BY(mutex_) = false;
};

class ChannelCore final : public StreamCore {
 public:
  ChannelCore(Kind direction, std::shared_ptr<SharedChannel> shared)
      : StreamCore(direction), shared_(std::move(shared)), wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~ChannelCore() override {
    if (wakeFd_ >= 0) ::close(wakeFd_);
  }

  void openBackendLocked() override ZT_REQUIRES(mutex) { tryOpenLocked(); }
  void progressOpenLocked() override ZT_REQUIRES(mutex) { tryOpenLocked(); }

  bool completeOpenLocked() override ZT_REQUIRES(mutex) {
    tryOpenLocked();
    if (!scheduledLocked()) {
      for (int wait = 0; wait < kBlockingWaitLimit && status.load() == ZTStreamStatus::Opening; ++wait) {
        if (!waitLocked(ZTStreamChannelOperation::Open)) return false;
        tryOpenLocked();
      }
    }
    return isOpenLike(status.load());
  }

  void closeBackendLocked() override ZT_REQUIRES(mutex) { shared_->finish(kind); }

  // Every read and write uses up what a watch reported; the next event waits for a fresh check.
  std::int64_t readBackendLocked(std::uint8_t* buffer, std::size_t length) override ZT_REQUIRES(mutex) {
    ready_ = false;
    if (length == 0) return 0;
    for (int wait = 0; wait < kBlockingWaitLimit; ++wait) {
      ZTError failure;
      const ZTStreamChannelResult result = shared_->read(buffer, length, &failure);
      switch (result.status) {
        case ZTStreamChannelStatus::Done: return static_cast<std::int64_t>(std::min(result.count, length));
        case ZTStreamChannelStatus::End: status = ZTStreamStatus::AtEnd; return 0;
        case ZTStreamChannelStatus::Failed: failLocked(std::move(failure)); return -1;
        case ZTStreamChannelStatus::WouldBlock: break;
      }
      if (scheduledLocked()) return 0;
      if (!waitLocked(ZTStreamChannelOperation::Read)) return -1;
    }
    return 0;
  }

  std::int64_t writeBackendLocked(const std::uint8_t* buffer, std::size_t length) override ZT_REQUIRES(mutex) {
    ready_ = false;
    if (length == 0) return 0;
    for (int wait = 0; wait < kBlockingWaitLimit; ++wait) {
      ZTError failure;
      const ZTStreamChannelResult result = shared_->write(buffer, length, &failure);
      switch (result.status) {
        case ZTStreamChannelStatus::Done:
          if (result.count > 0) {
            return static_cast<std::int64_t>(std::min(result.count, length));
          }
          break;
        case ZTStreamChannelStatus::End:
        case ZTStreamChannelStatus::Failed:
          if (result.status == ZTStreamChannelStatus::End) failure = ZTError::posix(EPIPE);
          failLocked(std::move(failure));
          return -1;
        case ZTStreamChannelStatus::WouldBlock: break;
      }
      if (scheduledLocked()) return 0;
      if (!waitLocked(ZTStreamChannelOperation::Write)) return -1;
    }
    return 0;
  }

  bool hasBytesLocked() override ZT_REQUIRES(mutex) {
    return ready_ || shared_->pendingBytes() > 0 || descriptorReady(POLLIN);
  }
  bool hasSpaceLocked() override ZT_REQUIRES(mutex) { return ready_ || descriptorReady(POLLOUT); }

  bool dataReadyLocked() override ZT_REQUIRES(mutex) {
    return ready_ || (kind == Kind::Input && shared_->pendingBytes() > 0);
  }
  void readinessConsumedLocked() override ZT_REQUIRES(mutex) { ready_ = false; }

  void waitForReadinessLocked() override ZT_REQUIRES(mutex) {
    ZTStreamChannelOperation operation;
    const ZTStreamStatus now = status.load();
    if (now == ZTStreamStatus::Opening) {
      operation = ZTStreamChannelOperation::Open;
    } else if (isOpenLike(now) && wantsEvent && !dataReadyLocked()) {
      operation = kind == Kind::Input ? ZTStreamChannelOperation::Read : ZTStreamChannelOperation::Write;
    } else {
      return;
    }
    const auto readiness = static_cast<std::uint32_t>(shared_->readinessWanted(operation));
    if (operation != ZTStreamChannelOperation::Open && descriptorReady(pollEvents(readiness))) {
      // Bytes still flowing: tell it on the next turn without a watch.
      ready_ = true;
      postPumpLocked();
      return;
    }
    if (readiness & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Readable))
      armLocked(readWatch_, ZTFileDescriptorSource::Event::Readable);
    if (readiness & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Writable))
      armLocked(writeWatch_, ZTFileDescriptorSource::Event::Writable);
  }

  bool takeWatchLocked(ZTFileDescriptorSource& source) override ZT_REQUIRES(mutex) {
    Watch* watch = readWatch_.source.get() == &source    ? &readWatch_
                   : writeWatch_.source.get() == &source ? &writeWatch_
                                                          : nullptr;
    if (!watch) return false;
    watch->source.reset();
    if (status.load() == ZTStreamStatus::Opening) {
      // Connecting may move to another socket (the next address): watch afresh each time.
      retireWatchesLocked();
    } else {
      // The report may be stale: a read or write made since the watch was armed (from an event the
      // pump delivered) can have used up what it saw. An event the delegate cannot act on would be
      // the last one it is sent, so readiness is checked again now; if it is gone the stream simply
      // waits afresh.
      ready_ = descriptorReady(watch == &readWatch_ ? POLLIN : POLLOUT) ||
               (kind == Kind::Input && shared_->pendingBytes() > 0);
    }
    return true;
  }

  void retireWatchesLocked() override ZT_REQUIRES(mutex) {
    std::vector<std::shared_ptr<ZTFileDescriptorSource>> sources;
    std::vector<int> descriptors;
    for (Watch* watch : {&readWatch_, &writeWatch_}) {
      if (watch->source) sources.push_back(std::move(watch->source));
      if (watch->fd >= 0) descriptors.push_back(watch->fd);
      watch->source.reset();
      watch->fd = -1;
    }
    retireWatches(runLoop, std::move(sources), std::move(descriptors));
  }

  void wake() override {
    if (wakeFd_ >= 0) {
      const std::uint64_t one = 1;
      (void)!::write(wakeFd_, &one, sizeof one);
    }
  }

 private:
  // Each watch has a descriptor of its own (a duplicate of the channel's): the loop cannot watch one
  // descriptor twice, and the other stream of the pair may be watching the channel's.
  struct Watch {
    int fd = -1;
    std::shared_ptr<ZTFileDescriptorSource> source;
  };

  void tryOpenLocked() ZT_REQUIRES(mutex) {
    if (status.load() != ZTStreamStatus::Opening) return;
    ZTError failure;
    switch (shared_->open(&failure).status) {
      case ZTStreamChannelStatus::Done: openedLocked(); break;
      case ZTStreamChannelStatus::WouldBlock: break;
      case ZTStreamChannelStatus::End: failLocked(ZTError::posix(ECONNRESET)); break;
      case ZTStreamChannelStatus::Failed: failLocked(std::move(failure)); break;
    }
  }

  void armLocked(Watch& watch, ZTFileDescriptorSource::Event event) ZT_REQUIRES(mutex) {
    if (watch.source || !runLoop) return;
    if (watch.fd < 0) {
      const int fd = shared_->fileDescriptor();
      if (fd < 0) return;
      watch.fd = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
      if (watch.fd < 0) return failLocked(ZTError::posix(errno));
    }
    std::weak_ptr<ZTStream> weak = owner;
    watch.source = runLoop->addFileDescriptorSource(watch.fd, event, [weak](ZTFileDescriptorSource& source) {
      source.cancel();  // one report per arming
      if (auto stream = weak.lock()) of(*stream).watchFired(*stream, source);
    });
  }

  static short pollEvents(std::uint32_t readiness) {
    short events = 0;
    if (readiness & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Readable)) events |= POLLIN;
    if (readiness & static_cast<std::uint32_t>(ZTStreamChannelReadiness::Writable)) events |= POLLOUT;
    return events == 0 ? static_cast<short>(POLLIN | POLLOUT) : events;
  }

  bool descriptorReady(short events) {
    const int fd = shared_->fileDescriptor();
    if (fd < 0) return false;
    pollfd p{fd, events, 0};
    return ::poll(&p, 1, 0) > 0;
  }

  // Blocks an unscheduled stream until the channel can progress; false when close() ended the wait.
  bool waitLocked(ZTStreamChannelOperation operation) ZT_REQUIRES(mutex) {
    const auto readiness = static_cast<std::uint32_t>(shared_->readinessWanted(operation));
    const int fd = shared_->fileDescriptor();
    if (fd < 0 || closing.load()) return false;
    pollfd p[2] = {{fd, pollEvents(readiness), 0}, {wakeFd_, POLLIN, 0}};
    for (int attempt = 0; attempt < kInterruptedRetries; ++attempt) {
      if (::poll(p, wakeFd_ >= 0 ? 2 : 1, -1) >= 0) break;
      if (errno != EINTR) return false;
    }
    return !closing.load();
  }

  std::shared_ptr<SharedChannel> shared_;
  const int wakeFd_;
  Watch readWatch_ ZT_GUARDED_BY(mutex);
  Watch writeWatch_ ZT_GUARDED_BY(mutex);
  bool ready_ ZT_GUARDED_BY(mutex) = false;  // a watch reported readiness not yet told
};

}  // namespace

// ---------------------------------------------------------------------------------------------

ZTStream::ZTStream(std::shared_ptr<zt::internal::StreamCore> core) : core_(std::move(core)) {}
ZTStream::~ZTStream() {
  if (core_) core_->close();
}

void ZTStream::open() { core_->open(); }
void ZTStream::close() { core_->close(); }
std::shared_ptr<ZTStreamDelegate> ZTStream::delegate() const { return core_->currentDelegate(); }
void ZTStream::setDelegate(std::weak_ptr<ZTStreamDelegate> delegate) { core_->setDelegate(std::move(delegate)); }
void ZTStream::scheduleInRunLoop(ZTRunLoop& runLoop, std::string_view mode) { core_->schedule(runLoop, mode); }
void ZTStream::removeFromRunLoop(ZTRunLoop& runLoop, std::string_view mode) { core_->unschedule(runLoop, mode); }
ZTStreamStatus ZTStream::streamStatus() const { return core_->status.load(); }
std::optional<ZTError> ZTStream::streamError() const { return core_->currentError(); }

std::optional<ZTStreamPair> ZTStream::getStreamsToHostWithName(const std::string& hostName, std::uint16_t port,
                                                               ZTError* error) {
  auto channel = ZTSocketStreamChannelConnect(hostName, port, error);
  if (!channel) return std::nullopt;
  return streamPairWithChannel(std::move(channel));
}

std::optional<ZTStreamPair> ZTStream::streamPairWithSocket(int socketDescriptor, ZTError* error) {
  auto channel = ZTSocketStreamChannelCreate(socketDescriptor, error);
  if (!channel) return std::nullopt;
  return streamPairWithChannel(std::move(channel));
}

ZTStreamPair ZTStream::streamPairWithChannel(std::shared_ptr<ZTStreamChannel> channel) {
  auto shared = std::make_shared<SharedChannel>(std::move(channel));
  ZTStreamPair pair;
  pair.inputStream =
      StreamCore::makeStream<ZTInputStream>(std::make_shared<ChannelCore>(StreamCore::Kind::Input, shared));
  pair.outputStream =
      StreamCore::makeStream<ZTOutputStream>(std::make_shared<ChannelCore>(StreamCore::Kind::Output, shared));
  return pair;
}

std::shared_ptr<ZTInputStream> ZTInputStream::inputStreamWithFileAtPath(std::string_view path) {
  return StreamCore::makeStream<ZTInputStream>(std::make_shared<FileInputCore>(std::string(path)));
}
std::shared_ptr<ZTInputStream> ZTInputStream::inputStreamWithData(ZTBytes data) {
  return StreamCore::makeStream<ZTInputStream>(std::make_shared<MemoryInputCore>(std::move(data)));
}
std::int64_t ZTInputStream::read(std::uint8_t* buffer, std::size_t maxLength) { return core_->read(buffer, maxLength); }
bool ZTInputStream::getBuffer(std::uint8_t** buffer, std::size_t* length) { return core_->getBuffer(buffer, length); }
bool ZTInputStream::hasBytesAvailable() { return core_->hasBytesAvailable(); }

std::shared_ptr<ZTOutputStream> ZTOutputStream::outputStreamToFileAtPath(std::string_view path, bool shouldAppend) {
  return StreamCore::makeStream<ZTOutputStream>(std::make_shared<FileOutputCore>(std::string(path), shouldAppend));
}
std::shared_ptr<ZTOutputStream> ZTOutputStream::outputStreamToMemory() {
  return StreamCore::makeStream<ZTOutputStream>(std::make_shared<MemoryOutputCore>());
}
std::int64_t ZTOutputStream::write(const std::uint8_t* buffer, std::size_t length) {
  return core_->write(buffer, length);
}
bool ZTOutputStream::hasSpaceAvailable() { return core_->hasSpaceAvailable(); }
std::optional<ZTBytes> ZTOutputStream::dataWrittenToMemoryStream() const {
  if (auto* memory = dynamic_cast<MemoryOutputCore*>(core_.get())) return memory->written();
  return std::nullopt;
}
