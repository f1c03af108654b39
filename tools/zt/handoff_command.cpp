// `zt handoff send FILE` and `zt handoff receive [--from HOST:PORT] [--to DIR]`: one file from one
// device to another, over a connection only paired devices can make.

#include <fcntl.h>
#include <ifaddrs.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <openssl/evp.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "progress.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/download_file_user_activity.h"
#include "zentrel/transfer/secure_link.h"
#include "zentrel/transfer/service_discovery.h"
#include "zentrel/transfer/upload_file_user_activity.h"
#include "zentrel/transfer/user_activity.h"

extern char** environ;

namespace ztool {
namespace {

constexpr const char* kActivityType = "org.zentrel.handoff.file";

// The library's log lines, kept for explaining a failure (shown at once with --verbose).
class LogKeeper {
 public:
  explicit LogKeeper(bool verbose) : state_(std::make_shared<State>()) {
    state_->verbose = verbose;
    auto state = state_;
    ZTSetLogSink([state](std::string_view line) {
      ZTLockGuard lock(state->mutex);
      state->lines.emplace_back(line);
      if (state->lines.size() > 50) state->lines.erase(state->lines.begin());
      if (state->verbose) std::cerr << "  log: " << line << "\n";
    });
  }
  ~LogKeeper() { ZTSetLogSink({}); }
  std::string last() const {
    ZTLockGuard lock(state_->mutex);
    return state_->lines.empty() ? std::string() : state_->lines.back();
  }

 private:
  struct State {
    ZTMutex mutex;
    std::vector<std::string> lines ZT_GUARDED_BY(mutex);
    bool verbose = false;
  };
  std::shared_ptr<State> state_;
};

std::string explain(const ZTError& error, const std::string& where) {
  if (error.domain() == ZTSecureLinkErrorDomain) {
    switch (error.code()) {
      case ZTSecureLinkErrorUnpairedPeer:
        return "The other device is not paired with this one, so nothing was sent or received.\n"
               "Pair the two devices first: `zt pair --listen` on one and `zt pair HOST:PORT` on the other,\n"
               "or exchange `zt pair --export` lines and add them with `zt pair --import LINE`.";
      case ZTSecureLinkErrorConnection:
        return "Could not connect to " + where + ": " + error.localizedDescription() +
               "\nIs `zt handoff send` running there, and is the port right?";
      case ZTSecureLinkErrorTimedOut:
        return "The other device at " + where + " did not answer in time.";
      case ZTSecureLinkErrorHandshake:
        return "The secure connection to " + where + " was refused: " + error.localizedDescription() +
               "\n(The other device may not have paired with this one.)";
      default:
        break;
    }
  }
  if (error.domain() == ZTServiceDiscoveryErrorDomain && error.code() == ZTServiceDiscoveryErrorNoDaemon)
    return error.localizedDescription() + "\nDiscovery on the local network needs the Avahi daemon; give the "
                                          "address instead: zt handoff receive --from HOST:PORT";
  return error.localizedDescription();
}

std::optional<std::string> sha256OfFile(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return std::nullopt;
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
  std::vector<unsigned char> buffer(1 << 20);
  bool ok = true;
  for (;;) {
    const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), file);
    if (n > 0) EVP_DigestUpdate(context, buffer.data(), n);
    if (n < buffer.size()) {
      ok = !std::ferror(file);
      break;
    }
  }
  std::fclose(file);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context, digest, &length);
  EVP_MD_CTX_free(context);
  if (!ok) return std::nullopt;
  std::string hex;
  char two[3];
  for (unsigned int i = 0; i < length; ++i) {
    std::snprintf(two, sizeof two, "%02x", digest[i]);
    hex += two;
  }
  return hex;
}

std::vector<std::string> localAddresses() {
  std::vector<std::string> addresses;
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return addresses;
  for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
    if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) continue;
    char host[NI_MAXHOST];
    if (::getnameinfo(entry->ifa_addr, sizeof(sockaddr_in), host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0) continue;
    if (std::string(host).rfind("127.", 0) == 0) continue;
    addresses.emplace_back(host);
  }
  ::freeifaddrs(list);
  return addresses;
}

