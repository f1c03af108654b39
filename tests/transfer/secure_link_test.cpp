// The mutual TLS link between paired devices: bytes both ways with a clean end, and the peers that
// must get nothing — unpaired devices, and one presenting a paired device's certificate without
// its key.

#include "zentrel/transfer/secure_link.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <atomic>
#include <future>
#include <thread>

#include "transfer/internal/link_support.h"
#include "transfer/support/link_fixtures.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"

namespace {

using namespace std::chrono_literals;
using zt::test::LinkScratchFolder;
using zt::test::makeTestDevice;
using zt::test::TestDevice;

// Reads an input stream to its end on the run loop.
class Collector : public ZTStreamDelegate {
 public:
  std::string bytes;
  bool ended = false;
  std::optional<ZTError> error;
  void stream(ZTStream& stream, ZTStreamEvent event) override {
    auto& input = static_cast<ZTInputStream&>(stream);
    if (event == ZTStreamEvent::HasBytesAvailable) {
      std::uint8_t buffer[16384];
      std::int64_t count = input.read(buffer, sizeof buffer);
      if (count > 0) bytes.append(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(count));
    } else if (event == ZTStreamEvent::EndEncountered) {
      ended = true;
    } else if (event == ZTStreamEvent::ErrorOccurred) {
      error = stream.streamError();
    }
  }
  bool done() const { return ended || error.has_value(); }
};

// Writes its bytes in writes of 16 KiB on the run loop, then closes the stream.
class Sender : public ZTStreamDelegate {
 public:
  explicit Sender(std::string data) : data_(std::move(data)) {}
  bool finished = false;
  std::optional<ZTError> error;
  void stream(ZTStream& stream, ZTStreamEvent event) override {
    auto& output = static_cast<ZTOutputStream&>(stream);
    if (event == ZTStreamEvent::ErrorOccurred) error = stream.streamError();
    if (event != ZTStreamEvent::HasSpaceAvailable || finished) return;
    std::size_t length = std::min<std::size_t>(16384, data_.size() - offset_);
    std::int64_t written = output.write(reinterpret_cast<const std::uint8_t*>(data_.data() + offset_), length);
    if (written > 0) offset_ += static_cast<std::size_t>(written);
    if (offset_ == data_.size()) {
      finished = true;
      output.close();
    }
  }

