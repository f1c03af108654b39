#pragma once
// Test helpers of the transfer tests: a scratch folder with a private temporary folder for the
// library, the outcome of an operation as its handlers saw it, file helpers, a TCP connection on
// loopback, and a private mount namespace for file systems that fill up or refuse writes.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/log_and_environment.h"
#include "zentrel/operations/concurrent_operation.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread.h"

namespace zt::test {

// A fresh folder, removed with its contents when the object goes. While it lives, TMPDIR points
// at its "tmp" subfolder, so the library's staging files land where a test can see them.
class TransferScratch {
 public:
  TransferScratch();
  ~TransferScratch();
  TransferScratch(const TransferScratch&) = delete;
  TransferScratch& operator=(const TransferScratch&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(std::string_view name) const;
  // Names inside the library's temporary folder (staging files left behind show up here).
  std::vector<std::string> stagingFiles() const;

 private:
  std::string path_;
  std::unique_ptr<ScopedEnvironment> tmpdir_;
};

// What the handlers of an operation reported, and on which thread.
struct Outcome {
  enum class Kind { None, Success, Failure, Cancellation };

  // Installs start, cancellation and failure handlers on the operation; successHandler() gives
  // the handler for the success.
  void watch(ZTConcurrentOperation& operation);
  std::function<void()> successRecorder();

  // Forgets what was recorded, for the next operation.
  void reset();

  Kind kind() const;
  std::optional<ZTError> error() const;
  int handlerCalls() const;
  bool ranOnWorkerThread() const;

 private:
  void record(Kind kind, std::optional<ZTError> error);
  mutable ZTMutex mutex_;
  Kind kind_ ZT_GUARDED_BY(mutex_) = Kind::None;
  std::optional<ZTError> error_ ZT_GUARDED_BY(mutex_);
  int calls_ ZT_GUARDED_BY(mutex_) = 0;
  bool allOnWorker_ ZT_GUARDED_BY(mutex_) = true;
  std::shared_ptr<ZTThread> worker_ ZT_GUARDED_BY(mutex_);
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view bytes);
bool exists(const std::string& path);
// Bytes 0, 1, ..., 250, 0, 1, ... — recognisable at any offset.
std::string patternBytes(std::size_t size);

// Polls the condition every millisecond until it holds or the deadline passes.
bool waitFor(const std::function<bool()>& condition, std::chrono::seconds deadline = std::chrono::seconds(10));

// Both ends of a TCP connection on 127.0.0.1, blocking, close-on-exec.
struct LoopbackConnection {
  int client = -1;
  int server = -1;
};
std::optional<LoopbackConnection> makeLoopbackConnection();
// Writes everything (blocking); false on failure.
bool writeAll(int fd, std::string_view bytes);
// Closes the socket so that the peer sees a reset instead of an orderly end.
void resetConnection(int fd);

// Whether this process may make a private mount namespace and mount a tmpfs in it (asked of a
// forked child, so this process's own namespace is untouched). Empty when it may, else why not.
std::string privateMountRefusal();
// In the calling (child) process: a private mount namespace whose mounts do not reach the host,
// and a tmpfs mounted at `path` with the options ("size=1m", "ro"...). False on failure.
bool mountPrivateTmpfs(const std::string& path, const std::string& options, unsigned long flags = 0);
// Unmounts it again (so the scratch folder around it can be removed).
void unmountPrivateTmpfs(const std::string& path);

}  // namespace zt::test
