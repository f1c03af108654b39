#include "zentrel/operations/task_lock.h"

#include <utility>

std::shared_ptr<ZTTaskLock> ZTTaskLock::taskLockWithBlock(std::function<void()> block) {
  return std::shared_ptr<ZTTaskLock>(new ZTTaskLock(std::move(block)));
}

std::function<void()> ZTTaskLock::getLock() {
  ZTLockGuard guard(monitor_);
  lockCounter_.fetch_add(1);
  return [self = shared_from_this()] { self->executeBlock(); };
}

void ZTTaskLock::executeBlock() {
  ZTLockGuard guard(monitor_);
  if (lockCounter_.fetch_sub(1) - 1 != 0) return;
  // Cleared before it runs: the block may replace it (setBlock) or throw, and still runs at most once.
  std::function<void()> block = std::exchange(block_, nullptr);
  if (block) block();
}

bool ZTTaskLock::hasBlock() const {
  ZTLockGuard guard(monitor_);
  return static_cast<bool>(block_);
}

void ZTTaskLock::setBlock(std::function<void()> block) {
  ZTLockGuard guard(monitor_);
  block_ = std::move(block);
}
