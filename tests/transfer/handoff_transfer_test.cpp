// A file handed from one process to another over loopback: the sending device is a peer process
// (see support/handoff_peer.cpp), the receiving one is this test, and the other way round for the
// full disk.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "common/log_and_environment.h"
#include "transfer/support/handoff_test_support.h"
#include "transfer/support/transfer_test_support.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/transfer/download_file_user_activity.h"
#include "zentrel/transfer/upload_file_user_activity.h"
#include "zentrel/transfer/user_activity.h"

namespace {

using namespace zt::test::handoff;

class RecordingDownloadDelegate : public ZTDownloadFileUserActivityDelegate {
 public:
  void userActivityDidStartStreamFile(ZTStreamFileUserActivity&) override { started = true; }
  void userActivityStreamFileProgress(ZTStreamFileUserActivity&, float progress) override { progresses.push_back(progress); }
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity& activity, const std::string& path) override {
    delivered = path;
    bytesAtDelivery = activity.transferredDataSize();
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity& activity) override {
    failed = true;
    invalidatedWhenTold = activity.userActivity() == nullptr && activity.fileOperationQueue() == nullptr;
    done = true;
  }
  bool started = false, done = false, failed = false, invalidatedWhenTold = false;
  std::vector<float> progresses;
  std::string delivered;
  std::uint64_t bytesAtDelivery = 0;
};

class HandoffTransfer : public ::testing::Test {
 protected:
  void SetUp() override {
    here = makeDevice(scratch.path(), "here");
    there = makeDevice(scratch.path(), "there");
    ASSERT_TRUE(here.link && there.link);
    pairDevices(here, there);
    std::filesystem::create_directories(scratch / "in");
  }

  std::unique_ptr<Peer> startSender(const std::string& role, std::map<std::string, std::string> environment,
                                    const Device& device) {
    environment["XDG_CONFIG_HOME"] = device.configHome;
    std::filesystem::create_directories(scratch / "peer-tmp");
    environment["TMPDIR"] = scratch / "peer-tmp";  // the sender's staging copy is not this side's
    auto peer = Peer::start(role, environment);
    if (peer && peer->waitForLine("PORT ")) {
      port = static_cast<std::uint16_t>(std::stoi(peer->waitForLine("PORT ")->substr(5)));
    }
    return peer;
  }

  // Continues the peer's activity from this process.
  std::shared_ptr<ZTUserActivity> continueActivity(std::optional<ZTError>* errorOut = nullptr) {
    bool answered = false;
    std::shared_ptr<ZTUserActivity> activity;
    ZTUserActivity::continueActivityAtHost(
        "127.0.0.1", port,
        [&](std::shared_ptr<ZTUserActivity> continued, const std::optional<ZTError>& error) {
          activity = std::move(continued);
          if (errorOut) *errorOut = error;
          answered = true;
        },
        here.link);
    ZTRunLoop::main()->runWithCondition([&] { return !answered; }, Seconds(30));
    return activity;
  }

  // Receives into `destination`; the download is kept (not invalidated) until the caller drops it.
  std::shared_ptr<ZTDownloadFileUserActivity> receive(const std::shared_ptr<ZTUserActivity>& activity,
                                                      const std::string& destination,
                                                      const std::shared_ptr<RecordingDownloadDelegate>& delegate) {
    auto download = ZTDownloadFileUserActivity::create(activity, activity->userInfo()[ZTHandoffFileSizeKey].uintValue(),
                                                       destination);
    if (!download) return nullptr;
    download->setDelegate(delegate);
    download->start();
    ZTRunLoop::main()->runWithCondition([&] { return !delegate->done; }, Seconds(60));
    return download;
  }

  zt::test::TransferScratch scratch;
  Device here, there;
  std::uint16_t port = 0;
};

TEST_F(HandoffTransfer, CompletesAsSoonAsTheExpectedSizeHasArrivedWithoutWaitingForTheSenderToClose) {
  constexpr std::uint64_t size = 300000;
  auto sender = startSender("raw", {{"ZT_PEER_DECLARED_SIZE", std::to_string(size)},
                                    {"ZT_PEER_SEND_BYTES", std::to_string(size)},
                                    {"ZT_PEER_HOLD", "1"}},
                            there);
  ASSERT_NE(port, 0);
  auto activity = continueActivity();
  ASSERT_TRUE(activity);
  EXPECT_EQ(activity->activityType(), "org.zentrel.tests.handoff");
  EXPECT_EQ(activity->peerName(), "there");

  auto delegate = std::make_shared<RecordingDownloadDelegate>();
  auto download = receive(activity, scratch / "in/file.bin", delegate);
  ASSERT_TRUE(download);
  EXPECT_TRUE(delegate->started);
  ASSERT_EQ(delegate->delivered, scratch / "in/file.bin");
  EXPECT_EQ(delegate->bytesAtDelivery, size);
  EXPECT_FALSE(sender->hasLine("CLOSED")) << "the sender still holds its stream open";
  EXPECT_TRUE(fileHasPattern(delegate->delivered, size));
  // Progress is throttled, so fewer reports than reads, each larger than the one before.
  EXPECT_TRUE(std::is_sorted(delegate->progresses.begin(), delegate->progresses.end()));

  download.reset();
  EXPECT_TRUE(scratch.stagingFiles().empty()) << "the staging file goes with the transfer object";
  sender->closeInput();
  EXPECT_EQ(sender->waitForExit(), 0);
}