// "host:port", "[v6]:port". False for anything else.
bool parseHostPort(const std::string& text, std::string& host, std::uint16_t& port) {
  std::string portText;
  if (!text.empty() && text.front() == '[') {
    const auto close = text.find(']');
    if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':') return false;
    host = text.substr(1, close - 1);
    portText = text.substr(close + 2);
  } else {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) return false;
    host = text.substr(0, colon);
    portText = text.substr(colon + 1);
  }
  if (portText.empty() || portText.size() > 5 || portText.find_first_not_of("0123456789") != std::string::npos) return false;
  const unsigned long value = std::stoul(portText);
  if (value == 0 || value > 65535) return false;
  port = static_cast<std::uint16_t>(value);
  return !host.empty();
}

// A name the receiver may create: one path component, or a neutral default.
std::string safeFileName(const std::string& name) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos || name.size() > 255)
    return "received-file";
  return name;
}

std::string baseName(const std::string& path) {
  const auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Runs the main loop until `done` or the time limit.
bool runMainLoopUntil(const bool& done, double seconds) {
  ZTRunLoop::main()->runWithCondition([&] { return !done; }, std::chrono::duration<double>(seconds));
  return done;
}

class SendDelegate : public ZTUploadFileUserActivityDelegate, public ZTUserActivityDelegate {
 public:
  SendDelegate(std::string path, std::uint64_t size) : path_(std::move(path)), size_(size) {}
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override {
    std::cout << "A receiver connected; sending " << baseName(path_) << "." << std::endl;
    return path_;
  }
  void userActivityDidStartStreamFile(ZTStreamFileUserActivity&) override {
    bar_ = std::make_unique<ProgressBar>(std::cout, "Sending " + baseName(path_), size_);
  }
  void userActivityStreamFileProgress(ZTStreamFileUserActivity& activity, float) override {
    if (bar_) bar_->update(activity.transferredDataSize());
  }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity& activity, const std::string&) override {
    if (bar_) {
      bar_->update(activity.transferredDataSize());
      bar_->finish(true);
    }
    std::cout << "Sent " << formatBytes(activity.transferredDataSize()) << "." << std::endl;
    ok = true;
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override {
    if (bar_) bar_->finish(false);
    done = true;
  }
  bool done = false;
  bool ok = false;

 private:
  std::string path_;
  std::uint64_t size_;
  std::unique_ptr<ProgressBar> bar_;
};

// Forwards the activity's own reports (advertising, refused receivers) to the user, and the
// connection to the upload.
class ActivityReporter : public ZTUserActivityDelegate {
 public:
  explicit ActivityReporter(std::weak_ptr<ZTUploadFileUserActivity> upload) : upload_(std::move(upload)) {}
  void userActivityDidReceiveInputStream(ZTUserActivity& activity, std::shared_ptr<ZTInputStream> in,
                                         std::shared_ptr<ZTOutputStream> out) override {
    if (auto upload = upload_.lock()) upload->userActivityDidReceiveInputStream(activity, std::move(in), std::move(out));
  }
  void userActivityDidFailToAdvertise(ZTUserActivity&, const ZTError& error) override {
    std::cout << "Not advertised on the local network: " << error.localizedDescription()
              << "\nReceivers can still connect with --from (see above)." << std::endl;
  }
  void userActivityDidFailToContinue(ZTUserActivity&, const ZTError& error) override {
    std::cout << "A device tried to connect and was turned away:\n  " << explain(error, "it") << "\nStill waiting."
              << std::endl;
  }

 private:
  std::weak_ptr<ZTUploadFileUserActivity> upload_;
};

int runSend(const std::string& path, std::uint16_t port, bool loopback, double timeout, bool verbose) {
  LogKeeper log(verbose);
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    std::cerr << "zt handoff send: " << path << ": " << (errno ? std::strerror(errno) : "not a regular file") << "\n";
    return 1;
  }
  ZTError error;
  auto link = ZTSecureLink::createDefault(&error);
  if (!link) {
    std::cerr << "zt handoff send: this device's identity cannot be used: " << error.localizedDescription() << "\n";
    return 1;
  }
  const auto size = static_cast<std::uint64_t>(info.st_size);
  auto activity = ZTUserActivity::create(kActivityType);
  activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, size}, {ZTHandoffFileNameKey, baseName(path)}});
  activity->setSecureLink(link);
  activity->setPort(port);
  activity->setLoopbackOnly(loopback);
  auto delegate = std::make_shared<SendDelegate>(path, size);
  auto upload = ZTUploadFileUserActivity::create(activity);
  upload->setDelegate(delegate);
  // The reporter stands between the activity and the upload so that the tool hears the
  // activity's own reports too.
  auto reporter = std::make_shared<ActivityReporter>(upload);
  activity->setDelegate(reporter);
  if (!upload->becomeCurrent(&error)) {
    std::cerr << "zt handoff send: " << error.localizedDescription() << "\n";
    return 1;
  }
  std::cout << "Offering " << baseName(path) << " (" << formatBytes(size) << ") from \"" << link->identity()->deviceName()
            << "\"." << std::endl;
  std::cout << "Listening on port " << activity->port() << std::endl;
  std::cout << "On the receiving device (paired with this one) run:" << std::endl;
  if (!loopback) {
    for (const auto& address : localAddresses())
      std::cout << "  zt handoff receive --from " << address << ":" << activity->port() << std::endl;
  }
  std::cout << "  zt handoff receive --from 127.0.0.1:" << activity->port() << "   (on this machine)" << std::endl;
  if (!runMainLoopUntil(delegate->done, timeout)) {
    std::cerr << "zt handoff send: no receiver within " << timeout << " s; giving up.\n";
    return 1;
  }
  upload->invalidate();
  activity->invalidate();
  if (!delegate->ok) {
    std::cerr << "zt handoff send: the transfer failed.";
    const auto reason = log.last();
    if (!reason.empty()) std::cerr << " " << reason;
    std::cerr << "\n";
    return 1;
  }
  return 0;
}

