#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "crashguard/internal/plist_file.h"
#include "crashguard/support/crashguard_test_support.h"
#include "zentrel/crashguard/memory_exhaustion_risk_crash_logger.h"
#include "zentrel/crashguard/risk_crash_logger.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/notification_center.h"

namespace {

using zt::test::PrivateFolder;

// This process keeps its backups and caches in a folder of its own, so that the tests neither see
// nor touch the user's. A copy of this program started by a test with ZT_CRASHGUARD_OWN_ENVIRONMENT
// keeps the environment it was given.
struct ProcessFolders {
  ProcessFolders() {
    if (std::getenv("ZT_CRASHGUARD_OWN_ENVIRONMENT")) return;
    std::string pattern = "/tmp/zt-crashguard-process-XXXXXX";
    if (!::mkdtemp(pattern.data())) return;
    root = pattern;
    std::filesystem::create_directories(root + "/tmp");
    std::filesystem::create_directories(root + "/cache");
    ::setenv("TMPDIR", (root + "/tmp").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (root + "/cache").c_str(), 1);
  }
  ~ProcessFolders() {
    std::error_code code;
    if (!root.empty()) std::filesystem::remove_all(root, code);
  }
  std::string root;
} processFolders;

class CapturedLog {
 public:
  CapturedLog() {
    ZTSetLogSink([this](std::string_view line) {
      std::lock_guard lock(mutex);
      lines.emplace_back(line);
    });
  }
  ~CapturedLog() { ZTSetLogSink({}); }
  bool contains(const std::string& text) {
    std::lock_guard lock(mutex);
    for (const auto& line : lines) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  }
  std::mutex mutex;
  std::vector<std::string> lines;
};

ZTValueDictionary recordsIn(const std::string& path) {
  const auto text = zt::test::readFile(path);
  if (!text) return {};
  auto dictionary = zt::crashguard_internal::dictionaryFromPropertyList(std::vector<char>(text->begin(), text->end()));
  return dictionary.value_or(ZTValueDictionary{});
}

// Environment for a child: its caches and temporary folders inside the test's folder.
// Under a sanitizer the child's fault ends it by the signal, as in a plain build.
std::map<std::string, std::string> childEnvironment(const PrivateFolder& folder) {
  const char* asan = std::getenv("ASAN_OPTIONS");
  const char* tsan = std::getenv("TSAN_OPTIONS");
  return {{"XDG_CACHE_HOME", folder.add("cache")},
          {"TMPDIR", folder.add("tmp")},
          {"ASAN_OPTIONS", std::string(asan ? asan : "") + ":handle_segv=0"},
          {"TSAN_OPTIONS", std::string(tsan ? tsan : "") + ":handle_segv=0"}};
}

TEST(RiskCrashLogger, ACrashRefusesTheNextRunUntilTheRecoveryAllowsIt) {
  PrivateFolder folder;
  const auto environment = childEnvironment(folder);
  const std::string plist = folder.add("cache/crash-protection-import.plist");

  const auto crashed = zt::test::runChild(zt::test::childProgram(), {"crash", "crash-protection-import.plist", "import"},
                                          environment);
  ASSERT_FALSE(crashed.exited) << crashed.output;
  EXPECT_EQ(crashed.signal, SIGSEGV);
  const auto text = zt::test::readFile(plist);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->rfind("<?xml", 0), 0u) << *text;
  EXPECT_NE(text->find("<key>import</key>"), std::string::npos) << *text;
  EXPECT_EQ(recordsIn(plist), (ZTValueDictionary{{"import", ZTValue::dictionary()}}));

  const auto refused = zt::test::runChild(zt::test::childProgram(), {"run", "crash-protection-import.plist", "import", "no"},
                                          environment);
  EXPECT_TRUE(refused.exited);
  EXPECT_EQ(refused.exitCode, 3) << refused.output;
  EXPECT_NE(refused.output.find("Error: operation with identifier 'import' not blessed"), std::string::npos)
      << refused.output;
  EXPECT_EQ(recordsIn(plist).count("import"), 1u);

  // Another identifier in the same log is not affected by the crash.
  const auto other = zt::test::runChild(zt::test::childProgram(), {"run", "crash-protection-import.plist", "export", "no"},
                                        environment);
  EXPECT_EQ(other.exitCode, 0) << other.output;