TEST_F(HandoffTransfer, SenderClosingEarlyFailsTheReceiverWithItsLogLineAndDeliversNothing) {
  zt::test::LogCapture log;
  auto sender = startSender("raw", {{"ZT_PEER_DECLARED_SIZE", "300000"}, {"ZT_PEER_SEND_BYTES", "100000"}}, there);
  ASSERT_NE(port, 0);
  auto activity = continueActivity();
  ASSERT_TRUE(activity);
  auto delegate = std::make_shared<RecordingDownloadDelegate>();
  auto download = receive(activity, scratch / "in/file.bin", delegate);
  ASSERT_TRUE(delegate->failed);
  EXPECT_TRUE(delegate->invalidatedWhenTold);
  EXPECT_EQ(download->transferredDataSize(), 100000u);
  const auto lines = log.lines();
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "-[ZTDownloadFileUserActivity continueReceivingData:end:] self.transferredDataSize < self.totalFileSize"),
            lines.end());
  EXPECT_FALSE(std::filesystem::exists(scratch / "in/file.bin"));
  EXPECT_TRUE(scratch.stagingFiles().empty());
}

TEST_F(HandoffTransfer, MoreBytesThanExpectedAreAllDeliveredAtTheEndOfTheStream) {
  auto sender = startSender("raw", {{"ZT_PEER_DECLARED_SIZE", "99999"}, {"ZT_PEER_SEND_BYTES", "100000"}}, there);
  ASSERT_NE(port, 0);
  auto activity = continueActivity();
  ASSERT_TRUE(activity);
  auto delegate = std::make_shared<RecordingDownloadDelegate>();
  auto download = receive(activity, scratch / "in/file.bin", delegate);
  ASSERT_FALSE(delegate->delivered.empty());
  EXPECT_TRUE(fileHasPattern(delegate->delivered, 100000));
}

TEST_F(HandoffTransfer, IdenticalFileAtTheDestinationIsReusedAndADifferentOneKept) {
  writePatternFile(scratch / "source.bin", 700000);
  writePatternFile(scratch / "in/same.bin", 700000);
  struct stat before {};
  ASSERT_EQ(::stat((scratch / "in/same.bin").c_str(), &before), 0);
  {
    auto sender = startSender("upload", {{"ZT_PEER_FILE", scratch / "source.bin"}}, there);
    ASSERT_NE(port, 0);
    auto activity = continueActivity();
    ASSERT_TRUE(activity);
    auto delegate = std::make_shared<RecordingDownloadDelegate>();
    auto download = receive(activity, scratch / "in/same.bin", delegate);
    EXPECT_EQ(delegate->delivered, scratch / "in/same.bin");
    struct stat after {};
    ASSERT_EQ(::stat((scratch / "in/same.bin").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "the identical file is reused, not replaced";
    EXPECT_TRUE(sender->waitForLine("UPLOADED"));
  }
  {
    std::ofstream(scratch / "in/other.bin") << "something else";
    auto sender = startSender("upload", {{"ZT_PEER_FILE", scratch / "source.bin"}}, there);
    ASSERT_NE(port, 0);
    auto activity = continueActivity();
    ASSERT_TRUE(activity);
    auto delegate = std::make_shared<RecordingDownloadDelegate>();
    auto download = receive(activity, scratch / "in/other.bin", delegate);
    ASSERT_FALSE(delegate->delivered.empty());
    EXPECT_NE(delegate->delivered, scratch / "in/other.bin");
    EXPECT_EQ(std::filesystem::path(delegate->delivered).parent_path(), std::filesystem::path(scratch / "in"));
    EXPECT_TRUE(fileHasPattern(delegate->delivered, 700000));
    std::ifstream kept(scratch / "in/other.bin");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "something else");
  }
}

TEST_F(HandoffTransfer, UnpairedDeviceFailsTheHandshakeAndNoByteOfTheFileMoves) {
  Device stranger = makeDevice(scratch.path(), "stranger");
  writePatternFile(scratch / "source.bin", 100000);
  auto sender = startSender("upload", {{"ZT_PEER_FILE", scratch / "source.bin"}}, stranger);
  ASSERT_NE(port, 0);
  std::optional<ZTError> error;
  auto activity = continueActivity(&error);
  EXPECT_FALSE(activity) << "not even the activity reaches an unpaired device";
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), ZTSecureLinkErrorDomain);
  EXPECT_TRUE(sender->waitForLine("REFUSED ", Seconds(10)));
  EXPECT_FALSE(sender->hasLine("CONNECTED"));
  EXPECT_TRUE(std::filesystem::is_empty(scratch / "in"));
  EXPECT_TRUE(scratch.stagingFiles().empty());
}

