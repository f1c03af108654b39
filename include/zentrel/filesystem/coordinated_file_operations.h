#pragma once
// File-manager operations under file coordination: each takes the claim its operation needs on the
// items (see zentrel/platform/file_coordinator.h), runs the plain file-manager operation inside it
// on the locations the claim hands back (an item moved while the claim waited is found at its new
// place), and releases the claim. Code in this process and other programs using the library that
// coordinate on the same items never see the operation half done, and file presenters hear of
// the changes.
//
// Every function blocks the calling thread until the claim is granted and the operation is done;
// the operation runs on the calling thread. Any thread; the functions hold no state. A caller may
// pass its own coordinator (one acting for a presenter, say, so that presenter is not told of its
// own changes, or one it wants to be able to cancel) and share it across calls; with none (nullptr,
// or the short forms) each call makes a fresh coordinator without a presenter.
//
// Results: true (or the attributes) on success. On failure the error out-parameter, when given,
// receives the coordinator's error when the claim could not be had (cancelled, timed out, a bad
// path), otherwise the file manager's error, unchanged. Nothing throws on bad input; an exception
// from the file manager's delegate is handled by the file manager (ZTUserCancelledError).
//
// Options: an unsigned bit set. Only bit 0 (value 1) has a meaning, given per function; other bits
// are ignored.

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_coordinator.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/value.h"

// Bit 0 of the options: for removal, a missing item is a failure; for move and copy, an existing
// destination is removed first.
inline constexpr std::uint64_t ZTCoordinatedOperationOption = 1;

namespace zt {

// Whether an item exists at the path, asked of the default file manager (not `fileManager`) under
// a read claim (without changes) of a fresh coordinator. `isDirectory`, when given, is set only
// when the claim was had. A claim that cannot be had answers false; there is no error report.
ZT_API bool coordinatedFileExistsAtPath(ZTFileManager& fileManager, std::string_view path, bool* isDirectory = nullptr);

// The item's attributes (fileManager.attributesOfItemAtPath, links not followed) under a read
// claim for immediately available metadata. `error`, when given, is always written: the
// coordinator's error, else the file manager's, else an empty ZTError (code 0) on success.
[[nodiscard]] ZT_API std::optional<ZTValue> attributesOfItemAtPathWithCoordination(ZTFileManager& fileManager,
                                                                                   std::string_view path,
                                                                                   ZTError* error = nullptr);
[[nodiscard]] ZT_API std::optional<ZTValue> attributesOfItemAtPathWithCoordination(
    ZTFileManager& fileManager, std::string_view path, const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
    ZTError* error);

// zt::ensureDirectoryExistsAtPath (zentrel/filesystem/file_manager_additions.h), run whole under a
// write claim for replacing on the path. When it fails because another kind of item is there (it
// logs and gives no error), `error` receives an empty ZTError.
ZT_API bool ensureDirectoryExistsAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                                        ZTError* error = nullptr);
ZT_API bool ensureDirectoryExistsAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                                        const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                        ZTError* error);

// Removes the item under a write claim for deleting. Without option bit 0, a missing item (nothing
// at the path, not even a dangling symbolic link) is success and nothing is done; with it, the
// removal is tried and fails with the file manager's error.
ZT_API bool removeItemAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path, ZTError* error = nullptr);
ZT_API bool removeItemAtPathWithCoordination(ZTFileManager& fileManager, std::string_view path,
                                             const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                             std::uint64_t options, ZTError* error);

// Moves the item under write claims on the source (for moving) and the destination (for
// replacing), taken together. Inside the claims: the coordinator is told itemAtURLWillMoveToURL;
// with option bit 0 an item at the destination is removed first (if that fails, the move is not
// tried and the removal's error is reported); then fileManager.moveItemAtPath, and on success the
// coordinator is told itemAtURLDidMoveToURL, so claims waiting on the source follow it and
// presenters hear of the move. Without bit 0 an existing destination fails the move
// (ZTFileWriteFileExistsError). The path forms make file URLs of their paths and call the URL
// form; a URL that is not a file URL fails with the coordinator's invalid-name error.
ZT_API bool moveItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                             std::string_view destinationPath, ZTError* error = nullptr);
ZT_API bool moveItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                             std::string_view destinationPath,
                                             const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                             std::uint64_t options, ZTError* error);
ZT_API bool moveItemWithCoordinationFromURL(ZTFileManager& fileManager, const ZTFileURL& sourceURL,
                                            const ZTFileURL& destinationURL,
                                            const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                            std::uint64_t options, ZTError* error);

// Copies the item under a read claim on the source (without changes) and a write claim on the
// destination (for replacing), taken together. With option bit 0 an item at the destination is
// removed first (if that fails, the copy is not tried and the removal's error is reported);
// without it an existing destination fails the copy (ZTFileWriteFileExistsError).
ZT_API bool copyItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                             std::string_view destinationPath, ZTError* error = nullptr);
ZT_API bool copyItemWithCoordinationFromPath(ZTFileManager& fileManager, std::string_view sourcePath,
                                             std::string_view destinationPath,
                                             const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                             std::uint64_t options, ZTError* error);

// fileManager.contentsEqualAtPath under a read claim (without changes) on the first path only; the
// second path is compared as given, uncoordinated. False when the claim cannot be had (then
// `error`, when given, receives the coordinator's error) or the contents differ (no error).
ZT_API bool contentsEqualAtPathAndPathWithCoordination(ZTFileManager& fileManager, std::string_view path1,
                                                       std::string_view path2);
ZT_API bool contentsEqualAtPathAndPathWithCoordination(ZTFileManager& fileManager, std::string_view path1,
                                                       std::string_view path2,
                                                       const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                                       ZTError* error);

}  // namespace zt
