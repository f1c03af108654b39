#include "zentrel/crashguard/risk_crash_logger.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <utility>
#include <vector>

#include "crashguard/internal/plist_file.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/notification_center.h"
#include "zentrel/platform/uuid.h"

namespace cg = zt::crashguard_internal;

namespace {

constexpr const char* kBackupsFolderName = "ZTRiskCrashLogger.backups";

std::string backupsDirectory() { return ZTTemporaryDirectoryAdd(kBackupsFolderName); }

// The loggers that hold a backup, for the exit hook. Never destroyed: the hook runs during exit.
struct LiveLoggers {
  ZTMutex mutex;
  std::vector<std::weak_ptr<ZTRiskCrashLogger>> loggers ZT_GUARDED_BY(mutex);
  bool hookInstalled ZT_GUARDED_BY(mutex) = false;
};

LiveLoggers& liveLoggers() {
  static LiveLoggers* shared = new LiveLoggers;
  return *shared;
}

void restoreLiveLoggersAtExit() {
  std::vector<std::shared_ptr<ZTRiskCrashLogger>> loggers;
  {
    LiveLoggers& live = liveLoggers();
    ZTLockGuard lock(live.mutex);
    for (const auto& weak : live.loggers) {
      if (auto logger = weak.lock()) loggers.push_back(std::move(logger));
    }
    live.loggers.clear();
  }
  for (const auto& logger : loggers) logger->restorePlistFileFromBackupIfPossible();
}

void registerForExit(const std::shared_ptr<ZTRiskCrashLogger>& logger) {
  LiveLoggers& live = liveLoggers();
  ZTLockGuard lock(live.mutex);
  std::erase_if(live.loggers, [](const auto& weak) { return weak.expired(); });
  live.loggers.push_back(logger);
  if (!live.hookInstalled) {
    live.hookInstalled = std::atexit(restoreLiveLoggersAtExit) == 0;
  }
}

// Runs when this object file is loaded: with the shared library, or in a program linked with the
// static library, whose linker takes this object in as soon as the program uses ZTRiskCrashLogger.
__attribute__((constructor)) void cleanupAbandondBackupsAtLoad() { cleanupAbandondBackups(); }

}  // namespace

struct ZTRiskCrashLogger::SynchronizationHandle {
  explicit SynchronizationHandle(std::string id) : identifier(std::move(id)) {}
  const std::string identifier;
  ZTRecursiveMutex mutex;
};

extern "C" void cleanupAbandondBackups(void) {
  const std::string directory = backupsDirectory();
  if (!cg::fileExists(directory)) return;
  // A backup whose logger is alive, in this process or another, carries that logger's lock and stays.
  ZTError error;
  bool failed = false;
  if (DIR* folder = ::opendir(directory.c_str())) {
    while (const dirent* entry = ::readdir(folder)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      const std::string path = directory + "/" + name;
      const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
      if (descriptor >= 0) {
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        const bool abandoned = ::fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
        if (abandoned && ::unlink(path.c_str()) != 0 && errno != ENOENT && !failed) {
          error = ZTError::posix(errno, directory);
          failed = true;
        }
        ::close(descriptor);
      } else if (errno != ENOENT && !cg::removeTree(path, failed ? nullptr : &error)) {
        failed = true;  // not a backup file: a folder, a link, or one this user cannot open
      }
    }
    ::closedir(folder);
  }
  if (!failed && ::rmdir(directory.c_str()) != 0 && errno != ENOTEMPTY && errno != EEXIST && errno != ENOENT) {
    error = ZTError::posix(errno, directory);
    failed = true;
  }
  if (failed) {
    ZTLog("ERROR: cleanupAbandondBackups() failed to delete backups dir. Error = " + error.description());
  }
}

std::shared_ptr<ZTRiskCrashLogger> ZTRiskCrashLogger::createWithCrashesLogPlistName(std::string_view name) {
  if (name.empty()) return nullptr;
  return createWithCrashesLogPlistPath(ZTCachesDirectoryAdd(name));
}

std::shared_ptr<ZTRiskCrashLogger> ZTRiskCrashLogger::createWithCrashesLogPlistPath(std::string_view path) {
  if (path.empty()) return nullptr;
  return makeLogger<ZTRiskCrashLogger>(std::string(path));
}

ZTRiskCrashLogger::ZTRiskCrashLogger(std::string crashesLogPlistPath)
    : crashesLogPlistPath_(std::move(crashesLogPlistPath)) {
  ZTLockGuard lock(loggerMutex_);
  if (auto bytes = cg::readWholeFile(crashesLogPlistPath_, nullptr)) {
    if (auto dictionary = cg::dictionaryFromPropertyList(*bytes)) {
      crashesLogDictionary_ = std::move(*dictionary);
    }
  }
}

