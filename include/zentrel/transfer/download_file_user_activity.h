#pragma once
// ZTDownloadFileUserActivity: receives one file from the device whose user activity this device
// continued, and delivers it to a destination path.
//
//   ZTUserActivity::continueActivityAtHost(host, port, [](auto activity, auto error) {
//     auto size = activity->userInfo()[ZTHandoffFileSizeKey].uintValue();
//     auto download = ZTDownloadFileUserActivity::create(activity, size, destination);
//     download->setDelegate(myDelegate);          // held weakly
//     download->start();
//   });
//
// start() asks the activity for its continuation streams and reads the file in reads of at most
// 16 KiB into a private staging file (named by ZTTempName), appending each read at once. The file
// is complete when exactly the expected number of bytes has arrived — without waiting for the
// sender to close — or when the stream ends with at least that many; fewer bytes at the end fail.
// The staging file is then copied to the destination (a ZTCopyFileAsyncOperation on a worker
// thread of its own): an identical file already there is reused, a different one is kept and the
// copy gets a unique name beside it. The delegate hears userActivityDidDownloadFileAtPath with the
// path actually written.
//
// Threads, failures and clean-up: see ZTStreamFileUserActivity. The staging file is deleted on
// invalidation; a write to it that fails (a full disk) fails the transfer and leaves nothing at
// the destination.

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "zentrel/platform/export.h"
#include "zentrel/platform/file_handle.h"
#include "zentrel/transfer/stream_file_user_activity.h"

class ZTDownloadFileUserActivity;

// What the receiver tells its application, on the main thread (required).
class ZT_API ZTDownloadFileUserActivityDelegate : public ZTStreamFileUserActivityDelegate {
 public:
  virtual void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity& activity, const std::string& path) = 0;
};

class ZT_API ZTDownloadFileUserActivity : public ZTStreamFileUserActivity {
 public:
  static constexpr std::size_t kReadSize = 16384;

  // nullptr, after logging, for a null activity ("... nil == userActivity"), a size of 0
  // ("... 0 == fileSize") or an empty path ("... 0 == filePath.length"), tested in that order.
  [[nodiscard]] static std::shared_ptr<ZTDownloadFileUserActivity> create(std::shared_ptr<ZTUserActivity> userActivity,
                                                                          std::uint64_t expectedFileSize,
                                                                          std::string filePath);
  ~ZTDownloadFileUserActivity() override;

  void setDelegate(std::weak_ptr<ZTDownloadFileUserActivityDelegate> delegate);

  // Begins receiving. Main thread; once.
  void start();

  // The private staging file; empty before start() and after invalidation.
  const std::string& inputFilePath() const { return inputFilePath_; }
  const std::shared_ptr<ZTInputStream>& inputStream() const { return inputStream_; }
  const std::string& destinationInputFilePath() const { return destinationInputFilePath_; }

  void invalidate() override;

 protected:
  ZTDownloadFileUserActivity(std::shared_ptr<ZTUserActivity> userActivity, std::uint64_t expectedFileSize,
                             std::string filePath);
  void handleHasBytesAvailableEventForStream(ZTStream& stream) override;
  void handleEndEncounteredEventForStream(ZTStream& stream) override;
  std::string descriptionForStream(const ZTStream& stream) const override;

 private:
  // Appends a block (empty: nothing to append); with end, delivers or fails.
  void continueReceivingData(std::span<const std::uint8_t> data, bool end);
  void invalidateInputStream();
  void invalidateInputFileHandle();
  std::shared_ptr<ZTDownloadFileUserActivityDelegate> downloadDelegate() const;

  std::string inputFilePath_;
  std::shared_ptr<ZTInputStream> inputStream_;
  // The continuation output stream is never written, but held until invalidation: releasing it
  // would end this side's writing (TLS close_notify) while the sender may still be sending, and a
  // sender that then closes with that unread resets the connection, losing bytes in flight.
  std::shared_ptr<ZTOutputStream> unusedOutputStream_;
  std::shared_ptr<ZTFileHandle> inputFileHandle_;
  std::string destinationInputFilePath_;
  std::weak_ptr<ZTDownloadFileUserActivityDelegate> downloadDelegate_;
  bool started_ = false;
};
