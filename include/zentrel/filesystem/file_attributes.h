#pragma once
// Inode change date and the exclude-from-backup mark of a file. Any thread; never throws.
//
// The backup mark is the freedesktop extended attribute "user.xdg.robots.backup": the value
// "false" excludes the file from backups; no attribute (or any other value) includes it. Backup
// tools that follow the freedesktop attribute conventions honour it. A file system without user
// extended attributes cannot hold the mark.
//
// An empty path stands for "no path".

#include <cstdint>
#include <optional>
#include <string_view>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"

// The status-change time (ctime) of the item, in whole seconds; nullopt when it cannot be read.
[[nodiscard]] ZT_API std::optional<ZTDate> ZTUnixChangeDateForFile(std::string_view path);

// Marks (skip = true) or unmarks the item as excluded from backups. 1 on success, 0 when the mark
// cannot be written (missing item, no permission, no extended attributes), -1 for an empty path
// (after logging "file == nil in ZTSkipMobileBackupAttributeForFile, attribute = <skip>").
[[nodiscard]] ZT_API std::int64_t ZTSkipMobileBackupAttributeForFile(std::string_view path, bool skip);
// Whether the item carries the exclude mark; false for an empty path or when it cannot be read.
ZT_API bool ZTHasSkipMobileBackupAttributeForFile(std::string_view path);