 private:
  std::string data_;
  std::size_t offset_ = 0;
};

std::string patternOf(std::size_t size, unsigned variant) {
  std::string data(size, '\0');
  unsigned state = variant;
  for (auto& c : data) {
    state = state * 1103515245u + 12345u;
    c = static_cast<char>(state >> 16);
  }
  return data;
}

struct Result {
  bool called = false;
  std::optional<ZTSecureConnection> connection;
  ZTError error;
};

// A server for `server` on loopback whose accepted connections go through its link.
struct Server {
  std::shared_ptr<ZTSecureLink> link;
  std::shared_ptr<ZTStreamListener> listener;
  Result result;
  int accepted = 0;
};

std::unique_ptr<Server> startServer(const TestDevice& device, const std::shared_ptr<ZTRunLoop>& loop) {
  auto server = std::make_unique<Server>();
  ZTError error;
  server->link = ZTSecureLink::create(device.identity, device.paired, &error);
  EXPECT_NE(server->link, nullptr) << error.description();
  Server* raw = server.get();
  server->listener = ZTStreamListener::create(*loop, "127.0.0.1", 0, [raw, loop](ZTStreamListener&, std::shared_ptr<ZTStreamChannel> channel) {
    ++raw->accepted;
    raw->link->acceptConnection(std::move(channel), loop, [raw](std::optional<ZTSecureConnection> connection, const ZTError& failure) {
      raw->result.called = true;
      raw->result.connection = std::move(connection);
      raw->result.error = failure;
    });
  }, &error);
  EXPECT_NE(server->listener, nullptr) << error.description();
  return server;
}

Result connectClient(const TestDevice& device, std::uint16_t port, const std::shared_ptr<ZTRunLoop>& loop, Server& server) {
  Result result;
  auto link = ZTSecureLink::create(device.identity, device.paired);
  link->connectToHost("127.0.0.1", port, loop, [&](std::optional<ZTSecureConnection> connection, const ZTError& error) {
    result.called = true;
    result.connection = std::move(connection);
    result.error = error;
  });
  loop->runWithCondition([&] { return !result.called || (!server.result.called && server.accepted > 0); }, 20s);
  return result;
}

TEST(SecureLink, PairedDevicesExchangeBytesBothWaysAndEndCleanly) {
  LinkScratchFolder scratch;
  TestDevice sender = makeTestDevice(scratch.path(), "Sender");
  TestDevice receiver = makeTestDevice(scratch.path(), "Receiver");
  zt::test::pairByExportedLines(sender, receiver);
  auto loop = ZTRunLoop::current();
  auto server = startServer(receiver, loop);
  Result client = connectClient(sender, server->listener->port(), loop, *server);
  ASSERT_TRUE(client.connection) << client.error.description();
  ASSERT_TRUE(server->result.connection) << server->result.error.description();
  EXPECT_EQ(client.connection->peer, (ZTPairedDevice{"Receiver", receiver.identity->fingerprint()}));
  EXPECT_EQ(server->result.connection->peer, (ZTPairedDevice{"Sender", sender.identity->fingerprint()}));

  const std::string upstream = patternOf(3 * 1024 * 1024 + 17, 1);
  const std::string downstream = patternOf(200 * 1024 + 5, 2);
  auto upSender = std::make_shared<Sender>(upstream);
  auto downSender = std::make_shared<Sender>(downstream);
  auto upCollector = std::make_shared<Collector>();
  auto downCollector = std::make_shared<Collector>();
  std::vector<std::pair<std::shared_ptr<ZTStream>, std::shared_ptr<ZTStreamDelegate>>> wiring = {
      {client.connection->outputStream, upSender},       {server->result.connection->inputStream, upCollector},
      {server->result.connection->outputStream, downSender}, {client.connection->inputStream, downCollector}};
  for (auto& [stream, delegate] : wiring) {
    stream->setDelegate(delegate);
    stream->scheduleInRunLoop(*loop);
    stream->open();
  }
  loop->runWithCondition([&] { return !(upCollector->done() && downCollector->done()); }, 60s);
  EXPECT_TRUE(upCollector->ended) << (upCollector->error ? upCollector->error->description() : "no end");
  EXPECT_TRUE(downCollector->ended) << (downCollector->error ? downCollector->error->description() : "no end");
  EXPECT_EQ(upCollector->bytes.size(), upstream.size());
  EXPECT_TRUE(upCollector->bytes == upstream);
  EXPECT_TRUE(downCollector->bytes == downstream);
  for (auto& [stream, delegate] : wiring) stream->close();
}

TEST(SecureLink, NothingInFlightIsLostWhenTheReceiverDropsItsUnusedOutputAndTheSenderClosesAtOnce) {
  LinkScratchFolder scratch;
  TestDevice sender = makeTestDevice(scratch.path(), "Sender");
  TestDevice receiver = makeTestDevice(scratch.path(), "Receiver");
  zt::test::pairByExportedLines(sender, receiver);
  auto loop = ZTRunLoop::current();
  auto server = startServer(receiver, loop);
  Result client = connectClient(sender, server->listener->port(), loop, *server);
  ASSERT_TRUE(client.connection && server->result.connection);

  // The receiver ignores its output stream (as a hand-off receiver does): closed at once, which
  // sends its close_notify to the sender before the sender has written anything.
  server->result.connection->outputStream->close();
  server->result.connection->outputStream.reset();
  client.connection->inputStream.reset();
  // More than the receiver's window, so part of it still waits in the sender's kernel buffer when
  // the sender closes, yet small enough for the buffers to take it all while nobody reads.
  const std::string file = patternOf(400 * 1024 + 3, 3);
  auto feed = std::make_shared<Sender>(file);
  auto collector = std::make_shared<Collector>();
  auto output = client.connection->outputStream;
  auto input = server->result.connection->inputStream;
  output->setDelegate(feed);
  output->scheduleInRunLoop(*loop);
  output->open();
  // The sender lets go of everything the moment its last byte is written, before the receiver
  // has read any of it.
  loop->runWithCondition([&] { return !feed->finished && !feed->error; }, 60s);
  ASSERT_TRUE(feed->finished);
  client.connection.reset();
  output.reset();
  input->setDelegate(collector);
  input->scheduleInRunLoop(*loop);
  input->open();
  loop->runWithCondition([&] { return !collector->done(); }, 60s);
  EXPECT_TRUE(collector->ended) << (collector->error ? collector->error->description() : "no end");
  EXPECT_EQ(collector->bytes.size(), file.size());
  EXPECT_TRUE(collector->bytes == file);
  input->close();
}

TEST(SecureLink, UnpairedDevicesFailTheHandshakeOnBothSidesWithClearErrors) {
  LinkScratchFolder scratch;
  TestDevice host = makeTestDevice(scratch.path(), "Host");
  TestDevice stranger = makeTestDevice(scratch.path(), "Stranger");
  auto loop = ZTRunLoop::current();

  // A stranger that knows the host: the host refuses it, and the stranger is told it was refused.
  ASSERT_TRUE(stranger.paired->importLine(ZTDeviceExportLine(*host.identity)));
  auto server = startServer(host, loop);
  Result client = connectClient(stranger, server->listener->port(), loop, *server);
  EXPECT_FALSE(client.connection);
  EXPECT_FALSE(server->result.connection);
  EXPECT_EQ(server->result.error.code(), ZTSecureLinkErrorUnpairedPeer) << server->result.error.description();
  EXPECT_NE(server->result.error.localizedDescription().find("is not paired with this device"), std::string::npos);
  EXPECT_EQ(client.error.code(), ZTSecureLinkErrorHandshake);
  EXPECT_NE(client.error.localizedDescription().find("refused this device"), std::string::npos) << client.error.description();

  // Neither knows the other: the connecting side judges the certificate first and stops there.
  TestDevice other = makeTestDevice(scratch.path(), "Other");
  server->result = Result{};
  client = connectClient(other, server->listener->port(), loop, *server);
  EXPECT_FALSE(client.connection);
  EXPECT_EQ(client.error.code(), ZTSecureLinkErrorUnpairedPeer) << client.error.description();
  EXPECT_FALSE(server->result.connection);
  EXPECT_EQ(server->result.error.code(), ZTSecureLinkErrorHandshake);
}

TEST(SecureLink, ConnectingToAClosedPortSaysTheConnectionWasRefused) {
  LinkScratchFolder scratch;
  TestDevice host = makeTestDevice(scratch.path(), "Host");
  auto loop = ZTRunLoop::current();
  std::uint16_t closedPort = 0;
  {
    auto listener = ZTStreamListener::create(*loop, "127.0.0.1", 0, [](ZTStreamListener&, std::shared_ptr<ZTStreamChannel>) {});
    closedPort = listener->port();
    listener->close();
  }
  auto link = ZTSecureLink::create(host.identity, host.paired);
  Result result;
  link->connectToHost("127.0.0.1", closedPort, loop, [&](std::optional<ZTSecureConnection> connection, const ZTError& error) {
    result.called = true;
    result.connection = std::move(connection);
    result.error = error;
  });
  loop->runWithCondition([&] { return !result.called; }, 20s);
  ASSERT_TRUE(result.called);
  EXPECT_EQ(result.error.code(), ZTSecureLinkErrorConnection);
  EXPECT_NE(result.error.localizedDescription().find("refused"), std::string::npos) << result.error.description();
}

// A TLS client written directly on OpenSSL, run on a thread of its own, as an attacker's program
// would be: it presents whatever certificate and key it is given and reports what it could read.
struct RawClientReport {
  bool handshakeCompleted = false;
  std::size_t bytesRead = 0;
};

RawClientReport runRawClient(std::uint16_t port, X509* certificate, EVP_PKEY* key, const std::string& toSend, bool closeAbruptly) {
  RawClientReport report;
  using namespace zt::transfer_internal;
  std::string problem;
  zt::transfer_internal::FdCloser fd(connectWithDeadline("127.0.0.1", port, Clock::now() + 10s, &problem));
  if (fd.fd < 0) return report;
  SSLCtxPtr context(SSL_CTX_new(TLS_client_method()));
  SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
  EXPECT_EQ(SSL_CTX_use_certificate(context.get(), certificate), 1);
  EXPECT_EQ(SSL_CTX_use_PrivateKey(context.get(), key), 1) << openSSLErrors();
  SSLPtr ssl(SSL_new(context.get()));
  attachSocket(ssl.get(), fd.fd);
  report.handshakeCompleted = SSL_connect(ssl.get()) == 1;
  if (report.handshakeCompleted && !toSend.empty()) SSL_write(ssl.get(), toSend.data(), static_cast<int>(toSend.size()));
  if (closeAbruptly) return report;  // the socket closes without close_notify
  char buffer[256];
  for (int i = 0; i < 100; ++i) {
    int n = SSL_read(ssl.get(), buffer, sizeof buffer);
    if (n <= 0) break;
    report.bytesRead += static_cast<std::size_t>(n);
  }
  ERR_clear_error();
  return report;
}

X509* certificateOf(const ZTDeviceIdentity& identity) {
  const auto& der = identity.certificateDER();
  const unsigned char* cursor = der.data();
  return d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
}

EVP_PKEY* keyOf(const ZTDeviceIdentity& identity) {
  BIO* bio = BIO_new_mem_buf(identity.privateKeyPEM().data(), static_cast<int>(identity.privateKeyPEM().size()));
  EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
  BIO_free(bio);
  return key;
}

// A key whose public half is the victim's (so it passes for the certificate's key) and whose
// private half is the attacker's: signatures made with it do not verify under the certificate.
EVP_PKEY* impostorKey(X509* victimCertificate) {
  EVP_PKEY* attacker = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
  unsigned char privateBytes[32], publicBytes[32];
  std::size_t length = sizeof privateBytes;
  EVP_PKEY_get_raw_private_key(attacker, privateBytes, &length);
  length = sizeof publicBytes;
  EVP_PKEY_get_raw_public_key(X509_get0_pubkey(victimCertificate), publicBytes, &length);
  EVP_PKEY_free(attacker);
  OSSL_PARAM parameters[] = {OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, publicBytes, 32),
                             OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PRIV_KEY, privateBytes, 32), OSSL_PARAM_construct_end()};
  EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_name(nullptr, "ED25519", nullptr);
  EVP_PKEY* key = nullptr;
  EVP_PKEY_fromdata_init(context);
  EVP_PKEY_fromdata(context, &key, EVP_PKEY_KEYPAIR, parameters);
  EVP_PKEY_CTX_free(context);
  return key;
}

