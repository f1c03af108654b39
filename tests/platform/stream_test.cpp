#include "zentrel/platform/stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/log_and_environment.h"
#include "support/temporary_folder.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/run_loop.h"

namespace {
using namespace std::chrono_literals;
using Event = ZTStreamEvent;

bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = 5000ms) {
  auto loop = ZTRunLoop::current();
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done() && std::chrono::steady_clock::now() < deadline) loop->runOnce(10ms);
  return done();
}
// Turns the loop for a while, for checks that nothing more happens.
void runFor(std::chrono::milliseconds span) { ZTRunLoop::current()->runUntil(std::chrono::steady_clock::now() + span); }

// Records every event and lets a test act on it.
struct Recorder : ZTStreamDelegate {
  std::vector<Event> events;
  std::function<void(ZTStream&, Event)> onEvent;
  void stream(ZTStream& stream, Event event) override {
    events.push_back(event);
    if (onEvent) onEvent(stream, event);
  }
  bool saw(Event event) const { return std::count(events.begin(), events.end(), event) > 0; }
};

ZTBytes bytes(std::string_view text) { return ZTBytes(text.begin(), text.end()); }
std::string text(const ZTBytes& data) { return std::string(data.begin(), data.end()); }

// Reads everything from a scheduled input stream as it arrives, `chunk` bytes per event.
void drainOnEvents(Recorder& recorder, std::string& into, std::size_t chunk = 4096) {
  recorder.onEvent = [&into, chunk](ZTStream& stream, Event event) {
    if (event != Event::HasBytesAvailable) return;
    std::vector<std::uint8_t> buffer(chunk);
    const auto n = static_cast<ZTInputStream&>(stream).read(buffer.data(), buffer.size());
    if (n > 0) into.append(buffer.begin(), buffer.begin() + n);
  };
}

struct SocketPair {
  int ends[2] = {-1, -1};
  SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }
  ~SocketPair() {
    for (int fd : ends)
      if (fd >= 0) ::close(fd);
  }
  int take() { return std::exchange(ends[0], -1); }  // handed to a stream pair
  int peer() const { return ends[1]; }
};

TEST(Stream, MemoryStreamsReadWriteAndLendTheirBuffer) {
  auto input = ZTInputStream::inputStreamWithData(bytes("0123456789"));
  EXPECT_EQ(input->streamStatus(), ZTStreamStatus::NotOpen);
  std::uint8_t buffer[4];
  EXPECT_LT(input->read(buffer, sizeof buffer), 0);  // not open yet
  input->open();
  EXPECT_EQ(input->read(buffer, 4), 4);
  std::uint8_t* lent = nullptr;
  std::size_t length = 0;
  ASSERT_TRUE(input->getBuffer(&lent, &length));
  EXPECT_EQ(std::string(lent, lent + length), "456789");
  EXPECT_EQ(input->read(lent, length), 6);  // reading into its own buffer is allowed
  EXPECT_EQ(input->streamStatus(), ZTStreamStatus::AtEnd);
  EXPECT_FALSE(input->hasBytesAvailable());
  EXPECT_FALSE(input->getBuffer(&lent, &length));
  EXPECT_EQ(input->read(buffer, 4), 0);

  auto output = ZTOutputStream::outputStreamToMemory();
  output->open();
  EXPECT_TRUE(output->hasSpaceAvailable());
  EXPECT_EQ(output->write(reinterpret_cast<const std::uint8_t*>("ab"), 2), 2);
  EXPECT_EQ(output->write(reinterpret_cast<const std::uint8_t*>("cde"), 3), 3);
  output->close();
  EXPECT_EQ(output->streamStatus(), ZTStreamStatus::Closed);
  EXPECT_EQ(text(*output->dataWrittenToMemoryStream()), "abcde");
  EXPECT_LT(output->write(reinterpret_cast<const std::uint8_t*>("f"), 1), 0);
  EXPECT_FALSE(ZTOutputStream::outputStreamToFileAtPath("/nonexistent/x", false)->dataWrittenToMemoryStream());
}

