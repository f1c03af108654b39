// A hand-off of a 256 MiB file between two processes over loopback, beside two peers moving the
// same bytes between two threads with the same 16 KiB writes: raw TCP, and plain OpenSSL TLS 1.3
// with the cipher the hand-off negotiates. Read the results as ratios of bytes per second.
//
//   HandoffStreaming   the continuation stream alone: from the receiver's stream opening to its
//                      last byte (the sender's staging copy and the receiver's delivery copy are
//                      not in it); the like-for-like comparison with the peers.
//   HandoffWhole       connect, activity, staging copy, stream, delivery copy: what a user waits for.
//   HandoffFirstByte   from becomeCurrent to the first byte received (small file, one process).
// Counters: rss_growth_MiB is the receiving process's peak resident memory above its level before
// the transfer; sender_rss_growth_MiB the sending process's.
//
// 256 MiB rather than 1 GiB: the machine is shared by eight builds on two cores.

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "zentrel/platform/run_loop.h"
#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/download_file_user_activity.h"
#include "zentrel/transfer/paired_devices.h"
#include "zentrel/transfer/secure_link.h"
#include "zentrel/transfer/upload_file_user_activity.h"
#include "zentrel/transfer/user_activity.h"

namespace {

constexpr std::uint64_t kSize = 256ull << 20;
constexpr std::size_t kWrite = 16384;
using Seconds = std::chrono::duration<double>;

std::uint64_t peakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmHWM:", 0) == 0) return std::strtoull(line.c_str() + 6, nullptr, 10);
  return 0;
}
std::uint64_t residentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::strtoull(line.c_str() + 6, nullptr, 10);
  return 0;
}
void resetPeakResident() { std::ofstream("/proc/self/clear_refs") << "5"; }

struct Devices {
  std::string root;
  std::string senderHome, receiverHome, file;
  std::shared_ptr<ZTSecureLink> receiverLink, senderLink;
};

Devices& devices() {
  static Devices d = [] {
    Devices made;
    char pattern[] = "/tmp/zt-handoff-bench-XXXXXX";
    made.root = ::mkdtemp(pattern);
    static std::string root = made.root;
    std::atexit([] {
      if (std::getenv("ZT_HANDOFF_BENCH_SENDER")) return;
      std::error_code code;
      std::filesystem::remove_all(root, code);
    });
    made.senderHome = made.root + "/sender";
    made.receiverHome = made.root + "/receiver";
    auto a = ZTDeviceIdentity::loadOrCreate(made.senderHome + "/zentrel/handoff");
    auto b = ZTDeviceIdentity::loadOrCreate(made.receiverHome + "/zentrel/handoff");
    auto pa = ZTPairedDevices::load(a), pb = ZTPairedDevices::load(b);
    (void)pa->importLine(ZTDeviceExportLine(*b));
    (void)pb->importLine(ZTDeviceExportLine(*a));
    made.senderLink = ZTSecureLink::create(a, pa);
    made.receiverLink = ZTSecureLink::create(b, pb);
    made.file = made.root + "/file.bin";
    std::ofstream out(made.file, std::ios::binary);
    std::vector<char> block(1 << 20);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 131 + 7);
    for (std::uint64_t i = 0; i < kSize / block.size(); ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    return made;
  }();
  return d;
}

// ---------------------------------------------------------------------------------------------
// The sending process: a copy of this program started with ZT_HANDOFF_BENCH_SENDER set.

class BenchSender : public ZTUploadFileUserActivityDelegate {
 public:
  std::string path;
  bool done = false;
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override { return path; }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity&, const std::string&) override { done = true; }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override { done = true; }
};

struct SenderRole {
  SenderRole() {
    const char* file = std::getenv("ZT_HANDOFF_BENCH_SENDER");
    if (!file) return;
    auto link = ZTSecureLink::createDefault();
    auto activity = ZTUserActivity::create("org.zentrel.bench");
    activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, std::filesystem::file_size(file)}});
    activity->setSecureLink(link);
    activity->setLoopbackOnly(true);
    auto sender = std::make_shared<BenchSender>();
    sender->path = file;
    auto upload = ZTUploadFileUserActivity::create(activity);
    upload->setDelegate(sender);
    const auto before = residentKiB();
    resetPeakResident();
    if (!upload->becomeCurrent()) ::_exit(2);
    std::printf("%u\n", static_cast<unsigned>(activity->port()));
    std::fflush(stdout);
    ZTRunLoop::main()->runWithCondition([&] { return !sender->done; }, Seconds(300));
    upload.reset();  // invalidates: the staged copy goes
    std::printf("%lld\n", static_cast<long long>(peakResidentKiB()) - static_cast<long long>(before));
    std::fflush(stdout);
    ::_exit(0);
  }
} senderRole;

