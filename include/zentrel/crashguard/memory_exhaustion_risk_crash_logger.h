#pragma once
// ZTMemoryExhaustionRiskCrashLogger: a crash guard for operations that die when memory runs out.
// An operation that crashed may run again only when more memory is free than when it crashed.
//
// Each record is { "ZTMemoryExhaustionRiskFreeMemoryKey": <free bytes when the operation started> }.
// A start is blessed when there is no record (or the record holds no amount), or when the free
// memory now is strictly greater than the recorded amount. After such a run succeeds, the record is
// set back to the amount of the crash it overcame instead of being removed: the threshold survives
// the success, and only a new crash at a higher free amount raises it. This ratchet is deliberate.
//
// Free memory is read with ZTGetFreeMemoryAmount (system/memory.h) unless the application gives its
// own reading; a reading that throws is logged and counts as 0 bytes free.
//
// Threads, locks, files and callbacks as for ZTRiskCrashLogger (risk_crash_logger.h); the
// remembered amounts are guarded by the logger's own lock.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <memory>
#include <string>
#include <string_view>

#include "zentrel/crashguard/risk_crash_logger.h"
#include "zentrel/platform/export.h"

inline constexpr const char* ZTMemoryExhaustionRiskFreeMemoryKey = "ZTMemoryExhaustionRiskFreeMemoryKey";

// A crash guard that lets a crashed operation run again only once more memory is free than when it crashed.
class ZT_API ZTMemoryExhaustionRiskCrashLogger : public ZTRiskCrashLogger {
 public:
  using FreeMemoryReading = std::function<std::uint64_t()>;

  // As ZTRiskCrashLogger's; an empty reading means ZTGetFreeMemoryAmount.
  [[nodiscard]] static std::shared_ptr<ZTMemoryExhaustionRiskCrashLogger> createWithCrashesLogPlistName(
      std::string_view name, FreeMemoryReading reading = {});
  [[nodiscard]] static std::shared_ptr<ZTMemoryExhaustionRiskCrashLogger> createWithCrashesLogPlistPath(
      std::string_view path, FreeMemoryReading reading = {});

  void operationDidFinishSuccessfully(const std::string& identifier) override;

  // The crash amount the current run of the identifier has overcome, if any.
  std::optional<std::uint64_t> operationIdentifierToFreeMemoryAmount(const std::string& identifier) const;

 protected:
  ZTMemoryExhaustionRiskCrashLogger(std::string path, FreeMemoryReading reading);
  bool shouldBlessStartOfOperationWithExistingRecord(const ZTValue* existingRecord,
                                                     const std::string& operationIdentifier,
                                                     ZTValue* newRecord) ZT_REQUIRES(loggerMutex_) override;

 private:
  friend class ZTRiskCrashLogger;
  std::uint64_t readFreeMemory() const;

  FreeMemoryReading reading_;
  std::map<std::string, std::uint64_t, std::less<>> operationIdentifierToFreeMemoryAmount_
      ZT_GUARDED_BY(loggerMutex_);
};
