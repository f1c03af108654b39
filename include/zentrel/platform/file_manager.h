#pragma once
// ZTFileManager: the library's file manager — existence, attributes, folders, copy, move, remove,
// links, contents comparison and deep enumeration, with a delegate that may veto each item.
//
// Paths are byte strings, as Linux keeps them: a name that is not valid UTF-8 is used byte for
// byte, never converted or rejected. A path that is empty or holds a NUL byte names nothing: the
// call fails with ZTFileNoSuchFileError (empty) or an invalid-file-name error (NUL).
//
// Failures are ZTErrors in ZTCocoaErrorDomain with the file codes below. Their user info holds the
// system's text as ZTLocalizedDescriptionKey, the path as ZTFilePathErrorKey (and the destination
// as ZTDestinationFilePathErrorKey for two-path operations) and, when a system call failed, the
// ZTPOSIXErrorDomain error under ZTUnderlyingErrorKey (read it with ZTError::underlyingError()),
// so a caller can test either the file code or the errno value. Questions and the source side of a
// copy or link use the read codes (a missing item is ZTFileReadNoSuchFileError, 260); changes use
// the write codes (a missing item is ZTFileNoSuchFileError, 4). Nothing throws on bad input or on
// a file system that changes underneath: a file that vanishes during a walk is left out, a folder
// that cannot be read fails the operation (or, for enumeration, goes to the error handler).
//
// Nothing half-done is left where a user finds it: a copy is built under a hidden temporary name
// beside the destination (a folder as a whole tree) and renamed into place at the end; on failure
// the temporary item is removed. Copy, move and link never replace an existing destination: they
// fail with ZTFileWriteFileExistsError, also when the destination appears while the copy runs.
//
// Threads: every method may be called from any thread, concurrently; the manager holds no state
// besides its delegate. The delegate is asked on the thread that called the operation.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

// File error codes of ZTCocoaErrorDomain.
enum : std::int64_t {
  ZTFileNoSuchFileError = 4,
  ZTFileLockingError = 255,
  ZTFileReadUnknownError = 256,
  ZTFileReadNoPermissionError = 257,
  ZTFileReadInvalidFileNameError = 258,
  ZTFileReadCorruptFileError = 259,
  ZTFileReadNoSuchFileError = 260,
  ZTFileReadTooLargeError = 263,
  ZTFileWriteUnknownError = 512,
  ZTFileWriteNoPermissionError = 513,
  ZTFileWriteInvalidFileNameError = 514,
  ZTFileWriteFileExistsError = 516,
  ZTFileWriteOutOfSpaceError = 640,
  ZTFileWriteVolumeReadOnlyError = 642,
  ZTUserCancelledError = 3072,
};

// The destination path of a failed two-path operation, in an error's user info.
inline constexpr const char* ZTDestinationFilePathErrorKey = "NSDestinationFilePath";

// Keys of the attribute dictionary (a ZTValue dictionary).
inline constexpr const char* ZTFileType = "NSFileType";                          // one of the types below
inline constexpr const char* ZTFileSize = "NSFileSize";                          // unsigned, bytes
inline constexpr const char* ZTFileModificationDate = "NSFileModificationDate";  // ZTDate
inline constexpr const char* ZTFileCreationDate = "NSFileCreationDate";  // ZTDate; only where the file system keeps it
inline constexpr const char* ZTFilePosixPermissions = "NSFilePosixPermissions";  // unsigned, e.g. 0644
inline constexpr const char* ZTFileReferenceCount = "NSFileReferenceCount";      // unsigned, hard links
inline constexpr const char* ZTFileSystemNumber = "NSFileSystemNumber";          // unsigned, device id
inline constexpr const char* ZTFileSystemFileNumber = "NSFileSystemFileNumber";  // unsigned, inode
inline constexpr const char* ZTFileOwnerAccountID = "NSFileOwnerAccountID";      // unsigned, uid
inline constexpr const char* ZTFileGroupOwnerAccountID = "NSFileGroupOwnerAccountID";  // unsigned, gid
inline constexpr const char* ZTFileOwnerAccountName = "NSFileOwnerAccountName";  // text, when the uid has a name
inline constexpr const char* ZTFileGroupOwnerAccountName = "NSFileGroupOwnerAccountName";  // text, when known

// Values of ZTFileType.
inline constexpr const char* ZTFileTypeRegular = "NSFileTypeRegular";
inline constexpr const char* ZTFileTypeDirectory = "NSFileTypeDirectory";
inline constexpr const char* ZTFileTypeSymbolicLink = "NSFileTypeSymbolicLink";
inline constexpr const char* ZTFileTypeSocket = "NSFileTypeSocket";
inline constexpr const char* ZTFileTypeCharacterSpecial = "NSFileTypeCharacterSpecial";
inline constexpr const char* ZTFileTypeBlockSpecial = "NSFileTypeBlockSpecial";
inline constexpr const char* ZTFileTypeUnknown = "NSFileTypeUnknown";  // named pipes and anything else

