// Hands a file from one device to another. Run it on both, paired beforehand (`zt pair`):
//
//   handoff send FILE               offers FILE and prints the port it listens on
//   handoff receive HOST PORT DIR   continues the offer and saves the file into DIR
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/handoff send notes.txt

#include <zentrel/platform/run_loop.h>
#include <zentrel/transfer/download_file_user_activity.h>
#include <zentrel/transfer/upload_file_user_activity.h>
#include <zentrel/transfer/user_activity.h>

#include <filesystem>
#include <iostream>
#include <string>

namespace {

// The sender's side: which file, and when it has gone.
class Sender : public ZTUploadFileUserActivityDelegate {
 public:
  explicit Sender(std::string path) : path_(std::move(path)) {}
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override { return path_; }
  void userActivityStreamFileProgress(ZTStreamFileUserActivity&, float progress) override {
    std::cout << "sent " << static_cast<int>(progress * 100) << " %\n";
  }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity&, const std::string& path) override {
    std::cout << "sent " << path << "\n";
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override {
    std::cout << "sending failed\n";
    done = true;
  }
  bool done = false;

 private:
  std::string path_;
};

// The receiver's side: where the file landed.
class Receiver : public ZTDownloadFileUserActivityDelegate {
 public:
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity&, const std::string& path) override {
    std::cout << "received " << path << "\n";
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override {
    std::cout << "receiving failed\n";
    done = true;
  }
  bool done = false;
};

int send(const std::string& path) {
  auto activity = ZTUserActivity::create("org.example.handoff");
  // The receiver learns the size and name from the user info: the stream carries only the bytes.
  activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, std::filesystem::file_size(path)},
                                          {ZTHandoffFileNameKey, std::filesystem::path(path).filename().string()}});
  auto sender = std::make_shared<Sender>(path);
  auto upload = ZTUploadFileUserActivity::create(activity);
  upload->setDelegate(sender);  // held weakly: `sender` stays alive here
  ZTError error;
  if (!upload->becomeCurrent(&error)) {
    std::cerr << error.localizedDescription() << "\n";
    return 1;
  }
  std::cout << "offering " << path << " on port " << activity->port() << "\n";
  // Everything happens on the main run loop; run it until the delegate has heard the end.
  ZTRunLoop::main()->runWithCondition([&] { return !sender->done; });
  return 0;
}

int receive(const std::string& host, int port, const std::string& folder) {
  std::shared_ptr<ZTDownloadFileUserActivity> download;
  auto receiver = std::make_shared<Receiver>();
  ZTUserActivity::continueActivityAtHost(
      host, static_cast<std::uint16_t>(port),
      [&](std::shared_ptr<ZTUserActivity> activity, const std::optional<ZTError>& error) {
        if (!activity) {
          std::cerr << error->localizedDescription() << "\n";
          receiver->done = true;
          return;
        }
        const auto size = activity->userInfo()[ZTHandoffFileSizeKey].uintValue();
        const auto name = std::filesystem::path(activity->userInfo()[ZTHandoffFileNameKey].stringValue()).filename();
        download = ZTDownloadFileUserActivity::create(activity, size, folder + "/" + name.string());
        if (!download) {
          receiver->done = true;
          return;
        }
        download->setDelegate(receiver);
        download->start();
      });
  ZTRunLoop::main()->runWithCondition([&] { return !receiver->done; });
  // Releasing the transfer deletes its private staging file.
  download.reset();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "send" && argc == 3) return send(argv[2]);
  if (mode == "receive" && argc == 5) return receive(argv[2], std::stoi(argv[3]), argv[4]);
  std::cerr << "usage: handoff send FILE | handoff receive HOST PORT DIR\n";
  return 2;
}
