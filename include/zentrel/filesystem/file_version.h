#pragma once
// ZTFileVersion: one version of a document. The current version is the document itself; the
// other versions are the conflict copies that sync clients leave beside it when the document was
// changed on two devices at once. Each copy is recognised by the name its client gives it:
//
//   client              conflict copy of "Report.pdf"                               saving computer
//   Syncthing           "Report.sync-conflict-20240305-140733-ABCDEFG.pdf"           "ABCDEFG" (short device id)
//   Nextcloud/ownCloud  "Report (conflicted copy 2024-03-05 140733).pdf"             none
//                       "Report (conflicted copy alice 2024-03-05 140733).pdf"       "alice"
//   (older clients)     "Report_conflict-20240305-140733.pdf"                        none
//   Dropbox             "Report (Bob's conflicted copy 2024-03-05).pdf"              "Bob"
//                       "Report (Bob's conflicted copy 2024-03-05) (2).pdf"          "Bob"
//
// The table works on the last extension ("a.tar.gz" has the stem "a.tar"); an item without an
// extension has copies without one. Dates inside names must be real calendar dates; a name that
// only looks like a pattern ("Report (conflicted copy 2024-13-45 999999).pdf") is not a copy.
//
// Listing reads the item's folder once (one readdir pass) and looks closer only at names that
// begin with the item's stem and end with its extension, so an item in a folder of thousands of
// unrelated files costs about one directory read.
//
// Resolved marks: a conflict copy marked resolved (setResolved(true), or by removal) leaves the
// conflict lists of every later listing in this process; the mark follows the file (device, inode
// and status-change time), not its name, and is lost when the file is renamed or its permissions
// change. Marks are not kept across processes.
//
// The version store: an application may also keep versions of its own (addVersionOfItemAtURL).
// They are copies kept under $XDG_DATA_HOME/zentrel/versions/<key of the item's path>/, listed in
// a property list (versions.plist) with their date, saving-computer name, conflict and resolved
// flags. The property list is rewritten whole (temporary file, fsync, rename) under a write claim
// of file coordination, so processes using the library update it one at a time. Stored versions
// are other versions of the item; those added as conflicts are conflict versions, and their
// resolved mark is kept in the store across processes. A stored version is keyed by the item's
// path: after the item moves, its stored versions are no longer found. An entry whose copy has
// vanished is skipped; an unreadable property list counts as an empty store and is replaced on
// the next change.
//
// Threads: versions are created by the listing functions and held by std::shared_ptr. All
// functions may be called from any thread; the resolved flag is guarded. Two versions are the same
// version when they name the same path (operator== compares paths), since every listing makes new
// objects.
//
// Bad input: a URL that is not a file URL, an empty or missing item, an unreadable folder give
// nullptr / an empty list, never an exception.
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/filesystem/file_url.h"
#include "zentrel/platform/date.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_coordinator.h"

// What a conflict-copy name says, when it is one: the client, the computer (device or user) that
// saved it, and the date written into the name.
struct ZT_API ZTConflictCopyName {
  std::string syncClient;                   // "Syncthing", "Nextcloud", "Dropbox"
  std::optional<std::string> deviceName;    // as written in the name
  ZTDate nameDate;                          // the date in the name, read in local time
};

// One version of a document: the document itself or a conflict copy a sync client left beside it.
class ZT_API ZTFileVersion : public std::enable_shared_from_this<ZTFileVersion> {
 public:
  // Whether `candidateName` is a conflict copy of the item named `itemName` (both bare file
  // names, UTF-8), and what its name says. nullopt for anything else, including the item's own name.
  [[nodiscard]] static std::optional<ZTConflictCopyName> parseConflictCopyName(std::string_view itemName,
                                                                               std::string_view candidateName);

