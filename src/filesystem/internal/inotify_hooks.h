#pragma once
// A seam for tests of the file-change watcher: replaces inotify_add_watch, so that failures the
// machine cannot be made to produce safely (the per-user watch limit, ENOSPC, is shared with every
// other process of the user) can be exercised. Not for production use; main thread only.

#include <cstdint>
#include <functional>

namespace zt::filesystem_internal {

// (inotify descriptor, path, mask) -> watch descriptor, or -1 with errno set.
using InotifyAddWatchFunction = std::function<int(int, const char*, std::uint32_t)>;
// An empty function restores the system call.
void setInotifyAddWatchForTesting(InotifyAddWatchFunction function);

}  // namespace zt::filesystem_internal
