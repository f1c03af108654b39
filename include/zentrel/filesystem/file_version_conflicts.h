#pragma once
// Resolving the conflicting versions of a document (see file_version.h for what a version is):
// listing them, removing conflict copies, saving a conflict copy over the document or beside it
// under a readable name such as "Report (ABCDEFG 2024-03-05 14-07-33).pdf", and running a whole
// resolution chosen by the user (keep these, delete those) in the background with reports on the
// main run loop.
//
// Removal is recoverable: a removed conflict copy goes to the freedesktop trash with its
// .trashinfo (zentrel/filesystem/trash.h), and so does the document itself when the default
// remove-current handler removes it, so the desktop's trash can give either back. This matters
// because a conflict copy is removed after it was saved whatever became of the save.
//
// Threads: every function but resolveConflictsForItemAtURL runs synchronously on the calling
// thread, holds no state and may be called from any thread. Coordinated steps block until their
// claims are granted.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/filesystem/file_version.h"
#include "zentrel/platform/date.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_coordinator.h"

using ZTFileVersionList = std::vector<std::shared_ptr<ZTFileVersion>>;

// Removes the document itself when the resolution keeps no version. Runs on the flow's background
// thread. Returns false and fills the error when it could not.
using ZTRemoveCurrentVersionHandler = std::function<bool(const ZTFileURL& itemURL, ZTError* error)>;
// Reports one finished step: how many steps are done, the total fixed at the start, the URL a
// version was saved at (nullopt for a removal), and a stop flag preset to false.
using ZTResolveConflictsProgressHandler = std::function<void(std::uint64_t processedVersionsCount,
                                                             std::uint64_t totalVersionsCount,
                                                             const std::optional<ZTFileURL>& savedVersionURL,
                                                             bool* stop)>;
// The flow ended well: the total and the version now at the document's URL.
using ZTResolveConflictsCompletionHandler =
    std::function<void(std::uint64_t totalVersionsCount, const std::shared_ptr<ZTFileVersion>& version)>;
// The flow ended on an error: the version that failed (null only when the save folder could not be
// created) and the error (empty, code 0, when a version to delete was not a conflict version or
// the claim on it could not be had).
using ZTResolveConflictsErrorHandler =
    std::function<void(const std::shared_ptr<ZTFileVersion>& failedFileVersion, const ZTError& error)>;