  // The item itself, or nullptr when nothing is at the URL (or it is not a file URL).
  [[nodiscard]] static std::shared_ptr<ZTFileVersion> currentVersionOfItemAtURL(const ZTFileURL& url);
  // The conflict copies beside the item that are not marked resolved, sorted by name, then the
  // item's stored versions (but resolved stored conflicts) in the order they were added. Found
  // also when the item itself is gone. Empty when there are none or nothing can be read.
  [[nodiscard]] static std::vector<std::shared_ptr<ZTFileVersion>> otherVersionsOfItemAtURL(const ZTFileURL& url);
  // Those of the other versions that are conflicts.
  [[nodiscard]] static std::vector<std::shared_ptr<ZTFileVersion>> unresolvedConflictVersionsOfItemAtURL(
      const ZTFileURL& url);
  // Keeps a copy of the file at `contentsURL` in the version store as a version of the item at
  // `url` (which need not exist), dated with the contents' modification time. nullptr with a
  // ZTCocoaErrorDomain file error when the contents cannot be read or the store cannot be written;
  // nothing is half added.
  [[nodiscard]] static std::shared_ptr<ZTFileVersion> addVersionOfItemAtURL(
      const ZTFileURL& url, const ZTFileURL& contentsURL, const std::optional<std::string>& savingComputerName,
      bool isConflict, ZTError* error = nullptr);
  // The folder of the version store ($XDG_DATA_HOME/zentrel/versions, read at each call).
  [[nodiscard]] static std::string versionStoreDirectory();

  ZTFileVersion(const ZTFileVersion&) = delete;
  ZTFileVersion& operator=(const ZTFileVersion&) = delete;

  const ZTFileURL& URL() const { return url_; }
  // True for conflict copies and stored conflicts, false for the current version.
  bool isConflict() const { return conflict_.has_value() || storedConflict_; }
  // True for versions kept in the version store.
  bool isStored() const { return !storeEntry_.empty(); }
  bool isResolved() const;
  // Marks a conflict resolved (it leaves later listings) or not; for a stored version the mark
  // is written to the store (a failure to write it is logged). No effect on other versions.
  void setResolved(bool resolved);
  // The file's modification time when it was listed; nullopt if it could not be read.
  const std::optional<ZTDate>& modificationDate() const { return modificationDate_; }
  // The document's name: the item's own file name, also for its conflict copies.
  const std::string& localizedName() const { return localizedName_; }
  // The device or user the conflict copy's name names; nullopt for the current version and for
  // copies whose client does not write one.
  std::optional<std::string> localizedNameOfSavingComputer() const;
  // For conflict copies beside the item: what the name says (nullopt for stored versions).
  const std::optional<ZTConflictCopyName>& conflictCopyName() const { return conflict_; }

  // Writes this version's contents over the item at `url` (or creates it), under a read claim on
  // this version and a write claim for replacing on `url`, taken together from `fileCoordinator`
  // (a fresh coordinator when null). The contents go to a hidden temporary file beside the target,
  // are flushed to disk with the version's permissions and renamed into place, and the folder is
  // flushed: a reader sees the old item or the new one, never a mix. Replacing an item with itself
  // does nothing. Options are accepted and unused. Returns `url`, or nullopt with a
  // ZTCocoaErrorDomain file error (the version vanished: ZTFileReadNoSuchFileError; the target's
  // folder is missing or read-only: the write codes) and no temporary file left behind.
  [[nodiscard]] std::optional<ZTFileURL> replaceItemAtURL(const ZTFileURL& url, std::uint64_t options = 0,
                                                          ZTError* error = nullptr,
                                                          const std::shared_ptr<ZTFileCoordinator>& fileCoordinator = nullptr);
  // Removes a conflict copy or a stored version by moving its file to the freedesktop trash (with
  // its .trashinfo), so the desktop's trash can give it back; see zentrel/filesystem/trash.h. A
  // stored version also leaves the store's list. Takes no coordination claim on the version:
  // callers that coordinate hold a write claim for deleting around it. The current version cannot
  // remove itself: false with ZTFileWriteNoPermissionError. A copy that has vanished: false with
  // the trash's ZTPOSIXErrorDomain error (ENOENT).
  bool removeAndReturnError(ZTError* error = nullptr);

  // "<ZTFileVersion: /path/to/file>" for log lines; conflict copies add " conflict".
  std::string description() const;

  friend bool operator==(const ZTFileVersion& a, const ZTFileVersion& b) { return a.url_.path() == b.url_.path(); }

  struct Impl;

 private:
  ZTFileVersion() = default;
  friend struct Impl;
  ZTFileURL url_;
  std::string localizedName_;
  std::optional<ZTDate> modificationDate_;
  std::optional<ZTConflictCopyName> conflict_;
  std::uint64_t device_ = 0;
  std::uint64_t inode_ = 0;
  std::int64_t changeNanoseconds_ = 0;
  bool identityKnown_ = false;
  // Stored versions: the store folder's entry name, the saving computer and flags.
  std::string storeEntry_;
  std::string storedItemPath_;
  std::optional<std::string> storedSavingComputer_;
  bool storedConflict_ = false;
  std::atomic<bool> storedResolved_{false};
};
