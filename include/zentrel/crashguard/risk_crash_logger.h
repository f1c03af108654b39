#pragma once
// ZTRiskCrashLogger: a guard for operations that may take the whole process down.
//
// Before a guarded operation runs, a record for its identifier is written into a property-list file;
// when the operation returns, the record is removed and the file written again. If the process dies
// in between, the record is still there at the next launch, and the next attempt is "not blessed":
// the application's recovery callback decides whether to try again.
//
// The file. An XML property list whose root is a dictionary from operation identifier to record
// (an empty dictionary for this class; see ZTMemoryExhaustionRiskCrashLogger for the other). It is
// written whole after every change: a temporary file beside it, fsync, rename over the file, fsync
// of the folder, so a crash at any moment leaves the old or the new file, never a torn one. A
// missing, unreadable, oversized (over 16 MiB) or malformed file, or one whose root is not a
// dictionary, counts as an empty log. File-system failures are logged ("ERROR: ...") and never
// reported to the caller; the guard goes on with what it holds in memory.
//
// Orderly termination. Each logger copies the file as it was at launch into
// <temporary folder>/ZTRiskCrashLogger.backups/crash-protection-<UUID>.plist. When the application
// posts ZTApplicationWillTerminateNotification on ZTNotificationCenter::defaultCenter(), or the
// process ends through exit() (an atexit hook), the launch-time file is put back byte for byte:
// records written during an orderly run are discarded, and so are removals. Only a run that dies
// leaves its changes. After that restore the logger no longer writes the file. A logger whose file
// did not exist at launch makes no backup and restores nothing. Only loggers still alive when the
// notification is posted or the hook runs are restored. Each logger holds a lock on its backup
// (an open-file-description lock) for as long as it lives; when the library is loaded it deletes the
// backups no live logger holds (cleanupAbandondBackups), so a second process of the same user
// leaves the first one's backup alone.
//
// Threads and locks. Every member may be called from any thread. Three locks: the counters lock
// (bookkeeping of which identifiers are running, held briefly), one lock per running identifier
// (held across blessing, the block and finishing, so calls with one identifier run one at a time
// while different identifiers run in parallel; it is recursive, so a block may guard a nested
// operation with its own identifier, which is then refused as already running), and the logger's
// own lock (every access to the records and every write of the file). The only nesting is the
// logger's lock taken inside an identifier's lock.
//
// Callbacks. The operation block runs on the calling thread, under its identifier's lock. An
// exception it throws passes through to the caller, with every lock released and the record left in
// place (the next launch treats the operation as crashed). A recovery block that throws is logged
// and counts as "no". A policy override (shouldBlessStartOfOperationWithExistingRecord) that throws
// is logged and counts as "not blessed".
//
// Ownership. Held by std::shared_ptr; create with the static create... functions (subclasses use
// makeLogger()).

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

// The notification an application posts on the default centre when it is about to quit in order.
inline constexpr const char* ZTApplicationWillTerminateNotification = "ZTApplicationWillTerminateNotification";

// Guards operations that may take the process down: remembers a crash and refuses the next run.
class ZT_API ZTRiskCrashLogger : public std::enable_shared_from_this<ZTRiskCrashLogger> {
 public:
  using Block = std::function<void()>;
  using RecoveryBlock = std::function<bool()>;

  // The file <user's caches folder>/<name> (ZTCachesDirectoryAdd). nullptr for an empty name.
  [[nodiscard]] static std::shared_ptr<ZTRiskCrashLogger> createWithCrashesLogPlistName(std::string_view name);
  // nullptr for an empty path. Loads the file and makes this launch's backup of it.
  [[nodiscard]] static std::shared_ptr<ZTRiskCrashLogger> createWithCrashesLogPlistPath(std::string_view path);

  virtual ~ZTRiskCrashLogger();
  ZTRiskCrashLogger(const ZTRiskCrashLogger&) = delete;
  ZTRiskCrashLogger& operator=(const ZTRiskCrashLogger&) = delete;

  // Runs the block under the guard. When the start is not blessed (a previous run with this
  // identifier did not finish, or the identifier is empty), logs
  // "Error: operation with identifier '<identifier>' not blessed" and asks the recovery block: the
  // block runs only when it answers true. Returns true when the block ran (an empty block counts as
  // run), false when it was refused. An empty recovery block answers false.
  bool performOperationWithIdentifier(const std::string& identifier, const Block& block,
                                      RecoveryBlock previousCrashesRecoveryBlock);
  bool performOperationWithIdentifier(const std::string& identifier, const Block& block);

