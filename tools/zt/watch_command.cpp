// `zt watch PATH...`: watches files and folders and prints, for each burst of changes, a line when
// it starts (with the state from before) and one when it has settled (with what changed), until
// Ctrl-C. The settle compare, the reports and the Ctrl-C handling all run on the main run loop.

#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/filesystem/file_descriptor.h"
#include "zentrel/filesystem/file_system_updates_watcher.h"
#include "zentrel/platform/run_loop.h"

namespace ztool {
namespace {

using Watcher = ZTFileSystemUpdatesWatcher;

std::string clockTime(std::time_t when) {
  struct tm local {};
  ::localtime_r(&when, &local);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}
std::string now() { return clockTime(std::time(nullptr)); }

std::string withThousands(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3) digits.insert(static_cast<std::size_t>(at), ",");
  return digits;
}

std::string plural(std::size_t count, const char* one, const char* many) {
  return withThousands(count) + " " + (count == 1 ? one : many);
}

bool isFolderState(const std::string& path, const ZTValue& state) {
  if (state.size() == 0) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
  }
  return !state.contains(Watcher::kSizeKey) || !state[Watcher::kModificationDateKey].isDate();
}

std::string describe(const std::string& path, const ZTValue& state) {
  if (isFolderState(path, state)) return "folder, " + plural(state.size(), "item", "items");
  if (state.size() == 0) return "nothing there";
  const ZTValue& date = state[Watcher::kModificationDateKey];
  const auto modified = static_cast<std::time_t>(date.getIf<ZTDate>()->timeIntervalSince1970());
  return "file, " + plural(state[Watcher::kSizeKey].uintValue(), "byte", "bytes") + ", modified " + clockTime(modified);
}

std::string childName(const std::string& childPath) {
  const auto slash = childPath.rfind('/');
  return slash == std::string::npos ? childPath : childPath.substr(slash + 1);
}

std::string listNames(const std::vector<std::string>& names) {
  constexpr std::size_t kShown = 8;
  std::string text;
  for (std::size_t i = 0; i < names.size() && i < kShown; ++i) text += (i ? ", " : "") + names[i];
  if (names.size() > kShown) text += " and " + withThousands(names.size() - kShown) + " more";
  return text;
}

// What the settled state says beside the state from before the burst.
std::string describeChange(const std::string& path, const ZTValue& before, const ZTValue& after) {
  const bool folder = isFolderState(path, after) || (after.size() == 0 && isFolderState(path, before));
  if (after.size() == 0 && !folder) return "now gone";
  if (!folder) {
    const ZTValue& date = after[Watcher::kModificationDateKey];
    const auto modified = static_cast<std::time_t>(date.getIf<ZTDate>()->timeIntervalSince1970());
    return "now " + plural(after[Watcher::kSizeKey].uintValue(), "byte", "bytes") + ", modified " + clockTime(modified);
  }
  std::vector<std::string> appeared, disappeared, changed;
  if (const auto* children = after.getIf<ZTValueDictionary>()) {
    for (const auto& [child, attributes] : *children) {
      if (!before.contains(child)) appeared.push_back(childName(child));
      else if (!(before[child] == attributes)) changed.push_back(childName(child));
    }
  }
  if (const auto* children = before.getIf<ZTValueDictionary>()) {
    for (const auto& [child, attributes] : *children) {
      if (!after.contains(child)) disappeared.push_back(childName(child));
    }
  }
  std::string text = "now " + plural(after.size(), "item", "items");
  if (!appeared.empty()) text += "; appeared: " + listNames(appeared);
  if (!disappeared.empty()) text += "; disappeared: " + listNames(disappeared);
  if (!changed.empty()) text += "; changed: " + listNames(changed);
  if (appeared.empty() && disappeared.empty() && changed.empty()) text += ", none added, removed or changed";
  return text;
}

class Printer : public ZTFileSystemUpdatesWatcherDelegate {
 public:
  void fileSystemUpdatesWatcherUpdatesDidStartForFileAtPath(Watcher&, const std::string& path,
                                                            const ZTValue& state) override {
    before_[path] = state;
    std::cout << now() << "  started changing: " << path << " (" << describe(path, state) << ")" << std::endl;
  }
  void fileSystemUpdatesWatcherUpdatesDidFinishForFileAtPath(Watcher&, const std::string& path,
                                                             const ZTValue& state) override {
    std::cout << now() << "  finished: " << path << ", " << describeChange(path, before_[path], state) << std::endl;
    before_.erase(path);
  }

