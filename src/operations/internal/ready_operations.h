#pragma once
// The ready list of ZTOperationQueue: operations sorted by priority, highest first, where a new
// operation goes where a binary search over the whole list first meets an operation of its own
// priority (so among equals it lands in front of the probed one, not behind all of them).
//
// Priorities take five values, so the list is five runs; each run is a chunked sequence, which
// keeps insertion in the middle and removal at the front cheap however long the list grows.
// Holds small values (cheap to shift): operation pointers, or the queue's entries, which pair an
// operation with the queue's record of it; the queue keeps them alive meanwhile.
// Not thread-safe: the queue guards it with its monitor.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "zentrel/operations/operation.h"

namespace zt::detail {

template <class T>
class ChunkedSequence {
 public:
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  void insert(std::size_t index, T value) {
    if (blocks_.empty()) {
      blocks_.emplace_back();
      sizes_.push_back(0);
    }
    // Find the block from whichever end is nearer; the sizes sit in their own array for a quick scan.
    std::size_t block;
    if (index <= size_ / 2) {
      block = 0;
      while (block + 1 < sizes_.size() && index > sizes_[block]) index -= sizes_[block++];
    } else {
      block = sizes_.size() - 1;
      std::size_t after = size_ - index;  // elements at or after the insertion point
      while (block > 0 && after > sizes_[block]) after -= sizes_[block--];
      index = sizes_[block] - after;
    }
    Block& target = blocks_[block];
    target.items.insert(target.items.begin() + static_cast<std::ptrdiff_t>(target.head + index), std::move(value));
    ++sizes_[block];
    ++size_;
    if (target.size() > kBlockSize) {
      target.compact();
      Block upper;
      upper.items.assign(std::make_move_iterator(target.items.begin() + kBlockSize / 2),
                         std::make_move_iterator(target.items.end()));
      target.items.resize(kBlockSize / 2);
      sizes_[block] = static_cast<std::uint32_t>(target.size());
      sizes_.insert(sizes_.begin() + static_cast<std::ptrdiff_t>(block) + 1, static_cast<std::uint32_t>(upper.size()));
      blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(block) + 1, std::move(upper));
    }
  }

  const T& front() const { return blocks_.front().items[blocks_.front().head]; }

  T popFront() {
    Block& first = blocks_.front();
    T value = std::move(first.items[first.head++]);
    --sizes_.front();
    if (first.size() == 0) eraseBlock(0);
    --size_;
    return value;
  }

  // Removes the first element equal to value; false when there is none.
  template <class U>
  bool remove(const U& value) {
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
      auto& items = blocks_[block].items;
      for (auto it = items.begin() + static_cast<std::ptrdiff_t>(blocks_[block].head); it != items.end(); ++it) {
        if (*it != value) continue;
        items.erase(it);
        --sizes_[block];
        if (blocks_[block].size() == 0) eraseBlock(block);
        --size_;
        return true;
      }
    }
    return false;
  }

  template <class F>
  void forEach(F&& f) const {
    for (const auto& block : blocks_)
      for (std::size_t i = block.head; i < block.items.size(); ++i) f(block.items[i]);
  }

  void clear() {
    blocks_.clear();
    sizes_.clear();
    size_ = 0;
  }

 private:
  void eraseBlock(std::size_t block) {
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(block));
    sizes_.erase(sizes_.begin() + static_cast<std::ptrdiff_t>(block));
  }

  static constexpr std::size_t kBlockSize = 512;
  // Elements before head have been taken from the front; popping does not shift the rest.
  struct Block {
    std::vector<T> items;
    std::size_t head = 0;
    std::size_t size() const { return items.size() - head; }
    void compact() {
      items.erase(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(head));
      head = 0;
    }
  };
  std::vector<Block> blocks_;
  std::vector<std::uint32_t> sizes_;  // sizes_[i] == blocks_[i].size()
  std::size_t size_ = 0;
};

// Entry: what the list holds, a small value that compares with == (an operation pointer, or one
// with what goes with it); Priority: a function object answering an entry's queue priority.
template <class Entry, class Priority>
class ReadyList {
 public:
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Returns the index at which the entry was inserted.
  std::size_t insert(Entry entry) {
    const std::size_t run = runIndex(Priority{}(entry));
    std::size_t runStart = 0;
    for (std::size_t i = 0; i < run; ++i) runStart += runs_[i].size();
    const std::size_t runEnd = runStart + runs_[run].size();
    // The binary search: an element before the run sorts first, one after it sorts last, and the
    // first probe inside the run is where the new entry goes.
    std::size_t lo = 0;
    std::size_t n = size();
    while (n > 0) {
      const std::size_t mid = lo + n / 2;
      if (mid < runStart) {
        lo = mid + 1;
        n = n - n / 2 - 1;
      } else if (mid >= runEnd) {
        n = n / 2;
      } else {
        lo = mid;
        break;
      }
    }
    if (lo < runStart) lo = runStart;  // only when the run is empty and the search ran off its left
    runs_[run].insert(lo - runStart, std::move(entry));
    ++size_;
    return lo;
  }

  // The first entry; a value-initialised entry when the list is empty.
  Entry front() const {
    for (const auto& run : runs_)
      if (!run.empty()) return run.front();
    return Entry{};
  }

  Entry popFront() {
    for (auto& run : runs_) {
      if (run.empty()) continue;
      --size_;
      return run.popFront();
    }
    return Entry{};
  }

  bool remove(const Entry& entry) {
    for (auto& run : runs_) {
      if (!run.remove(entry)) continue;
      --size_;
      return true;
    }
    return false;
  }

  template <class F>
  void forEach(F&& f) const {
    for (const auto& run : runs_) run.forEach(f);
  }

  void clear() {
    for (auto& run : runs_) run.clear();
    size_ = 0;
  }

  // Highest priority first.
  static std::size_t runIndex(std::int64_t priority) {
    if (priority >= ZTOperationQueuePriorityVeryHigh) return 0;
    if (priority >= ZTOperationQueuePriorityHigh) return 1;
    if (priority >= ZTOperationQueuePriorityNormal) return 2;
    if (priority >= ZTOperationQueuePriorityLow) return 3;
    return 4;
  }

 private:
  std::array<ChunkedSequence<Entry>, 5> runs_;
  std::size_t size_ = 0;
};

struct OperationPriority {
  std::int64_t operator()(const ZTOperation* operation) const { return operation->queuePriority(); }
};
using ReadyOperations = ReadyList<ZTOperation*, OperationPriority>;

}  // namespace zt::detail
