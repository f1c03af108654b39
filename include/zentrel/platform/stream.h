#pragma once
// Streams: byte sources (ZTInputStream) and sinks (ZTOutputStream) over files, memory and connected
// sockets, which tell a delegate on a run loop when they can be read or written.
//
// Life of a stream: made not open; open() starts it; close() ends it for good (a closed stream is
// not reopened). A stream that fails reports the failure once and keeps status Error with the
// failure in streamError(). Streams are held by std::shared_ptr and made by the static factories.
//
// Events. A stream scheduled in a run loop (scheduleInRunLoop) tells its delegate what happened,
// one event per call, on that loop's thread, never from inside one of the stream's own calls:
//   OpenCompleted       once, when open() has finished (a socket: once connected);
//   HasBytesAvailable   an input stream can be read without waiting. Files and memory: after the
//                       open and again after each read that did not reach the end, one per turn
//                       of the loop. Sockets: when data arrives, and again after each read while
//                       data remains (level-triggered, at most once per turn). A delegate that does
//                       not read gets no further event until it reads: nothing spins.
//   HasSpaceAvailable   an output stream can take bytes without waiting: once after the open, and
//                       again after each write, as soon as more bytes can be taken (at once for
//                       files and memory, when the socket drains for sockets). A delegate that does
//                       not write gets no further event until it writes.
//   ErrorOccurred       once; the status is then Error and streamError() says why;
//   EndEncountered      once, when an input stream has given its last byte (the peer closed its
//                       side), or a fixed-capacity output could take no more.
// Nothing is delivered after close(), after removeFromRunLoop() from the last mode, or once the
// stream is destroyed. Events that became due while the stream was unscheduled are delivered after
// it is scheduled again. Regular files cannot be watched for readiness: their events are posted
// work on the loop, one per turn.
//
// Run-loop modes: ZTRunLoop runs every source in every turn, so a mode is a name the stream keeps
// to know whether it is scheduled; a stream scheduled in any mode gets its events, and is
// unscheduled when removed from the last one.
//
// Threads: a scheduled stream is used from the thread of its run loop (read, write, the has-bytes
// and has-space questions); close(), setDelegate() and removeFromRunLoop() may also come from any
// other thread, and once close() returns no event for the stream starts any more. A stream that is
// not scheduled may be used synchronously from one thread at a time: its reads and writes then wait
// (files, memory: never for long; sockets: for the peer). The two streams of a socket pair share one
// channel and are used from one thread, normally both scheduled in the same run loop.
//
// Delegates: held weakly. A delegate that throws is caught and logged through ZTLog; the stream
// goes on as if the call had returned. Closing or releasing the stream from inside the delegate is
// safe: the stream stays alive until the call returns.
//
// Bad input: a path that cannot be opened, a refused connection, a reset, a full disk each make the
// stream's open or write fail with a ZTError (status Error, one ErrorOccurred event); nothing throws
// and nothing crashes. A full disk (ENOSPC, EDQUOT) is ZTCocoaErrorDomain code 640
// (ZTFileWriteOutOfSpaceError, "No space left on device"); other file errors are the file codes of
// file_manager.h with the POSIX error underneath; socket errors are ZTPOSIXErrorDomain errors.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

class ZTRunLoop;
class ZTStream;
class ZTInputStream;
class ZTOutputStream;
namespace zt::internal {
struct StreamCore;
}  // namespace zt::internal

// The default mode name, for callers that schedule in one mode.
inline constexpr const char* ZTDefaultRunLoopMode = "kCFRunLoopDefaultMode";

enum class ZTStreamStatus : std::uint32_t {
  NotOpen = 0,
  Opening = 1,
  Open = 2,
  Reading = 3,
  Writing = 4,
  AtEnd = 5,
  Closed = 6,
  Error = 7,
};