  const auto retried = zt::test::runChild(zt::test::childProgram(), {"run", "crash-protection-import.plist", "import", "yes"},
                                          environment);
  EXPECT_EQ(retried.exitCode, 0) << retried.output;
  EXPECT_TRUE(recordsIn(plist).empty());
}

TEST(RiskCrashLogger, MemoryLoggerLetsACrashedOperationRunOnlyWithMoreFreeMemory) {
  PrivateFolder folder;
  const auto environment = childEnvironment(folder);
  const std::string name = "crash-protection-render.plist";
  const std::string plist = folder.add("cache/" + name);

  const auto crashed = zt::test::runChild(zt::test::childProgram(), {"crash", name, "render", "5000"}, environment);
  EXPECT_EQ(crashed.signal, SIGSEGV) << crashed.output;
  const auto text = zt::test::readFile(plist).value_or("");
  EXPECT_NE(text.find("<key>ZTMemoryExhaustionRiskFreeMemoryKey</key>"), std::string::npos) << text;
  EXPECT_EQ(recordsIn(plist)["render"][ZTMemoryExhaustionRiskFreeMemoryKey].uintValue(), 5000u);

  EXPECT_EQ(zt::test::runChild(zt::test::childProgram(), {"run", name, "render", "no", "5000"}, environment).exitCode, 3);
  EXPECT_EQ(zt::test::runChild(zt::test::childProgram(), {"run", name, "render", "no", "4000"}, environment).exitCode, 3);
  EXPECT_EQ(zt::test::runChild(zt::test::childProgram(), {"run", name, "render", "no", "5001"}, environment).exitCode, 0);
  // The threshold survives the success.
  EXPECT_EQ(recordsIn(plist)["render"][ZTMemoryExhaustionRiskFreeMemoryKey].uintValue(), 5000u);
  EXPECT_EQ(zt::test::runChild(zt::test::childProgram(), {"run", name, "render", "no", "5000"}, environment).exitCode, 3);
}

TEST(RiskCrashLogger, MemoryPolicyInProcess) {
  PrivateFolder folder;
  const std::string plist = folder.add("log.plist");
  std::uint64_t freeBytes = 100;
  {
    auto logger = ZTMemoryExhaustionRiskCrashLogger::createWithCrashesLogPlistPath(plist, [&] { return freeBytes; });
    ASSERT_TRUE(logger->blessStartOfOperationWithIdentifier("decode"));  // never finished: a crash at 100
    EXPECT_FALSE(logger->operationIdentifierToFreeMemoryAmount("decode"));
  }
  auto logger = ZTMemoryExhaustionRiskCrashLogger::createWithCrashesLogPlistPath(plist, [&] { return freeBytes; });
  EXPECT_FALSE(logger->performOperationWithIdentifier("decode", [] {}));
  freeBytes = 150;
  EXPECT_TRUE(logger->performOperationWithIdentifier("decode", [&] {
    EXPECT_EQ(logger->operationIdentifierToFreeMemoryAmount("decode"), 100u);
    EXPECT_EQ(logger->crashesLogDictionary()["decode"][ZTMemoryExhaustionRiskFreeMemoryKey].uintValue(), 150u);
  }));
  EXPECT_EQ(logger->crashesLogDictionary()["decode"][ZTMemoryExhaustionRiskFreeMemoryKey].uintValue(), 100u);
  EXPECT_FALSE(logger->operationIdentifierToFreeMemoryAmount("decode"));

  // A record of another shape does not hold the operation back; a reading that throws counts as 0.
  ZTValueDictionary odd{{"strange", ZTValue("text")}, {"bare", ZTValue::dictionary()}};
  ASSERT_TRUE(zt::crashguard_internal::writeFileAtomically(plist, zt::crashguard_internal::xmlPropertyList(odd), nullptr));
  CapturedLog log;
  auto throwing = ZTMemoryExhaustionRiskCrashLogger::createWithCrashesLogPlistPath(
      plist, []() -> std::uint64_t { throw std::runtime_error("no meminfo"); });
  EXPECT_TRUE(throwing->performOperationWithIdentifier("strange", [] {}));
  EXPECT_TRUE(throwing->performOperationWithIdentifier("bare", [] {}));
  EXPECT_TRUE(log.contains("ERROR: the free memory reading threw: no meminfo"));
}