TEST(Stream, ScheduledMemoryStreamTellsOpenThenBytesOncePerReadThenEnd) {
  auto input = ZTInputStream::inputStreamWithData(bytes("0123456789"));
  auto recorder = std::make_shared<Recorder>();
  std::string received;
  drainOnEvents(*recorder, received, 4);
  input->setDelegate(recorder);
  input->scheduleInRunLoop(*ZTRunLoop::current());
  input->open();
  EXPECT_TRUE(recorder->events.empty());  // never from inside a call on the stream
  ASSERT_TRUE(runUntil([&] { return recorder->saw(Event::EndEncountered); }));
  EXPECT_EQ(received, "0123456789");
  EXPECT_EQ(recorder->events, (std::vector<Event>{Event::OpenCompleted, Event::HasBytesAvailable,
                                                  Event::HasBytesAvailable, Event::HasBytesAvailable,
                                                  Event::EndEncountered}));

  // Empty data: opened, then at once at its end.
  auto empty = ZTInputStream::inputStreamWithData({});
  auto second = std::make_shared<Recorder>();
  empty->setDelegate(second);
  empty->scheduleInRunLoop(*ZTRunLoop::current());
  empty->open();
  ASSERT_TRUE(runUntil([&] { return second->saw(Event::EndEncountered); }));
  EXPECT_EQ(second->events, (std::vector<Event>{Event::OpenCompleted, Event::EndEncountered}));
}

TEST(Stream, FileStreamsWriteWholeFilesAndReadThemBack) {
  zt::test::TemporaryFolder folder;
  const std::string path = folder / "out.bin";
  std::string content;
  for (int i = 0; i < 5000; ++i) content += std::to_string(i) + ",";

  auto output = ZTOutputStream::outputStreamToFileAtPath(path, false);
  auto writer = std::make_shared<Recorder>();
  std::size_t written = 0;
  writer->onEvent = [&](ZTStream& stream, Event event) {
    if (event != Event::HasSpaceAvailable) return;
    const std::size_t n = std::min<std::size_t>(1000, content.size() - written);
    if (n == 0) return stream.close();
    written += static_cast<std::size_t>(static_cast<ZTOutputStream&>(stream).write(
        reinterpret_cast<const std::uint8_t*>(content.data() + written), n));
    EXPECT_FALSE(zt::test::pathExists(path));  // nothing at the destination before the close
  };
  output->setDelegate(writer);
  output->scheduleInRunLoop(*ZTRunLoop::current());
  output->open();
  ASSERT_TRUE(runUntil([&] { return output->streamStatus() == ZTStreamStatus::Closed; }));
  EXPECT_EQ(zt::test::readBytes(path), content);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) names.push_back(entry.path().filename());
  EXPECT_EQ(names, std::vector<std::string>{"out.bin"});  // no temporary file left beside it

  auto appender = ZTOutputStream::outputStreamToFileAtPath(path, true);
  appender->open();
  EXPECT_EQ(appender->write(reinterpret_cast<const std::uint8_t*>("END"), 3), 3);
  appender->close();
  content += "END";

  auto input = ZTInputStream::inputStreamWithFileAtPath(path);
  auto reader = std::make_shared<Recorder>();
  std::string received;
  drainOnEvents(*reader, received, 7000);
  input->setDelegate(reader);
  input->scheduleInRunLoop(*ZTRunLoop::current());
  input->open();
  ASSERT_TRUE(runUntil([&] { return reader->saw(Event::EndEncountered); }));
  EXPECT_EQ(received, content);
  EXPECT_EQ(reader->events.front(), Event::OpenCompleted);
  EXPECT_EQ(std::count(reader->events.begin(), reader->events.end(), Event::EndEncountered), 1);

  // Unscheduled: plain blocking reads.
  auto sync = ZTInputStream::inputStreamWithFileAtPath(path);
  sync->open();
  std::vector<std::uint8_t> all(content.size() + 10);
  EXPECT_EQ(sync->read(all.data(), all.size()), static_cast<std::int64_t>(content.size()));
  EXPECT_EQ(sync->read(all.data(), all.size()), 0);
  EXPECT_EQ(sync->streamStatus(), ZTStreamStatus::AtEnd);
}