struct SenderProcess {
  pid_t pid = -1;
  FILE* output = nullptr;
  std::uint16_t port = 0;
  explicit SenderProcess(const Devices& d) {
    int out[2];
    if (::pipe(out) != 0) return;
    pid = ::fork();
    if (pid == 0) {
      ::dup2(out[1], 1);
      ::setenv("ZT_HANDOFF_BENCH_SENDER", d.file.c_str(), 1);
      ::setenv("XDG_CONFIG_HOME", d.senderHome.c_str(), 1);
      ::execl("/proc/self/exe", "sender", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(out[1]);
    output = ::fdopen(out[0], "r");
    unsigned value = 0;
    if (std::fscanf(output, "%u", &value) == 1) port = static_cast<std::uint16_t>(value);
  }
  long long senderGrowthKiB() {
    long long value = 0;
    if (std::fscanf(output, "%lld", &value) != 1) value = -1;
    return value;
  }
  ~SenderProcess() {
    if (output) std::fclose(output);
    int status = 0;
    if (pid > 0) ::waitpid(pid, &status, 0);
  }
};

class BenchReceiver : public ZTDownloadFileUserActivityDelegate {
 public:
  std::chrono::steady_clock::time_point opened;
  std::string delivered;
  bool failed = false;
  void userActivityDidStartStreamFile(ZTStreamFileUserActivity&) override { opened = std::chrono::steady_clock::now(); }
  void userActivityDidDownloadFileAtPath(ZTDownloadFileUserActivity&, const std::string& path) override { delivered = path; }
  void userActivityDidFailStreamFile(ZTStreamFileUserActivity&) override { failed = true; }
};

void runHandoff(benchmark::State& state, bool streamingOnly) {
  Devices& d = devices();
  double growth = 0, senderGrowth = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(d.root + "/received.bin");
    SenderProcess sender(d);
    const auto before = residentKiB();
    resetPeakResident();
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    std::shared_ptr<ZTUserActivity> activity;
    ZTUserActivity::continueActivityAtHost(
        "127.0.0.1", sender.port, [&](std::shared_ptr<ZTUserActivity> a, const std::optional<ZTError>&) { activity = a; },
        d.receiverLink);
    ZTRunLoop::main()->runWithCondition([&] { return !activity; }, Seconds(30));
    if (!activity) return state.SkipWithError("no activity");
    auto receiver = std::make_shared<BenchReceiver>();
    auto download = ZTDownloadFileUserActivity::create(activity, kSize, d.root + "/received.bin");
    download->setDelegate(receiver);
    download->start();
    ZTRunLoop::main()->runWithCondition(
        [&] { return download->transferredDataSize() < kSize && !receiver->failed; }, Seconds(300));
    const auto lastByte = std::chrono::steady_clock::now();
    ZTRunLoop::main()->runWithCondition([&] { return receiver->delivered.empty() && !receiver->failed; }, Seconds(300));
    const auto end = std::chrono::steady_clock::now();
    if (receiver->failed) return state.SkipWithError("transfer failed");
    state.SetIterationTime(streamingOnly ? Seconds(lastByte - receiver->opened).count() : Seconds(end - start).count());
    state.PauseTiming();
    growth = std::max(growth, static_cast<double>(peakResidentKiB() - before) / 1024.0);
    download.reset();
    senderGrowth = std::max(senderGrowth, static_cast<double>(sender.senderGrowthKiB()) / 1024.0);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kSize));
  state.counters["rss_growth_MiB"] = growth;
  state.counters["sender_rss_growth_MiB"] = senderGrowth;
}

void HandoffStreaming(benchmark::State& state) { runHandoff(state, true); }
void HandoffWhole(benchmark::State& state) { runHandoff(state, false); }

// ---------------------------------------------------------------------------------------------
// Peers: one thread writes kSize bytes in 16 KiB writes, another reads them, over loopback TCP.

std::pair<int, int> loopbackPair() {
  int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::listen(listener, 1);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
  int server = ::accept(listener, nullptr, nullptr);
  ::close(listener);
  int one = 1;
  ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  ::setsockopt(server, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return {server, client};
}

void RawTCP(benchmark::State& state) {
  std::vector<std::uint8_t> block(kWrite, 7);
  for (auto _ : state) {
    auto [server, client] = loopbackPair();
    std::thread writer([&, fd = server] {
      for (std::uint64_t sent = 0; sent < kSize;) {
        const ssize_t n = ::write(fd, block.data(), block.size());
        if (n <= 0) break;
        sent += static_cast<std::uint64_t>(n);
      }
      ::close(fd);
    });
    std::vector<std::uint8_t> buffer(kWrite);
    std::uint64_t received = 0;
    for (ssize_t n; (n = ::read(client, buffer.data(), buffer.size())) > 0;) received += static_cast<std::uint64_t>(n);
    writer.join();
    ::close(client);
    if (received != kSize) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kSize));
}