TEST(RiskCrashLogger, RefusalsAndThrowingCallbacksKeepTheBookkeepingRight) {
  PrivateFolder folder;
  const std::string plist = folder.add("log.plist");
  EXPECT_EQ(ZTRiskCrashLogger::createWithCrashesLogPlistPath(""), nullptr);
  EXPECT_EQ(ZTRiskCrashLogger::createWithCrashesLogPlistName(""), nullptr);
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(plist);
  CapturedLog log;

  bool ran = false;
  EXPECT_FALSE(logger->performOperationWithIdentifier("", [&] { ran = true; }));
  EXPECT_FALSE(ran);
  EXPECT_TRUE(log.contains("Error: operation with identifier '' not blessed"));
  EXPECT_TRUE(logger->performOperationWithIdentifier("", [&] { ran = true; }, [] { return true; }));
  EXPECT_TRUE(ran);

  // The block's exception reaches the caller; the record stays, as after a crash.
  EXPECT_THROW(logger->performOperationWithIdentifier("sync", [] { throw std::runtime_error("boom"); }),
               std::runtime_error);
  EXPECT_EQ(logger->runningOperationCount("sync"), 0u);
  EXPECT_EQ(recordsIn(plist).count("sync"), 1u);
  EXPECT_FALSE(logger->performOperationWithIdentifier("sync", [] {}));
  EXPECT_FALSE(logger->performOperationWithIdentifier("sync", [] {}, [] () -> bool { throw std::runtime_error("no"); }));
  EXPECT_TRUE(log.contains("ERROR: the recovery block of operation 'sync' threw: no"));
  EXPECT_TRUE(logger->performOperationWithIdentifier("sync", {}, [] { return true; }));
  EXPECT_TRUE(recordsIn(plist).empty());

  // A nested guard with the same identifier on the same thread is refused, not deadlocked.
  bool nestedResult = true;
  EXPECT_TRUE(logger->performOperationWithIdentifier("outer", [&] {
    nestedResult = logger->performOperationWithIdentifier("outer", [] {});
    EXPECT_EQ(logger->runningOperationCount("outer"), 1u);
  }));
  EXPECT_FALSE(nestedResult);
  EXPECT_EQ(logger->runningOperationCount("outer"), 0u);
}

TEST(RiskCrashLogger, OneIdentifierRunsOneAtATimeAndDifferentOnesInParallel) {
  PrivateFolder folder;
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(folder.add("log.plist"));

  std::atomic<int> inside{0}, maximum{0};
  std::atomic<int> completed{0};
  auto body = [&] {
    const int now = ++inside;
    int seen = maximum.load();
    while (now > seen && !maximum.compare_exchange_weak(seen, now)) {
    }
    // Stay inside long enough for the other thread to arrive at the identifier's lock.
    zt::test::waitUntil([&] { return logger->runningOperationCount("shared") == 2 || completed.load() > 0; },
                        std::chrono::seconds(5));
    --inside;
    ++completed;
  };
  std::thread first([&] { EXPECT_TRUE(logger->performOperationWithIdentifier("shared", body)); });
  std::thread second([&] { EXPECT_TRUE(logger->performOperationWithIdentifier("shared", body)); });
  first.join();
  second.join();
  EXPECT_EQ(completed.load(), 2);
  EXPECT_EQ(maximum.load(), 1);
  EXPECT_EQ(logger->runningOperationCount("shared"), 0u);

  // Two identifiers: each block waits until the other one is inside.
  std::mutex mutex;
  std::condition_variable condition;
  int arrived = 0;
  auto meet = [&] {
    std::unique_lock lock(mutex);
    ++arrived;
    condition.notify_all();
    return condition.wait_for(lock, std::chrono::seconds(10), [&] { return arrived == 2; });
  };
  bool metA = false, metB = false;
  std::thread a([&] { logger->performOperationWithIdentifier("a", [&] { metA = meet(); }); });
  std::thread b([&] { logger->performOperationWithIdentifier("b", [&] { metB = meet(); }); });
  a.join();
  b.join();
  EXPECT_TRUE(metA);
  EXPECT_TRUE(metB);
  EXPECT_TRUE(logger->crashesLogDictionary().getIf<ZTValueDictionary>()->empty());
}

