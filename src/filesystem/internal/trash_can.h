#pragma once
// The freedesktop trash rules behind trash.h, with the places passed in so the tests can use
// folders of their own.

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/error.h"

namespace zt::fs_internal {

// A trash: the folder that holds files/ and info/.
struct TrashCan {
  std::string root;
  // The folder the entries' Path values are relative to (a top folder), or empty for absolute
  // paths (the home trash).
  std::string topdir;
  // A trash on a shared file system: files/ and info/ are opened without following links.
  bool shared = false;
};

// The trash of the top folder `topdir` for user `uid`: $topdir/.Trash/<uid> when $topdir/.Trash is
// a real folder with the sticky bit, else $topdir/.Trash-<uid> when it is (or can be made) a real
// folder of `uid` with no access for others. Both get files/ and info/ (mode 0700). nullopt when
// neither can be used.
std::optional<TrashCan> topFolderTrash(const std::string& topdir, uid_t uid);

// The top folder of the file system holding the folder `realFolder` (a path without links): the
// highest folder above it on the same device.
std::string mountPointOf(const std::string& realFolder);

// A Path value: every byte percent-encoded except letters, digits, "-", ".", "_", "~" and "/".
std::string percentEncodedPath(std::string_view path);
// The text of a .trashinfo entry, with `when` written in local time.
std::string trashInfo(std::string_view encodedPath, std::time_t when);

// Moves the item to the home trash `homeTrash` (made already; nullopt when it could not be made) or,
// when the item is on another file system, to that file system's top-folder trash.
std::optional<std::string> moveItemToTrash(std::string_view path, const std::optional<std::string>& homeTrash,
                                           ZTError* error);

}  // namespace zt::fs_internal
