// Watching a folder: a burst of changes is reported when it begins and once the folder has stayed
// the same for the settle interval. The program makes the changes itself, then waits for the report.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/folder_watcher

#include <zentrel/filesystem/file_system_updates_watcher.h>
#include <zentrel/filesystem/temporary_files.h>
#include <zentrel/platform/run_loop.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

class Reporter : public ZTFileSystemUpdatesWatcherDelegate {
 public:
  void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string&,
                                                            const ZTValue& state) override {
    std::cout << "changes began; the folder held " << state.size() << " items\n";
  }
  void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(ZTFileSystemUpdatesWatcher&, const std::string&,
                                                             const ZTValue& state) override {
    std::cout << "changes settled; the folder holds " << state.size() << " items\n";
    settled = true;
  }
  bool settled = false;
};

int main() {
  // The watcher lives on the main thread and reports through the main run loop.
  const auto inside = ZTPathToTemporaryUniqueDirectoryWithFileNamedInside(std::string("unused"), true);
  if (!inside) return 1;
  const std::string folder = std::filesystem::path(*inside).parent_path();
  auto reporter = std::make_shared<Reporter>();
  auto watcher = ZTFileSystemUpdatesWatcher::create({folder}, reporter);
  if (!watcher) return 1;
  watcher->setSettleInterval(std::chrono::milliseconds(200));

  std::ofstream(folder + "/a.txt") << "one\n";
  std::ofstream(folder + "/b.txt") << "two\n";

  auto loop = ZTRunLoop::main();
  const auto deadline = ZTRunLoop::Clock::now() + std::chrono::seconds(10);
  while (!reporter->settled && ZTRunLoop::Clock::now() < deadline) {
    loop->runUntil(ZTRunLoop::Clock::now() + std::chrono::milliseconds(50));
  }
  watcher.reset();
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return reporter->settled ? 0 : 1;
}
