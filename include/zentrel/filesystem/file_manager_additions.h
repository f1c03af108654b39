#pragma once
// File-manager conveniences: attributes that see through packages and symbolic links, making sure a
// folder exists, and removing many items. Free functions taking the file manager first; they hold
// no state and may be called from any thread. Errors are the file manager's own (see
// zentrel/platform/file_manager.h), passed on unchanged.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/value.h"

// Attribute option: a package (a folder whose extension ZTIsPackageFileExtension knows) reports as
// its ZTFileModificationDate the latest modification date of any regular file inside it, when
// that is later than its own.
inline constexpr std::uint64_t ZTAttributesPackageModificationDateOption = 1;

namespace zt {

// The item's attributes (links not followed); with ZTAttributesPackageModificationDateOption in
// `options`, a package's date is the latest of its own and of every regular file inside. An entry
// inside whose attributes cannot be read is logged as
// "ERROR: Failed to get file attributes at path <package path><relative path>." (the two joined as
// they are) and passed over. Other option bits are ignored. nullopt with the file manager's error
// when the item's own attributes cannot be read.
[[nodiscard]] ZT_API std::optional<ZTValue> attributesOfItemAtPath(ZTFileManager& fileManager, std::string_view path,
                                                                   std::uint64_t options, ZTError* error = nullptr);

// The item's attributes (with package dates, link not followed) and, when the item is a symbolic
// link, those of the link's destination as stored (a relative destination is taken as the process
// would take it, not against the link's folder). False with the error when either cannot be read:
// a dangling link fails. On success `attributes` receives the item's and
// `linkDestinationAttributes` the destination's (nullopt when the item is not a link); either
// pointer may be null.
ZT_API bool loadAttributesOfItemAtPath(ZTFileManager& fileManager, std::string_view path,
                                       std::optional<ZTValue>* attributes,
                                       std::optional<ZTValue>* linkDestinationAttributes, ZTError* error = nullptr);

// Makes sure a folder exists at the path. An existing folder (or link to one) is success. An
// existing item of another kind fails after logging
// "failed to create directory at <path>, as regular file exists at the path." and leaves `error`
// untouched. Otherwise creates the folder and its missing parents; a failure logs
// "failed to create directory. error = <error description>". After a creation `error`, when
// given, receives its error, or is reset to an empty ZTError (code 0, no domain) when it succeeded.
ZT_API bool ensureDirectoryExistsAtPath(ZTFileManager& fileManager, std::string_view path, ZTError* error = nullptr);

// Removes each item in order with fileManager.removeItemAtPath. Any failure makes the result false,
// and `error` ends holding the last failure's error. With shouldFailAfterFirstError the removals
// stop at the first failure; otherwise the rest are still tried. No paths: true.
ZT_API bool removeItemsAtPaths(ZTFileManager& fileManager, const std::vector<std::string>& paths,
                               bool shouldFailAfterFirstError, ZTError* error = nullptr);

}  // namespace zt
