#pragma once
// Temporary names and folders under ZTTemporaryDirectory(). Any thread.

#include <optional>
#include <string>
#include <string_view>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/export.h"

// A name that was free a moment ago: "<directory>/XXXXXX<suffix>" is created with the six X
// replaced by random characters (the suffix kept), then deleted, and its path returned. An empty
// directory means the temporary folder, an empty suffix means none. When the file cannot be
// created the line "*** WARNING ZTTempName: can't create file at path <template>" is logged and the
// template is returned as it stands (nothing is deleted). The creation's descriptor stays open (close-on-exec).
[[nodiscard]] ZT_API std::string ZTTempName(std::string_view directory, std::string_view suffix);
// "<temporary folder>/<new UUID>" plus "." and the extension when it is not empty. Creates nothing.
[[nodiscard]] ZT_API std::string ZTTemporaryFilePathWithExtension(std::string_view extension);
// "<temporary folder>/<new UUID>/<fileName>"; the UUID folder is created (errors ignored) when
// createDirectory is true. nullopt when fileName is nullopt.
[[nodiscard]] ZT_API std::optional<std::string> ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(
    const std::optional<std::string>& fileName, bool createDirectory);
// The same as a (non-folder) file URL.
[[nodiscard]] ZT_API std::optional<ZTFileURL> ZTURLToTemporaryUniqueDirectoryWithFileNamedInside(const std::optional<std::string>& fileName,
                                                                            bool createDirectory);
