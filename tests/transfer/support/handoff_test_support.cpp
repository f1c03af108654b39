#include "transfer/support/handoff_test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "zentrel/platform/run_loop.h"

extern char** environ;

namespace zt::test::handoff {

Device makeDevice(const std::string& folder, const std::string& name) {
  Device device;
  device.configHome = folder + "/" + name;
  std::filesystem::create_directories(device.configHome);
  ZTError error;
  device.identity = ZTDeviceIdentity::loadOrCreate(device.configHome + "/zentrel/handoff", &error);
  if (!device.identity) return device;
  (void)device.identity->setDeviceName(name);
  device.paired = ZTPairedDevices::load(device.identity, &error);
  if (device.paired) device.link = ZTSecureLink::create(device.identity, device.paired, &error);
  return device;
}

void pairDevices(Device& a, Device& b) {
  (void)a.paired->importLine(ZTDeviceExportLine(*b.identity));
  (void)b.paired->importLine(ZTDeviceExportLine(*a.identity));
}

std::vector<std::uint8_t> patternBytes(std::uint64_t offset, std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(((offset + i) * 131 + 7) & 0xff);
  return bytes;
}

void writePatternFile(const std::string& path, std::uint64_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  for (std::uint64_t offset = 0; offset < size;) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, 1 << 20));
    const auto bytes = patternBytes(offset, count);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(count));
    offset += count;
  }
}

bool fileHasPattern(const std::string& path, std::uint64_t size) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::vector<char> buffer(1 << 20);
  std::uint64_t offset = 0;
  while (in) {
    in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const auto count = static_cast<std::size_t>(in.gcount());
    if (count == 0) break;
    const auto expected = patternBytes(offset, count);
    if (std::memcmp(buffer.data(), expected.data(), count) != 0) return false;
    offset += count;
  }
  return offset == size;
}

std::unique_ptr<Peer> Peer::start(const std::string& role, const std::map<std::string, std::string>& environment) {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return nullptr;
  std::vector<std::string> variables;
  for (char** entry = environ; *entry; ++entry) {
    const std::string variable = *entry;
    const auto name = variable.substr(0, variable.find('='));
    if (name != "ZT_HANDOFF_PEER" && !environment.count(name)) variables.push_back(variable);
  }
  variables.push_back("ZT_HANDOFF_PEER=" + role);
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  std::vector<char*> envp;
  for (auto& variable : variables) envp.push_back(variable.data());
  envp.push_back(nullptr);
  char self[] = "/proc/self/exe";
  char* argv[] = {self, nullptr};

  std::unique_ptr<Peer> peer(new Peer());
  peer->pid_ = ::fork();
  if (peer->pid_ == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::execve("/proc/self/exe", argv, envp.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  peer->input_ = in[1];
  peer->output_ = out[0];
  Peer* raw = peer.get();
  peer->reader_ = std::thread([raw] {
    std::string pending;
    char buffer[4096];
    for (;;) {
      const ssize_t n = ::read(raw->output_, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      pending.append(buffer, static_cast<std::size_t>(n));
      for (auto newline = pending.find('\n'); newline != std::string::npos; newline = pending.find('\n')) {
        ZTLockGuard lock(raw->mutex_);
        raw->lines_.push_back(pending.substr(0, newline));
        pending.erase(0, newline + 1);
      }
    }
    ZTLockGuard lock(raw->mutex_);
    if (!pending.empty()) raw->lines_.push_back(pending);
    raw->ended_ = true;
  });
  return peer;
}

Peer::~Peer() {
  if (pid_ > 0 && !status_) {
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
  }
  closeInput();
  if (reader_.joinable()) reader_.join();
  if (output_ >= 0) ::close(output_);
}

bool Peer::hasLine(const std::string& prefix) const {
  ZTLockGuard lock(mutex_);
  for (const auto& line : lines_)
    if (line.rfind(prefix, 0) == 0) return true;
  return false;
}

std::vector<std::string> Peer::lines() const {
  ZTLockGuard lock(mutex_);
  return lines_;
}

std::optional<std::string> Peer::waitForLine(const std::string& prefix, Seconds timeout) {
  ZTRunLoop::main()->runWithCondition([&] { return !hasLine(prefix); }, timeout);
  ZTLockGuard lock(mutex_);
  for (const auto& line : lines_)
    if (line.rfind(prefix, 0) == 0) return line;
  return std::nullopt;
}

void Peer::closeInput() {
  if (input_ >= 0) ::close(input_);
  input_ = -1;
}

void Peer::kill() {
  if (pid_ > 0 && !status_) ::kill(pid_, SIGKILL);
}

std::optional<int> Peer::waitForExit(Seconds timeout) {
  if (status_) return status_;
  int status = 0;
  pid_t reaped = 0;
  ZTRunLoop::main()->runWithCondition(
      [&] {
        reaped = ::waitpid(pid_, &status, WNOHANG);
        return reaped == 0;
      },
      timeout);
  if (reaped != pid_) return std::nullopt;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return status_;
}

}  // namespace zt::test::handoff
