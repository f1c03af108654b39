#pragma once
// Temporary files, names and folders.
//
// They live in the library's private temporary folder (ZTTemporaryDirectory()): <$TMPDIR or
// /tmp>/zentrel-<euid>, mode 0700, checked before every use so that no other user can plant a link
// or a file where this process is about to write. Files are created exclusively (O_EXCL), never
// through a link (O_NOFOLLOW), close-on-exec, mode 0600. Names given by the caller must be single
// path components: one holding "/" or NUL, or that is "." or "..", is refused.
//
// Any thread. Nothing here throws.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/filesystem/file_descriptor.h"
#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

// A file this process has just created and holds open. The file stays on disk until the caller
// renames or removes it; the descriptor is closed when `descriptor` goes away.
struct ZTTemporaryFile {
  std::string path;
  ZTFileDescriptor descriptor;  // open for reading and writing
};

// Creates "<directory>/XXXXXX<suffix>" (the X replaced by random characters) and hands back its
// path and its only descriptor. An empty directory means the private temporary folder. nullopt,
// with a ZTPOSIXErrorDomain error, when the file cannot be created (missing or unwritable folder,
// a suffix that is not part of one name, a name too long for the file system).
// This is the form to use: unlike ZTTempName it keeps the name reserved and leaks nothing.
[[nodiscard]] ZT_API std::optional<ZTTemporaryFile> ZTTempFile(std::string_view directory, std::string_view suffix,
                                                               ZTError* error = nullptr);

// A name that was free a moment ago: the file is created as by ZTTempFile, then deleted, and its
// path returned. An empty directory means the private temporary folder, an empty suffix means
// none. When the file cannot be created the line
// "*** WARNING ZTTempName: can't create file at path <folder>/XXXXXX<suffix>" is logged and that
// template is returned as it stands (nothing is deleted).
// The creation's descriptor is deliberately left open (close-on-exec) for the life of the process,
// one per call, as the classic behaviour requires; prefer ZTTempFile, which hands it back.
// In a folder others may write (not the private one), the name may be taken again once it is free.
[[nodiscard]] ZT_API std::string ZTTempName(std::string_view directory, std::string_view suffix);
// "<temporary folder>/<new UUID>" plus "." and the extension when it is not empty. Creates nothing.
// The extension is appended as it stands.
[[nodiscard]] ZT_API std::string ZTTemporaryFilePathWithExtension(std::string_view extension);
// "<temporary folder>/<new UUID>/<fileName>"; the UUID folder is created (mode 0700, errors ignored)
// when createDirectory is true. nullopt when fileName is nullopt or not a single name ("a/b", "..").
[[nodiscard]] ZT_API std::optional<std::string> ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(
    const std::optional<std::string>& fileName, bool createDirectory);
// The same as a (non-folder) file URL.
[[nodiscard]] ZT_API std::optional<ZTFileURL> ZTURLToTemporaryUniqueDirectoryWithFileNamedInside(
    const std::optional<std::string>& fileName, bool createDirectory);