// Event codes; each call to the delegate carries exactly one of them. The values are bits so that
// callers can keep sets of them.
enum class ZTStreamEvent : std::uint32_t {
  None = 0,
  OpenCompleted = 1,
  HasBytesAvailable = 2,
  HasSpaceAvailable = 4,
  ErrorOccurred = 8,
  EndEncountered = 16,
};
constexpr ZTStreamEvent operator|(ZTStreamEvent a, ZTStreamEvent b) {
  return static_cast<ZTStreamEvent>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr ZTStreamEvent operator&(ZTStreamEvent a, ZTStreamEvent b) {
  return static_cast<ZTStreamEvent>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}

// Receives a stream's events (see above). Held weakly by the stream. The method is optional: the
// default does nothing.
class ZT_API ZTStreamDelegate {
 public:
  virtual ~ZTStreamDelegate() = default;
  virtual void stream(ZTStream& stream, ZTStreamEvent eventCode);
};

// ---------------------------------------------------------------------------------------------
// Channels: what a socket pair reads and writes through. The library's plain channel is a
// non-blocking socket; another layer (encryption, for one) implements this interface, usually
// over the plain channel, and the stream pair works the same over it. A channel is used by the two
// streams of one pair from one thread; it need not be thread-safe.

// What a channel call achieved.
enum class ZTStreamChannelStatus : std::uint32_t {
  Done,        // `count` bytes moved (at least one), or the open finished
  WouldBlock,  // nothing now; wait for readinessWanted() of the same operation and call again
  End,         // read: the peer has closed its side and every byte has been given
  Failed,      // the error out-parameter says why; the channel is unusable from now on
};
struct ZTStreamChannelResult {
  ZTStreamChannelStatus status = ZTStreamChannelStatus::Failed;
  std::size_t count = 0;
};

// The operations a channel can be waiting on, and the descriptor readiness each needs.
enum class ZTStreamChannelOperation : std::uint32_t { Open, Read, Write };
enum class ZTStreamChannelReadiness : std::uint32_t { None = 0, Readable = 1, Writable = 2, Both = 3 };

class ZT_API ZTStreamChannel {
 public:
  virtual ~ZTStreamChannel() = default;

  // The descriptor the streams watch for readiness; -1 once closed. Owned by the channel.
  virtual int fileDescriptor() const = 0;

  // Makes the channel ready for data (a connection being established, a handshake). Done when
  // ready — also on every call after that —, WouldBlock while waiting, Failed with an error.
  virtual ZTStreamChannelResult open(ZTError* error) = 0;
  // Non-blocking. Reads at most `length` bytes into `buffer`.
  virtual ZTStreamChannelResult read(std::uint8_t* buffer, std::size_t length, ZTError* error) = 0;
  // Non-blocking. Writes at most `length` bytes; Done with the count taken (possibly fewer).
  virtual ZTStreamChannelResult write(const std::uint8_t* buffer, std::size_t length, ZTError* error) = 0;

  // The readiness that lets `operation` progress after it answered WouldBlock. A layer that must
  // write while reading (a handshake, a renegotiation) answers Writable or Both for Read.
  virtual ZTStreamChannelReadiness readinessWanted(ZTStreamChannelOperation operation) const = 0;
  // Bytes already received and held by the channel (decrypted, buffered) that read() gives without
  // the descriptor becoming readable. 0 for a plain socket.
  virtual std::size_t pendingBytes() const { return 0; }

  // No more writes: the peer reads the end of the stream once it has everything written so far.
  // Idempotent.
  virtual bool shutdownWrite(ZTError* error) = 0;
  // Releases the descriptor. Idempotent; every later call fails or answers -1.
  virtual void close() = 0;
};

// The plain socket channel over a connected stream socket (TCP, or a Unix-domain socket pair). The
// channel owns the descriptor from then on and makes it non-blocking and close-on-exec. nullptr with
// an error (ENOTSOCK) for a descriptor that is not a stream socket; the descriptor then stays the
// caller's.
[[nodiscard]] ZT_API std::shared_ptr<ZTStreamChannel> ZTSocketStreamChannelCreate(int socketDescriptor,
                                                                                 ZTError* error = nullptr);
// A plain socket channel that connects to host:port over TCP. The name is resolved now (blocking:
// give a numeric address to avoid waiting); the connection is started by the first open() and made
// without blocking, trying each resolved address in turn; open() is Done once connected and Failed
// when every address refused (ZTPOSIXErrorDomain, ECONNREFUSED) or could not be reached. nullptr
// with an error when the name does not resolve or the port is 0.
[[nodiscard]] ZT_API std::shared_ptr<ZTStreamChannel> ZTSocketStreamChannelConnect(const std::string& hostName,
                                                                                  std::uint16_t port,
                                                                                  ZTError* error = nullptr);

// ---------------------------------------------------------------------------------------------

struct ZTStreamPair {
  std::shared_ptr<ZTInputStream> inputStream;
  std::shared_ptr<ZTOutputStream> outputStream;
};

class ZT_API ZTStream : public std::enable_shared_from_this<ZTStream> {
 public:
  virtual ~ZTStream();
  ZTStream(const ZTStream&) = delete;
  ZTStream& operator=(const ZTStream&) = delete;

  // Starts the stream: NotOpen → Opening → Open (files and memory at once; sockets when connected,
  // which an unscheduled socket stream waits for on its first read or write). Opening a stream that
  // is not NotOpen does nothing. A failure sets status Error and, when scheduled, sends
  // ErrorOccurred.
  void open();
  // Ends the stream; status Closed (an errored stream keeps Error). No event follows. An output file
  // stream has everything written handed to the file system; an output socket stream shuts its
  // writing side down so that the peer reads the end. Idempotent.
  void close();

  std::shared_ptr<ZTStreamDelegate> delegate() const;
  void setDelegate(std::weak_ptr<ZTStreamDelegate> delegate);

  // See the header comment: events come on `runLoop`'s thread. A stream is scheduled in one run
  // loop at a time: scheduling in a second loop while scheduled in another throws
  // ZTInternalInconsistencyException. Removing from a mode it is not scheduled in does nothing.
  void scheduleInRunLoop(ZTRunLoop& runLoop, std::string_view mode = ZTDefaultRunLoopMode);
  void removeFromRunLoop(ZTRunLoop& runLoop, std::string_view mode = ZTDefaultRunLoopMode);

  ZTStreamStatus streamStatus() const;
  // The failure, once status is Error.
  std::optional<ZTError> streamError() const;

  // A pair connecting to host:port over TCP (see ZTSocketStreamChannelConnect): the connection is
  // made once a stream of the pair is opened; OpenCompleted follows it, a refusal is ErrorOccurred.
  // nullopt with an error when the name does not resolve or the port is 0.
  [[nodiscard]] static std::optional<ZTStreamPair> getStreamsToHostWithName(const std::string& hostName,
                                                                           std::uint16_t port,
                                                                           ZTError* error = nullptr);
  // A pair over a connected stream socket, which the pair owns from now on (see
  // ZTSocketStreamChannelCreate). Closing (or releasing) both streams closes the socket; closing the
  // output stream shuts the writing side down. nullopt with an error for a descriptor that is not a
  // stream socket.
  [[nodiscard]] static std::optional<ZTStreamPair> streamPairWithSocket(int socketDescriptor, ZTError* error = nullptr);
  // A pair over any channel (see ZTStreamChannel); the pair owns the channel.
  [[nodiscard]] static ZTStreamPair streamPairWithChannel(std::shared_ptr<ZTStreamChannel> channel);

 protected:
  explicit ZTStream(std::shared_ptr<zt::internal::StreamCore> core);
  friend struct zt::internal::StreamCore;
  std::shared_ptr<zt::internal::StreamCore> core_;
};

class ZT_API ZTInputStream : public ZTStream {
 public:
  // Reads the bytes of a file; opening fails when it cannot be read (ZTFileReadNoSuchFileError and
  // the other read codes of file_manager.h).
  [[nodiscard]] static std::shared_ptr<ZTInputStream> inputStreamWithFileAtPath(std::string_view path);
  // Reads the given bytes (kept by the stream).
  [[nodiscard]] static std::shared_ptr<ZTInputStream> inputStreamWithData(ZTBytes data);

  // Reads at most `maxLength` bytes into `buffer`. Answers the count read; 0 at the end (status
  // AtEnd) — and, for a scheduled socket stream, also when nothing has arrived yet (status still
  // Open: wait for HasBytesAvailable); negative on failure (status Error, see streamError()) or on
  // a stream that is not open. `buffer` may be the stream's own buffer from getBuffer().
  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength);
  // Lends the stream's buffer of bytes not yet read: true, with the pointer and length, only for a
  // stream that keeps its bytes in memory and has some left; false otherwise. The buffer stays
  // valid until the next read or close.
  bool getBuffer(std::uint8_t** buffer, std::size_t* length);
  // True when a read would give bytes (or the end) without waiting.
  bool hasBytesAvailable();

 protected:
  using ZTStream::ZTStream;
  friend struct zt::internal::StreamCore;
};

