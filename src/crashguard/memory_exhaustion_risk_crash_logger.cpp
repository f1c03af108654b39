#include "zentrel/crashguard/memory_exhaustion_risk_crash_logger.h"

#include <exception>
#include <utility>

#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/platform/log.h"
#include "zentrel/system/memory.h"

std::shared_ptr<ZTMemoryExhaustionRiskCrashLogger> ZTMemoryExhaustionRiskCrashLogger::createWithCrashesLogPlistName(
    std::string_view name, FreeMemoryReading reading) {
  if (name.empty()) return nullptr;
  return createWithCrashesLogPlistPath(ZTCachesDirectoryAdd(name), std::move(reading));
}

std::shared_ptr<ZTMemoryExhaustionRiskCrashLogger> ZTMemoryExhaustionRiskCrashLogger::createWithCrashesLogPlistPath(
    std::string_view path, FreeMemoryReading reading) {
  if (path.empty()) return nullptr;
  return makeLogger<ZTMemoryExhaustionRiskCrashLogger>(std::string(path), std::move(reading));
}

ZTMemoryExhaustionRiskCrashLogger::ZTMemoryExhaustionRiskCrashLogger(std::string path, FreeMemoryReading reading)
    : ZTRiskCrashLogger(std::move(path)), reading_(std::move(reading)) {}

std::uint64_t ZTMemoryExhaustionRiskCrashLogger::readFreeMemory() const {
  if (!reading_) return ZTGetFreeMemoryAmount();
  try {
    return reading_();
  } catch (const std::exception& e) {
    ZTLog(std::string("ERROR: the free memory reading threw: ") + e.what());
  } catch (...) {
    ZTLog("ERROR: the free memory reading threw an unknown exception");
  }
  return 0;
}

bool ZTMemoryExhaustionRiskCrashLogger::shouldBlessStartOfOperationWithExistingRecord(
    const ZTValue* existingRecord, const std::string& operationIdentifier, ZTValue* newRecord) {
  if (newRecord == nullptr) return false;
  const std::uint64_t freeNow = readFreeMemory();
  ZTValue record = ZTValue::dictionary();
  record[ZTMemoryExhaustionRiskFreeMemoryKey] = freeNow;
  *newRecord = std::move(record);
  if (existingRecord == nullptr || !existingRecord->isDictionary()) return true;
  const ZTValue& recorded = (*existingRecord)[ZTMemoryExhaustionRiskFreeMemoryKey];
  if (!recorded.isNumber()) return true;
  const std::uint64_t crashAmount = recorded.uintValue();
  if (freeNow <= crashAmount) return false;
  operationIdentifierToFreeMemoryAmount_.insert_or_assign(operationIdentifier, crashAmount);
  return true;
}

void ZTMemoryExhaustionRiskCrashLogger::operationDidFinishSuccessfully(const std::string& identifier) {
  ZTLockGuard lock(loggerMutex_);
  ZTValueDictionary& log = records();
  const auto remembered = operationIdentifierToFreeMemoryAmount_.find(identifier);
  if (remembered != operationIdentifierToFreeMemoryAmount_.end()) {
    ZTValue record = ZTValue::dictionary();
    record[ZTMemoryExhaustionRiskFreeMemoryKey] = remembered->second;
    log.insert_or_assign(identifier, std::move(record));
    operationIdentifierToFreeMemoryAmount_.erase(remembered);
  } else {
    log.erase(identifier);
  }
  saveLocked();
}

std::optional<std::uint64_t> ZTMemoryExhaustionRiskCrashLogger::operationIdentifierToFreeMemoryAmount(
    const std::string& identifier) const {
  ZTLockGuard lock(loggerMutex_);
  const auto remembered = operationIdentifierToFreeMemoryAmount_.find(identifier);
  if (remembered == operationIdentifierToFreeMemoryAmount_.end()) return std::nullopt;
  return remembered->second;
}
