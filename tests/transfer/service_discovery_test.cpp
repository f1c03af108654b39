// Hand-off discovery through Avahi: without a daemon, a clear error; with one (a private bus and
// daemon started for the test), a service advertised here is browsed here, TXT records included,
// and disappears when withdrawn.

#include "zentrel/transfer/service_discovery.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "common/log_and_environment.h"
#include "zentrel/platform/run_loop.h"

namespace {

using namespace std::chrono_literals;

// libdbus reads the bus address once per process, so each scenario runs in a child process of its
// own (this binary, running the disabled test of the same name) with the address it needs.
void runInChild(const std::string& test, const std::string& busAddress) {
  zt::test::ScopedEnvironment bus("DBUS_SYSTEM_BUS_ADDRESS", busAddress.c_str());
  std::string command = "/proc/" + std::to_string(::getpid()) + "/exe --gtest_also_run_disabled_tests --gtest_filter=DiscoveryScenario.DISABLED_" + test + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char line[4096];
  while (fgets(line, sizeof line, pipe)) output += line;
  int status = ::pclose(pipe);
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;
}

TEST(DiscoveryScenario, DISABLED_NoDaemon) {
  ZTError error;
  ZTHandoffAdvertiser::Description description{"Desk", 4242, "org.example.file", "Desk", std::string(64, 'a')};
  EXPECT_EQ(ZTHandoffAdvertiser::create(description, nullptr, ZTRunLoop::current(), &error), nullptr);
  EXPECT_EQ(error.domain(), ZTServiceDiscoveryErrorDomain);
  EXPECT_EQ(error.code(), ZTServiceDiscoveryErrorNoDaemon);
  EXPECT_EQ(error.localizedDescription().rfind("The Avahi service discovery daemon is not running", 0), 0u)
      << error.localizedDescription();
  EXPECT_EQ(ZTHandoffBrowser::create({}, ZTRunLoop::current(), &error), nullptr);
  EXPECT_EQ(error.code(), ZTServiceDiscoveryErrorNoDaemon);

  description.port = 0;
  EXPECT_EQ(ZTHandoffAdvertiser::create(description, nullptr, ZTRunLoop::current(), &error), nullptr);
  EXPECT_EQ(error.code(), ZTServiceDiscoveryErrorBadArgument);
}

// A private system bus with an Avahi daemon, stopped and removed at the end.
class PrivateAvahi {
 public:
  PrivateAvahi() {
    // ctest names the tests' source folder; a binary run by hand finds it beside this file.
    const char* sources = std::getenv("ZT_TEST_SOURCE_DIR");
    const std::filesystem::path folder = sources ? std::filesystem::path(sources) / "transfer"
                                                 : std::filesystem::path(__FILE__).parent_path();
    const std::string script = (folder / "support" / "private-avahi.sh").string();
    FILE* pipe = ::popen(script.c_str(), "r");
    if (!pipe) {
      problem_ = "cannot run " + script;
      return;
    }
    char line[4096] = {};
    std::string output;
    while (fgets(line, sizeof line, pipe)) output += line;
    int status = ::pclose(pipe);
    if (status != 0) {
      problem_ = output.empty() ? "the daemon script failed" : output;
      return;
    }
    std::istringstream fields(output);
    std::string field;
    while (fields >> field) {
      auto equals = field.find('=');
      if (equals == std::string::npos) continue;
      std::string key = field.substr(0, equals), value = field.substr(equals + 1);
      if (key == "BUS") bus_ = value;
      if (key == "DBUS_PID") busPid_ = std::stoi(value);
      if (key == "AVAHI_PID") avahiPid_ = std::stoi(value);
      if (key == "DIR") folder_ = value;
    }
  }
  ~PrivateAvahi() {
    if (avahiPid_ > 0) ::kill(avahiPid_, SIGTERM);
    if (busPid_ > 0) ::kill(busPid_, SIGTERM);
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }
  const std::string& problem() const { return problem_; }
  const std::string& bus() const { return bus_; }

 private:
  std::string problem_, bus_, folder_;
  int busPid_ = -1, avahiPid_ = -1;
};

TEST(ServiceDiscovery, WithoutADaemonAdvertisingAndBrowsingFailClearly) {
  runInChild("NoDaemon", "unix:path=/nonexistent/zentrel-test-bus");
}

TEST(ServiceDiscovery, AnAdvertisedActivityIsBrowsedWithItsTXTRecordsAndDisappearsWhenWithdrawn) {
  PrivateAvahi avahi;
  if (!avahi.problem().empty()) GTEST_SKIP() << "no private Avahi daemon: " << avahi.problem();
  runInChild("AdvertiseAndBrowse", avahi.bus());
}

TEST(DiscoveryScenario, DISABLED_AdvertiseAndBrowse) {
  auto loop = ZTRunLoop::current();

  std::vector<ZTHandoffService> appeared, disappeared;
  ZTError error;
  ZTHandoffBrowser::Callbacks callbacks;
  callbacks.appeared = [&](const ZTHandoffService& service) { appeared.push_back(service); };
  callbacks.disappeared = [&](const ZTHandoffService& service) { disappeared.push_back(service); };
  callbacks.failed = [&](const ZTError& failure) { ADD_FAILURE() << failure.description(); };
  auto browser = ZTHandoffBrowser::create(callbacks, loop, &error);
  ASSERT_NE(browser, nullptr) << error.description();

  bool registered = false;
  const std::string fingerprint(64, 'c');
  auto advertiser = ZTHandoffAdvertiser::create({"Desk hand-off", 4242, "org.example.file", "Desk ☕", fingerprint},
                                                [&](ZTHandoffAdvertiser&, const ZTError* failure) {
                                                  if (failure) ADD_FAILURE() << failure->description();
                                                  else registered = true;
                                                }, loop, &error);
  ASSERT_NE(advertiser, nullptr) << error.description();
  loop->runWithCondition([&] { return appeared.empty() || !registered; }, 20s);
  EXPECT_TRUE(registered);
  EXPECT_TRUE(advertiser->isRegistered());
  ASSERT_EQ(appeared.size(), 1u);
  const ZTHandoffService& service = appeared[0];
  EXPECT_EQ(service.serviceName, "Desk hand-off");
  EXPECT_EQ(service.port, 4242);
  EXPECT_EQ(service.address, "127.0.0.1");
  EXPECT_EQ(service.activityType(), "org.example.file");
  EXPECT_EQ(service.deviceName(), "Desk ☕");
  EXPECT_EQ(service.protocolVersion(), ZTHandoffProtocolVersion);
  EXPECT_EQ(service.fingerprint(), fingerprint);

  // A second device with the same name is renamed instead of failing.
  bool secondRegistered = false;
  auto second = ZTHandoffAdvertiser::create({"Desk hand-off", 4243, "org.example.file", "Desk 2", fingerprint},
                                            [&](ZTHandoffAdvertiser&, const ZTError* failure) { secondRegistered = !failure; },
                                            loop, &error);
  ASSERT_NE(second, nullptr) << error.description();
  loop->runWithCondition([&] { return appeared.size() < 2 || !secondRegistered; }, 20s);
  EXPECT_TRUE(secondRegistered);
  EXPECT_NE(second->serviceName(), "Desk hand-off");

  advertiser.reset();
  loop->runWithCondition([&] { return disappeared.empty(); }, 20s);
  ASSERT_EQ(disappeared.size(), 1u);
  EXPECT_EQ(disappeared[0].serviceName, "Desk hand-off");
}

}  // namespace