TEST(Stream, AReaderThatStopsReadingGetsNoMoreEventsUntilItReadsAgain) {
  zt::test::TemporaryFolder folder;
  zt::test::writeBytes(folder / "f", "abcdef");
  auto input = ZTInputStream::inputStreamWithFileAtPath(folder / "f");
  auto recorder = std::make_shared<Recorder>();
  input->setDelegate(recorder);
  input->scheduleInRunLoop(*ZTRunLoop::current());
  input->open();
  ASSERT_TRUE(runUntil([&] { return recorder->events.size() == 2; }));
  runFor(100ms);
  EXPECT_EQ(recorder->events, (std::vector<Event>{Event::OpenCompleted, Event::HasBytesAvailable}));
  std::uint8_t buffer[2];
  EXPECT_EQ(input->read(buffer, 2), 2);
  ASSERT_TRUE(runUntil([&] { return recorder->events.size() == 3; }));
  EXPECT_EQ(recorder->events.back(), Event::HasBytesAvailable);

  // Unscheduled, nothing is told; scheduled again, what became due is.
  input->removeFromRunLoop(*ZTRunLoop::current());
  EXPECT_EQ(input->read(buffer, 2), 2);
  runFor(50ms);
  EXPECT_EQ(recorder->events.size(), 3u);
  input->scheduleInRunLoop(*ZTRunLoop::current(), "other mode");
  ASSERT_TRUE(runUntil([&] { return recorder->events.size() == 4; }));
  std::thread([&] {
    EXPECT_THROW(input->scheduleInRunLoop(*ZTRunLoop::current()), ZTInternalInconsistencyException);
  }).join();
}

TEST(Stream, FileFailuresAreErrorsWithFileCodes) {
  zt::test::TemporaryFolder folder;
  auto missing = ZTInputStream::inputStreamWithFileAtPath(folder / "missing");
  auto recorder = std::make_shared<Recorder>();
  missing->setDelegate(recorder);
  missing->scheduleInRunLoop(*ZTRunLoop::current());
  missing->open();
  ASSERT_TRUE(runUntil([&] { return !recorder->events.empty(); }));
  runFor(30ms);
  EXPECT_EQ(recorder->events, std::vector<Event>{Event::ErrorOccurred});
  EXPECT_EQ(missing->streamStatus(), ZTStreamStatus::Error);
  EXPECT_EQ(missing->streamError()->code(), ZTFileReadNoSuchFileError);

  // A full device: the out-of-space file error, reported once.
  auto full = ZTOutputStream::outputStreamToFileAtPath("/dev/full", false);
  auto fullRecorder = std::make_shared<Recorder>();
  fullRecorder->onEvent = [](ZTStream& stream, Event event) {
    if (event == Event::HasSpaceAvailable) {
      EXPECT_LT(static_cast<ZTOutputStream&>(stream).write(reinterpret_cast<const std::uint8_t*>("x"), 1), 0);
    }
  };
  full->setDelegate(fullRecorder);
  full->scheduleInRunLoop(*ZTRunLoop::current());
  full->open();
  ASSERT_TRUE(runUntil([&] { return fullRecorder->saw(Event::ErrorOccurred); }));
  runFor(30ms);
  EXPECT_EQ(fullRecorder->events, (std::vector<Event>{Event::OpenCompleted, Event::HasSpaceAvailable,
                                                      Event::ErrorOccurred}));
  const ZTError error = *full->streamError();
  EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
  EXPECT_EQ(error.code(), ZTFileWriteOutOfSpaceError);
  EXPECT_EQ(error.localizedDescription(), "No space left on device");

  // A folder that cannot be written: nothing is left behind.
  if (!zt::test::permissionChecksBypassed()) {
    ASSERT_EQ(::mkdir((folder / "locked").c_str(), 0500), 0);
    auto denied = ZTOutputStream::outputStreamToFileAtPath(folder / "locked/f", false);
    denied->open();
    EXPECT_EQ(denied->streamStatus(), ZTStreamStatus::Error);
    EXPECT_EQ(denied->streamError()->code(), ZTFileWriteNoPermissionError);
  }
}