ZTRiskCrashLogger::~ZTRiskCrashLogger() {
  ZTNotificationCenter::defaultCenter()->removeObserver(this);
  ZTLockGuard lock(loggerMutex_);
  releaseBackupLock();
}

bool ZTRiskCrashLogger::performOperationWithIdentifier(const std::string& identifier, const Block& block) {
  return performOperationWithIdentifier(identifier, block, nullptr);
}

bool ZTRiskCrashLogger::performOperationWithIdentifier(const std::string& identifier, const Block& block,
                                                       RecoveryBlock previousCrashesRecoveryBlock) {
  std::shared_ptr<SynchronizationHandle> handle;
  {
    ZTLockGuard lock(countersMutex_);
    ++operationIdentifierToCounter_[identifier];
    auto& slot = runningOperationIdentifierToSynchronizationHandle_[identifier];
    if (!slot) slot = std::make_shared<SynchronizationHandle>(identifier);
    handle = slot;
  }
  // Step out of the bookkeeping whatever happens below, also when the block throws.
  struct CounterRelease {
    ZTRiskCrashLogger& logger;
    const std::string& identifier;
    ~CounterRelease() {
      ZTLockGuard lock(logger.countersMutex_);
      auto counter = logger.operationIdentifierToCounter_.find(identifier);
      if (counter == logger.operationIdentifierToCounter_.end()) return;
      if (--counter->second == 0) {
        logger.operationIdentifierToCounter_.erase(counter);
        logger.runningOperationIdentifierToSynchronizationHandle_.erase(identifier);
      }
    }
  } release{*this, identifier};

  if (!previousCrashesRecoveryBlock) previousCrashesRecoveryBlock = [] { return false; };

  ZTLockGuard handleLock(handle->mutex);
  if (!blessStartOfOperationWithIdentifier(identifier)) {
    ZTLog("Error: operation with identifier '" + identifier + "' not blessed");
    bool tryAgain = false;
    try {
      tryAgain = previousCrashesRecoveryBlock();
    } catch (const std::exception& e) {
      ZTLog("ERROR: the recovery block of operation '" + identifier + "' threw: " + e.what());
    } catch (...) {
      ZTLog("ERROR: the recovery block of operation '" + identifier + "' threw an unknown exception");
    }
    if (!tryAgain) return false;
  }
  if (block) block();
  operationDidFinishSuccessfully(identifier);
  return true;
}

bool ZTRiskCrashLogger::blessStartOfOperationWithIdentifier(const std::string& identifier) {
  if (identifier.empty()) return false;
  ZTLockGuard lock(loggerMutex_);
  ZTValueDictionary& log = records();
  const auto existing = log.find(identifier);
  ZTValue newRecord;
  bool blessed = false;
  try {
    blessed = shouldBlessStartOfOperationWithExistingRecord(existing == log.end() ? nullptr : &existing->second,
                                                            identifier, &newRecord);
  } catch (const std::exception& e) {
    ZTLog("ERROR: the start policy for operation '" + identifier + "' threw: " + e.what());
  } catch (...) {
    ZTLog("ERROR: the start policy for operation '" + identifier + "' threw an unknown exception");
  }
  if (blessed) {
    log.insert_or_assign(identifier, std::move(newRecord));
    saveLocked();
  }
  return blessed;
}

void ZTRiskCrashLogger::operationDidFinishSuccessfully(const std::string& identifier) {
  ZTLockGuard lock(loggerMutex_);
  records().erase(identifier);
  saveLocked();
}

bool ZTRiskCrashLogger::shouldBlessStartOfOperationWithExistingRecord(const ZTValue* existingRecord,
                                                                      const std::string&, ZTValue* newRecord) {
  if (existingRecord != nullptr || newRecord == nullptr) return false;
  *newRecord = ZTValue::dictionary();
  return true;
}

ZTValueDictionary& ZTRiskCrashLogger::records() {
  return crashesLogDictionary_;
}

void ZTRiskCrashLogger::saveCrashesLogDictionary() {
  ZTLockGuard lock(loggerMutex_);
  saveLocked();
}

void ZTRiskCrashLogger::saveLocked() {
  if (restored_) return;
  ZTError error;
  if (!cg::writeFileAtomically(crashesLogPlistPath_, cg::xmlPropertyList(records()), &error)) {
    ZTLog("ERROR: -[ZTRiskCrashLogger saveCrashesLogDictionary] failed to write the crashes log. Error = " +
          error.description());
  }
}