class ReceiveDelegate : public ZTDownloadFileUserActivityDelegate {
 public:
  ReceiveDelegate(std::string label, std::uint64_t size) : label_(std::move(label)), size_(size) {}
  void userActivityDidStartStreamFile(ZTStreamFileUserActivity&) override {
    bar_ = std::make_unique<ProgressBar>(std::cout, label_, size_);
  }
  void userActivityStreamFileProgress(ZTStreamFileUserActivity& activity, float) override {
    if (bar_) bar_->update(activity.transferredDataSize());
  }
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity& activity, const std::string& path) override {
    if (bar_) {
      bar_->update(activity.transferredDataSize());
      bar_->finish(true);
    }
    deliveredPath = path;
    done = true;
  }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override {
    if (bar_) bar_->finish(false);
    done = true;
  }
  bool done = false;
  std::string deliveredPath;

 private:
  std::string label_;
  std::uint64_t size_;
  std::unique_ptr<ProgressBar> bar_;
};

int receiveActivity(const std::shared_ptr<ZTUserActivity>& activity, const std::string& folder, double timeout,
                    const LogKeeper& log) {
  const std::uint64_t size = activity->userInfo()[ZTHandoffFileSizeKey].uintValue();
  const std::string name = safeFileName(activity->userInfo()[ZTHandoffFileNameKey].stringValue());
  if (size == 0) {
    std::cerr << "zt handoff receive: the sender offers an empty file (or did not say its size); nothing to receive.\n";
    return 1;
  }
  struct statvfs space {};
  if (::statvfs(folder.c_str(), &space) == 0) {
    const std::uint64_t available = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
    if (available < size) {
      std::cerr << "zt handoff receive: the disk is full: " << name << " needs " << formatBytes(size) << " and " << folder
                << " has " << formatBytes(available) << " free.\n";
      return 1;
    }
  }
  std::cout << "Receiving " << name << " (" << formatBytes(size) << ") from \"" << activity->peerName() << "\"."
            << std::endl;
  const std::string destination = (folder == "/" ? std::string() : folder) + "/" + name;
  auto delegate = std::make_shared<ReceiveDelegate>("Receiving " + name, size);
  auto download = ZTDownloadFileUserActivity::create(activity, size, destination);
  if (!download) {
    std::cerr << "zt handoff receive: " << log.last() << "\n";
    return 1;
  }
  download->setDelegate(delegate);
  download->start();
  if (!runMainLoopUntil(delegate->done, timeout)) {
    download->invalidate();
    std::cerr << "zt handoff receive: the transfer did not finish within " << timeout << " s.\n";
    return 1;
  }
  download->invalidate();
  if (delegate->deliveredPath.empty()) {
    std::string reason = log.last();
    if (reason.find("No space left on device") != std::string::npos || reason.find("640") != std::string::npos)
      std::cerr << "zt handoff receive: the disk is full; nothing was saved to " << folder << ".\n";
    else
      std::cerr << "zt handoff receive: the transfer failed; nothing was saved. " << reason << "\n";
    return 1;
  }
  const auto digest = sha256OfFile(delegate->deliveredPath);
  std::cout << "Received " << delegate->deliveredPath << std::endl;
  std::cout << "SHA-256 " << (digest ? *digest : std::string("(unreadable)")) << std::endl;
  return 0;
}

