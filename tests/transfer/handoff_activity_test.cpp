// The hand-off's rules that need no second process: the initialisers, progress throttling, the
// activity message, and one whole transfer within this process.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "common/log_and_environment.h"
#include "transfer/internal/activity_message.h"
#include "transfer/support/handoff_test_support.h"
#include "transfer/support/transfer_test_support.h"
#include "zentrel/operations/operation_queue.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/transfer/download_file_user_activity.h"
#include "zentrel/transfer/upload_file_user_activity.h"
#include "zentrel/transfer/user_activity.h"

namespace {

using namespace zt::test::handoff;
using namespace zt::handoff_internal;

bool contains(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

TEST(HandoffInitialisers, DownloadRefusesMissingActivityZeroSizeAndEmptyPathInThatOrder) {
  zt::test::LogCapture log;
  const std::string prefix = "-[ZTDownloadFileUserActivity initWithUserActivity:expectedFileSize:filePath:] ";
  EXPECT_FALSE(ZTDownloadFileUserActivity::create(nullptr, 0, ""));
  EXPECT_FALSE(ZTDownloadFileUserActivity::create(ZTUserActivity::create("t"), 0, ""));
  EXPECT_FALSE(ZTDownloadFileUserActivity::create(ZTUserActivity::create("t"), 10, ""));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{prefix + "nil == userActivity", prefix + "0 == fileSize",
                                                   prefix + "0 == filePath.length"}));
  auto download = ZTDownloadFileUserActivity::create(ZTUserActivity::create("t"), 10, "/tmp/x");
  ASSERT_TRUE(download);
  EXPECT_EQ(download->totalFileSize(), 10u);
  EXPECT_EQ(download->destinationInputFilePath(), "/tmp/x");
  EXPECT_EQ(download->fileOperationQueue()->maxConcurrentOperationCount(), 1);
}

TEST(HandoffInitialisers, UploadWithoutActivityIsLoggedAndMadeAllTheSame) {
  zt::test::LogCapture log;
  auto upload = ZTUploadFileUserActivity::create(nullptr);
  ASSERT_TRUE(upload);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"-[ZTUploadFileUserActivity initWithUserActivity:] nil == userActivity"});
  ZTError error;
  EXPECT_FALSE(upload->becomeCurrent(&error));
}

class ProgressRecorder : public ZTDownloadFileUserActivityDelegate {
 public:
  void userActivityStreamFileProgress(ZTStreamFileUserActivity&, float progress) override { reports.push_back(progress); }
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity&, const std::string&) override {}
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity& activity) override {
    ++failures;
    invalidatedWhenTold = activity.userActivity() == nullptr;
  }
  std::vector<float> reports;
  int failures = 0;
  bool invalidatedWhenTold = false;
};

TEST(HandoffProgress, ReportsAtMostEveryTenthOfASecondAndEveryHundredth) {
  auto download = ZTDownloadFileUserActivity::create(ZTUserActivity::create("t"), 1000, "/tmp/x");
  auto recorder = std::make_shared<ProgressRecorder>();
  download->setDelegate(recorder);
  double now = 1000.0;
  download->setTimeSource([&] { return now; });

  // Steps of 1/16 s keep the arithmetic exact.
  download->notifyDelegateAboutProgressUsingTransferredDataSize(500);  // first report: time and growth both suffice
  now += 0.0625;
  download->notifyDelegateAboutProgressUsingTransferredDataSize(700);  // too soon
  now += 0.0625;
  download->notifyDelegateAboutProgressUsingTransferredDataSize(505);  // late enough, grown by less than 1 %
  download->notifyDelegateAboutProgressUsingTransferredDataSize(600);  // both
  now += 0.0625;
  download->notifyDelegateAboutProgressUsingTransferredDataSize(1000);  // completion within 0.1 s: not reported
  now += 0.125;
  download->notifyDelegateAboutProgressUsingTransferredDataSize(5000);  // clamped to the total
  EXPECT_EQ(recorder->reports, (std::vector<float>{0.5f, 0.6f, 1.0f}));
  EXPECT_FLOAT_EQ(download->notifiedStreamFileProgress(), 1.0f);
  EXPECT_DOUBLE_EQ(download->notifiedStreamFileProgressTime(), now);
}

