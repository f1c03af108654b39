// The other device of the hand-off tests, played by a copy of the test program: when
// ZT_HANDOFF_PEER names a role, the role runs before the tests would and the process exits.
// It talks to the test through its standard output, one line per fact ("PORT 40123",
// "DELIVERED /path", "FAILED"), and waits on its standard input where a role says so.
//
// Roles:
//   upload   sends ZT_PEER_FILE with ZTUploadFileUserActivity; the activity says the size is
//            ZT_PEER_DECLARED_SIZE when given (a sender that misstates it).
//   raw      a sender speaking the activity layer directly: it says ZT_PEER_DECLARED_SIZE, writes
//            ZT_PEER_SEND_BYTES bytes of the test pattern, then closes — or, with ZT_PEER_HOLD=1,
//            keeps the stream open until its standard input ends; with ZT_PEER_STALL_AFTER it stops
//            writing after that many bytes and waits to be killed.
//   receive  continues the activity at 127.0.0.1:ZT_PEER_PORT and saves the file to ZT_PEER_DEST;
//            with ZT_PEER_TMPFS it first mounts a 1 MiB tmpfs there in a mount namespace of its own
//            and keeps its temporary files on it.

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "transfer/support/handoff_test_support.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/download_file_user_activity.h"
#include "zentrel/transfer/upload_file_user_activity.h"
#include "zentrel/transfer/user_activity.h"

namespace zt::test::handoff {
namespace {

constexpr const char* kType = "org.zentrel.tests.handoff";

void say(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

std::uint64_t number(const char* name, std::uint64_t fallback) {
  const char* text = std::getenv(name);
  return text ? std::strtoull(text, nullptr, 10) : fallback;
}

std::string text(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

void runFor(const bool& done, double seconds) {
  ZTRunLoop::main()->runWithCondition([&] { return !done; }, std::chrono::duration<double>(seconds));
}

// Forwards connections to the upload and reports refusals on standard output.
class Forwarder : public ZTUserActivityDelegate {
 public:
  std::weak_ptr<ZTUserActivityDelegate> target;
  void userActivityDidReceiveInputStream(ZTUserActivity& activity, std::shared_ptr<ZTInputStream> in,
                                         std::shared_ptr<ZTOutputStream> out) override {
    say("CONNECTED");
    if (auto t = target.lock()) t->userActivityDidReceiveInputStream(activity, std::move(in), std::move(out));
  }
  void userActivityDidFailToContinue(ZTUserActivity&, const ZTError& error) override {
    say("REFUSED " + error.domain() + " " + std::to_string(error.code()));
  }
};

std::shared_ptr<ZTUserActivity> makeActivity(std::uint64_t declaredSize, ZTError* error) {
  auto link = ZTSecureLink::createDefault(error);
  if (!link) return nullptr;
  auto activity = ZTUserActivity::create(kType);
  activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, declaredSize}, {ZTHandoffFileNameKey, "received.bin"}});
  activity->setSecureLink(link);
  activity->setLoopbackOnly(true);
  activity->setSupportsContinuationStreams(true);
  return activity;
}

class UploadRole : public ZTUploadFileUserActivityDelegate {
 public:
  bool done = false;
  std::string path;
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override { return path; }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity&, const std::string&) override {
    say("UPLOADED");
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override {
    say("FAILED");
    done = true;
  }
};

int runUpload() {
  const std::string path = text("ZT_PEER_FILE");
  const auto size = std::filesystem::file_size(path);
  ZTError error;
  auto activity = makeActivity(number("ZT_PEER_DECLARED_SIZE", size), &error);
  if (!activity) return say("SETUP " + error.description()), 2;
  auto role = std::make_shared<UploadRole>();
  role->path = path;
  auto upload = ZTUploadFileUserActivity::create(activity);
  upload->setDelegate(role);
  auto forwarder = std::make_shared<Forwarder>();
  forwarder->target = upload;
  activity->setDelegate(forwarder);
  if (!upload->becomeCurrent(&error)) return say("SETUP " + error.description()), 2;
  say("PORT " + std::to_string(activity->port()));
  runFor(role->done, 60);
  upload.reset();  // invalidates: the staged copy goes
  return role->done ? 0 : 1;
}

// Writes the pattern on its own terms.
class RawRole : public ZTUserActivityDelegate, public ZTStreamDelegate {
 public:
  std::uint64_t total = 0;
  std::uint64_t stallAfter = 0;
  bool hold = false;
  bool done = false;
  std::uint64_t sent = 0;
  std::shared_ptr<ZTOutputStream> output;
  std::shared_ptr<ZTInputStream> input;
  std::shared_ptr<ZTFileDescriptorSource> standardInput;