// Whether a question about a path is answered for a symbolic link itself or for what it points to.
enum class ZTLinkTraversal { Follow, DontFollow };

// A file error for an errno value: the ZTCocoaErrorDomain code for it (ENOENT: no such file, EEXIST:
// file exists, EACCES/EPERM: no permission, ENOSPC/EDQUOT: out of space, EROFS: read-only volume,
// ENAMETOOLONG/EILSEQ: invalid file name, others: unknown), reading or writing flavour as asked,
// with the POSIX error underneath and the path(s) in the user info. `forReading` selects the
// read codes (257, 258, 260, 256) instead of the write ones (513, 514, 4, 512).
[[nodiscard]] ZT_API ZTError ZTFileErrorWithPOSIXCode(int errnoValue, std::string_view path, bool forReading = false,
                                                      std::string_view destinationPath = {});

class ZTDirectoryEnumerator;

// Existence, attributes, folders, copy, move, remove, links and enumeration of files.
class ZT_API ZTFileManager : public std::enable_shared_from_this<ZTFileManager> {
 public:
  // Decides, item by item, whether an operation touches it. Every method is optional and says
  // "yes" by default. Copy and link ask for each item of a folder tree, parents first (the source
  // and the destination it would get); a "no" skips that item and, for a folder, everything inside
  // it. Remove asks for each item, parents first; a "no" keeps that item and everything inside
  // it (and so its parent folders). Move asks once, for the top item. A "no" is not a failure:
  // the operation returns true for what it was allowed to do.
  //
  // A method that throws cancels the operation: the exception is logged with ZTLog and the
  // operation fails with ZTUserCancelledError (3072); a copy or link leaves nothing at the
  // destination, a removal keeps what it had not yet removed.
  //
  // Called on the thread that runs the operation, without any lock of the manager held.
  class ZT_API Delegate {
   public:
    virtual ~Delegate() = default;
    virtual bool shouldCopyItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                                      const std::string& destinationPath);
    virtual bool shouldMoveItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                                      const std::string& destinationPath);
    virtual bool shouldRemoveItemAtPath(ZTFileManager& fileManager, const std::string& path);
    virtual bool shouldLinkItemAtPath(ZTFileManager& fileManager, const std::string& sourcePath,
                                      const std::string& destinationPath);
  };

  // The process-wide manager, never destroyed. Leave its delegate unset: it is shared by all.
  [[nodiscard]] static std::shared_ptr<ZTFileManager> defaultManager();
  // A manager of one's own, to give a delegate to.
  [[nodiscard]] static std::shared_ptr<ZTFileManager> create();

  virtual ~ZTFileManager() = default;
  ZTFileManager(const ZTFileManager&) = delete;
  ZTFileManager& operator=(const ZTFileManager&) = delete;

  // The delegate is held weakly, as a delegate is: it must be kept alive by its owner.
  std::shared_ptr<Delegate> delegate() const;
  void setDelegate(std::weak_ptr<Delegate> delegate);

  // --- Questions

  // Whether an item exists at the path; with Follow (the default) a dangling link counts as no item.
  // isDirectory, when given, is set to whether the item (or the link's target) is a folder.
  bool fileExistsAtPath(std::string_view path, bool* isDirectory = nullptr,
                        ZTLinkTraversal links = ZTLinkTraversal::Follow) const;

  // The attribute dictionary of the item itself (a link is described, not followed, unless
  // links = Follow): ZTFileType, ZTFileSize, ZTFileModificationDate, ZTFilePosixPermissions,
  // ZTFileReferenceCount, ZTFileSystemNumber, ZTFileSystemFileNumber, the owner keys and, when the
  // file system keeps one, ZTFileCreationDate. nullopt with an error when it cannot be read.
  [[nodiscard]] std::optional<ZTValue> attributesOfItemAtPath(std::string_view path, ZTError* error = nullptr,
                                                              ZTLinkTraversal links = ZTLinkTraversal::DontFollow) const;

  // Sets the ZTFilePosixPermissions and ZTFileModificationDate found in `attributes` on the item (a
  // link's target); other keys are ignored. False with an error when a change is refused.
  bool setAttributes(const ZTValue& attributes, std::string_view path, ZTError* error = nullptr);

  // The folder's entries (names, not paths; "." and ".." left out), in no particular order.
  [[nodiscard]] std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path,
                                                                                   ZTError* error = nullptr) const;
  // Every item below the folder, as paths relative to it, parents before their contents; links are
  // listed, not followed. Fails on the first folder that cannot be read.
  [[nodiscard]] std::optional<std::vector<std::string>> subpathsOfDirectoryAtPath(std::string_view path,
                                                                                   ZTError* error = nullptr) const;
  // A deep walk of the folder (see ZTDirectoryEnumerator); nullptr with an error when the folder
  // cannot be opened.
  [[nodiscard]] std::unique_ptr<ZTDirectoryEnumerator> enumeratorAtPath(std::string_view path,
                                                                        ZTError* error = nullptr) const;

  // The link's stored destination, as written (not resolved). nullopt with an error when the item
  // is missing or not a link.
  [[nodiscard]] std::optional<std::string> destinationOfSymbolicLinkAtPath(std::string_view path,
                                                                          ZTError* error = nullptr) const;

  // Whether two items have the same contents: regular files byte for byte, links by their stored
  // destination, folders by the same names with equal contents, recursively. Items of different
  // types, or any item that cannot be read, compare unequal. Links at the two paths themselves are
  // followed. A path compared with itself is equal.
  bool contentsEqualAtPath(std::string_view path1, std::string_view path2) const;

  // --- Changes

  // Creates the folder. With intermediates, missing parents are created too and an existing
  // folder is success; without, the parent must exist and an existing item fails with
  // ZTFileWriteFileExistsError. `attributes` may carry ZTFilePosixPermissions (default 0777 less
  // the umask) for the folders created.
  bool createDirectoryAtPath(std::string_view path, bool withIntermediateDirectories,
                             const ZTValue& attributes = ZTValue(), ZTError* error = nullptr);

  // Copies the item to the destination, which must not exist: a regular file with copy_file_range
  // (or plain reads and writes where the file systems refuse it), a folder recursively, a symbolic
  // link as a link, a named pipe as a new pipe; permission bits and modification and access times
  // are kept; the owner becomes the caller. Sockets and device nodes are not copied (failure).
  bool copyItemAtPath(std::string_view sourcePath, std::string_view destinationPath, ZTError* error = nullptr);

  // Moves the item by renaming it; across file systems, copies it as copyItemAtPath does and then
  // removes the source (when that removal fails, the error is reported and the complete copy stays
  // at the destination). Fails if the destination exists.
  bool moveItemAtPath(std::string_view sourcePath, std::string_view destinationPath, ZTError* error = nullptr);

  // Removes the item; a folder with everything inside it. Links are removed, never followed.
  // Stops at the first item that cannot be removed.
  bool removeItemAtPath(std::string_view path, ZTError* error = nullptr);

  // Makes a hard link at the destination to the source; for a folder, builds the same tree of
  // folders at the destination with every file in it hard-linked (links copied as links). Fails if
  // the destination exists.
  bool linkItemAtPath(std::string_view sourcePath, std::string_view destinationPath, ZTError* error = nullptr);

  // Makes a symbolic link at `path` holding `destinationPath` as written. Fails if `path` exists.
  bool createSymbolicLinkAtPath(std::string_view path, std::string_view destinationPath, ZTError* error = nullptr);

 protected:
  ZTFileManager() = default;

 private:
  mutable ZTMutex mutex_;
  std::weak_ptr<Delegate> delegate_ ZT_GUARDED_BY(mutex_);
};