TEST(HandoffFailures, ActivityWithoutContinuationStreamsFailsTheDownloadAfterInvalidation) {
  zt::test::LogCapture log;
  auto download = ZTDownloadFileUserActivity::create(ZTUserActivity::create("t"), 10, "/tmp/x");
  auto recorder = std::make_shared<ProgressRecorder>();
  download->setDelegate(recorder);
  download->start();
  EXPECT_EQ(recorder->failures, 1);
  EXPECT_TRUE(recorder->invalidatedWhenTold);
  EXPECT_TRUE(contains(log.lines(), "-[ZTDownloadFileUserActivity start] User activity MUST support continuation streams!"));
  download->invalidate();  // idempotent
  EXPECT_EQ(recorder->failures, 1);
}

TEST(HandoffFailures, AnActivityNotContinuedHasNoStreamsToGive) {
  auto activity = ZTUserActivity::create("t");
  activity->setSupportsContinuationStreams(true);
  std::optional<ZTError> error;
  bool answered = false;
  activity->getContinuationStreamsWithCompletionHandler(
      [&](std::shared_ptr<ZTInputStream> in, std::shared_ptr<ZTOutputStream> out, const std::optional<ZTError>& e) {
        EXPECT_FALSE(in);
        EXPECT_FALSE(out);
        error = e;
        answered = true;
      });
  EXPECT_FALSE(answered) << "the answer comes on a later turn";
  ZTRunLoop::main()->runWithCondition([&] { return !answered; }, Seconds(5));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), ZTUserActivityErrorNoStreams);
}

TEST(ActivityMessage, RoundTripsUserInfoIncludingBytesAndDates) {
  ZTValue info = ZTValueDictionary{{"fileSize", std::uint64_t{1} << 40},
                                   {"fileName", "naïve.txt"},
                                   {"negative", -3},
                                   {"ratio", 0.25},
                                   {"bytes", ZTBytes{0, 1, 2, 255}},
                                   {"date", ZTDate(12345.5)},
                                   {"list", ZTValueArray{true, nullptr, "x"}}};
  auto encoded = encodeActivityMessage({"org.example.type", info}, nullptr);
  ASSERT_TRUE(encoded);
  auto length = decodeActivityMessageLength(encoded->data(), nullptr);
  ASSERT_TRUE(length);
  EXPECT_EQ(*length + 4, encoded->size());
  auto decoded = decodeActivityMessageBody(std::vector<std::uint8_t>(encoded->begin() + 4, encoded->end()), nullptr);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->activityType, "org.example.type");
  EXPECT_EQ(decoded->userInfo, info);
}

TEST(ActivityMessage, OversizedMalformedAndForeignMessagesAreClearErrors) {
  ZTError error;
  const std::uint8_t tooLong[4] = {0x00, 0x10, 0x00, 0x01};
  EXPECT_FALSE(decodeActivityMessageLength(tooLong, &error));
  EXPECT_EQ(error.code(), ZTUserActivityErrorMessageTooLarge);
  const std::uint8_t empty[4] = {0, 0, 0, 0};
  EXPECT_FALSE(decodeActivityMessageLength(empty, &error));
  EXPECT_EQ(error.code(), ZTUserActivityErrorMalformedMessage);

  for (const std::string& body : std::vector<std::string>{"not json", "[1,2]", R"({"version":2,"activityType":"t","userInfo":{}})",
                                 R"({"version":1,"userInfo":{}})", R"({"version":1,"activityType":"t","userInfo":[]})",
                                 R"({"version":1,"activityType":"t","userInfo":{"b":{"$bytes":"@@@"}}})",
                                 std::string(100000, '[')}) {
    error = ZTError();
    EXPECT_FALSE(decodeActivityMessageBody(std::vector<std::uint8_t>(body.begin(), body.end()), &error)) << body.substr(0, 40);
    EXPECT_EQ(error.domain(), ZTUserActivityErrorDomain);
    EXPECT_EQ(error.code(), ZTUserActivityErrorMalformedMessage);
  }
  EXPECT_FALSE(encodeActivityMessage({"t", ZTValueDictionary{{"big", std::string(ZTUserActivity::kMaxActivityMessageSize, 'x')}}},
                                     &error));
  EXPECT_EQ(error.code(), ZTUserActivityErrorMessageTooLarge);
}