ZTValue ZTRiskCrashLogger::crashesLogDictionary() const {
  ZTLockGuard lock(loggerMutex_);
  return ZTValue(crashesLogDictionary_);
}

std::string ZTRiskCrashLogger::plistBackupPath() const {
  ZTLockGuard lock(loggerMutex_);
  return plistBackupPath_;
}

std::uint64_t ZTRiskCrashLogger::runningOperationCount(const std::string& identifier) const {
  ZTLockGuard lock(countersMutex_);
  const auto counter = operationIdentifierToCounter_.find(identifier);
  return counter == operationIdentifierToCounter_.end() ? 0 : counter->second;
}

void ZTRiskCrashLogger::backupPlistFileIfPossible() {
  {
    ZTLockGuard lock(loggerMutex_);
    if (backupMade_) return;
    const std::string directory = backupsDirectory();
    ZTError error;
    if (!cg::createDirectories(directory, &error)) {
      ZTLog("ERROR: -[ZTRiskCrashLogger backupPlistFileIfPossible] failed to create backups dir. Error = " +
            error.description());
      return;
    }
    plistBackupPath_ = directory + "/crash-protection-" + ZTUUIDString() + ".plist";
    if (!cg::fileExists(crashesLogPlistPath_)) return;
    auto bytes = cg::readWholeFile(crashesLogPlistPath_, &error);
    if (!bytes || !writeLockedBackup(std::string(bytes->begin(), bytes->end()), &error)) {
      ZTLog("ERROR: -[ZTRiskCrashLogger backupPlistFileIfPossible] failed to backup plist. Error = " +
            error.description());
      return;
    }
    backupMade_ = true;
  }
  std::weak_ptr<ZTRiskCrashLogger> weak = weak_from_this();
  ZTNotificationCenter::defaultCenter()->addObserver(this, ZTApplicationWillTerminateNotification, nullptr,
                                                      [weak](const ZTNotification&) {
                                                        if (auto logger = weak.lock()) logger->applicationWillTerminate();
                                                      });
  if (auto self = weak.lock()) registerForExit(self);
}

bool ZTRiskCrashLogger::writeLockedBackup(const std::string& bytes, ZTError* error) {
  // The backup is written whole, then locked for this logger's life. A cleanup in another process
  // may delete it between the two steps; the lock then sits on a file with no name, so write again.
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (!cg::writeFileAtomically(plistBackupPath_, bytes, error)) return false;
    const int descriptor = ::open(plistBackupPath_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0) continue;
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    struct stat status {};
    if (::fcntl(descriptor, F_OFD_SETLK, &lock) == 0 && ::fstat(descriptor, &status) == 0 && status.st_nlink > 0) {
      backupLockDescriptor_ = descriptor;
      return true;
    }
    ::close(descriptor);
  }
  ZTSetError(error, ZTError::posix(EAGAIN, plistBackupPath_));
  return false;
}

void ZTRiskCrashLogger::releaseBackupLock() {
  if (backupLockDescriptor_ >= 0) ::close(backupLockDescriptor_);
  backupLockDescriptor_ = -1;
}

void ZTRiskCrashLogger::applicationWillTerminate() { restorePlistFileFromBackupIfPossible(); }

void ZTRiskCrashLogger::restorePlistFileFromBackupIfPossible() {
  ZTLockGuard lock(loggerMutex_);
  if (restored_) return;
  restored_ = true;
  ZTError error;
  if (!plistBackupPath_.empty() && cg::fileExists(plistBackupPath_)) {
    auto bytes = cg::readWholeFile(plistBackupPath_, &error);
    if (!bytes || !cg::writeFileAtomically(crashesLogPlistPath_, std::string(bytes->begin(), bytes->end()), &error)) {
      ZTLog("ERROR: -[ZTRiskCrashLogger restorePlistFileFromBackupIfPossible] failed to copy backup file to the "
            "destination path. Error = " + error.description());
      return;
    }
    cg::removeFile(plistBackupPath_, nullptr);
    releaseBackupLock();
  } else if (cg::fileExists(crashesLogPlistPath_)) {
    if (!cg::removeFile(crashesLogPlistPath_, &error)) {
      ZTLog("ERROR: -[ZTRiskCrashLogger restorePlistFileFromBackupIfPossible] failed to delete plist file. Error = " +
            error.description());
    }
  }
}