TEST(Stream, SocketPairCarriesBytesBothWaysAndSeesThePeerClose) {
  SocketPair sockets;
  auto pair = ZTStream::streamPairWithSocket(sockets.take());
  ASSERT_TRUE(pair);
  auto in = std::make_shared<Recorder>();
  auto out = std::make_shared<Recorder>();
  std::string received;
  drainOnEvents(*in, received, 3);
  pair->inputStream->setDelegate(in);
  pair->outputStream->setDelegate(out);
  for (ZTStream* s : {static_cast<ZTStream*>(pair->inputStream.get()), static_cast<ZTStream*>(pair->outputStream.get())}) {
    s->scheduleInRunLoop(*ZTRunLoop::current());
    s->open();
  }
  ASSERT_TRUE(runUntil([&] { return out->saw(Event::HasSpaceAvailable) && in->saw(Event::OpenCompleted); }));
  EXPECT_EQ(out->events, (std::vector<Event>{Event::OpenCompleted, Event::HasSpaceAvailable}));
  EXPECT_EQ(in->events, std::vector<Event>{Event::OpenCompleted});  // nothing sent yet

  ASSERT_EQ(::write(sockets.peer(), "hello world", 11), 11);
  ASSERT_TRUE(runUntil([&] { return received.size() == 11; }));
  // Level-triggered: 11 bytes read 3 at a time, one event per read.
  EXPECT_EQ(std::count(in->events.begin(), in->events.end(), Event::HasBytesAvailable), 4);
  EXPECT_EQ(received, "hello world");

  EXPECT_EQ(pair->outputStream->write(reinterpret_cast<const std::uint8_t*>("reply"), 5), 5);
  pair->outputStream->close();  // the peer reads the end after the reply
  char buffer[16] = {};
  ASSERT_EQ(::read(sockets.peer(), buffer, sizeof buffer), 5);
  EXPECT_EQ(std::string(buffer, 5), "reply");
  EXPECT_EQ(::read(sockets.peer(), buffer, sizeof buffer), 0);

  ASSERT_EQ(::write(sockets.peer(), "bye", 3), 3);
  ::shutdown(sockets.peer(), SHUT_WR);
  ASSERT_TRUE(runUntil([&] { return in->saw(Event::EndEncountered); }));
  EXPECT_EQ(received, "hello worldbye");
  EXPECT_EQ(pair->inputStream->streamStatus(), ZTStreamStatus::AtEnd);
  EXPECT_EQ(in->events.back(), Event::EndEncountered);

  // Both streams closed: the socket is closed, the peer's writes fail.
  pair->inputStream->close();
  ASSERT_TRUE(runUntil([&] {
    pollfd p{sockets.peer(), POLLOUT, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & (POLLHUP | POLLERR));
  }));
}

TEST(Stream, HasSpaceComesBackAfterAStalledPeerDrains) {
  SocketPair sockets;
  auto pair = ZTStream::streamPairWithSocket(sockets.take());
  auto& output = *pair->outputStream;
  auto out = std::make_shared<Recorder>();
  std::vector<std::uint8_t> block(64 * 1024, 'x');
  std::size_t written = 0;
  bool stalled = false;
  out->onEvent = [&](ZTStream&, Event event) {
    if (event != Event::HasSpaceAvailable) return;
    for (int i = 0; i < 1000 && !stalled; ++i) {  // fill the socket until it takes no more
      const auto n = output.write(block.data(), block.size());
      ASSERT_GE(n, 0);
      written += static_cast<std::size_t>(n);
      stalled = static_cast<std::size_t>(n) < block.size();
    }
  };
  output.setDelegate(out);
  output.scheduleInRunLoop(*ZTRunLoop::current());
  output.open();
  ASSERT_TRUE(runUntil([&] { return stalled; }));
  EXPECT_FALSE(output.hasSpaceAvailable());
  const auto spaceEvents = std::count(out->events.begin(), out->events.end(), Event::HasSpaceAvailable);
  runFor(50ms);
  EXPECT_EQ(std::count(out->events.begin(), out->events.end(), Event::HasSpaceAvailable), spaceEvents);

  stalled = false;
  out->onEvent = nullptr;
  std::vector<char> sink(1 << 20);
  std::size_t drained = 0;
  ASSERT_TRUE(runUntil([&] {
    const ssize_t n = ::recv(sockets.peer(), sink.data(), sink.size(), MSG_DONTWAIT);
    if (n > 0) drained += static_cast<std::size_t>(n);
    return std::count(out->events.begin(), out->events.end(), Event::HasSpaceAvailable) > spaceEvents;
  }));
  EXPECT_GT(drained, 0u);
}

