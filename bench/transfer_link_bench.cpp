// 256 MiB over loopback in writes of 16 KiB, three ways, sender and receiver on two threads:
//   SecureLink    the library's mutual TLS 1.3 link: ZTSecureLink connect/accept, then the socket
//                 streams over its TLS channel, each side driven by its own run loop;
//   PlainTLS      OpenSSL alone, TLS 1.3 with the same default cipher suite (TLS_AES_256_GCM_SHA384)
//                 and the same certificates, blocking SSL_write/SSL_read on the sockets;
//   RawTCP        write/read on blocking sockets.
// The ratio that matters is SecureLink / PlainTLS (bytes per second); RawTCP shows what encryption
// costs at all. Each iteration includes its connection and handshake (a few milliseconds).

#include <benchmark/benchmark.h>
#include <openssl/ssl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <future>
#include <thread>

#include "transfer/internal/link_support.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"
#include "zentrel/transfer/device_identity.h"
#include "zentrel/transfer/paired_devices.h"
#include "zentrel/transfer/secure_link.h"

namespace {

using namespace zt::transfer_internal;
constexpr std::size_t kTotal = 256u * 1024 * 1024;
constexpr std::size_t kWrite = 16 * 1024;

struct Devices {
  std::string folder;
  std::shared_ptr<ZTDeviceIdentity> sender, receiver;
  std::shared_ptr<ZTPairedDevices> senderPaired, receiverPaired;
  Devices() {
    std::string pattern = "/tmp/zt-link-bench-XXXXXX";
    folder = ::mkdtemp(pattern.data()) ? pattern : "/tmp/zt-link-bench";
    sender = ZTDeviceIdentity::loadOrCreate(folder + "/sender");
    receiver = ZTDeviceIdentity::loadOrCreate(folder + "/receiver");
    senderPaired = ZTPairedDevices::load(sender);
    receiverPaired = ZTPairedDevices::load(receiver);
    senderPaired->importLine(ZTDeviceExportLine(*receiver));
    receiverPaired->importLine(ZTDeviceExportLine(*sender));
  }
  ~Devices() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

Devices& devices() {
  static Devices shared;
  return shared;
}

const std::vector<std::uint8_t>& block() {
  static std::vector<std::uint8_t> bytes(kWrite, 0x5a);
  return bytes;
}

// --- the library's link ------------------------------------------------------------------------

class Drain : public ZTStreamDelegate {
 public:
  std::size_t received = 0;
  bool done = false;
  void stream(ZTStream& stream, ZTStreamEvent event) override {
    if (event == ZTStreamEvent::HasBytesAvailable) {
      std::int64_t n = static_cast<ZTInputStream&>(stream).read(buffer_, sizeof buffer_);
      if (n > 0) received += static_cast<std::size_t>(n);
    } else if (event == ZTStreamEvent::EndEncountered || event == ZTStreamEvent::ErrorOccurred) {
      if (auto failure = stream.streamError()) error = failure->localizedDescription();
      done = true;
    }
  }
  std::string error;