  // The two halves of the guard, for operations that do not fit in one block. Blessing stores the
  // new record and writes the file when the policy allows; an empty identifier is never blessed.
  // Finishing removes the record (the memory logger may keep a threshold) and writes the file.
  virtual bool blessStartOfOperationWithIdentifier(const std::string& identifier);
  virtual void operationDidFinishSuccessfully(const std::string& identifier);

  // Writes the records to the file (whole, atomically, durably). Failures are logged.
  void saveCrashesLogDictionary();
  // Makes this launch's backup (done by the create functions; once per logger).
  void backupPlistFileIfPossible();
  // Puts the launch-time file back (or deletes the file when there is no backup) and stops later
  // writes. Called by the will-terminate notification and the exit hook.
  void restorePlistFileFromBackupIfPossible();
  void applicationWillTerminate();

  const std::string& crashesLogPlistPath() const { return crashesLogPlistPath_; }
  std::string plistBackupPath() const;
  // A copy of the records as they stand in memory.
  ZTValue crashesLogDictionary() const;
  // Number of calls currently running with the identifier (0 when none).
  std::uint64_t runningOperationCount(const std::string& identifier) const;

 protected:
  explicit ZTRiskCrashLogger(std::string crashesLogPlistPath);

  // Constructs a logger of a subclass and makes its backup.
  template <class Logger, class... Args>
  static std::shared_ptr<Logger> makeLogger(Args&&... args) {
    std::shared_ptr<Logger> logger(new Logger(std::forward<Args>(args)...));
    logger->backupPlistFileIfPossible();
    return logger;
  }

  // The policy, called under the logger's lock. existingRecord is null when the identifier has no
  // record; newRecord, when not null, receives the record to store. Base policy: bless only when
  // there is no record and newRecord is given; the new record is an empty dictionary.
  virtual bool shouldBlessStartOfOperationWithExistingRecord(const ZTValue* existingRecord,
                                                             const std::string& operationIdentifier,
                                                             ZTValue* newRecord) ZT_REQUIRES(loggerMutex_);

  // The records, under the logger's lock, for subclasses that finish differently.
  ZTValueDictionary& records() ZT_REQUIRES(loggerMutex_);
  void saveLocked() ZT_REQUIRES(loggerMutex_);

  mutable ZTRecursiveMutex loggerMutex_;

 private:
  struct SynchronizationHandle;
  bool writeLockedBackup(const std::string& bytes, ZTError* error) ZT_REQUIRES(loggerMutex_);
  void releaseBackupLock() ZT_REQUIRES(loggerMutex_);

  const std::string crashesLogPlistPath_;
  std::string plistBackupPath_ ZT_GUARDED_BY(loggerMutex_);
  bool backupMade_ ZT_GUARDED_BY(loggerMutex_) = false;
  bool restored_ ZT_GUARDED_BY(loggerMutex_) = false;
  // Open on the backup with a shared lock while this logger lives: the mark that it is not abandoned.
  int backupLockDescriptor_ ZT_GUARDED_BY(loggerMutex_) = -1;
  ZTValueDictionary crashesLogDictionary_ ZT_GUARDED_BY(loggerMutex_);

  mutable ZTMutex countersMutex_;
  std::map<std::string, std::uint64_t, std::less<>> operationIdentifierToCounter_ ZT_GUARDED_BY(countersMutex_);
  std::map<std::string, std::shared_ptr<SynchronizationHandle>, std::less<>>
      runningOperationIdentifierToSynchronizationHandle_ ZT_GUARDED_BY(countersMutex_);
};

// Deletes the backups in <temporary folder>/ZTRiskCrashLogger.backups that no live logger holds (a
// logger that died with its process released its lock), and the folder when it is left empty; logs
// "ERROR: cleanupAbandondBackups() failed to delete backups dir. Error = <error>" on failure. Runs by
// itself once when the library is loaded (the shared library, or a program linked with the static
// one that uses ZTRiskCrashLogger), before main.
extern "C" ZT_API void cleanupAbandondBackups(void);
