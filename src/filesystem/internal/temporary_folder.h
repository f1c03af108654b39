#pragma once
// The library's private temporary folder, and exclusive creation of unique files.
//
// The folder is <base>/zentrel-<euid>, base being $TMPDIR when it holds an absolute path and /tmp
// otherwise. It is created with mode 0700 and, before every use, opened without following links
// and checked: a folder (not a link), owned by the effective user, with no access for group or
// others. A folder that fails the checks was made by someone else (or tampered with) and is never
// used: the library logs that once and turns to $XDG_RUNTIME_DIR/zentrel (same checks), then to a
// fresh folder of its own, <base>/zentrel-<euid>-XXXXXX (mkdtemp), kept for the rest of the process.
// Files are then created relative to the checked descriptor, so a link swapped in afterwards
// cannot redirect them.
//
// Any thread; the fallback folders and the "already logged" set are guarded by one lock.

#include <optional>
#include <string>
#include <string_view>

#include "filesystem/internal/xdg_dirs.h"
#include "zentrel/filesystem/file_descriptor.h"
#include "zentrel/platform/error.h"

namespace zt::fs_internal {

// $TMPDIR without trailing slashes when it is an absolute path, else "/tmp".
std::string temporaryBase(const EnvironmentLookup& env);

struct OpenFolder {
  std::string path;
  ZTFileDescriptor descriptor;  // O_DIRECTORY | O_NOFOLLOW, checked
};

// The private folder to use now; nullopt (error set) when no private folder can be made at all.
std::optional<OpenFolder> openPrivateTemporaryFolder(const EnvironmentLookup& env, ZTError* error);
// The path of that folder, or the intended <base>/zentrel-<euid> when none can be made.
std::string privateTemporaryFolderPath(const EnvironmentLookup& env);

// True when `name` can be one path component: not empty, no "/" or NUL, not "." or "..".
bool isSingleName(std::string_view name);

// Creates a new file "<prefix><6 random characters><suffix>" in the folder open at
// `folderDescriptor` with O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC and mode 0600, trying
// at most 100 names. On success sets `name` to the file's name and returns its descriptor; on
// failure returns an empty handle with errno set (EEXIST when every name tried was taken).
ZTFileDescriptor createUniqueFile(int folderDescriptor, std::string_view prefix, std::string_view suffix,
                                  std::string& name);

}  // namespace zt::fs_internal