 private:
  std::uint8_t buffer_[kWrite];
};

class Feed : public ZTStreamDelegate {
 public:
  std::size_t sent = 0;
  bool done = false;
  void stream(ZTStream& stream, ZTStreamEvent event) override {
    if (event == ZTStreamEvent::ErrorOccurred) done = true;
    if (event != ZTStreamEvent::HasSpaceAvailable || done) return;
    auto& output = static_cast<ZTOutputStream&>(stream);
    std::int64_t n = output.write(block().data(), std::min(kWrite, kTotal - sent));
    if (n > 0) sent += static_cast<std::size_t>(n);
    if (sent == kTotal) {
      done = true;
      output.close();
    }
  }
};

void BM_SecureLink(benchmark::State& state) {
  Devices& d = devices();
  auto senderLink = ZTSecureLink::create(d.sender, d.senderPaired);
  auto receiverLink = ZTSecureLink::create(d.receiver, d.receiverPaired);
  for (auto _ : state) {
    std::promise<std::uint16_t> portPromise;
    auto port = portPromise.get_future();
    std::thread receiver([&] {
      auto loop = ZTRunLoop::current();
      auto keepAlive = loop->keepAlive();  // a worker's loop: keep turning between events
      auto drain = std::make_shared<Drain>();
      std::shared_ptr<ZTInputStream> input;
      auto listener = ZTStreamListener::create(*loop, "127.0.0.1", 0, [&](ZTStreamListener&, std::shared_ptr<ZTStreamChannel> channel) {
        receiverLink->acceptConnection(channel, loop, [&](std::optional<ZTSecureConnection> connection, const ZTError&) {
          if (!connection) {
            drain->done = true;
            return;
          }
          input = connection->inputStream;
          input->setDelegate(drain);
          input->scheduleInRunLoop(*loop);
          input->open();
        });
      });
      portPromise.set_value(listener->port());
      loop->runWithCondition([&] { return !drain->done; }, std::chrono::seconds(120));
      if (drain->received != kTotal) {
        std::fprintf(stderr, "received %zu of %zu bytes%s\n", drain->received, kTotal,
                     drain->error.empty() ? "" : (": " + drain->error).c_str());
        state.SkipWithError("the receiver did not get every byte");
      }
      if (input) input->close();
    });
    auto loop = ZTRunLoop::current();
    auto feed = std::make_shared<Feed>();
    std::shared_ptr<ZTOutputStream> output;
    senderLink->connectToHost("127.0.0.1", port.get(), loop, [&](std::optional<ZTSecureConnection> connection, const ZTError&) {
      if (!connection) {
        feed->done = true;
        return;
      }
      output = connection->outputStream;
      output->setDelegate(feed);
      output->scheduleInRunLoop(*loop);
      output->open();
    });
    loop->runWithCondition([&] { return !feed->done; }, std::chrono::seconds(120));
    receiver.join();
    if (output) output->close();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kTotal));
}

// --- OpenSSL alone -------------------------------------------------------------------------------

void BM_PlainTLS(benchmark::State& state) {
  Devices& d = devices();
  std::string problem;
  SSLCtxPtr serverContext = makeTLSContext(*d.receiver, true, &problem);
  SSLCtxPtr clientContext = makeTLSContext(*d.sender, false, &problem);
  SSL_CTX_set_verify(serverContext.get(), SSL_VERIFY_NONE, nullptr);
  SSL_CTX_set_verify(clientContext.get(), SSL_VERIFY_NONE, nullptr);
  for (auto _ : state) {
    std::uint16_t port = 0;
    FdCloser listening(listenOn(0, true, &port, &problem));
    std::thread receiver([&] {
      FdCloser fd(::accept(listening.fd, nullptr, nullptr));
      SSLPtr ssl(SSL_new(serverContext.get()));
      SSL_set_fd(ssl.get(), fd.fd);
      if (SSL_accept(ssl.get()) != 1) return;
      std::vector<std::uint8_t> buffer(kWrite);
      std::size_t received = 0;
      for (;;) {
        int n = SSL_read(ssl.get(), buffer.data(), static_cast<int>(buffer.size()));
        if (n <= 0) break;
        received += static_cast<std::size_t>(n);
      }
      if (received != kTotal) state.SkipWithError("the receiver did not get every byte");
    });
    FdCloser fd(connectWithDeadline("127.0.0.1", port, Clock::now() + std::chrono::seconds(10), &problem));
    SSLPtr ssl(SSL_new(clientContext.get()));
    SSL_set_fd(ssl.get(), fd.fd);
    if (SSL_connect(ssl.get()) == 1) {
      for (std::size_t sent = 0; sent < kTotal;) {
        int n = SSL_write(ssl.get(), block().data(), static_cast<int>(kWrite));
        if (n <= 0) break;
        sent += static_cast<std::size_t>(n);
      }
      SSL_shutdown(ssl.get());
    }
    ::shutdown(fd.fd, SHUT_WR);
    receiver.join();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kTotal));
}

// --- raw TCP -------------------------------------------------------------------------------------

void BM_RawTCP(benchmark::State& state) {
  std::string problem;
  for (auto _ : state) {
    std::uint16_t port = 0;
    FdCloser listening(listenOn(0, true, &port, &problem));
    std::thread receiver([&] {
      FdCloser fd(::accept(listening.fd, nullptr, nullptr));
      std::vector<std::uint8_t> buffer(kWrite);
      std::size_t received = 0;
      for (;;) {
        ssize_t n = ::read(fd.fd, buffer.data(), buffer.size());
        if (n <= 0) break;
        received += static_cast<std::size_t>(n);
      }
      if (received != kTotal) state.SkipWithError("the receiver did not get every byte");
    });
    FdCloser fd(connectWithDeadline("127.0.0.1", port, Clock::now() + std::chrono::seconds(10), &problem));
    for (std::size_t sent = 0; sent < kTotal;) {
      ssize_t n = ::write(fd.fd, block().data(), kWrite);
      if (n <= 0) break;
      sent += static_cast<std::size_t>(n);
    }
    ::shutdown(fd.fd, SHUT_WR);
    receiver.join();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kTotal));
}

BENCHMARK(BM_SecureLink)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_PlainTLS)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_RawTCP)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