TEST(SecureLink, APeerWithAPairedDevicesCertificateButAnotherKeyGetsNothing) {
  LinkScratchFolder scratch;
  TestDevice host = makeTestDevice(scratch.path(), "Host");
  TestDevice friendDevice = makeTestDevice(scratch.path(), "Friend");
  zt::test::pairByExportedLines(host, friendDevice);
  auto loop = ZTRunLoop::current();
  auto server = startServer(host, loop);

  X509* stolen = certificateOf(*friendDevice.identity);
  EVP_PKEY* forged = impostorKey(stolen);
  ASSERT_NE(forged, nullptr);
  const std::uint16_t port = server->listener->port();
  auto attacker = std::async(std::launch::async, [&] { return runRawClient(port, stolen, forged, "let me in", false); });
  loop->runWithCondition([&] { return !server->result.called; }, 20s);
  RawClientReport report = attacker.get();
  X509_free(stolen);
  EVP_PKEY_free(forged);

  ASSERT_TRUE(server->result.called);
  EXPECT_FALSE(server->result.connection);
  EXPECT_EQ(server->result.error.code(), ZTSecureLinkErrorHandshake) << server->result.error.description();
  EXPECT_EQ(report.bytesRead, 0u);
}

TEST(SecureLink, APairedPeerThatVanishesWithoutClosingIsAnErrorNotAnEnd) {
  LinkScratchFolder scratch;
  TestDevice host = makeTestDevice(scratch.path(), "Host");
  TestDevice friendDevice = makeTestDevice(scratch.path(), "Friend");
  zt::test::pairByExportedLines(host, friendDevice);
  auto loop = ZTRunLoop::current();
  auto server = startServer(host, loop);

  X509* certificate = certificateOf(*friendDevice.identity);
  EVP_PKEY* key = keyOf(*friendDevice.identity);
  const std::uint16_t port = server->listener->port();
  auto peer = std::async(std::launch::async, [&] {
    return runRawClient(port, certificate, key, "half of a file", true);
  });
  loop->runWithCondition([&] { return !server->result.called; }, 20s);
  ASSERT_TRUE(server->result.connection) << server->result.error.description();
  EXPECT_TRUE(peer.get().handshakeCompleted);
  X509_free(certificate);
  EVP_PKEY_free(key);

  auto collector = std::make_shared<Collector>();
  auto input = server->result.connection->inputStream;
  input->setDelegate(collector);
  input->scheduleInRunLoop(*loop);
  input->open();
  loop->runWithCondition([&] { return !collector->done(); }, 20s);
  EXPECT_EQ(collector->bytes, "half of a file");
  EXPECT_FALSE(collector->ended);
  ASSERT_TRUE(collector->error);
  EXPECT_EQ(collector->error->domain(), ZTSecureLinkErrorDomain);
  input->close();
}

}  // namespace