int runReceive(const std::string& from, const std::string& folderIn, double timeout, bool verbose) {
  LogKeeper log(verbose);
  std::string folder = folderIn.empty() ? "." : folderIn;
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    std::cerr << "zt handoff receive: " << folder << " is not a folder.\n";
    return 1;
  }
  if (char* real = ::realpath(folder.c_str(), nullptr)) {
    folder = real;
    std::free(real);
  }
  ZTError error;
  auto link = ZTSecureLink::createDefault(&error);
  if (!link) {
    std::cerr << "zt handoff receive: this device's identity cannot be used: " << error.localizedDescription() << "\n";
    return 1;
  }
  std::shared_ptr<ZTUserActivity> activity;
  std::optional<ZTError> failure;
  bool answered = false;
  std::string where = from;
  const auto completion = [&](std::shared_ptr<ZTUserActivity> continued, const std::optional<ZTError>& continueError) {
    activity = std::move(continued);
    failure = continueError;
    answered = true;
  };
  std::unique_ptr<ZTHandoffBrowser> browser;
  if (!from.empty()) {
    std::string host;
    std::uint16_t port = 0;
    if (!parseHostPort(from, host, port)) {
      std::cerr << "zt handoff receive: --from wants HOST:PORT (or [IPv6]:PORT), not \"" << from << "\".\n";
      return 1;
    }
    std::cout << "Connecting to " << from << "..." << std::endl;
    ZTUserActivity::continueActivityAtHost(host, port, completion, link);
  } else {
    bool connecting = false;
    ZTHandoffBrowser::Callbacks callbacks;
    callbacks.appeared = [&](const ZTHandoffService& service) {
      if (connecting || service.activityType() != kActivityType) return;
      connecting = true;
      where = service.hostName + " (" + service.address + ":" + std::to_string(service.port) + ")";
      std::cout << "Found \"" << service.deviceName() << "\" at " << where << "; connecting..." << std::endl;
      ZTUserActivity::continueActivity(service, completion, link);
    };
    callbacks.failed = [&](const ZTError& browseError) {
      failure = browseError;
      answered = true;
    };
    browser = ZTHandoffBrowser::create(callbacks, ZTRunLoop::main(), &error);
    if (!browser) {
      std::cerr << "zt handoff receive: cannot look for senders: " << explain(error, "") << "\n";
      return 1;
    }
    std::cout << "Looking for a device offering a file on the local network..." << std::endl;
  }
  if (!runMainLoopUntil(answered, timeout)) {
    std::cerr << "zt handoff receive: nothing found within " << timeout << " s.\n";
    return 1;
  }
  browser.reset();
  if (!activity) {
    std::cerr << "zt handoff receive: " << explain(failure ? *failure : ZTError(), where) << "\n";
    return 1;
  }
  return receiveActivity(activity, folder, timeout, log);
}

}  // namespace

