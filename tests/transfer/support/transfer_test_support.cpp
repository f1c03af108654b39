#include "transfer/support/transfer_test_support.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "zentrel/filesystem/standard_directories.h"

namespace zt::test {

TransferScratch::TransferScratch() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && base[0] == '/' ? base : "/tmp") + "/zt-transfer-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << "cannot create a scratch folder from " << pattern;
    return;
  }
  path_ = pattern;
  ::mkdir((path_ + "/tmp").c_str(), 0700);
  tmpdir_ = std::make_unique<ScopedEnvironment>("TMPDIR", (path_ + "/tmp").c_str());
}

TransferScratch::~TransferScratch() {
  tmpdir_.reset();
  if (path_.empty()) return;
  std::error_code error;
  // Give back what a test took away (read-only folders) before removing.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_directory(error)) ::chmod(it->path().c_str(), 0700);
  }
  std::filesystem::remove_all(path_, error);
}

std::string TransferScratch::operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

std::vector<std::string> TransferScratch::stagingFiles() const {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(ZTTemporaryDirectory(), error)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

void Outcome::watch(ZTConcurrentOperation& operation) {
  {
    ZTLockGuard lock(mutex_);
    worker_ = operation.workerThread();
  }
  operation.setCancellationHandler([this](ZTConcurrentOperation&) { record(Kind::Cancellation, std::nullopt); });
  operation.setFailureHandler([this](ZTConcurrentOperation&, const ZTError& error) { record(Kind::Failure, error); });
}

std::function<void()> Outcome::successRecorder() {
  return [this] { record(Kind::Success, std::nullopt); };
}

void Outcome::record(Kind kind, std::optional<ZTError> error) {
  const auto current = ZTThread::currentThread();
  ZTLockGuard lock(mutex_);
  kind_ = kind;
  error_ = std::move(error);
  ++calls_;
  if (current != worker_) allOnWorker_ = false;
}

void Outcome::reset() {
  ZTLockGuard lock(mutex_);
  kind_ = Kind::None;
  error_.reset();
  calls_ = 0;
  allOnWorker_ = true;
}

Outcome::Kind Outcome::kind() const {
  ZTLockGuard lock(mutex_);
  return kind_;
}

std::optional<ZTError> Outcome::error() const {
  ZTLockGuard lock(mutex_);
  return error_;
}

int Outcome::handlerCalls() const {
  ZTLockGuard lock(mutex_);
  return calls_;
}

bool Outcome::ranOnWorkerThread() const {
  ZTLockGuard lock(mutex_);
  return allOnWorker_;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) ADD_FAILURE() << "cannot write " << path;
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

std::string patternBytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

bool waitFor(const std::function<bool()>& condition, std::chrono::seconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

std::optional<LoopbackConnection> makeLoopbackConnection() {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) return std::nullopt;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  LoopbackConnection connection;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && ::listen(listener, 1) == 0 &&
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    connection.client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection.client >= 0 &&
        ::connect(connection.client, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
      connection.server = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    }
  }
  ::close(listener);
  if (connection.server < 0) {
    if (connection.client >= 0) ::close(connection.client);
    return std::nullopt;
  }
  return connection;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void resetConnection(int fd) {
  const linger abort{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  ::close(fd);
}

bool mountPrivateTmpfs(const std::string& path, const std::string& options, unsigned long flags) {
  return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", path.c_str(), "tmpfs", flags, options.c_str()) == 0;
}

void unmountPrivateTmpfs(const std::string& path) { ::umount2(path.c_str(), MNT_DETACH); }

std::string privateMountRefusal() {
  char folder[] = "/tmp/zt-transfer-mount-probe-XXXXXX";
  if (::mkdtemp(folder) == nullptr) return std::string("no folder to probe with: ") + std::strerror(errno);
  // The child makes only system calls between fork and _exit, as a child of a threaded process must.
  const pid_t child = ::fork();
  if (child == 0) {
    const bool ok = ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    ::mount("tmpfs", folder, "tmpfs", 0, "size=64k") == 0;
    ::_exit(ok ? 0 : (errno & 0x7f) + 1);
  }
  int status = 0;
  const bool waited = child > 0 && ::waitpid(child, &status, 0) == child;
  ::rmdir(folder);
  if (!waited) return "cannot fork a probe";
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  const int error = WIFEXITED(status) ? WEXITSTATUS(status) - 1 : 0;
  return std::string("a private mount namespace with a tmpfs was refused: ") + std::strerror(error);
}

}  // namespace zt::test