  void userActivityDidReceiveInputStream(ZTUserActivity&, std::shared_ptr<ZTInputStream> in,
                                         std::shared_ptr<ZTOutputStream> out) override {
    say("CONNECTED");
    output = std::move(out);
    input = std::move(in);
    output->setDelegate(std::weak_ptr<ZTStreamDelegate>(std::static_pointer_cast<ZTStreamDelegate>(self.lock())));
    output->scheduleInRunLoop(*ZTRunLoop::main());
    output->open();
  }
  void userActivityDidFailToContinue(ZTUserActivity&, const ZTError& error) override {
    say("REFUSED " + error.domain() + " " + std::to_string(error.code()));
  }
  void stream(ZTStream&, ZTStreamEvent event) override {
    if (event == ZTStreamEvent::ErrorOccurred) {
      say("STREAM-ERROR");
      done = true;
      return;
    }
    if (event != ZTStreamEvent::HasSpaceAvailable || !output) return;
    if (stallAfter && sent >= stallAfter) {
      say("STALLED " + std::to_string(sent));
      return;  // no more writes: no more events; the test kills this process
    }
    if (sent >= total) return finishWriting();
    std::uint64_t limit = total;
    if (stallAfter) limit = std::min(limit, stallAfter);
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(limit - sent, 16384));
    const auto bytes = patternBytes(sent, count);
    const auto written = output->write(bytes.data(), bytes.size());
    if (written > 0) sent += static_cast<std::uint64_t>(written);
  }
  void finishWriting() {
    say("SENT " + std::to_string(sent));
    if (!hold) return closeOutput();
    std::weak_ptr<ZTUserActivityDelegate> weak = self;
    standardInput = ZTRunLoop::main()->addFileDescriptorSource(0, ZTFileDescriptorSource::Event::Readable,
                                                               [this](ZTFileDescriptorSource& source) {
                                                                 char c;
                                                                 if (::read(0, &c, 1) <= 0) {
                                                                   source.cancel();
                                                                   closeOutput();
                                                                 }
                                                               });
  }
  void closeOutput() {
    if (!output) return;
    output->close();
    output.reset();
    say("CLOSED");
    done = true;
  }
  std::weak_ptr<RawRole> self;
};

int runRaw() {
  ZTError error;
  auto activity = makeActivity(number("ZT_PEER_DECLARED_SIZE", 0), &error);
  if (!activity) return say("SETUP " + error.description()), 2;
  auto role = std::make_shared<RawRole>();
  role->self = role;
  role->total = number("ZT_PEER_SEND_BYTES", 0);
  role->stallAfter = number("ZT_PEER_STALL_AFTER", 0);
  role->hold = text("ZT_PEER_HOLD") == "1";
  activity->setDelegate(role);
  if (!activity->becomeCurrent(&error)) return say("SETUP " + error.description()), 2;
  say("PORT " + std::to_string(activity->port()));
  runFor(role->done, 60);
  // Lets the close reach the peer before the process goes.
  bool never = false;
  runFor(never, 0.2);
  return role->done ? 0 : 1;
}

class ReceiveRole : public ZTDownloadFileUserActivityDelegate {
 public:
  bool done = false;
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity&, const std::string& path) override {
    say("DELIVERED " + path);
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override {
    say("FAILED");
    done = true;
  }
};

int runReceive() {
  const std::string tmpfs = text("ZT_PEER_TMPFS");
  if (!tmpfs.empty()) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", tmpfs.c_str(), "tmpfs", 0, "size=1m") != 0) {
      say(std::string("MOUNT-REFUSED ") + std::strerror(errno));
      return 3;
    }
    std::filesystem::create_directories(tmpfs + "/tmp");
    ::setenv("TMPDIR", (tmpfs + "/tmp").c_str(), 1);
    say("MOUNTED");
  }
  ZTSetLogSink([](std::string_view line) { say("LOG " + std::string(line)); });
  bool answered = false;
  std::shared_ptr<ZTUserActivity> activity;
  ZTUserActivity::continueActivityAtHost("127.0.0.1", static_cast<std::uint16_t>(number("ZT_PEER_PORT", 0)),
                                         [&](std::shared_ptr<ZTUserActivity> continued, const std::optional<ZTError>& error) {
                                           activity = std::move(continued);
                                           if (error) say("CONTINUE-FAILED " + error->description());
                                           answered = true;
                                         });
  runFor(answered, 30);
  if (!activity) return 1;
  auto role = std::make_shared<ReceiveRole>();
  auto download = ZTDownloadFileUserActivity::create(activity, activity->userInfo()[ZTHandoffFileSizeKey].uintValue(),
                                                     text("ZT_PEER_DEST"));
  if (!download) return say("FAILED"), 1;
  download->setDelegate(role);
  download->start();
  runFor(role->done, 60);
  download.reset();  // invalidates: the staging file goes
  std::error_code code;
  const auto left = std::distance(std::filesystem::directory_iterator(ZTTemporaryDirectory(), code),
                                  std::filesystem::directory_iterator());
  say("STAGING-LEFT " + std::to_string(left));
  say(std::string("DESTINATION ") + (std::filesystem::exists(text("ZT_PEER_DEST")) ? "present" : "absent"));
  return 0;
}

struct PeerRole {
  PeerRole() {
    const std::string role = text("ZT_HANDOFF_PEER");
    if (role.empty()) return;
    int status = 2;
    if (role == "upload") status = runUpload();
    else if (role == "raw") status = runRaw();
    else if (role == "receive") status = runReceive();
    std::fflush(stdout);
    ::_exit(status);
  }
} peerRole;

}  // namespace
}  // namespace zt::test::handoff