TEST_F(HandoffTransfer, SenderKilledMidTransferFailsTheReceiverAndLeavesNoStagingFile) {
  auto sender = startSender("raw", {{"ZT_PEER_DECLARED_SIZE", "4000000"},
                                    {"ZT_PEER_SEND_BYTES", "4000000"},
                                    {"ZT_PEER_STALL_AFTER", "1000000"}},
                            there);
  ASSERT_NE(port, 0);
  auto activity = continueActivity();
  ASSERT_TRUE(activity);
  auto delegate = std::make_shared<RecordingDownloadDelegate>();
  auto download = ZTDownloadFileUserActivity::create(activity, 4000000, scratch / "in/file.bin");
  download->setDelegate(delegate);
  download->start();
  ASSERT_TRUE(sender->waitForLine("STALLED "));
  ZTRunLoop::main()->runWithCondition([&] { return download->transferredDataSize() < 1000000; }, Seconds(30));
  EXPECT_EQ(download->transferredDataSize(), 1000000u);
  EXPECT_FALSE(scratch.stagingFiles().empty()) << "bytes so far are in the staging file";
  sender->kill();
  ZTRunLoop::main()->runWithCondition([&] { return !delegate->done; }, Seconds(30));
  EXPECT_TRUE(delegate->failed);
  EXPECT_TRUE(scratch.stagingFiles().empty());
  EXPECT_FALSE(std::filesystem::exists(scratch / "in/file.bin"));
}

// The receiver is the peer here: it mounts a 1 MiB tmpfs in a mount namespace of its own and keeps
// its staging file and the destination there.
class SendDelegate : public ZTUploadFileUserActivityDelegate {
 public:
  std::string path;
  bool done = false, failed = false;
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override { return path; }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity&, const std::string&) override { done = true; }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override { failed = done = true; }
};

TEST_F(HandoffTransfer, FullDiskAtTheReceiverFailsAndLeavesNothingAtTheDestination) {
  writePatternFile(scratch / "source.bin", 16 << 20);
  auto activity = ZTUserActivity::create("org.zentrel.tests.handoff");
  activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, std::uint64_t{16 << 20}}});
  activity->setSecureLink(here.link);
  activity->setLoopbackOnly(true);
  auto delegate = std::make_shared<SendDelegate>();
  delegate->path = scratch / "source.bin";
  auto upload = ZTUploadFileUserActivity::create(activity);
  upload->setDelegate(delegate);
  ASSERT_TRUE(upload->becomeCurrent());

  std::filesystem::create_directories(scratch / "tmpfs");
  auto receiver = Peer::start("receive", {{"XDG_CONFIG_HOME", there.configHome},
                                          {"ZT_PEER_PORT", std::to_string(activity->port())},
                                          {"ZT_PEER_TMPFS", scratch / "tmpfs"},
                                          {"ZT_PEER_DEST", scratch / "tmpfs/out.bin"}});
  ASSERT_TRUE(receiver->waitForLine("STAGING-LEFT ", Seconds(60)))
      << (receiver->hasLine("MOUNT-REFUSED") ? "this system refuses a private tmpfs" : "no answer");
  EXPECT_TRUE(receiver->hasLine("FAILED"));
  EXPECT_FALSE(receiver->hasLine("DELIVERED"));
  EXPECT_TRUE(receiver->hasLine("LOG -[ZTDownloadFileUserActivity continueReceivingData:end:] Couldn't write input file due"));
  EXPECT_EQ(*receiver->waitForLine("STAGING-LEFT "), "STAGING-LEFT 0");
  EXPECT_EQ(*receiver->waitForLine("DESTINATION "), "DESTINATION absent");
  EXPECT_EQ(receiver->waitForExit(), 0);
  // The sender sees its receiver go and fails too.
  ZTRunLoop::main()->runWithCondition([&] { return !delegate->done; }, Seconds(30));
  EXPECT_TRUE(delegate->failed);
}

}  // namespace
