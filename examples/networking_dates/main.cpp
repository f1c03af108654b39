// Internet dates and reachability: read the dates an HTTP server sends in its three historical
// forms, stamp a response date, and ask whether the Internet can be reached, then hear about changes.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/networking_dates

#include <zentrel/networking/internet_dates.h>
#include <zentrel/networking/reachability.h>
#include <zentrel/platform/notification_center.h>
#include <zentrel/platform/run_loop.h>

#include <chrono>
#include <iostream>

int main() {
  // A Last-Modified header may come in any of HTTP's three forms; all name the same instant.
  for (const char* header : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"}) {
    if (const auto date = zt::dateFromRFC1123(header)) {
      std::cout << header << "  ->  " << zt::ISO8601String(*date) << "\n";
    }
  }
  std::cout << "Date: " << zt::rfc1123String(ZTDate::now()) << "\n";

  // Whether there is a way out to the Internet now, and why.
  auto internet = ZTReachability::reachabilityForInternetConnection();
  const auto flags = internet->currentReachabilityFlags();
  std::cout << "Internet: " << (internet->currentReachabilityStatus() == ZTReachable ? "reachable" : "not reachable")
            << " (" << (flags ? ZTReachabilityFlagsDescription(*flags) : "unknown") << ")\n";

  // Changes arrive on the main thread while its run loop turns; here it turns for three seconds.
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      kNetworkReachabilityChangedNotification, internet.get(), nullptr, [&](const ZTNotification&) {
        std::cout << "The Internet is now "
                  << (internet->currentReachabilityStatus() == ZTReachable ? "reachable" : "not reachable") << "\n";
      });
  if (internet->startNotifier()) {
    ZTRunLoop::main()->runUntil(ZTRunLoop::Clock::now() + std::chrono::seconds(3));
    internet->stopNotifier();
  }
  ZTNotificationCenter::defaultCenter()->removeObserver(observer);
  return 0;
}