SSL_CTX* peerContext(bool server, const ZTDeviceIdentity& identity) {
  SSL_CTX* context = SSL_CTX_new(server ? TLS_server_method() : TLS_client_method());
  SSL_CTX_set_min_proto_version(context, TLS1_3_VERSION);
  SSL_CTX_set_max_proto_version(context, TLS1_3_VERSION);
  SSL_CTX_set_ciphersuites(context, "TLS_AES_256_GCM_SHA384");
  SSL_CTX_set_num_tickets(context, 0);
  BIO* key = BIO_new_mem_buf(identity.privateKeyPEM().data(), static_cast<int>(identity.privateKeyPEM().size()));
  BIO* cert = BIO_new_mem_buf(identity.certificatePEM().data(), static_cast<int>(identity.certificatePEM().size()));
  EVP_PKEY* pkey = PEM_read_bio_PrivateKey(key, nullptr, nullptr, nullptr);
  X509* x509 = PEM_read_bio_X509(cert, nullptr, nullptr, nullptr);
  SSL_CTX_use_certificate(context, x509);
  SSL_CTX_use_PrivateKey(context, pkey);
  EVP_PKEY_free(pkey);
  X509_free(x509);
  BIO_free(key);
  BIO_free(cert);
  // Both present certificates, as the hand-off does; the peer checks nothing (a baseline).
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, [](int, X509_STORE_CTX*) { return 1; });
  return context;
}

void OpenSSLTLS13(benchmark::State& state) {
  Devices& d = devices();
  SSL_CTX* serverContext = peerContext(true, *d.senderLink->identity());
  SSL_CTX* clientContext = peerContext(false, *d.receiverLink->identity());
  std::vector<std::uint8_t> block(kWrite, 7);
  for (auto _ : state) {
    auto [server, client] = loopbackPair();
    std::thread writer([&, fd = server] {
      SSL* ssl = SSL_new(serverContext);
      SSL_set_fd(ssl, fd);
      if (SSL_accept(ssl) == 1) {
        for (std::uint64_t sent = 0; sent < kSize;) {
          const int n = SSL_write(ssl, block.data(), static_cast<int>(block.size()));
          if (n <= 0) break;
          sent += static_cast<std::uint64_t>(n);
        }
        SSL_shutdown(ssl);
      }
      SSL_free(ssl);
      ::close(fd);
    });
    SSL* ssl = SSL_new(clientContext);
    SSL_set_fd(ssl, client);
    std::uint64_t received = 0;
    if (SSL_connect(ssl) == 1) {
      std::vector<std::uint8_t> buffer(kWrite);
      for (int n; (n = SSL_read(ssl, buffer.data(), static_cast<int>(buffer.size()))) > 0;) received += static_cast<std::uint64_t>(n);
      if (state.iterations() == 0) state.SetLabel(SSL_get_cipher_name(ssl));
    }
    SSL_free(ssl);
    writer.join();
    ::close(client);
    if (received != kSize) state.SkipWithError("short read");
  }
  SSL_CTX_free(serverContext);
  SSL_CTX_free(clientContext);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kSize));
}

// ---------------------------------------------------------------------------------------------
// From becomeCurrent to the first byte at the receiver, both devices in this process.

class FirstByteSender : public ZTUploadFileUserActivityDelegate {
 public:
  std::string path;
  std::string pathForUploadFileUserActivity(ZTUploadFileUserActivity&) override { return path; }
  void userActivityDidUploadFileAtPath(ZTUploadFileUserActivity&, const std::string&) override {}
};

void HandoffFirstByte(benchmark::State& state) {
  Devices& d = devices();
  const std::string small = d.root + "/small.bin";
  std::ofstream(small, std::ios::binary) << std::string(65536, 'x');
  for (auto _ : state) {
    auto activity = ZTUserActivity::create("org.zentrel.bench");
    activity->setUserInfo(ZTValueDictionary{{ZTHandoffFileSizeKey, std::uint64_t{65536}}});
    activity->setSecureLink(d.senderLink);
    activity->setLoopbackOnly(true);
    auto sender = std::make_shared<FirstByteSender>();
    sender->path = small;
    auto upload = ZTUploadFileUserActivity::create(activity);
    upload->setDelegate(sender);
    const auto start = std::chrono::steady_clock::now();
    if (!upload->becomeCurrent()) return state.SkipWithError("cannot listen");
    std::shared_ptr<ZTUserActivity> continued;
    ZTUserActivity::continueActivityAtHost(
        "127.0.0.1", activity->port(), [&](std::shared_ptr<ZTUserActivity> a, const std::optional<ZTError>&) { continued = a; },
        d.receiverLink);
    ZTRunLoop::main()->runWithCondition([&] { return !continued; }, Seconds(30));
    if (!continued) return state.SkipWithError("no activity");
    auto receiver = std::make_shared<BenchReceiver>();
    auto download = ZTDownloadFileUserActivity::create(continued, 65536, d.root + "/small-received.bin");
    download->setDelegate(receiver);
    download->start();
    ZTRunLoop::main()->runWithCondition([&] { return download->transferredDataSize() == 0 && !receiver->failed; }, Seconds(30));
    state.SetIterationTime(Seconds(std::chrono::steady_clock::now() - start).count());
    ZTRunLoop::main()->runWithCondition([&] { return receiver->delivered.empty() && !receiver->failed; }, Seconds(30));
    state.PauseTiming();
    download.reset();
    upload.reset();
    std::filesystem::remove(d.root + "/small-received.bin");
    state.ResumeTiming();
  }
}

BENCHMARK(HandoffStreaming)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(HandoffWhole)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(OpenSSLTLS13)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(RawTCP)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(HandoffFirstByte)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
