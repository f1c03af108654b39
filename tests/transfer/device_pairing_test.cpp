// Pairing by numeric comparison between two devices (threads with folders of their own, talking
// over loopback TCP), and a man in the middle relaying between them with keys of its own.

#include "zentrel/transfer/device_pairing.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <optional>
#include <thread>

#include "transfer/support/link_fixtures.h"

namespace {

using namespace std::chrono_literals;
using zt::test::LinkScratchFolder;
using zt::test::makeTestDevice;
using zt::test::TestDevice;

// What each user sees: the codes shown on two screens, compared by two people.
class TwoScreens {
 public:
  void show(int screen, const std::string& code) {
    std::lock_guard lock(mutex_);
    codes_[screen] = code;
    changed_.notify_all();
  }
  // A user confirms when the other screen shows the same code (waits for it, bounded).
  bool compare(int screen, const std::string& code) {
    show(screen, code);
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, 20s, [&] { return codes_[1 - screen].has_value(); });
    return codes_[1 - screen] == code;
  }
  std::optional<std::string> code(int screen) {
    std::lock_guard lock(mutex_);
    return codes_[screen];
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<std::string> codes_[2];
};

struct Outcome {
  std::optional<ZTPairedDevice> device;
  ZTError error;
  ZTPairingCandidate candidate;
};

TEST(DevicePairing, BothSidesShowTheSameCodeAndPairOnlyWhenBothConfirm) {
  LinkScratchFolder scratch;
  TestDevice desk = makeTestDevice(scratch.path(), "Desk");
  TestDevice laptop = makeTestDevice(scratch.path(), "Laptop");
  ZTError error;
  auto listener = ZTPairingListener::create(0, true, &error);
  ASSERT_NE(listener, nullptr) << error.description();
  ZTPairingOptions options;
  options.timeout = 30s;

  TwoScreens screens;
  auto responder = std::async(std::launch::async, [&] {
    Outcome outcome;
    outcome.device = listener->acceptAndPair(desk.identity, desk.paired, [&](const ZTPairingCandidate& candidate) {
      outcome.candidate = candidate;
      return screens.compare(0, candidate.code);
    }, options, &outcome.error);
    return outcome;
  });
  Outcome initiator;
  initiator.device = ZTDevicePairing::pairWithDevice("127.0.0.1", listener->port(), laptop.identity, laptop.paired,
                                                     [&](const ZTPairingCandidate& candidate) {
                                                       initiator.candidate = candidate;
                                                       return screens.compare(1, candidate.code);
                                                     }, options, &initiator.error);
  Outcome other = responder.get();
  ASSERT_TRUE(initiator.device) << initiator.error.description();
  ASSERT_TRUE(other.device) << other.error.description();

  EXPECT_EQ(initiator.candidate.code, other.candidate.code);
  EXPECT_EQ(initiator.candidate.code.size(), 6u);
  EXPECT_TRUE(initiator.candidate.isInitiator);
  EXPECT_FALSE(other.candidate.isInitiator);
  EXPECT_EQ(initiator.candidate.peerName, "Desk");
  EXPECT_EQ(initiator.candidate.peerFingerprint, desk.identity->fingerprint());
  EXPECT_EQ(other.candidate.peerFingerprint, laptop.identity->fingerprint());
  EXPECT_EQ(laptop.paired->devices(), (std::vector<ZTPairedDevice>{{"Desk", desk.identity->fingerprint()}}));
  EXPECT_EQ(desk.paired->devices(), (std::vector<ZTPairedDevice>{{"Laptop", laptop.identity->fingerprint()}}));
  // What was stored survives a restart.
  EXPECT_TRUE(ZTPairedDevices::load(desk.identity)->contains(laptop.identity->fingerprint()));
}

TEST(DevicePairing, ARefusalOnEitherSideOrAThrowingPromptPairsNobody) {
  LinkScratchFolder scratch;
  TestDevice desk = makeTestDevice(scratch.path(), "Desk");
  TestDevice laptop = makeTestDevice(scratch.path(), "Laptop");
  ZTPairingOptions options;
  options.timeout = 30s;
  struct Case {
    bool deskAnswer;
    bool laptopThrows;
    ZTDevicePairingError deskError;
    ZTDevicePairingError laptopError;
  };
  for (const Case& c : {Case{false, false, ZTDevicePairingErrorRefusedHere, ZTDevicePairingErrorRefusedByPeer},
                        Case{true, true, ZTDevicePairingErrorRefusedByPeer, ZTDevicePairingErrorRefusedHere}}) {
    auto listener = ZTPairingListener::create(0, true);
    ASSERT_NE(listener, nullptr);
    auto responder = std::async(std::launch::async, [&] {
      Outcome outcome;
      outcome.device = listener->acceptAndPair(desk.identity, desk.paired, [&](const ZTPairingCandidate&) { return c.deskAnswer; },
                                               options, &outcome.error);
      return outcome;
    });
    Outcome initiator;
    initiator.device = ZTDevicePairing::pairWithDevice("127.0.0.1", listener->port(), laptop.identity, laptop.paired,
                                                       [&](const ZTPairingCandidate&) -> bool {
                                                         if (c.laptopThrows) throw std::runtime_error("prompt failed");
                                                         return true;
                                                       }, options, &initiator.error);
    Outcome other = responder.get();
    EXPECT_FALSE(initiator.device);
    EXPECT_FALSE(other.device);
    EXPECT_EQ(other.error.code(), c.deskError) << other.error.description();
    EXPECT_EQ(initiator.error.code(), c.laptopError) << initiator.error.description();
  }
  EXPECT_TRUE(desk.paired->devices().empty());
  EXPECT_TRUE(laptop.paired->devices().empty());
}

TEST(DevicePairing, AManInTheMiddleWithItsOwnKeysMakesTheCodesDiffer) {
  LinkScratchFolder scratch;
  TestDevice desk = makeTestDevice(scratch.path(), "Desk");
  TestDevice laptop = makeTestDevice(scratch.path(), "Laptop");
  // The relay poses as each device to the other (same names, its own keys).
  TestDevice fakeDesk = makeTestDevice(scratch.path(), "Desk-relay");
  TestDevice fakeLaptop = makeTestDevice(scratch.path(), "Laptop-relay");
  ASSERT_TRUE(fakeDesk.identity->setDeviceName("Desk"));
  ASSERT_TRUE(fakeLaptop.identity->setDeviceName("Laptop"));
  ZTPairingOptions options;
  options.timeout = 30s;

  auto deskListener = ZTPairingListener::create(0, true);
  auto relayListener = ZTPairingListener::create(0, true);
  ASSERT_TRUE(deskListener && relayListener);
  const std::uint16_t deskPort = deskListener->port();

  TwoScreens screens;  // 0: the desk's user, 1: the laptop's user
  auto desk_ = std::async(std::launch::async, [&] {
    Outcome outcome;
    outcome.device = deskListener->acceptAndPair(desk.identity, desk.paired, [&](const ZTPairingCandidate& candidate) {
      outcome.candidate = candidate;
      return screens.compare(0, candidate.code);
    }, options, &outcome.error);
    return outcome;
  });
  // The relay: accepts the laptop, and for it connects to the desk, running each side honestly and
  // confirming everything.
  std::string relayCodes[2];
  auto relayTowardsLaptop = std::async(std::launch::async, [&] {
    return relayListener->acceptAndPair(fakeDesk.identity, fakeDesk.paired, [&](const ZTPairingCandidate& candidate) {
      relayCodes[0] = candidate.code;
      return true;
    }, options);
  });
  auto relayTowardsDesk = std::async(std::launch::async, [&] {
    return ZTDevicePairing::pairWithDevice("127.0.0.1", deskPort, fakeLaptop.identity, fakeLaptop.paired,
                                           [&](const ZTPairingCandidate& candidate) {
                                             relayCodes[1] = candidate.code;
                                             return true;
                                           }, options);
  });
  Outcome laptopSide;
  laptopSide.device = ZTDevicePairing::pairWithDevice("127.0.0.1", relayListener->port(), laptop.identity, laptop.paired,
                                                      [&](const ZTPairingCandidate& candidate) {
                                                        laptopSide.candidate = candidate;
                                                        return screens.compare(1, candidate.code);
                                                      }, options, &laptopSide.error);
  Outcome deskSide = desk_.get();
  relayTowardsLaptop.get();
  relayTowardsDesk.get();

  // Each user saw a code and the names they expected, but not the same code.
  ASSERT_TRUE(screens.code(0) && screens.code(1));
  EXPECT_NE(*screens.code(0), *screens.code(1));
  EXPECT_EQ(laptopSide.candidate.peerName, "Desk");
  EXPECT_EQ(deskSide.candidate.peerName, "Laptop");
  EXPECT_NE(laptopSide.candidate.peerFingerprint, desk.identity->fingerprint());
  EXPECT_EQ(laptopSide.error.code(), ZTDevicePairingErrorRefusedHere);
  EXPECT_EQ(deskSide.error.code(), ZTDevicePairingErrorRefusedHere);
  EXPECT_TRUE(desk.paired->devices().empty());
  EXPECT_TRUE(laptop.paired->devices().empty());
}

TEST(DevicePairing, CodeDependsOnEveryInput) {
  const std::string a(64, 'a'), b(64, 'b'), n1(32, '\x01'), n2(32, '\x02');
  const std::string code = ZTDevicePairing::codeFor(a, b, n1, n2);
  EXPECT_EQ(code, ZTDevicePairing::codeFor(a, b, n1, n2));
  EXPECT_EQ(code.find_first_not_of("0123456789"), std::string::npos);
  int differing = 0;
  for (const auto& other : {ZTDevicePairing::codeFor(b, a, n1, n2), ZTDevicePairing::codeFor(a, b, n2, n1),
                            ZTDevicePairing::codeFor(a, std::string(64, 'c'), n1, n2)}) {
    differing += other != code;
  }
  EXPECT_EQ(differing, 3);
}

TEST(DevicePairing, ARefusedConnectionAndASilentPeerEndWithClearErrors) {
  LinkScratchFolder scratch;
  TestDevice laptop = makeTestDevice(scratch.path(), "Laptop");
  std::uint16_t closedPort = 0;
  {
    auto listener = ZTPairingListener::create(0, true);
    ASSERT_NE(listener, nullptr);
    closedPort = listener->port();
  }
  ZTError error;
  ZTPairingOptions options;
  options.timeout = 5s;
  EXPECT_FALSE(ZTDevicePairing::pairWithDevice("127.0.0.1", closedPort, laptop.identity, laptop.paired,
                                               [](const ZTPairingCandidate&) { return true; }, options, &error));
  EXPECT_EQ(error.code(), ZTDevicePairingErrorConnection);
  EXPECT_NE(error.localizedDescription().find("refused"), std::string::npos) << error.localizedDescription();

  // A listener nobody answers: accepted by the kernel, never spoken to.
  auto silent = ZTPairingListener::create(0, true);
  options.timeout = 300ms;
  EXPECT_FALSE(ZTDevicePairing::pairWithDevice("127.0.0.1", silent->port(), laptop.identity, laptop.paired,
                                               [](const ZTPairingCandidate&) { return true; }, options, &error));
  EXPECT_EQ(error.code(), ZTDevicePairingErrorTimedOut) << error.description();
  EXPECT_FALSE(silent->acceptAndPair(laptop.identity, laptop.paired, [](const ZTPairingCandidate&) { return true; }, options, &error));
  EXPECT_TRUE(laptop.paired->devices().empty());
}

}  // namespace