namespace zt {

// The version with the latest modification date among all versions of the item; on equal dates
// the one met first stays. Versions without a date are skipped. nullptr when there is none.
[[nodiscard]] ZT_API std::shared_ptr<ZTFileVersion> latestVersionOfItemAtURL(const ZTFileURL& url);
// The current version (when the item exists) and every unresolved conflict copy, each once, in no
// defined order.
[[nodiscard]] ZT_API ZTFileVersionList allVersionsOfItemAtURL(const ZTFileURL& url);

// Removes one conflict copy (to the trash) under a write claim for deleting on it, from
// `fileCoordinator` or a fresh one, and marks it resolved. A null version, one without a URL, or
// one that is not a conflict: false, and `error` is left untouched. Otherwise `error`, when given,
// receives the removal's error, or an empty ZTError when the removal succeeded or never ran (the
// claim could not be had: then the result is false and the claim's error is not kept).
ZT_API bool removeConflictFileVersion(const std::shared_ptr<ZTFileVersion>& version,
                                      const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                      ZTError* error = nullptr);
// Removes each in order and stops at the first failure (false). An empty list answers false: the
// caller asked to remove something and nothing was removed.
ZT_API bool removeConflictFileVersions(const ZTFileVersionList& versions,
                                       const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                       ZTError* error = nullptr);

// Writes a conflict copy over `url` (ZTFileVersion::replaceItemAtURL under the coordinator), then,
// whatever became of that, removes the copy as removeConflictFileVersion does. The URL written,
// or nullopt when the write or the removal failed, or the version is not a conflict copy. `error`
// receives the write's error (empty on success).
[[nodiscard]] ZT_API std::optional<ZTFileURL> resolveConflictFileVersion(
    const std::shared_ptr<ZTFileVersion>& version, const ZTFileURL& url,
    const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, ZTError* error = nullptr);
// Saves each version that has a URL into the folder `folderURL`, under
// fileNameForConflictFileFromFileVersion made unique with macStyleUniqueURL, and removes it as
// above. The saved URLs in order; nullopt once any failed (later versions are still processed).
// `error` receives the last failure's error.
[[nodiscard]] ZT_API std::optional<std::vector<ZTFileURL>> resolveConflictFileVersions(
    const ZTFileVersionList& versions, const ZTFileURL& folderURL,
    const std::shared_ptr<ZTFileCoordinator>& fileCoordinator, ZTError* error = nullptr);

// Runs a resolution in the background and returns at once. The handlers are copied and released
// when the flow ends; a null removeCurrentVersionHandler means "move the document to the trash".
// On ZTDispatchQueue::global():
//   1. total = savingVersions.size() + deletingVersions.size(), fixed.
//   2. With two or more versions to save, parentURLToSaveTo is created with its parents; on
//      failure: log "createDirectoryAtURL error %@", report the error with no version, end.
//   3. What stays at the item's URL: the current version if it is among savingVersions (nothing is
//      written); else the first version to save, written over the item (log "resolveConflictFileVersion
//      versionToSave: %@ url %@ error %@" on failure) and the current version dropped from the
//      removals; else (nothing to save) removeCurrentVersionHandler runs and the current version is
//      dropped from the removals. A failure is reported with that version and ends the flow.
//   4. Progress (1, total, item URL).
//   5. Each other version to save goes under parentURLToSaveTo with its conflict file name made
//      unique; progress (processed, total, saved URL); on failure log "resolveConflictFileVersion
//      version: %@ urlToSaveTo %@ error %@", report, end.
//   6. Each version to delete is removed as removeConflictFileVersion does; progress (processed,
//      total, nullopt); on failure log "resolveConflictFileVersion version: %@ error %@", report,
//      end. The processed count may exceed the total (the first step counts as one besides the
//      listed versions).
//   7. Completion (total, kept version), asynchronously on the main run loop.
// Progress runs synchronously on the main run loop (ZTRunLoop::main()): the flow waits for it, so
// the caller must return to, or keep turning, the main loop; a main thread that blocks waiting for
// the flow never sees it end. Setting *stop ends the flow with no completion call. Error reports
// are asynchronous on the main run loop, after any progress before them. After an error or a stop,
// what was saved or removed stays so. The remove-current handler runs on the background thread.
// A handler that throws is logged with ZTLog: a throwing progress handler counts as not stopping,
// a throwing remove-current handler as a failure (ZTFileWriteUnknownError); the flow goes on to
// keep these promises.
ZT_API void resolveConflictsForItemAtURL(const ZTFileURL& url, const ZTFileVersionList& savingVersions,
                                         const ZTFileVersionList& deletingVersions, const ZTFileURL& parentURLToSaveTo,
                                         const std::shared_ptr<ZTFileCoordinator>& fileCoordinator,
                                         ZTRemoveCurrentVersionHandler removeCurrentVersionHandler,
                                         ZTResolveConflictsProgressHandler progressHandler,
                                         ZTResolveConflictsCompletionHandler completionHandler,
                                         ZTResolveConflictsErrorHandler errorHandler);

// Runs the handler synchronously on the main run loop and answers its stop flag; false for an
// empty handler. From the main thread it runs at once. The caller is blocked meanwhile.
ZT_API bool invokeProgressHandlerOnMainQueue(const ZTResolveConflictsProgressHandler& progressHandler,
                                             std::uint64_t processedVersionsCount, std::uint64_t totalVersionsCount,
                                             const std::optional<ZTFileURL>& savedVersionURL);
// Posts the handler to the main run loop; nothing for an empty handler.
ZT_API void invokeErrorHandlerOnMainQueue(const ZTResolveConflictsErrorHandler& errorHandler,
                                          const std::shared_ptr<ZTFileVersion>& failedFileVersion,
                                          const ZTError& error);

// "<stem> (<device> <date>).<ext>" from the version's localized name, saving computer and date.
[[nodiscard]] ZT_API std::string fileNameForConflictFileFromFileVersion(const ZTFileVersion& version);
// The same with another file name.
[[nodiscard]] ZT_API std::string fileNameForConflictFileName(std::string_view fileName, const ZTFileVersion& version);
// The date is written with ICU in the "en_US" locale and the pattern "YYYY-MM-dd HH-mm-ss" in the
// local time zone ("YYYY" is the week-based year: 2024-12-30 prints as 2025). The device name is
// passed through the BMP filter below; without one the name is "<stem> (<date>).<ext>". Without a
// date the date text is "(null)". A name without an extension gets none.
[[nodiscard]] ZT_API std::string fileNameForConflictFileName(std::string_view fileName,
                                                             const std::optional<std::string>& deviceName,
                                                             const std::optional<ZTDate>& modificationDate);
// Keeps the user-perceived characters (ICU grapheme clusters) that are one UTF-16 code unit long:
// emoji and other characters beyond the Basic Multilingual Plane go, and so does a letter written
// with a combining mark (a precomposed "ü" stays, "u" + U+0308 goes). Invalid UTF-8 is read with
// replacement characters.
[[nodiscard]] ZT_API std::string stringByLeavingOnlyBasicMultilingualPlaneCharactersInString(std::string_view text);

// ZTGenerateMacStyleUniquePath(path, false) (zentrel/filesystem/unique_names.h): "a.txt", else
// "a-1.txt", "a-2.txt"...; for a file URL, on its path.
[[nodiscard]] ZT_API std::string macStyleUniquePath(const std::string& path);
[[nodiscard]] ZT_API ZTFileURL macStyleUniqueURL(const ZTFileURL& url);

}  // namespace zt