TEST(RiskCrashLogger, BadFilesCountAsAnEmptyLogAndAreReplacedWhole) {
  PrivateFolder folder;
  const std::string plist = folder.add("log.plist");
  for (const std::string& contents : {std::string("not a property list"), std::string("<?xml version=\"1.0\"?><plist><array/></plist>"),
                                     std::string("<?xml version=\"1.0\"?><plist><dict><key>x</key>"), std::string()}) {
    zt::test::writeFile(plist, contents);
    auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(plist);
    EXPECT_TRUE(logger->crashesLogDictionary().getIf<ZTValueDictionary>()->empty());
    EXPECT_TRUE(logger->performOperationWithIdentifier("op", [] {}));
    EXPECT_EQ(recordsIn(plist).size(), 0u);
    EXPECT_NE(zt::test::readFile(plist).value_or("").find("<dict/>"), std::string::npos);
  }
  // A folder where the file should be: the guard goes on in memory and says why it cannot save.
  const std::string blocked = folder.add("blocked.plist");
  std::filesystem::create_directories(blocked);
  CapturedLog log;
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(blocked);
  EXPECT_TRUE(logger->blessStartOfOperationWithIdentifier("op"));
  EXPECT_FALSE(logger->blessStartOfOperationWithIdentifier("op"));
  EXPECT_TRUE(log.contains("ERROR: -[ZTRiskCrashLogger saveCrashesLogDictionary] failed to write the crashes log."));
  // No temporary file is left beside it.
  int entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    (void)entry;
    ++entries;
  }
  EXPECT_EQ(entries, 2);
}

// Property lists may carry NUL bytes inside keys and strings (binary lists, or raw bytes in XML
// text), which libplist answers with an assertion that ends the process. The guard must count such
// a file as malformed, not die at launch.
TEST(RiskCrashLogger, LogsWithANulInsideATextCountAsMalformed) {
  static const char kNulInKey[] =
      "\x62\x70\x6c\x69\x73\x74\x30\x30\xd1\x01\x02\x69\x5d\x6d\x00\x01\x33\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x08\x0b\x19\x20\x26\x2b\x35\x37\x3a\x00\x00\x6e\x74\x54\x64\x61\x74\x61\x59\x73\x74\x61\x72"
      "\x74\x44\x61\x74\x65\x10\x03\x42\x00\x01\x33\x41\xc5\xcb\xaf\x52\x80\x00\x00\x08\x0b\x19\x20\x26"
      "\x2b\x35\x37\x3a\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x09\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x43";
  const std::vector<char> bytes(kNulInKey, kNulInKey + sizeof kNulInKey - 1);
  EXPECT_FALSE(zt::crashguard_internal::dictionaryFromPropertyList(bytes).has_value());
  const std::string xml =
      std::string("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key><string>a") + '\0' +
      "b</string></dict></plist>";
  EXPECT_FALSE(zt::crashguard_internal::dictionaryFromPropertyList(std::vector<char>(xml.begin(), xml.end())));

  // A sound binary list is still read, through the same path.
  static const char kSound[] =
      "\x62\x70\x6c\x69\x73\x74\x30\x30\xd1\x01\x02\x56\x69\x6d\x70\x6f\x72\x74\xd1\x03\x04\x55\x63\x6f"
      "\x75\x6e\x74\x10\x03\x08\x0b\x12\x15\x1b\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00"
      "\x00\x05\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x1d";
  const std::optional<ZTValueDictionary> sound =
      zt::crashguard_internal::dictionaryFromPropertyList(std::vector<char>(kSound, kSound + sizeof kSound - 1));
  ASSERT_TRUE(sound.has_value());
  ASSERT_EQ(sound->count("import"), 1u);
  EXPECT_EQ(sound->at("import").getIf<ZTValueDictionary>()->at("count"), ZTValue(std::uint64_t{3}));
}

