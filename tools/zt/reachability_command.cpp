// `zt reachability [HOST] [--watch]`: whether a host, or the Internet and the link-local network,
// can be reached with the routes this machine has now, with the flags behind the answer; with
// --watch, a line for every change of status until Ctrl-C. Changes are reported on the main run
// loop, which also takes Ctrl-C.

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "zentrel/networking/reachability.h"
#include "zentrel/platform/notification_center.h"
#include "zentrel/platform/run_loop.h"

namespace ztool {
namespace {

std::string clockNow() {
  const std::time_t now = std::time(nullptr);
  struct tm local {};
  ::localtime_r(&now, &local);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}

std::string describe(const ZTReachability& reachability) {
  const auto flags = reachability.currentReachabilityFlags();
  if (!flags) return "unknown (name not resolved yet, or the kernel did not answer)";
  const bool reachable = reachability.currentReachabilityStatus() == ZTReachable;
  return std::string(reachable ? "reachable" : "not reachable") + "  [flags: " + ZTReachabilityFlagsDescription(*flags) + "]";
}

std::string label(const ZTReachability& reachability) {
  if (reachability.localWiFiRef()) return "link-local network (169.254.0.0)";
  if (reachability.targetDescription() == "0.0.0.0") return "Internet (default route)";
  return reachability.targetDescription();
}

}  // namespace

int runReachability(const std::string& host, bool watch) {
  std::vector<std::shared_ptr<ZTReachability>> targets;
  if (host.empty()) {
    targets.push_back(ZTReachability::reachabilityForInternetConnection());
    targets.push_back(ZTReachability::reachabilityForLocalWiFi());
  } else {
    auto target = ZTReachability::reachabilityWithHostName(host);
    if (!target) {
      std::cerr << "zt reachability: \"" << host << "\" is not a host name (empty, too long or with a NUL byte)\n";
      return 1;
    }
    targets.push_back(target);
  }
  // Host names resolve on a worker; give the resolver a while before answering "unknown".
  auto loop = ZTRunLoop::main();
  loop->runWithCondition(
      [&] {
        for (const auto& target : targets) {
          if (!target->currentReachabilityFlags()) return true;
        }
        return false;
      },
      std::chrono::seconds(15));
  for (const auto& target : targets) std::cout << label(*target) << ": " << describe(*target) << std::endl;
  if (!watch) return 0;

  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (::sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
    std::cerr << "zt reachability: cannot take over Ctrl-C: " << std::strerror(errno) << "\n";
    return 1;
  }
  const int signalDescriptor = ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signalDescriptor < 0) {
    std::cerr << "zt reachability: cannot take over Ctrl-C: " << std::strerror(errno) << "\n";
    return 1;
  }
  auto center = ZTNotificationCenter::defaultCenter();
  std::vector<std::shared_ptr<ZTNotificationObserver>> observers;
  for (const auto& target : targets) {
    std::weak_ptr<ZTReachability> weak = target;
    observers.push_back(center->addObserverForName(kNetworkReachabilityChangedNotification, target.get(), nullptr,
                                                   [weak](const ZTNotification&) {
                                                     if (auto changed = weak.lock()) {
                                                       std::cout << clockNow() << "  " << label(*changed) << ": "
                                                                 << describe(*changed) << std::endl;
                                                     }
                                                   }));
    if (!target->startNotifier()) {
      std::cerr << "zt reachability: cannot watch the network (netlink refused; see the line above)\n";
      ::close(signalDescriptor);
      return 1;
    }
  }
  std::cout << clockNow() << "  watching for changes of status. Press Ctrl-C to stop." << std::endl;
  bool interrupted = false;
  auto source = loop->addFileDescriptorSource(signalDescriptor, ZTFileDescriptorSource::Event::Readable,
                                              [&](ZTFileDescriptorSource&) {
                                                struct signalfd_siginfo info {};
                                                while (::read(signalDescriptor, &info, sizeof info) == sizeof info) {
                                                  interrupted = true;
                                                }
                                                if (interrupted) loop->stop();
                                              });
  if (!source) {
    std::cerr << "zt reachability: cannot take over Ctrl-C\n";
    ::close(signalDescriptor);
    return 1;
  }
  while (!interrupted) loop->runUntil(ZTRunLoop::Clock::now() + std::chrono::hours(1));
  source->cancel();
  for (const auto& target : targets) target->stopNotifier();
  for (const auto& observer : observers) center->removeObserver(observer);
  ::close(signalDescriptor);
  std::cout << "\n" << clockNow() << "  stopped watching." << std::endl;
  return 0;
}

void addReachabilityCommand(CLI::App& app) {
  auto* command = app.add_subcommand("reachability", "Whether a host, or the Internet, can be reached now");
  command->footer(
      "Asks the kernel for the route it would take to the host (nothing is sent to it) and shows the\n"
      "status and the flags behind it: Reachable (a route exists), IsDirect (no gateway), IsLocalAddress\n"
      "(one of this machine's addresses), ConnectionRequired (the route's link has no carrier),\n"
      "TransientConnection (a point-to-point link such as a VPN). Without a host: the Internet (a default\n"
      "route) and the link-local network. Host names are resolved with the system's resolver.\n"
      "With --watch, prints a line at every change of status until Ctrl-C.\n\n"
      "Example: zt reachability example.org\n"
      "Example: zt reachability --watch");
  static std::string host;
  static bool watch = false;
  command->add_option("host", host, "Host name or IPv4/IPv6 address");
  command->add_flag("--watch", watch, "Keep reporting changes until Ctrl-C");
  command->callback([] {
    if (runReachability(host, watch) != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