// A client and a server over TCP on loopback: connection, a transfer of 1 MiB, the end.
void transferOverLoopback(const std::string& address) {
  std::shared_ptr<ZTStreamChannel> accepted;
  ZTError error;
  auto listener = ZTStreamListener::create(
      *ZTRunLoop::current(), address, 0, [&](ZTStreamListener&, std::shared_ptr<ZTStreamChannel> c) { accepted = c; },
      &error);
  if (!listener && address == "::1") {
    GTEST_SKIP() << "no IPv6 loopback: " << error.description();
  }
  ASSERT_TRUE(listener) << error.description();
  ASSERT_NE(listener->port(), 0);
  auto client = ZTStream::getStreamsToHostWithName(address, listener->port(), &error);
  ASSERT_TRUE(client) << error.description();

  std::string payload(1 << 20, '\0');
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7 % 251);
  auto sender = std::make_shared<Recorder>();
  std::size_t sent = 0;
  sender->onEvent = [&](ZTStream& stream, Event event) {
    if (event != Event::HasSpaceAvailable) return;
    if (sent == payload.size()) return stream.close();
    const auto n = static_cast<ZTOutputStream&>(stream).write(
        reinterpret_cast<const std::uint8_t*>(payload.data() + sent), std::min<std::size_t>(16384, payload.size() - sent));
    ASSERT_GE(n, 0);
    sent += static_cast<std::size_t>(n);
  };
  client->outputStream->setDelegate(sender);
  client->outputStream->scheduleInRunLoop(*ZTRunLoop::current());
  client->outputStream->open();
  ASSERT_TRUE(runUntil([&] { return accepted != nullptr; }));

  auto server = ZTStream::streamPairWithChannel(accepted);
  auto receiver = std::make_shared<Recorder>();
  std::string received;
  drainOnEvents(*receiver, received, 16384);
  server.inputStream->setDelegate(receiver);
  server.inputStream->scheduleInRunLoop(*ZTRunLoop::current());
  server.inputStream->open();
  ASSERT_TRUE(runUntil([&] { return receiver->saw(Event::EndEncountered); }, 20000ms));
  EXPECT_EQ(received.size(), payload.size());
  EXPECT_TRUE(received == payload);
  EXPECT_EQ(sender->events.front(), Event::OpenCompleted);
  EXPECT_EQ(receiver->events.front(), Event::OpenCompleted);
}

TEST(Stream, TransfersOverTCPLoopbackIPv4) { transferOverLoopback("127.0.0.1"); }
TEST(Stream, TransfersOverTCPLoopbackIPv6) { transferOverLoopback("::1"); }

TEST(Stream, RefusedConnectionAndResetAreErrors) {
  // A port nobody listens on.
  const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length), 0);
  ::close(probe);
  auto refused = ZTStream::getStreamsToHostWithName("127.0.0.1", ntohs(address.sin_port));
  ASSERT_TRUE(refused);
  auto in = std::make_shared<Recorder>();
  auto out = std::make_shared<Recorder>();
  refused->inputStream->setDelegate(in);
  refused->outputStream->setDelegate(out);
  for (ZTStream* s : {static_cast<ZTStream*>(refused->inputStream.get()), static_cast<ZTStream*>(refused->outputStream.get())}) {
    s->scheduleInRunLoop(*ZTRunLoop::current());
    s->open();
  }
  ASSERT_TRUE(runUntil([&] { return in->saw(Event::ErrorOccurred) && out->saw(Event::ErrorOccurred); }));
  EXPECT_EQ(in->events, std::vector<Event>{Event::ErrorOccurred});
  EXPECT_EQ(out->events, std::vector<Event>{Event::ErrorOccurred});
  EXPECT_EQ(refused->outputStream->streamError()->domain(), ZTPOSIXErrorDomain);
  EXPECT_EQ(refused->outputStream->streamError()->code(), ECONNREFUSED);
  EXPECT_FALSE(ZTStream::getStreamsToHostWithName("no-such-host.invalid", 80));

  // A peer that resets the connection mid-way.
  std::shared_ptr<ZTStreamChannel> accepted;
  auto listener = ZTStreamListener::create(*ZTRunLoop::current(), "127.0.0.1", 0,
                                           [&](ZTStreamListener&, std::shared_ptr<ZTStreamChannel> c) { accepted = c; });
  ASSERT_TRUE(listener);
  auto client = ZTStream::getStreamsToHostWithName("127.0.0.1", listener->port());
  auto reader = std::make_shared<Recorder>();
  std::string received;
  drainOnEvents(*reader, received);
  client->inputStream->setDelegate(reader);
  client->inputStream->scheduleInRunLoop(*ZTRunLoop::current());
  client->inputStream->open();
  ASSERT_TRUE(runUntil([&] { return accepted && reader->saw(Event::OpenCompleted); }));
  ZTError ignored;
  ASSERT_EQ(accepted->write(reinterpret_cast<const std::uint8_t*>("partial"), 7, &ignored).count, 7u);
  ASSERT_TRUE(runUntil([&] { return received == "partial"; }));
  const linger abort{1, 0};
  ASSERT_EQ(::setsockopt(accepted->fileDescriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort), 0);
  accepted->close();
  ASSERT_TRUE(runUntil([&] { return reader->saw(Event::ErrorOccurred); }));
  EXPECT_FALSE(reader->saw(Event::EndEncountered));
  EXPECT_EQ(client->inputStream->streamStatus(), ZTStreamStatus::Error);
  EXPECT_EQ(client->inputStream->streamError()->code(), ECONNRESET);
}

