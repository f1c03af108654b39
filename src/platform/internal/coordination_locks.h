#pragma once
// The pieces of file coordination below the coordinator: how a claimed path is named, and the
// cross-process locks (open-file-description locks on one lock file per item in a per-user
// folder).
//
// Lock modes on an item's lock file (multiple-granularity locking with only shared and exclusive
// byte-range locks):
//   read of the item (S)          shared byte 0, exclusive byte r (r random, >= 1)
//   write of the item (X)         exclusive on the whole file range
//   read inside a folder (IS)     shared byte 0          (on every folder above a read item)
//   write inside a folder (IX)    shared bytes 1..end     (on every folder above a written item)
// which gives the classic table: S-S, S-IS, IS-IS, IS-IX, IX-IX compatible; X with nothing;
// S with IX not (the exclusive byte r lies in the IX range). Two readers choosing the same r
// only wait for each other; r is drawn from 2^40 values.
//
// Lock files are taken in the order of their paths, whole file by whole file, so two claims
// never wait for each other in a cycle.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/error.h"

namespace zt::internal {

// The absolute, cleaned-up form of a path under which it is claimed: relative paths are made
// absolute against the current folder; "//", "." and ".." are reduced; the longest existing
// folder above the item has its symbolic links resolved (realpath); the item's own last component
// is kept as written. nullopt for an empty path or one holding NUL.
std::optional<std::string> claimPath(std::string_view path);

// True when `inner` is `outer` or lies below it (both claim paths).
bool isSameOrInside(std::string_view outer, std::string_view inner);

// The folders above a claim path, from "/" down to the item's parent.
std::vector<std::string> foldersAbove(const std::string& path);

struct LockMode {
  bool exclusiveAll = false;  // X
  bool sharedItem = false;    // byte 0 shared (S, IS)
  bool sharedInner = false;   // bytes 1.. shared (IX)
  bool exclusiveMark = false; // byte `mark` exclusive (S)
  off_t mark = 0;

  void add(const LockMode& other);
};

struct LockRequest {
  std::string path;  // the claim path whose lock file is meant
  LockMode mode;
};

// The lock requests for claims on `items` (path, write?), merged per lock file and sorted in the
// global order.
std::vector<LockRequest> lockRequestsFor(const std::vector<std::pair<std::string, bool>>& items);

// The per-user lock folder, opened and checked; -1 when none can be used (logged once per
// folder). The descriptor stays open for the process; the answer follows $XDG_RUNTIME_DIR and
// $TMPDIR if they change.
int lockFolderDescriptor();
// In a forked child: forgets the cached folder (its lock may have been held by a thread that does
// not exist in the child).
void resetLockFolderAfterFork();
// The lock folder's path as lockFolderDescriptor() would use it now.
std::string lockFolderPath();
// The name of the lock file for a claim path inside the lock folder.
std::string lockFileName(const std::string& claimPath);

// Holds the cross-process locks of one claim; closing the descriptors releases them.
class HeldLocks {
 public:
  HeldLocks() = default;
  HeldLocks(HeldLocks&&) noexcept;
  HeldLocks& operator=(HeldLocks&&) noexcept;
  HeldLocks(const HeldLocks&) = delete;
  HeldLocks& operator=(const HeldLocks&) = delete;
  ~HeldLocks();

  enum class Step { Done, WouldBlock, Failed };
  // Takes the next locks of `requests` without waiting, starting where the last call stopped.
  // WouldBlock: the lock file at position held() is taken by someone else (this claim keeps the
  // locks before it); Failed: *error is set.
  Step tryAcquire(int folder, const std::vector<LockRequest>& requests, ZTError* error);
  std::size_t held() const { return fds_.size(); }
  void release();

 private:
  std::vector<int> fds_;
};

// Claims of this process that have been asked for and not yet granted inside the process (for
// tests that must know a claim is waiting).
std::size_t waitingClaimCount();

}  // namespace zt::internal