// A deep walk of a folder: each call to nextObject() gives the next item's path relative to the
// folder, parents before their contents, until nullopt. Symbolic links are listed, never followed.
// Entries that vanish during the walk are left out. A folder inside that cannot be read is listed
// and its contents are not; the error handler, if set, hears of it (return false to end the
// walk). Walks deeper than 4096 levels are cut there, with the error handler told (ELOOP).
//
// One thread at a time; the enumerator holds no descriptor between calls.
class ZT_API ZTDirectoryEnumerator {
 public:
  using ErrorHandler = std::function<bool(const std::string& path, const ZTError& error)>;

  explicit ZTDirectoryEnumerator(std::string rootPath);
  ~ZTDirectoryEnumerator();
  ZTDirectoryEnumerator(const ZTDirectoryEnumerator&) = delete;
  ZTDirectoryEnumerator& operator=(const ZTDirectoryEnumerator&) = delete;

  // The handler runs on the walking thread; one that throws is logged and ends the walk.
  void setErrorHandler(ErrorHandler handler);

  std::optional<std::string> nextObject();
  // The attributes of the item nextObject() last returned (links not followed); null when they
  // could not be read.
  const ZTValue& fileAttributes() const;
  // How deep the last item is: 1 for the folder's own entries.
  std::size_t level() const;
  // Do not descend into the folder nextObject() last returned.
  void skipDescendants();

  // Whether the error handler ended the walk (it answered false or threw).
  bool wasStopped() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};