TEST(Stream, DelegatesThatThrowOrCloseDoNotStopTheStream) {
  zt::test::LogCapture log;
  auto input = ZTInputStream::inputStreamWithData(bytes("abcdefgh"));
  auto thrower = std::make_shared<Recorder>();
  thrower->onEvent = [](ZTStream& stream, Event event) {
    std::uint8_t buffer[3];
    if (event == Event::HasBytesAvailable) (void)static_cast<ZTInputStream&>(stream).read(buffer, 3);
    throw std::runtime_error("delegate failure");
  };
  input->setDelegate(thrower);
  input->scheduleInRunLoop(*ZTRunLoop::current());
  input->open();
  ASSERT_TRUE(runUntil([&] { return thrower->saw(Event::EndEncountered); }));
  const auto lines = log.lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_NE(lines.front().find("delegate failure"), std::string::npos);

  // Closing, and dropping the last reference, from inside the delegate.
  SocketPair sockets;
  auto pair = ZTStream::streamPairWithSocket(sockets.take());
  std::weak_ptr<ZTInputStream> weak = pair->inputStream;
  auto closer = std::make_shared<Recorder>();
  closer->onEvent = [&](ZTStream& stream, Event event) {
    if (event != Event::HasBytesAvailable) return;
    stream.close();
    EXPECT_EQ(stream.streamStatus(), ZTStreamStatus::Closed);
    pair->inputStream.reset();
  };
  pair->inputStream->setDelegate(closer);
  pair->inputStream->scheduleInRunLoop(*ZTRunLoop::current());
  pair->inputStream->open();
  ASSERT_EQ(::write(sockets.peer(), "data", 4), 4);
  ASSERT_TRUE(runUntil([&] { return weak.expired(); }));
  ASSERT_EQ(::write(sockets.peer(), "more", 4), 4);
  runFor(50ms);
  EXPECT_EQ(closer->events, (std::vector<Event>{Event::OpenCompleted, Event::HasBytesAvailable}));
}

TEST(Stream, UnscheduledSocketReadsWaitAndACloseFromAnotherThreadEndsTheWait) {
  SocketPair sockets;
  auto pair = ZTStream::streamPairWithSocket(sockets.take());
  auto& input = *pair->inputStream;
  input.open();
  std::thread peer([&] { EXPECT_EQ(::write(sockets.peer(), "late", 4), 4); });
  std::uint8_t buffer[8];
  EXPECT_EQ(input.read(buffer, sizeof buffer), 4);
  peer.join();

  std::thread closer([&] {
    // Closes once the reader is waiting (its status says Reading).
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (input.streamStatus() != ZTStreamStatus::Reading && std::chrono::steady_clock::now() < deadline)
      std::this_thread::yield();
    input.close();
  });
  EXPECT_LT(input.read(buffer, sizeof buffer), 0);
  closer.join();
  EXPECT_EQ(input.streamStatus(), ZTStreamStatus::Closed);
}

