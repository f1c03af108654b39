// A program for the crash guard's tests: each mode does one thing a real application does with the
// guard, in a process of its own, so that the tests can let it crash, kill it or let it exit.
//
//   crash NAME ID [AMOUNT]       guards ID in the log NAME (in the caches folder) and segfaults inside;
//                                with AMOUNT, a memory logger that reads AMOUNT bytes free
//   run NAME ID yes|no [AMOUNT]  guards ID with a recovery that answers yes or no; exit 0 when the
//                                block ran, 3 when refused
//   save-loop PATH               prints "ready" after its first save, then starts and finishes "op"
//                                over and over (the file alternates between two states)
//   orderly PATH exit|notify     blesses "new", finishes "old", then ends through exit() or posts
//                                the will-terminate notification and returns from main
//   cleanup-check DIR            exit 0 when DIR was gone when main started, 4 otherwise
//
// It links the shared crash-guard library, so cleanup-check shows its load-time cleanup. In sanitizer
// builds the tests start it with the sanitizer's own SIGSEGV handling off, so a fault ends it as it
// ends a plain build.

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "zentrel/crashguard/memory_exhaustion_risk_crash_logger.h"
#include "zentrel/crashguard/risk_crash_logger.h"
#include "zentrel/platform/notification_center.h"

namespace {

std::shared_ptr<ZTRiskCrashLogger> loggerFor(const std::string& name, int argc, char** argv, int amountIndex) {
  if (argc > amountIndex) {
    const std::uint64_t amount = std::strtoull(argv[amountIndex], nullptr, 10);
    return ZTMemoryExhaustionRiskCrashLogger::createWithCrashesLogPlistName(name, [amount] { return amount; });
  }
  return ZTRiskCrashLogger::createWithCrashesLogPlistName(name);
}

// A real fault: a write to a page that allows no access.
void segfault() {
  void* page = ::mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) std::abort();
  *static_cast<volatile int*>(page) = 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string mode = argv[1];
  if (mode == "cleanup-check") {
    struct stat st {};
    return ::lstat(argv[2], &st) == 0 ? 4 : 0;
  }
  if (mode == "crash" && argc >= 4) {
    auto logger = loggerFor(argv[2], argc, argv, 4);
    logger->performOperationWithIdentifier(argv[3], [] { segfault(); });
    return 5;  // not reached
  }
  if (mode == "run" && argc >= 5) {
    auto logger = loggerFor(argv[2], argc, argv, 5);
    const bool allow = std::string(argv[4]) == "yes";
    bool ran = false;
    const bool result = logger->performOperationWithIdentifier(argv[3], [&] { ran = true; }, [allow] { return allow; });
    return result && ran ? 0 : 3;
  }
  if (mode == "save-loop") {
    auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(argv[2]);
    logger->saveCrashesLogDictionary();
    std::printf("ready\n");
    std::fflush(stdout);
    for (int i = 0; i < 1000000; ++i) {
      logger->blessStartOfOperationWithIdentifier("op");
      logger->operationDidFinishSuccessfully("op");
    }
    return 6;
  }
  if (mode == "orderly" && argc >= 4) {
    auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(argv[2]);
    logger->blessStartOfOperationWithIdentifier("new");
    logger->operationDidFinishSuccessfully("old");
    if (std::string(argv[3]) == "exit") std::exit(0);
    ZTNotificationCenter::defaultCenter()->postNotificationName(ZTApplicationWillTerminateNotification);
    return 0;
  }
  return 2;
}
