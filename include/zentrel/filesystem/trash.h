#pragma once
// Moving items to the desktop's trash, following the freedesktop.org trash rules, so that
// the file manager lists them and can put them back.
//
// An item on the same file system as the home trash (ZTTrashDirectory(): $XDG_DATA_HOME/Trash)
// goes there. An item on another file system goes to the trash of that file system's top folder:
// $topdir/.Trash/<uid> when an administrator has prepared $topdir/.Trash (a real folder, not a
// link, with the sticky bit set), else $topdir/.Trash-<uid> (made with mode 0700; used only when it
// is a real folder of this user that nobody else may enter). Items are never copied across file
// systems: when neither place can be used the move fails with EXDEV.
//
// For each item, the entry info/<name>.trashinfo is written first, created exclusively (O_EXCL);
// the item is then renamed to files/<name>, never replacing anything there. <name> is the item's
// own name, or "<stem>.<n><.ext>" (n = 2, 3, ...) when that is taken, shortened when needed so the
// entry's name fits the file system's 255 bytes. The entry records
//   [Trash Info]
//   Path=<the original path, percent-encoded; relative to $topdir in a top-folder trash>
//   DeletionDate=<local time, YYYY-MM-DDThh:mm:ss>
// and is flushed to disk before the item moves. If anything fails, the entry is removed again and
// the item stays where it was: nothing is half done. A symbolic link is trashed as a link.
//
// Any thread; concurrent moves (from this or other processes) never take the same name.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

namespace zt {

// Moves the item at `path` (a file, a folder with its contents, a link) to the trash and answers
// where it now is (".../Trash/files/<name>"). nullopt with a ZTPOSIXErrorDomain error when it
// cannot: ENOENT (nothing there), EINVAL (an empty path, a path with NUL, "/", a path ending in "."
// or "..", or an item that is already in the trash), EXDEV (another file system without a usable
// trash), or what the file system reported (EACCES, EROFS, ENOSPC...).
[[nodiscard]] ZT_API std::optional<std::string> moveItemToTrash(std::string_view path, ZTError* error = nullptr);

}  // namespace zt
