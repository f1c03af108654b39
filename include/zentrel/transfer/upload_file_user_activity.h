#pragma once
// ZTUploadFileUserActivity: sends one file to the device that continues its user activity.
//
//   auto activity = ZTUserActivity::create("org.example.document");
//   activity->setUserInfo(...);                       // the file's size and name, for the receiver
//   auto upload = ZTUploadFileUserActivity::create(activity);
//   upload->setDelegate(myDelegate);                  // held weakly
//   upload->becomeCurrent();                          // advertise; wait for a receiver
//
// When a receiver connects, the delegate is asked for the file's path; the file is copied to a
// private staging file (a ZTCopyFileAsyncOperation on a worker thread of its own), and the copy is
// written to the continuation stream in blocks of 256 KiB, at most 16 KiB per write. After the
// last write the stream is closed after a delay of 1.1 times the largest gap seen between two
// writes; the delegate then hears userActivityDidUploadFileAtPath. Memory stays bounded by one
// block.
//
// Threads, failures and clean-up: see ZTStreamFileUserActivity. The staged copy is deleted on
// invalidation. A second receiver that connects while one is being served is turned away (its
// streams are closed).

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_handle.h"
#include "zentrel/transfer/stream_file_user_activity.h"

class ZTUploadFileUserActivity;
class ZTTimer;

// What the sender asks of its application (both required), on the main thread.
class ZT_API ZTUploadFileUserActivityDelegate : public ZTStreamFileUserActivityDelegate {
 public:
  // The file to send, asked when a receiver connects. A path that cannot be read fails the transfer.
  virtual std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity& activity) = 0;
  // Every byte has been written and the stream closed.
  virtual void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity& activity, const std::string& path) = 0;
};

class ZT_API ZTUploadFileUserActivity : public ZTStreamFileUserActivity {
 public:
  static constexpr std::size_t kBlockSize = 262144;  // bytes read from the staged copy at a time
  static constexpr std::size_t kWriteSize = 16384;   // bytes handed to one write call at most
  static constexpr double kClosingDelayFactor = 1.1;

  // A null activity is logged ("... nil == userActivity") and the object is made all the same; it
  // can then never be continued.
  [[nodiscard]] static std::shared_ptr<ZTUploadFileUserActivity> create(std::shared_ptr<ZTUserActivity> userActivity);
  ~ZTUploadFileUserActivity() override;

  void setDelegate(std::weak_ptr<ZTUploadFileUserActivityDelegate> delegate);

  // Marks the activity as supporting continuation streams and makes it current (it listens and
  // advertises; see ZTUserActivity::becomeCurrent). False, with the error, when it cannot listen.
  bool becomeCurrent(ZTError* error = nullptr);

  const std::string& sourceOutputFilePath() const { return sourceOutputFilePath_; }
  const std::shared_ptr<ZTOutputStream>& outputStream() const { return outputStream_; }
  // The staged copy that is actually read; empty before it exists and after invalidation.
  const std::string& outputFilePath() const { return outputFilePath_; }
  std::uint64_t endOfOutputFile() const { return endOfOutputFile_; }
  bool copyOutputFileOperationInitiated() const { return copyOutputFileOperationInitiated_; }
  std::uint64_t outputDataByteIndex() const { return outputDataByteIndex_; }
  bool lastOutputData() const { return lastOutputData_; }
  double maxUploadTimeDelta() const { return maxUploadTimeDelta_; }
  double lastUploadTimeTime() const { return lastUploadTimeTime_; }

  void invalidate() override;

  // ZTUserActivityDelegate: a receiver connected.
  void userActivityDidReceiveInputStream(ZTUserActivity& activity, std::shared_ptr<ZTInputStream> inputStream,
                                         std::shared_ptr<ZTOutputStream> outputStream) override;

 protected:
  explicit ZTUploadFileUserActivity(std::shared_ptr<ZTUserActivity> userActivity);
  void handleHasSpaceAvailableEventForStream(ZTStream& stream) override;
  std::string descriptionForStream(const ZTStream& stream) const override;

 private:
  void continueSendingData();
  void sendData(ZTBytes data, bool end);
  void sendOutputDataToStream();
  void finishUploadAndNotifyDelegateAboutSuccess();
  void invalidateOutputStream();
  void stagingCopyFinished(const std::string& stagedPath);
  std::shared_ptr<ZTUploadFileUserActivityDelegate> uploadDelegate() const;

  std::string sourceOutputFilePath_;
  std::shared_ptr<ZTOutputStream> outputStream_;
  std::string outputFilePath_;
  std::shared_ptr<ZTFileHandle> outputFileHandle_;
  std::uint64_t endOfOutputFile_ = 0;
  bool copyOutputFileOperationInitiated_ = false;
  std::optional<ZTBytes> outputData_;
  std::uint64_t outputDataByteIndex_ = 0;
  bool lastOutputData_ = false;
  double maxUploadTimeDelta_ = 0.0;
  double lastUploadTimeTime_ = 0.0;
  std::shared_ptr<ZTTimer> closingTimer_;
  std::weak_ptr<ZTUploadFileUserActivityDelegate> uploadDelegate_;
};