 private:
  std::map<std::string, ZTValue> before_;
};

// Why a path the watcher could not take cannot be watched, as a person would put it.
std::string whyNotWatched(const std::string& path) {
  if (path.empty()) return "an empty path names nothing";
  const auto slash = path.find_last_of('/', path.size() > 1 ? path.size() - 2 : 0);
  const std::string parent = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  struct stat st {};
  if (::stat(parent.c_str(), &st) != 0) return "neither it nor its folder " + parent + " exists";
  return "the system refused to watch it (see the line above)";
}

}  // namespace

int runWatch(const std::vector<std::string>& paths, double settleSeconds) {
  // Ctrl-C (and a polite kill) arrive as readable signals on the main loop, so the watcher is torn
  // down normally and the exit status is 0.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (::sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
    std::cerr << "zt watch: cannot take over Ctrl-C: " << std::strerror(errno) << "\n";
    return 1;
  }
  ZTFileDescriptor signalDescriptor(::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
  if (!signalDescriptor) {
    std::cerr << "zt watch: cannot take over Ctrl-C: " << std::strerror(errno) << "\n";
    return 1;
  }

  auto printer = std::make_shared<Printer>();
  auto watcher = Watcher::create(paths, printer);
  if (!watcher) {
    std::cerr << "zt watch: name at least one file or folder to watch\n";
    return 1;
  }
  watcher->setSettleInterval(std::chrono::duration<double>(settleSeconds));
  std::size_t watched = 0;
  for (const auto& path : paths) {
    if (watcher->isIgnoringFileSystemUpdatesForFileAtPath(path)) {
      std::cerr << "zt watch: cannot watch " << path << ": " << whyNotWatched(path) << "\n";
      continue;
    }
    ++watched;
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
      std::cerr << "zt watch: " << path << " does not exist (yet); its folder is watched, so it is reported when it appears\n";
    }
  }
  if (watched == 0) return 1;

  std::cout << now() << "  watching " << plural(watched, "item", "items") << "; a burst is finished once nothing has changed for "
            << settleSeconds << " s. Press Ctrl-C to stop." << std::endl;
  bool interrupted = false;
  auto loop = ZTRunLoop::main();
  auto source = loop->addFileDescriptorSource(signalDescriptor.get(), ZTFileDescriptorSource::Event::Readable,
                                              [&](ZTFileDescriptorSource&) {
                                                struct signalfd_siginfo info {};
                                                while (::read(signalDescriptor.get(), &info, sizeof info) == sizeof info) {
                                                  interrupted = true;
                                                }
                                                if (interrupted) loop->stop();
                                              });
  if (!source) {
    std::cerr << "zt watch: cannot take over Ctrl-C\n";
    return 1;
  }
  constexpr auto kSlice = std::chrono::hours(1);
  while (!interrupted) loop->runUntil(ZTRunLoop::Clock::now() + kSlice);
  source->cancel();
  watcher.reset();
  std::cout << "\n" << now() << "  stopped watching." << std::endl;
  return 0;
}

void addWatchCommand(CLI::App& app) {
  auto* command = app.add_subcommand("watch", "Report bursts of changes to files and folders as they settle");
  command->footer(
      "For each burst of changes to a watched item, prints one line when it begins, with the item as it\n"
      "was before (a file's size and modification time, a folder's number of items), and one line once\n"
      "the item has stayed the same for the settle time, with what it has become: a file's new size, the\n"
      "items that appeared in, disappeared from or changed in a folder (direct children only).\n"
      "Atomic saves (editors, sed -i, sync clients) and deleting and re-creating an item are followed; a\n"
      "path that does not exist yet is reported when it appears, as long as its folder exists.\n"
      "Runs until Ctrl-C. Exit status 0, or 1 when none of the paths could be watched.\n\n"
      "Example: zt watch ~/notes.txt ~/Downloads");
  static std::vector<std::string> paths;
  static double settle = 1.0;
  command->add_option("paths", paths, "Files and folders to watch")->required();
  command->add_option("--settle", settle, "Seconds without change after which a burst counts as finished")
      ->default_val(1.0)
      ->check(CLI::Range(0.0, 3600.0));
  command->callback([] {
    if (runWatch(paths, settle) != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