class ZT_API ZTOutputStream : public ZTStream {
 public:
  // Writes into a file, created when missing (mode 0666 less the umask); with `shouldAppend` after
  // its current content, else replacing it. Opening fails when it cannot be written (the write
  // codes of file_manager.h).
  [[nodiscard]] static std::shared_ptr<ZTOutputStream> outputStreamToFileAtPath(std::string_view path,
                                                                                bool shouldAppend);
  // Collects what is written in memory; see dataWrittenToMemoryStream().
  [[nodiscard]] static std::shared_ptr<ZTOutputStream> outputStreamToMemory();

  // Writes at most `length` bytes. Answers the count taken (a scheduled socket stream takes what
  // fits now, possibly 0; an unscheduled one waits until it can take at least one byte), negative on
  // failure (status Error, see streamError()) or on a stream that is not open.
  std::int64_t write(const std::uint8_t* buffer, std::size_t length);
  // True when a write would take bytes without waiting.
  bool hasSpaceAvailable();

  // Everything written so far to a memory stream (also after close); nullopt for other streams.
  std::optional<ZTBytes> dataWrittenToMemoryStream() const;

 protected:
  using ZTStream::ZTStream;
  friend struct zt::internal::StreamCore;
};

// ---------------------------------------------------------------------------------------------