// An extension of the plain channel that holds what it received and gives it out a few bytes at a
// time, as a decrypting layer does: bytes are pending while the descriptor is no longer readable.
class BufferingChannel final : public ZTStreamChannel {
 public:
  explicit BufferingChannel(std::shared_ptr<ZTStreamChannel> inner) : inner_(std::move(inner)) {}
  int fileDescriptor() const override { return inner_->fileDescriptor(); }
  ZTStreamChannelResult open(ZTError* error) override { return inner_->open(error); }
  ZTStreamChannelResult read(std::uint8_t* buffer, std::size_t length, ZTError* error) override {
    std::uint8_t chunk[4096];
    for (;;) {
      const auto result = inner_->read(chunk, sizeof chunk, error);
      if (result.status != ZTStreamChannelStatus::Done) {
        if (held_.empty()) return result;
        break;
      }
      held_.insert(held_.end(), chunk, chunk + result.count);
    }
    const std::size_t n = std::min<std::size_t>({length, held_.size(), 2});
    std::copy_n(held_.begin(), n, buffer);
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(n));
    return {ZTStreamChannelStatus::Done, n};
  }
  ZTStreamChannelResult write(const std::uint8_t* b, std::size_t n, ZTError* e) override { return inner_->write(b, n, e); }
  ZTStreamChannelReadiness readinessWanted(ZTStreamChannelOperation op) const override {
    return inner_->readinessWanted(op);
  }
  std::size_t pendingBytes() const override { return held_.size(); }
  bool shutdownWrite(ZTError* error) override { return inner_->shutdownWrite(error); }
  void close() override { inner_->close(); }

 private:
  std::shared_ptr<ZTStreamChannel> inner_;
  std::deque<std::uint8_t> held_;
};

TEST(Stream, BytesHeldByAChannelLayerAreToldWithoutTheDescriptorBeingReadable) {
  SocketPair sockets;
  auto plain = ZTSocketStreamChannelCreate(sockets.take());
  ASSERT_TRUE(plain);
  auto pair = ZTStream::streamPairWithChannel(std::make_shared<BufferingChannel>(plain));
  auto recorder = std::make_shared<Recorder>();
  std::string received;
  drainOnEvents(*recorder, received, 64);
  pair.inputStream->setDelegate(recorder);
  pair.inputStream->scheduleInRunLoop(*ZTRunLoop::current());
  pair.inputStream->open();
  ASSERT_EQ(::write(sockets.peer(), "0123456789", 10), 10);
  ::shutdown(sockets.peer(), SHUT_WR);
  ASSERT_TRUE(runUntil([&] { return recorder->saw(Event::EndEncountered); }));
  EXPECT_EQ(received, "0123456789");
  EXPECT_EQ(std::count(recorder->events.begin(), recorder->events.end(), Event::HasBytesAvailable), 6);

  const int notASocket = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ZTError error;
  EXPECT_FALSE(ZTSocketStreamChannelCreate(notASocket, &error));  // the descriptor stays the caller's
  EXPECT_EQ(error.code(), ENOTSOCK);
  EXPECT_EQ(::close(notASocket), 0);
}

// A watch's report can reach the loop after a read made meanwhile (from a task or another
// stream's event) has used up what it saw. Told as an event, it would find nothing to read, and
// a delegate that reads nothing is sent no further event: the stream would stall.
TEST(Stream, AReadinessReportUsedUpBeforeItIsToldIsNotSentAsAnEvent) {
  SocketPair sockets;
  auto pair = ZTStream::streamPairWithSocket(sockets.take());
  ASSERT_TRUE(pair);
  auto& input = *pair->inputStream;
  auto recorder = std::make_shared<Recorder>();
  int emptyEvents = 0;
  std::string received;
  recorder->onEvent = [&](ZTStream&, Event event) {
    if (event != Event::HasBytesAvailable) return;
    if (!input.hasBytesAvailable()) {
      ++emptyEvents;  // a careful delegate reads nothing here
      return;
    }
    char buffer[64];
    const auto n = input.read(reinterpret_cast<std::uint8_t*>(buffer), sizeof buffer);
    if (n > 0) received.append(buffer, static_cast<std::size_t>(n));
  };
  input.setDelegate(recorder);
  input.scheduleInRunLoop(*ZTRunLoop::current());
  input.open();
  ASSERT_TRUE(runUntil([&] { return recorder->saw(Event::OpenCompleted); }));
  runFor(20ms);  // the stream now watches the socket

  for (int round = 0; round < 20; ++round) {
    ASSERT_EQ(::write(sockets.peer(), "ab", 2), 2);
    // Read from a task that runs before the watch's report is handled.
    ASSERT_TRUE(ZTRunLoop::current()->post([&] {
      char buffer[8];
      const auto n = input.read(reinterpret_cast<std::uint8_t*>(buffer), sizeof buffer);
      if (n > 0) received.append(buffer, static_cast<std::size_t>(n));
    }));
    runFor(5ms);
  }
  EXPECT_EQ(emptyEvents, 0);
  ASSERT_EQ(::write(sockets.peer(), "end", 3), 3);
  ASSERT_TRUE(runUntil([&] { return received.size() == 43; })) << received.size() << " bytes arrived";
}

}  // namespace
