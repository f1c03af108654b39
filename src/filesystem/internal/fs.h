#pragma once
// Small file-system questions shared by the filesystem sources. A path with an embedded NUL names
// nothing (the kernel would see a different, shorter path), so every helper answers "no" for it.

#include <string>
#include <string_view>

namespace zt::fs_internal {

// The path as a C string, or nullptr-equivalent (empty optional semantics): false when the path is
// empty or holds a NUL byte.
bool usablePath(std::string_view path);
// Any item at the path, symbolic links not followed (a dangling link counts as an item).
bool itemExists(std::string_view path);
// An item at the path, links followed, that is a folder.
bool isDirectory(std::string_view path);
// Whether an item exists and, if so, whether it is a folder (links followed, as a user sees it).
bool itemExists(std::string_view path, bool& isFolder);
// Creates the folder and any missing parents with the given mode (before umask). True when the
// folder exists afterwards (links followed); errno describes the failure otherwise.
bool createDirectories(std::string_view path, unsigned mode = 0777);

}  // namespace zt::fs_internal