// Both devices in this process: the sender's events and the receiver's share the main run loop.
class InProcessSender : public ZTUploadFileUserActivityDelegate {
 public:
  std::string path;
  bool uploaded = false;
  int progressReports = 0;
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override { return path; }
  void userActivityStreamFileProgress(ZTStreamFileUserActivity&, float) override { ++progressReports; }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity& upload, const std::string& sent) override {
    uploaded = sent == path && upload.outputStream() == nullptr;
  }
};

class InProcessReceiver : public ZTDownloadFileUserActivityDelegate {
 public:
  std::string delivered;
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity&, const std::string& path) override { delivered = path; }
};

// Both ends share one run loop, so each end's reads and writes happen between the other's events:
// a readiness report that a read already used up must not reach the delegate as an event.
TEST(HandoffInOneProcess, UploadStagesAPrivateCopyAndDeletesItOnInvalidation) {
  zt::test::TransferScratch scratch;
  Device a = makeDevice(scratch.path(), "a"), b = makeDevice(scratch.path(), "b");
  ASSERT_TRUE(a.link && b.link);
  pairDevices(a, b);
  constexpr std::uint64_t size = (1 << 20) + 12345;  // several 256 KiB blocks and a short one
  writePatternFile(scratch / "source.bin", size);

  auto activity = ZTUserActivity::create("org.zentrel.tests.handoff");
  activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, size}});
  activity->setSecureLink(a.link);
  activity->setLoopbackOnly(true);
  auto sender = std::make_shared<InProcessSender>();
  sender->path = scratch / "source.bin";
  auto upload = ZTUploadFileUserActivity::create(activity);
  upload->setDelegate(sender);
  ASSERT_TRUE(upload->becomeCurrent());
  EXPECT_TRUE(activity->supportsContinuationStreams());
  ASSERT_NE(activity->port(), 0);

  std::shared_ptr<ZTUserActivity> continued;
  ZTUserActivity::continueActivityAtHost(
      "127.0.0.1", activity->port(),
      [&](std::shared_ptr<ZTUserActivity> c, const std::optional<ZTError>& error) {
        EXPECT_FALSE(error) << error->description();
        continued = std::move(c);
      },
      b.link);
  ZTRunLoop::main()->runWithCondition([&] { return !continued; }, Seconds(30));
  ASSERT_TRUE(continued);
  EXPECT_EQ(continued->userInfo()[ZTHandoffFileSizeKey].uintValue(), size);

  auto receiver = std::make_shared<InProcessReceiver>();
  auto download = ZTDownloadFileUserActivity::create(continued, size, scratch / "out.bin");
  download->setDelegate(receiver);
  download->start();
  ZTRunLoop::main()->runWithCondition([&] { return receiver->delivered.empty() || !sender->uploaded; }, Seconds(60));
  EXPECT_EQ(receiver->delivered, scratch / "out.bin");
  EXPECT_TRUE(sender->uploaded);
  EXPECT_TRUE(fileHasPattern(scratch / "out.bin", size));
  EXPECT_GT(sender->progressReports, 0);
  EXPECT_TRUE(upload->copyOutputFileOperationInitiated());
  EXPECT_EQ(upload->endOfOutputFile(), size);
  const std::string staged = upload->outputFilePath();
  ASSERT_FALSE(staged.empty());
  EXPECT_NE(staged, sender->path) << "the sender streams a private copy";
  EXPECT_TRUE(std::filesystem::exists(staged));
  upload.reset();
  download.reset();
  EXPECT_FALSE(std::filesystem::exists(staged));
  EXPECT_TRUE(scratch.stagingFiles().empty());
}

}  // namespace
