#pragma once
// Reading and writing the crash guard's files: XML property lists through libplist, written whole.

#include <optional>
#include <string>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/value.h"

namespace zt::crashguard_internal {

// Files larger than this are not read: a crash log holds a few records.
inline constexpr std::size_t kMaximumFileSize = 16u << 20;

// The bytes of a regular file (links followed); nullopt with an error when missing, not a regular
// file, larger than kMaximumFileSize or unreadable.
std::optional<std::vector<char>> readWholeFile(const std::string& path, ZTError* error);

// The root dictionary of an XML (or binary) property list; nullopt when the bytes are not one or the
// root is not a dictionary.
std::optional<ZTValueDictionary> dictionaryFromPropertyList(const std::vector<char>& bytes);
std::string xmlPropertyList(const ZTValueDictionary& dictionary);

// Replaces the file at path with the bytes: a temporary file beside it (O_EXCL, mode 0600), written
// whole, fsync, rename over the path, fsync of the folder. The folder and its missing parents are
// created (mode 0700). On failure the old file is untouched and the temporary file removed.
bool writeFileAtomically(const std::string& path, const std::string& bytes, ZTError* error);

bool fileExists(const std::string& path);
bool createDirectories(const std::string& path, ZTError* error);
// Removes the path and everything under it (links are removed, not followed); missing is success.
bool removeTree(const std::string& path, ZTError* error);
// Removes one file; missing is a failure (ENOENT).
bool removeFile(const std::string& path, ZTError* error);

}  // namespace zt::crashguard_internal