void addHandoffCommand(CLI::App& app) {
  auto* command = app.add_subcommand("handoff", "Hand a file to a paired device, or receive one");
  command->require_subcommand(1);
  command->footer(
      "Both devices must be paired first (zt pair).\n\n"
      "Example: zt handoff send ~/slides.pdf                     (on the sending device)\n"
      "Example: zt handoff receive --from 192.168.1.20:7020 --to ~/Downloads   (on the other)");

  auto* send = command->add_subcommand("send", "Offer FILE to a paired device and send it when one connects");
  send->footer("Exit status 0 once the receiver has the file, 1 on failure.\n\nExample: zt handoff send ~/slides.pdf");
  static std::string sendPath;
  static unsigned sendPort = 0;
  static bool loopback = false;
  static double sendTimeout = 600;
  static bool sendVerbose = false;
  send->add_option("FILE", sendPath, "The file to send")->required();
  send->add_option("--port", sendPort, "Port to listen on (default: any free port)")->check(CLI::Range(0, 65535));
  send->add_flag("--loopback", loopback, "Listen on 127.0.0.1 only");
  send->add_option("--timeout", sendTimeout, "Seconds to wait for a receiver and the transfer (default 600)");
  send->add_flag("--verbose", sendVerbose, "Show the library's log lines");
  send->callback([] {
    const int status = runSend(sendPath, static_cast<std::uint16_t>(sendPort), loopback, sendTimeout, sendVerbose);
    if (status != 0) throw CLI::RuntimeError(status);
  });

  auto* receive = command->add_subcommand("receive", "Receive a file from a paired device");
  receive->footer(
      "Prints the path of the file received and its SHA-256. Exit status 0 when delivered, 1 on failure.\n\n"
      "Example: zt handoff receive --from 192.168.1.20:7020 --to ~/Downloads");
  static std::string from;
  static std::string folder;
  static double receiveTimeout = 600;
  static bool receiveVerbose = false;
  receive->add_option("--from", from, "HOST:PORT of the sender (default: look on the local network)");
  receive->add_option("--to", folder, "Folder to save the file in (default: the current folder)");
  receive->add_option("--timeout", receiveTimeout, "Seconds to wait (default 600)");
  receive->add_flag("--verbose", receiveVerbose, "Show the library's log lines");
  receive->callback([] {
    const int status = runReceive(from, folder, receiveTimeout, receiveVerbose);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace ztool

// ------------------------------------------------------------------------------------------------
// The demonstration: two processes on loopback, each with a device identity of its own, paired by
// exchanging exported lines, hand a file over; the digests on both sides must agree.


namespace ztool {
namespace {

struct Child {
  pid_t pid = -1;
  int output = -1;
  std::string pending;
};

Child spawnSelf(const std::vector<std::string>& arguments, const std::string& configHome) {
  Child child;
  int out[2];
  if (::pipe2(out, O_CLOEXEC) != 0) return child;
  std::vector<std::string> variables;
  for (char** entry = environ; *entry; ++entry) {
    if (std::strncmp(*entry, "XDG_CONFIG_HOME=", 16) != 0) variables.emplace_back(*entry);
  }
  variables.push_back("XDG_CONFIG_HOME=" + configHome);
  std::vector<char*> envp, argv;
  for (auto& v : variables) envp.push_back(v.data());
  envp.push_back(nullptr);
  std::vector<std::string> args = arguments;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  child.pid = ::fork();
  if (child.pid == 0) {
    ::dup2(out[1], 1);
    ::dup2(out[1], 2);
    ::execve("/proc/self/exe", argv.data(), envp.data());
    ::_exit(127);
  }
  ::close(out[1]);
  child.output = out[0];
  return child;
}

// The next line of the child's output, or nullopt at its end or at the deadline.
std::optional<std::string> nextLine(Child& child, std::chrono::steady_clock::time_point deadline) {
  for (;;) {
    const auto newline = child.pending.find('\n');
    if (newline != std::string::npos) {
      std::string line = child.pending.substr(0, newline);
      child.pending.erase(0, newline + 1);
      return line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd p{child.output, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    char buffer[4096];
    const ssize_t n = ::read(child.output, buffer, sizeof buffer);
    if (n <= 0) {
      if (child.pending.empty()) return std::nullopt;
      std::string line = std::move(child.pending);
      child.pending.clear();
      return line;
    }
    // Progress redraws on a terminal use carriage returns; show only whole lines.
    child.pending.append(buffer, static_cast<std::size_t>(n));
  }
}

int finishChild(Child& child, std::chrono::steady_clock::time_point deadline) {
  int status = 0;
  while (::waitpid(child.pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(child.pid, SIGKILL);
      ::waitpid(child.pid, &status, 0);
      break;
    }
    ::poll(nullptr, 0, 20);
  }
  if (child.output >= 0) ::close(child.output);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

}  // namespace

int runHandoffDemo() {
  char pattern[] = "/tmp/zt-handoff-demo-XXXXXX";
  if (!::mkdtemp(pattern)) {
    std::cout << "Cannot make a scratch folder: " << std::strerror(errno) << "\n";
    return 1;
  }
  const std::string root = pattern;
  const std::string senderHome = root + "/sender-config", receiverHome = root + "/receiver-config";
  const std::string inbox = root + "/inbox", file = root + "/holiday-photos.tar";
  ::mkdir(inbox.c_str(), 0700);
  int result = 1;
  do {
    ZTError error;
    auto senderIdentity = ZTDeviceIdentity::loadOrCreate(senderHome + "/zentrel/handoff", &error);
    auto receiverIdentity = senderIdentity ? ZTDeviceIdentity::loadOrCreate(receiverHome + "/zentrel/handoff", &error) : nullptr;
    if (!receiverIdentity) {
      std::cout << "Cannot make the two device identities: " << error.localizedDescription() << "\n";
      break;
    }
    (void)senderIdentity->setDeviceName("demo-sender");
    (void)receiverIdentity->setDeviceName("demo-receiver");
    auto senderPaired = ZTPairedDevices::load(senderIdentity, &error);
    auto receiverPaired = ZTPairedDevices::load(receiverIdentity, &error);
    const std::string senderLine = ZTDeviceExportLine(*senderIdentity), receiverLine = ZTDeviceExportLine(*receiverIdentity);
    if (!senderPaired || !receiverPaired || !senderPaired->importLine(receiverLine, &error) ||
        !receiverPaired->importLine(senderLine, &error)) {
      std::cout << "Cannot pair the two devices: " << error.localizedDescription() << "\n";
      break;
    }
    std::cout << "Two devices, each with its own identity, paired by exchanging exported lines:\n  " << senderLine
              << "\n  " << receiverLine << "\n";
    {
      std::mt19937_64 random(20261123);
      std::ofstream out(file, std::ios::binary);
      std::vector<char> block(1 << 16);
      for (int i = 0; i < 48; ++i) {  // 3 MiB
        for (auto& c : block) c = static_cast<char>(random());
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
      }
    }
    const auto sourceDigest = sha256OfFile(file);
    std::cout << "The sender offers " << file << " (SHA-256 " << sourceDigest.value_or("?") << ").\n";

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    Child sender = spawnSelf({"zt", "handoff", "send", file, "--loopback", "--timeout", "45"}, senderHome);
    std::uint16_t port = 0;
    while (auto line = nextLine(sender, deadline)) {
      std::cout << "  [sender]   " << *line << "\n";
      if (line->rfind("Listening on port ", 0) == 0) {
        port = static_cast<std::uint16_t>(std::stoi(line->substr(18)));
        break;
      }
    }
    if (port == 0) {
      std::cout << "The sender did not start listening.\n";
      finishChild(sender, deadline);
      break;
    }
    Child receiver = spawnSelf({"zt", "handoff", "receive", "--from", "127.0.0.1:" + std::to_string(port), "--to", inbox,
                                "--timeout", "45"},
                               receiverHome);
    std::string receivedDigest;
    while (auto line = nextLine(receiver, deadline)) {
      std::cout << "  [receiver] " << *line << "\n";
      if (line->rfind("SHA-256 ", 0) == 0) receivedDigest = line->substr(8);
    }
    const int receiverStatus = finishChild(receiver, deadline);
    while (auto line = nextLine(sender, deadline)) std::cout << "  [sender]   " << *line << "\n";
    const int senderStatus = finishChild(sender, deadline);
    if (receiverStatus == 0 && senderStatus == 0 && sourceDigest && receivedDigest == *sourceDigest) {
      std::cout << "The digests agree: the file arrived whole, over mutual TLS between paired devices.\n";
      result = 0;
    } else {
      std::cout << "The hand-off did not complete (sender " << senderStatus << ", receiver " << receiverStatus
                << ", digest " << (receivedDigest.empty() ? "none" : receivedDigest) << ").\n";
    }
  } while (false);
  std::error_code code;
  std::filesystem::remove_all(root, code);
  return result;
}

}  // namespace ztool