TEST(RiskCrashLogger, NamesResolveInTheCachesFolder) {
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistName("crash-protection-names.plist");
  ASSERT_NE(logger, nullptr);
  EXPECT_EQ(logger->crashesLogPlistPath(), ZTCachesDirectoryAdd("crash-protection-names.plist"));
  EXPECT_EQ(logger->crashesLogPlistPath().rfind(processFolders.root, 0), 0u);
}

TEST(RiskCrashLogger, AKillDuringASaveLeavesTheOldOrTheNewFileNeverATornOne) {
  PrivateFolder folder;
  const std::string plist = folder.add("log.plist");
  // Many records make each save long enough for kills to land inside it.
  ZTValueDictionary base;
  for (int i = 0; i < 3000; ++i) base["crashed-operation-" + std::to_string(i)] = ZTValue::dictionary();
  ZTValueDictionary withOp = base;
  withOp["op"] = ZTValue::dictionary();
  ASSERT_TRUE(zt::crashguard_internal::writeFileAtomically(plist, zt::crashguard_internal::xmlPropertyList(base), nullptr));

  for (int round = 0; round < 12; ++round) {
    auto child = zt::test::startChild(zt::test::childProgram(), {"save-loop", plist}, childEnvironment(folder),
                                      folder.path());
    ASSERT_TRUE(zt::test::waitUntil(
        [&] { return zt::test::readFile(child.outputPath).value_or("").find("ready") != std::string::npos; },
        std::chrono::seconds(20)));
    struct timespec pause {0, (round % 6) * 7000000L + 1000000L};
    ::nanosleep(&pause, nullptr);
    ::kill(child.pid, SIGKILL);
    const auto result = zt::test::waitChild(child, std::chrono::seconds(20));
    EXPECT_EQ(result.signal, SIGKILL);
    const ZTValueDictionary records = recordsIn(plist);
    EXPECT_TRUE(records == base || records == withOp) << "round " << round << ": " << records.size() << " records";
  }
}

TEST(RiskCrashLogger, AnOrderlyExitPutsTheLaunchTimeFileBackByteForByte) {
  for (const char* how : {"exit", "notify"}) {
    PrivateFolder folder;
    const std::string plist = folder.add("log.plist");
    // Written by hand, with a layout the library would not write itself.
    const std::string launch =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>old</key><dict/>"
        "<key>crashed</key><dict/></dict></plist>\n";
    zt::test::writeFile(plist, launch);
    const auto result = zt::test::runChild(zt::test::childProgram(), {"orderly", plist, how}, childEnvironment(folder));
    EXPECT_EQ(result.exitCode, 0) << how << ": " << result.output;
    EXPECT_EQ(zt::test::readFile(plist), launch) << how;
    // The backup moved back into place.
    EXPECT_TRUE(std::filesystem::is_empty(folder.add("tmp/zentrel-" + std::to_string(::geteuid()) + "/ZTRiskCrashLogger.backups")))
        << how;
  }
}

TEST(RiskCrashLogger, TheWillTerminateNotificationRestoresAndStopsLaterWrites) {
  PrivateFolder folder;
  const std::string plist = folder.add("log.plist");
  ZTValueDictionary launch{{"crashed", ZTValue::dictionary()}};
  ASSERT_TRUE(zt::crashguard_internal::writeFileAtomically(plist, zt::crashguard_internal::xmlPropertyList(launch), nullptr));
  const std::string launchBytes = *zt::test::readFile(plist);
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(plist);
  ASSERT_TRUE(zt::test::exists(logger->plistBackupPath()));
  EXPECT_TRUE(logger->performOperationWithIdentifier("crashed", {}, [] { return true; }));
  EXPECT_TRUE(logger->blessStartOfOperationWithIdentifier("running-at-quit"));
  EXPECT_NE(zt::test::readFile(plist), launchBytes);

  ZTNotificationCenter::defaultCenter()->postNotificationName(ZTApplicationWillTerminateNotification);
  EXPECT_EQ(zt::test::readFile(plist), launchBytes);
  EXPECT_FALSE(zt::test::exists(logger->plistBackupPath()));
  logger->operationDidFinishSuccessfully("running-at-quit");
  EXPECT_EQ(zt::test::readFile(plist), launchBytes);

  // Without a file at launch there is nothing to back up and nothing to restore.
  const std::string fresh = folder.add("fresh.plist");
  auto freshLogger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(fresh);
  EXPECT_FALSE(zt::test::exists(freshLogger->plistBackupPath()));
  EXPECT_TRUE(freshLogger->blessStartOfOperationWithIdentifier("op"));
  freshLogger->applicationWillTerminate();  // no backup: the file made during the run is deleted
  EXPECT_FALSE(zt::test::exists(fresh));
}

