#include "fault/scenarios.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include "crashguard/internal/plist_file.h"
#include "zentrel/crashguard/risk_crash_logger.h"
#include "zentrel/filesystem/coordinated_file_operations.h"
#include "zentrel/filesystem/file_system_updates_watcher.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#ifdef ZT_FAULT_WITH_TRANSFER
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/copy_file_async_operation.h"
#include "zentrel/transfer/save_stream_to_local_file_operation.h"
#endif

namespace fs = std::filesystem;

namespace zt::fault {
namespace {

void setArmed(bool on) {
  using ArmFunction = void (*)(int);
  static const auto arm = reinterpret_cast<ArmFunction>(::dlsym(RTLD_DEFAULT, "zt_fault_arm"));
  if (arm != nullptr) arm(on ? 1 : 0);
}

std::string contents(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeContents(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// Text whose every line differs, so a torn or shifted copy is told apart from a whole one.
std::string numberedText(std::size_t bytes) {
  std::string text;
  for (std::size_t i = 0; text.size() < bytes; ++i) text += std::to_string(i) + "\n";
  text.resize(bytes);
  return text;
}

std::set<std::string> namesIn(const fs::path& folder) {
  std::set<std::string> names;
  std::error_code code;
  for (fs::directory_iterator it(folder, code), end; !code && it != end; it.increment(code)) {
    names.insert(it->path().filename().string());
  }
  return names;
}

// Every regular file below the folder, by relative path, with its bytes.
std::map<std::string, std::string> tree(const fs::path& folder) {
  std::map<std::string, std::string> files;
  std::error_code code;
  for (fs::recursive_directory_iterator it(folder, code), end; !code && it != end; it.increment(code)) {
    const std::string relative = fs::relative(it->path(), folder).string();
    files[relative] = it->is_regular_file() ? contents(it->path()) : std::string("<folder>");
  }
  return files;
}

// --- the crash guard's log --------------------------------------------------------------------

// The log is read by the next launch: at every moment it is a whole property list (the old one or
// the new one), and no temporary file is left beside it.
void crashGuardLog(Scenario& s) {
  const fs::path folder = s.folder() / "guard";
  const fs::path log = folder / "crashes.plist";
  fs::create_directories(folder);
  ZTValueDictionary earlier;
  earlier["earlier-import"] = ZTValue(ZTValueDictionary{});
  writeContents(log, zt::crashguard_internal::xmlPropertyList(earlier));

  // The orderly end puts back the launch-time file, or removes the log when no backup of it could
  // be made; before that the log is always there.
  auto checkLog = [&](const char* when, bool mayBeGone = false) {
    setArmed(false);
    const std::optional<std::vector<char>> bytes = zt::crashguard_internal::readWholeFile(log.string(), nullptr);
    s.require(bytes.has_value() || mayBeGone, std::string("the crash log exists ") + when);
    if (bytes) {
      s.require(zt::crashguard_internal::dictionaryFromPropertyList(*bytes).has_value(),
                std::string("the crash log is a whole property list ") + when);
    }
    const std::set<std::string> names = namesIn(folder);
    s.require(names == std::set<std::string>{"crashes.plist"} || (names.empty() && mayBeGone),
              std::string("nothing but the crash log is in its folder ") + when);
    setArmed(true);
  };

  std::shared_ptr<ZTRiskCrashLogger> logger;
  s.armed([&] { logger = ZTRiskCrashLogger::createWithCrashesLogPlistPath(log.string()); });
  s.require(logger != nullptr, "the crash guard is created");
  if (!logger) return;
  checkLog("after loading");
  s.armed([&] {
    logger->performOperationWithIdentifier("export", [&] { checkLog("while an operation runs"); },
                                           [] { return true; });
  });
  checkLog("after an operation");
  s.armed([&] { logger->blessStartOfOperationWithIdentifier("print"); });
  checkLog("after blessing");
  s.armed([&] { logger->operationDidFinishSuccessfully("print"); });
  checkLog("after finishing");
  s.armed([&] { logger->applicationWillTerminate(); });
  checkLog("after the orderly end", true);
}

// --- coordinated moves and copies --------------------------------------------------------------

// Whole or not at all: the item is at the source or at the destination, complete; a failed move
// leaves it at the source; nothing else appears in either folder.
void moveScenario(Scenario& s, const fs::path& destinationFolder, bool folderItem) {
  const fs::path source = s.folder() / "from" / "item";
  const fs::path destination = destinationFolder / "item";
  fs::create_directories(s.folder() / "from");
  fs::create_directories(destinationFolder);
  if (folderItem) {
    fs::create_directories(source / "inner");
    writeContents(source / "a.txt", numberedText(100000));
    writeContents(source / "inner" / "b.txt", numberedText(3000));
  } else {
    writeContents(source, numberedText(300000));
  }
  const auto before = folderItem ? tree(source) : std::map<std::string, std::string>{{"", contents(source)}};
  auto now = [&](const fs::path& at) {
    return folderItem ? tree(at) : std::map<std::string, std::string>{{"", contents(at)}};
  };

  bool moved = false;
  ZTError error;
  s.armed([&] {
    moved = zt::moveItemWithCoordinationFromPath(*ZTFileManager::defaultManager(), source.string(),
                                                 destination.string(), &error);
  });
  const bool atSource = fs::exists(fs::symlink_status(source));
  const bool atDestination = fs::exists(fs::symlink_status(destination));
  if (moved) {
    s.require(atDestination && now(destination) == before, "a move that succeeded left the whole item at the destination");
    // Across file systems the source's removal may fail after a complete copy: both are whole then.
    if (atSource) s.require(now(source) == before, "a source left behind by a move is whole");
  } else {
    s.require(atSource && now(source) == before, "a failed move left the item whole at the source");
    s.require(!atDestination, "a failed move left nothing at the destination");
  }
  s.require(namesIn(destinationFolder).size() <= 1, "no temporary item is left in the destination folder");
}

void coordinatedMoveFile(Scenario& s) { moveScenario(s, s.folder() / "to", false); }
void coordinatedMoveFolder(Scenario& s) { moveScenario(s, s.folder() / "to", true); }

// Moves onto another file system (the folder named by ZT_FAULT_OTHER_FILE_SYSTEM, tmpfs), where a
// move is a copy and a removal.
void coordinatedMoveAcrossFileSystems(Scenario& s) {
  const char* other = std::getenv("ZT_FAULT_OTHER_FILE_SYSTEM");
  s.require(other != nullptr, "a folder on another file system was given");
  if (other != nullptr) moveScenario(s, fs::path(other) / "to", true);
}

void copyScenario(Scenario& s, bool coordinated, bool folderItem) {
  const fs::path source = s.folder() / "from" / "item";
  const fs::path destinationFolder = s.folder() / "to";
  const fs::path destination = destinationFolder / "item";
  fs::create_directories(s.folder() / "from");
  fs::create_directories(destinationFolder);
  if (folderItem) {
    fs::create_directories(source / "inner");
    writeContents(source / "a.txt", numberedText(200000));
    writeContents(source / "inner" / "b.txt", numberedText(5000));
    writeContents(source / "inner" / "empty.txt", "");
  } else {
    writeContents(source, numberedText(3 << 20));
  }
  auto now = [&](const fs::path& at) {
    return folderItem ? tree(at) : std::map<std::string, std::string>{{"", contents(at)}};
  };
  const auto before = now(source);

  bool copied = false;
  ZTError error;
  s.armed([&] {
    copied = coordinated ? zt::copyItemWithCoordinationFromPath(*ZTFileManager::defaultManager(), source.string(),
                                                                destination.string(), &error)
                         : ZTFileManager::defaultManager()->copyItemAtPath(source.string(), destination.string(), &error);
  });
  s.require(now(source) == before, "the source of a copy is unchanged");
  if (copied) {
    s.require(fs::exists(destination) && now(destination) == before, "a copy that succeeded is whole");
    s.require(namesIn(destinationFolder) == std::set<std::string>{"item"}, "a copy leaves only the item");
  } else {
    s.require(namesIn(destinationFolder).empty(), "a failed copy leaves nothing in the destination folder");
  }
}

void coordinatedCopyFolder(Scenario& s) { copyScenario(s, true, true); }
void fileManagerCopyFile(Scenario& s) { copyScenario(s, false, false); }
void fileManagerCopyFolder(Scenario& s) { copyScenario(s, false, true); }

// --- the watcher -------------------------------------------------------------------------------

class RecordingDelegate : public ZTFileSystemUpdatesWatcherDelegate {
 public:
  void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string& path,
                                                            const ZTValue&) override {
    started.insert(path);
  }
  void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string& path,
                                                             const ZTValue&) override {
    finished.insert(path);
  }
  std::set<std::string> started;
  std::set<std::string> finished;
};

// A watch that cannot be set up is logged and the item reported ignored; once watching restarts,
// changes are reported again. A watch that could be set up through the item or its folder reports.
void watcherRecovers(Scenario& s) {
  const fs::path folder = s.folder() / "watched";
  const fs::path document = folder / "document.txt";
  const fs::path inner = folder / "inner";
  fs::create_directories(inner);
  writeContents(document, "first");
  std::vector<std::string> logLines;
  ZTSetLogSink([&](std::string_view line) { logLines.emplace_back(line); });

  auto delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<ZTFileSystemUpdatesWatcher> watcher;
  s.armed([&] {
    watcher = ZTFileSystemUpdatesWatcher::create(std::vector<std::string>{document.string(), inner.string()}, delegate);
  });
  s.require(watcher != nullptr, "the watcher is created");
  if (!watcher) return;
  watcher->setSettleInterval(ZTFileSystemUpdatesWatcher::Seconds(0.02));

  for (const fs::path& item : {document, inner}) {
    if (watcher->isIgnoringFileSystemUpdatesForFileAtPath(item.string())) {
      bool logged = false;
      for (const std::string& line : logLines) logged = logged || line.find("Files watcher") != std::string::npos;
      s.require(logged, "an item that could not be watched is logged");
      watcher->beginIgnoringFileSystemUpdatesForFileAtPath(item.string());
      watcher->endIgnoringFileSystemUpdatesForFileAtPath(item.string());
      s.require(!watcher->isIgnoringFileSystemUpdatesForFileAtPath(item.string()),
                "watching restarts once the system lets it");
    }
  }
  auto waitFor = [&](const fs::path& item, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (delegate->started.count(item.string()) == 0 && std::chrono::steady_clock::now() < deadline) {
      ZTRunLoop::main()->runOnce(ZTRunLoop::Seconds(0.02));
    }
    return delegate->started.count(item.string()) != 0;
  };
  writeContents(document, "second, longer");
  s.require(waitFor(document, 10), "a change of the file is reported");
  writeContents(inner / "new.txt", "x");
  if (!waitFor(inner, 0.5)) {
    // A folder whose own watch failed is watched through its parent: its own changes are
    // reported, and the first report sets its watch up again, after which changes inside it are.
    bool told = false;
    for (const std::string& line : logLines)
      told = told || line.find("(" + inner.string() + ") cannot be watched itself") != std::string::npos;
    s.require(told, "a folder followed only through its parent is logged");
    fs::last_write_time(inner, fs::file_time_type::clock::now());
    s.require(waitFor(inner, 10), "a change of a folder watched through its parent is reported");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (delegate->finished.count(inner.string()) == 0 && std::chrono::steady_clock::now() < deadline) {
      ZTRunLoop::main()->runOnce(ZTRunLoop::Seconds(0.02));
    }
    delegate->started.clear();
    writeContents(inner / "newer.txt", "y");
    s.require(waitFor(inner, 10), "after that report, a change inside the folder is reported");
  }
  watcher.reset();
  ZTSetLogSink({});
}

#ifdef ZT_FAULT_WITH_TRANSFER
// --- the transfer operations -------------------------------------------------------------------

// What an operation's handlers reported. Handlers run on the worker thread; the scenario reads
// the counts after waitUntilFinished().
struct Reported {
  std::atomic<int> successes{0};
  std::atomic<int> failures{0};
  std::atomic<int> cancellations{0};
  int total() const { return successes + failures + cancellations; }
};

// Names in the library's private temporary folder (where staging files are made).
std::set<std::string> stagingNames() { return namesIn(ZTTemporaryDirectory()); }

// Saving a file's stream: either the operation reported success and the whole file is at the
// destination, or it reported an error and nothing is there; no staging file is left either way.
void streamScenario(Scenario& s, const fs::path& destinationFolder) {
  const fs::path source = s.folder() / "from" / "source.bin";
  const fs::path destination = destinationFolder / "saved.bin";
  fs::create_directories(source.parent_path());
  fs::create_directories(destinationFolder);
  const std::string content = numberedText((1 << 20) + 3);
  writeContents(source, content);
  const std::set<std::string> stagingBefore = stagingNames();

  ZTScopedThreadWithRunLoop<> worker("fault-stream");
  Reported reported;
  std::shared_ptr<ZTSaveStreamToLocalFileOperation> operation;
  bool finished = false;
  s.armed([&] {
    operation = ZTSaveStreamToLocalFileOperation::create(
        ZTInputStream::inputStreamWithFileAtPath(source.string()), destination.string(), nullptr, worker.thread(),
        nullptr, [&](ZTConcurrentOperation&) { ++reported.cancellations; },
        [&](ZTSaveStreamToLocalFileOperation&) { ++reported.successes; },
        [&](ZTConcurrentOperation&, const ZTError&) { ++reported.failures; });
    if (!operation) return;
    operation->start();
    finished = operation->waitUntilFinished(ZTOperation::Seconds(30));
  });
  s.require(operation != nullptr, "the operation is created");
  if (!operation) return;
  s.require(finished, "the operation finishes");
  s.require(reported.total() == 1 && reported.cancellations == 0, "the operation reports one outcome, not a cancellation");
  if (reported.successes == 1) {
    s.require(fs::exists(destination) && contents(destination) == content,
              "a save that succeeded left the whole file at the destination");
    s.require(namesIn(destinationFolder) == std::set<std::string>{"saved.bin"}, "a save leaves only the file");
  } else {
    s.require(namesIn(destinationFolder).empty(), "a failed save left nothing at the destination");
  }
  s.require(stagingNames() == stagingBefore, "no staging file is left in the temporary folder");
  s.require(contents(source) == content, "the source is unchanged");
}

void streamToFile(Scenario& s) { streamScenario(s, s.folder() / "to"); }

// The staging file is on another file system than the destination (tmpfs, named by
// ZT_FAULT_OTHER_FILE_SYSTEM), so moving it into place is a copy and a removal.
void streamToFileAcrossFileSystems(Scenario& s) {
  const char* other = std::getenv("ZT_FAULT_OTHER_FILE_SYSTEM");
  s.require(other != nullptr, "a folder on another file system was given");
  if (other != nullptr) streamScenario(s, fs::path(other) / "to");
}

// The asynchronous copy: whole file at the destination after success, nothing there after an
// error, and the source untouched.
// With existingFile, a different file already stands at the path asked for: it is compared, left
// alone, and the copy goes to the unique name beside it.
void copyAsyncScenario(Scenario& s, bool existingFile) {
  const fs::path source = s.folder() / "from" / "item.bin";
  const fs::path destinationFolder = s.folder() / "to";
  const fs::path asked = destinationFolder / "item.bin";
  const fs::path destination = existingFile ? destinationFolder / "item-1.bin" : asked;
  fs::create_directories(source.parent_path());
  fs::create_directories(destinationFolder);
  const std::string content = numberedText((1 << 20) + 5);
  writeContents(source, content);
  const std::string existing = numberedText(70000);
  if (existingFile) writeContents(asked, existing);
  std::set<std::string> namesBefore = namesIn(destinationFolder);

  ZTScopedThreadWithRunLoop<> worker("fault-copy");
  Reported reported;
  std::shared_ptr<ZTCopyFileAsyncOperation> copy;
  bool finished = false;
  s.armed([&] {
    copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(
        worker.thread(), nullptr, [&](ZTConcurrentOperation&) { ++reported.cancellations; },
        [&](ZTConcurrentOperation&, const ZTError&) { ++reported.failures; });
    if (!copy) return;
    copy->setSourceFilePath(source.string());
    copy->setDestinationFilePath(asked.string());
    copy->setSuccessHandler([&](ZTCopyFileAsyncOperation&) { ++reported.successes; });
    copy->start();
    finished = copy->waitUntilFinished(ZTOperation::Seconds(30));
  });
  s.require(copy != nullptr, "the operation is created");
  if (!copy) return;
  s.require(finished, "the operation finishes");
  s.require(reported.total() == 1 && reported.cancellations == 0, "the operation reports one outcome, not a cancellation");
  s.require(contents(source) == content, "the source of a copy is unchanged");
  if (existingFile) s.require(contents(asked) == existing, "the file already at the destination is untouched");
  if (reported.successes == 1) {
    s.require(copy->destinationFilePath() == destination.string(), "the copy went to the expected path");
    s.require(fs::exists(destination) && contents(destination) == content, "a copy that succeeded is whole");
    namesBefore.insert(destination.filename().string());
    s.require(namesIn(destinationFolder) == namesBefore, "a copy leaves only the file");
  } else {
    s.require(namesIn(destinationFolder) == namesBefore, "a failed copy left nothing at the destination");
  }
}

void asyncCopy(Scenario& s) { copyAsyncScenario(s, false); }
void asyncCopyBesideExistingFile(Scenario& s) { copyAsyncScenario(s, true); }
#endif

constexpr const char* kFileCalls = "open,write,fsync,rename,copy_file_range";

constexpr ScenarioEntry kScenarios[] = {
    {"CrashGuardLog", kFileCalls, crashGuardLog},
    {"CoordinatedMoveFile", kFileCalls, coordinatedMoveFile},
    {"CoordinatedMoveFolder", kFileCalls, coordinatedMoveFolder},
    {"CoordinatedMoveAcrossFileSystems", kFileCalls, coordinatedMoveAcrossFileSystems},
    {"CoordinatedCopyFolder", kFileCalls, coordinatedCopyFolder},
    {"FileManagerCopyFile", kFileCalls, fileManagerCopyFile},
    {"FileManagerCopyFolder", kFileCalls, fileManagerCopyFolder},
    {"WatcherRecovers", "inotify_add_watch", watcherRecovers},
#ifdef ZT_FAULT_WITH_TRANSFER
    {"StreamToFile", kFileCalls, streamToFile},
    {"StreamToFileAcrossFileSystems", kFileCalls, streamToFileAcrossFileSystems},
    {"AsyncCopy", kFileCalls, asyncCopy},
    {"AsyncCopyBesideExistingFile", kFileCalls, asyncCopyBesideExistingFile},
#endif
};

}  // namespace

Scenario::Scenario(fs::path folder) : folder_(std::move(folder)) {}

void Scenario::armed(const std::function<void()>& work) {
  setArmed(true);
  try {
    work();
  } catch (const std::exception& exception) {
    require(false, std::string("the library threw: ") + exception.what());
  }
  setArmed(false);
}

void Scenario::require(bool condition, const std::string& what) {
  if (condition) return;
  ++broken_;
  std::cerr << "broken promise: " << what << "\n";
}

std::span<const ScenarioEntry> scenarios() { return kScenarios; }

int runScenario(const std::string& name, const std::string& folder) {
  setArmed(false);
  for (const ScenarioEntry& entry : kScenarios) {
    if (name != entry.name) continue;
    Scenario scenario{fs::path(folder)};
    entry.run(scenario);
    std::cerr.flush();
    return scenario.brokenPromises() == 0 ? 0 : 1;
  }
  std::cerr << "no scenario named " << name << "\n";
  return 2;
}

}  // namespace zt::fault