// Accepts TCP connections on a run loop and hands each one over as a plain socket channel, which
// the handler turns into streams (ZTStream::streamPairWithChannel) or wraps in another layer first.
// Closing or releasing the listener stops accepting; connections already handed over live on.
//
// Threads: made on, and used from, the thread of its run loop; the handler runs there. A handler
// that throws is caught and logged; the listener goes on accepting.
class ZT_API ZTStreamListener : public std::enable_shared_from_this<ZTStreamListener> {
 public:
  using ConnectionHandler =
      std::function<void(ZTStreamListener& listener, std::shared_ptr<ZTStreamChannel> connection)>;

  // Listens on `address` (numeric IPv4 or IPv6; empty: every address of both families) and `port`
  // (0: one the system picks, see port()). nullptr with an error when the address is not numeric or
  // the port cannot be bound, or the handler is empty.
  [[nodiscard]] static std::shared_ptr<ZTStreamListener> create(ZTRunLoop& runLoop, const std::string& address,
                                                                std::uint16_t port, ConnectionHandler handler,
                                                                ZTError* error = nullptr);
  ~ZTStreamListener();
  ZTStreamListener(const ZTStreamListener&) = delete;
  ZTStreamListener& operator=(const ZTStreamListener&) = delete;

  // The port listened on, 0 once closed.
  std::uint16_t port() const;
  // Stops accepting. Idempotent.
  void close();

 private:
  struct Impl;
  explicit ZTStreamListener(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};
