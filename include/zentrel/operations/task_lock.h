#pragma once
// ZTTaskLock: a countdown latch that runs a block when the last holder lets go.
//
// getLock() hands out a release function and counts it; when the release functions have been
// called as often as locks were handed out, the block runs — once, on the thread of the last
// release, while the task lock's internal lock is held (so the block must not wait for another
// thread that calls getLock()). Locks taken after that find no block and run nothing. The block is
// taken out before it runs, so it may call setBlock() (the new block waits for the next time the
// count reaches zero) or take and release locks itself; a block that throws has still run: the
// exception reaches the caller of the last release and the block does not run again.
//
// Each release function must be called exactly once: calling one more time than locks were taken
// wraps the unsigned counter to its largest value, after which the block never runs.
// Thread-safe. A release function keeps its task lock alive.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"

class ZT_API ZTTaskLock : public std::enable_shared_from_this<ZTTaskLock> {
 public:
  [[nodiscard]] static std::shared_ptr<ZTTaskLock> taskLockWithBlock(std::function<void()> block);

  [[nodiscard]] std::function<void()> getLock();
  // What a release function calls: counts one release and runs the block when the count is zero.
  void executeBlock();

  std::uint64_t lockCounter() const { return lockCounter_.load(); }
  void setLockCounter(std::uint64_t value) { lockCounter_.store(value); }
  bool hasBlock() const;
  void setBlock(std::function<void()> block);

 private:
  explicit ZTTaskLock(std::function<void()> block) : block_(std::move(block)) {}
  mutable ZTRecursiveMutex monitor_;
  std::atomic<std::uint64_t> lockCounter_{0};
  std::function<void()> block_ ZT_GUARDED_BY(monitor_);
};