TEST(LoadTimeCleanup, TheSharedLibraryDeletesAbandonedBackupsBeforeMain) {
  PrivateFolder folder;
  const auto environment = childEnvironment(folder);
  const std::string backups = folder.add("tmp/zentrel-" + std::to_string(::geteuid()) + "/ZTRiskCrashLogger.backups");
  std::filesystem::create_directories(backups + "/nested");
  std::filesystem::permissions(folder.add("tmp/zentrel-" + std::to_string(::geteuid())), std::filesystem::perms::owner_all);
  zt::test::writeFile(backups + "/crash-protection-OLD.plist", "old");
  const auto result = zt::test::runChild(zt::test::childProgram(), {"cleanup-check", backups}, environment);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_FALSE(zt::test::exists(backups));
}

TEST(LoadTimeCleanup, ABackupHeldByALiveLoggerSurvivesAnotherProcessStarting) {
  ASSERT_FALSE(processFolders.root.empty());
  PrivateFolder folder;
  const std::string plist = folder.add("live.plist");
  zt::test::writeFile(plist, zt::crashguard_internal::xmlPropertyList({{"old", ZTValue::dictionary()}}));
  auto logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(plist);
  const std::string live = logger->plistBackupPath();
  ASSERT_TRUE(zt::test::exists(live));
  const std::string backups = std::filesystem::path(live).parent_path();
  const std::string abandoned = backups + "/crash-protection-ABANDONED.plist";
  zt::test::writeFile(abandoned, "left by a process that died");

  // A second program of the same user, with the same temporary folder, loads the library.
  auto environment = childEnvironment(folder);
  environment["TMPDIR"] = processFolders.root + "/tmp";
  const auto result = zt::test::runChild(zt::test::childProgram(), {"cleanup-check", abandoned}, environment);
  EXPECT_EQ(result.exitCode, 0) << "the abandoned backup was still there: " << result.output;
  EXPECT_TRUE(zt::test::exists(live));

  // Once this logger has restored its file, the backup is gone and the next start removes the folder.
  logger->applicationWillTerminate();
  EXPECT_FALSE(zt::test::exists(live));
  logger.reset();
  EXPECT_EQ(zt::test::runChild(zt::test::childProgram(), {"cleanup-check", backups}, environment).exitCode, 0);
}

TEST(LoadTimeCleanup, AProgramLinkedWithTheStaticLibraryDeletesThemBeforeMain) {
  if (const char* expected = std::getenv("ZT_CRASHGUARD_EXPECT_NO_BACKUPS")) {
    // The copy of this program started below: the backups were gone before main.
    EXPECT_FALSE(zt::test::exists(expected));
    return;
  }
  PrivateFolder folder;
  auto environment = childEnvironment(folder);
  const std::string backups = folder.add("tmp/zentrel-" + std::to_string(::geteuid()) + "/ZTRiskCrashLogger.backups");
  std::filesystem::create_directories(backups);
  // The library's private folder as the library makes it: only its owner may enter.
  std::filesystem::permissions(folder.add("tmp/zentrel-" + std::to_string(::geteuid())), std::filesystem::perms::owner_all);
  zt::test::writeFile(backups + "/crash-protection-OLD.plist", "old");
  environment["ZT_CRASHGUARD_EXPECT_NO_BACKUPS"] = backups;
  environment["ZT_CRASHGUARD_OWN_ENVIRONMENT"] = "1";
  const auto result = zt::test::runChild(
      zt::test::selfProgram(), {"--gtest_filter=LoadTimeCleanup.AProgramLinkedWithTheStaticLibraryDeletesThemBeforeMain"},
      environment);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("[  PASSED  ] 1 test"), std::string::npos) << result.output;
}

}  // namespace
