// The plain socket channel (connected, or connecting through a list of addresses) and the listener
// that accepts connections on a run loop.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/stream.h"

namespace {

constexpr int kInterruptedRetries = 64;  // EINTR retries of one call
constexpr int kAcceptsPerTurn = 16;
constexpr int kListenBacklog = 128;

bool makeNonBlockingAndCloseOnExec(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) return false;
  const int fdFlags = ::fcntl(fd, F_GETFD);
  return fdFlags >= 0 && ::fcntl(fd, F_SETFD, fdFlags | FD_CLOEXEC) >= 0;
}

struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;
};

class SocketChannel final : public ZTStreamChannel {
 public:
  explicit SocketChannel(int fd) : fd_(fd), connected_(true) {}
  explicit SocketChannel(std::vector<Address> addresses) : addresses_(std::move(addresses)) {}
  ~SocketChannel() override { close(); }

  int fileDescriptor() const override { return fd_; }

  ZTStreamChannelResult open(ZTError* error) override {
    if (failedWith_ != 0) return failed(failedWith_, error);  // the other stream of the pair asks too
    if (closed_) return failed(EBADF, error);
    if (connected_) return {ZTStreamChannelStatus::Done, 0};
    if (fd_ >= 0) {
      // A connection under way: finished once the socket is writable.
      pollfd p{fd_, POLLOUT, 0};
      if (::poll(&p, 1, 0) == 0) return {ZTStreamChannelStatus::WouldBlock, 0};
      int failure = 0;
      socklen_t length = sizeof failure;
      if (::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &failure, &length) < 0) failure = errno;
      if (failure == 0) {
        connected_ = true;
        return {ZTStreamChannelStatus::Done, 0};
      }
      lastFailure_ = failure;
      ::close(fd_);
      fd_ = -1;
      ++next_;
    }
    // Start a connection to the next address; immediate failures move on to the one after.
    while (next_ < addresses_.size()) {
      const Address& address = addresses_[next_];
      fd_ = ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      if (fd_ < 0) {
        lastFailure_ = errno;
        ++next_;
        continue;
      }
      int result = ::connect(fd_, reinterpret_cast<const sockaddr*>(&address.storage), address.length);
      if (result == 0) {
        connected_ = true;
        return {ZTStreamChannelStatus::Done, 0};
      }
      if (errno == EINPROGRESS || errno == EINTR) return {ZTStreamChannelStatus::WouldBlock, 0};
      lastFailure_ = errno;
      ::close(fd_);
      fd_ = -1;
      ++next_;
    }
    failedWith_ = lastFailure_ ? lastFailure_ : ECONNREFUSED;
    return failed(failedWith_, error);
  }

  ZTStreamChannelResult read(std::uint8_t* buffer, std::size_t length, ZTError* error) override {
    if (failedWith_ != 0) return failed(failedWith_, error);
    if (closed_ || fd_ < 0) return failed(EBADF, error);
    if (!connected_) return {ZTStreamChannelStatus::WouldBlock, 0};
    if (length == 0) return {ZTStreamChannelStatus::Done, 0};
    for (int attempt = 0; attempt < kInterruptedRetries; ++attempt) {
      const ssize_t n = ::recv(fd_, buffer, length, 0);
      if (n > 0) return {ZTStreamChannelStatus::Done, static_cast<std::size_t>(n)};
      if (n == 0) return {ZTStreamChannelStatus::End, 0};
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return {ZTStreamChannelStatus::WouldBlock, 0};
      return failed(errno, error);
    }
    return {ZTStreamChannelStatus::WouldBlock, 0};
  }

  ZTStreamChannelResult write(const std::uint8_t* buffer, std::size_t length, ZTError* error) override {
    if (failedWith_ != 0) return failed(failedWith_, error);
    if (closed_ || fd_ < 0) return failed(EBADF, error);
    if (!connected_) return {ZTStreamChannelStatus::WouldBlock, 0};
    if (writeShut_) return failed(EPIPE, error);
    if (length == 0) return {ZTStreamChannelStatus::Done, 0};
    for (int attempt = 0; attempt < kInterruptedRetries; ++attempt) {
      const ssize_t n = ::send(fd_, buffer, length, MSG_NOSIGNAL);
      if (n >= 0) return {ZTStreamChannelStatus::Done, static_cast<std::size_t>(n)};
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return {ZTStreamChannelStatus::WouldBlock, 0};
      return failed(errno, error);
    }
    return {ZTStreamChannelStatus::WouldBlock, 0};
  }

  ZTStreamChannelReadiness readinessWanted(ZTStreamChannelOperation operation) const override {
    if (operation == ZTStreamChannelOperation::Read && connected_) return ZTStreamChannelReadiness::Readable;
    return ZTStreamChannelReadiness::Writable;  // a connection completes, and writes go, on writability
  }

  bool shutdownWrite(ZTError* error) override {
    if (writeShut_) return true;
    writeShut_ = true;
    if (fd_ < 0 || !connected_) return true;
    if (::shutdown(fd_, SHUT_WR) < 0 && errno != ENOTCONN) {
      ZTSetError(error, ZTError::posix(errno));
      return false;
    }
    return true;
  }

  void close() override {
    closed_ = true;
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  static ZTStreamChannelResult failed(int errnoValue, ZTError* error) {
    ZTSetError(error, ZTError::posix(errnoValue));
    return {ZTStreamChannelStatus::Failed, 0};
  }

  int fd_ = -1;
  bool connected_ = false;
  bool closed_ = false;
  bool writeShut_ = false;
  std::vector<Address> addresses_;
  std::size_t next_ = 0;
  int lastFailure_ = 0;
  int failedWith_ = 0;  // no address could be reached
};

ZTError resolutionError(const std::string& hostName, int code) {
  ZTError error = ZTError::posix(EHOSTUNREACH);
  ZTValue info = error.userInfo();
  info[ZTLocalizedDescriptionKey] = "Cannot resolve " + hostName + ": " + ::gai_strerror(code);
  return ZTError(ZTPOSIXErrorDomain, EHOSTUNREACH, std::move(info));
}

}  // namespace

std::shared_ptr<ZTStreamChannel> ZTSocketStreamChannelCreate(int socketDescriptor, ZTError* error) {
  int type = 0;
  socklen_t length = sizeof type;
  if (socketDescriptor < 0 || ::getsockopt(socketDescriptor, SOL_SOCKET, SO_TYPE, &type, &length) < 0) {
    ZTSetError(error, ZTError::posix(socketDescriptor < 0 ? EBADF : errno));
    return nullptr;
  }
  if (type != SOCK_STREAM) {
    ZTSetError(error, ZTError::posix(ENOTSOCK));
    return nullptr;
  }
  if (!makeNonBlockingAndCloseOnExec(socketDescriptor)) {
    ZTSetError(error, ZTError::posix(errno));
    return nullptr;
  }
  return std::make_shared<SocketChannel>(socketDescriptor);
}

std::shared_ptr<ZTStreamChannel> ZTSocketStreamChannelConnect(const std::string& hostName, std::uint16_t port,
                                                              ZTError* error) {
  if (port == 0 || hostName.empty() || hostName.find('\0') != std::string::npos) {
    ZTSetError(error, ZTError::posix(EINVAL));
    return nullptr;
  }
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int code = ::getaddrinfo(hostName.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (code != 0) {
    ZTSetError(error, code == EAI_SYSTEM ? ZTError::posix(errno) : resolutionError(hostName, code));
    return nullptr;
  }
  std::vector<Address> addresses;
  for (addrinfo* item = found; item; item = item->ai_next) {
    if (item->ai_addrlen > sizeof(sockaddr_storage)) continue;
    Address address;
    std::memcpy(&address.storage, item->ai_addr, item->ai_addrlen);
    address.length = item->ai_addrlen;
    addresses.push_back(address);
  }
  ::freeaddrinfo(found);
  if (addresses.empty()) {
    ZTSetError(error, resolutionError(hostName, EAI_NONAME));
    return nullptr;
  }
  return std::make_shared<SocketChannel>(std::move(addresses));
}

// ---------------------------------------------------------------------------------------------

struct ZTStreamListener::Impl {
  // Watches the listening socket once; the callback accepts what is waiting and watches again, so
  // a backlog longer than one turn's accepts is seen on the next turn.
  static void watch(const std::shared_ptr<ZTStreamListener>& listener, Impl& impl);
  // False when accepting failed for want of descriptors or memory.
  static bool acceptWaiting(ZTStreamListener& listener, Impl& impl);

  std::shared_ptr<ZTRunLoop> runLoop;
  int fd = -1;
  std::uint16_t port = 0;
  ConnectionHandler handler;
  std::shared_ptr<ZTFileDescriptorSource> source;
  std::shared_ptr<ZTTimer> pause;
};

ZTStreamListener::ZTStreamListener(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ZTStreamListener::~ZTStreamListener() { close(); }

namespace {

// Listens on one socket: the address given, or both families on the IPv6 wildcard (IPv4 alone
// where the machine has no IPv6).
int openListeningSocket(const std::string& address, std::uint16_t port, ZTError* error) {
  Address bound;
  bool dualStack = false;
  if (address.empty()) {
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&bound.storage);
    in6->sin6_family = AF_INET6;
    in6->sin6_addr = in6addr_any;
    in6->sin6_port = htons(port);
    bound.length = sizeof(sockaddr_in6);
    dualStack = true;
  } else {
    auto* in4 = reinterpret_cast<sockaddr_in*>(&bound.storage);
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&bound.storage);
    if (::inet_pton(AF_INET, address.c_str(), &in4->sin_addr) == 1) {
      in4->sin_family = AF_INET;
      in4->sin_port = htons(port);
      bound.length = sizeof(sockaddr_in);
    } else if (::inet_pton(AF_INET6, address.c_str(), &in6->sin6_addr) == 1) {
      in6->sin6_family = AF_INET6;
      in6->sin6_port = htons(port);
      bound.length = sizeof(sockaddr_in6);
    } else {
      ZTError failure = ZTError::posix(EINVAL);
      ZTValue info = failure.userInfo();
      info[ZTLocalizedDescriptionKey] = "Not a numeric IPv4 or IPv6 address: " + address;
      ZTSetError(error, ZTError(ZTPOSIXErrorDomain, EINVAL, std::move(info)));
      return -1;
    }
  }
  int fd = ::socket(bound.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0 && dualStack && (errno == EAFNOSUPPORT || errno == EPROTONOSUPPORT)) {
    bound = Address{};
    auto* in4 = reinterpret_cast<sockaddr_in*>(&bound.storage);
    in4->sin_family = AF_INET;
    in4->sin_addr.s_addr = htonl(INADDR_ANY);
    in4->sin_port = htons(port);
    bound.length = sizeof(sockaddr_in);
    dualStack = false;
    fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  }
  if (fd < 0) {
    ZTSetError(error, ZTError::posix(errno));
    return -1;
  }
  const int yes = 1, no = 0;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (dualStack) ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&bound.storage), bound.length) < 0 ||
      ::listen(fd, kListenBacklog) < 0) {
    ZTSetError(error, ZTError::posix(errno));
    ::close(fd);
    return -1;
  }
  return fd;
}

std::uint16_t boundPort(int fd) {
  sockaddr_storage storage{};
  socklen_t length = sizeof storage;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) < 0) return 0;
  if (storage.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
  return ntohs(reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port);
}

}  // namespace

std::shared_ptr<ZTStreamListener> ZTStreamListener::create(ZTRunLoop& runLoop, const std::string& address,
                                                           std::uint16_t port, ConnectionHandler handler,
                                                           ZTError* error) {
  if (!handler) {
    ZTSetError(error, ZTError::posix(EINVAL));
    return nullptr;
  }
  const int fd = openListeningSocket(address, port, error);
  if (fd < 0) return nullptr;
  auto impl = std::make_unique<Impl>();
  impl->runLoop = runLoop.shared_from_this();
  impl->fd = fd;
  impl->port = boundPort(fd);
  impl->handler = std::move(handler);
  Impl& implRef = *impl;
  std::shared_ptr<ZTStreamListener> listener(new ZTStreamListener(std::move(impl)));
  Impl::watch(listener, implRef);
  if (!implRef.source) {
    ZTSetError(error, ZTError::posix(EBADF));
    return nullptr;
  }
  return listener;
}

bool ZTStreamListener::Impl::acceptWaiting(ZTStreamListener& listener, Impl& impl) {
  for (int i = 0; i < kAcceptsPerTurn && impl.fd >= 0; ++i) {
    const int connection = ::accept4(impl.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return true;
      ZTLogf("ERROR: accepting a connection on port %u failed: %s", static_cast<unsigned>(impl.port),
             std::strerror(errno));
      return false;
    }
    auto channel = ZTSocketStreamChannelCreate(connection);
    if (!channel) {
      ::close(connection);
      continue;
    }
    try {
      impl.handler(listener, std::move(channel));
    } catch (const std::exception& e) {
      ZTLogf("ERROR: a stream listener's connection handler threw: %s", e.what());
    } catch (...) {
      ZTLog("ERROR: a stream listener's connection handler threw");
    }
  }
  return true;
}

void ZTStreamListener::Impl::watch(const std::shared_ptr<ZTStreamListener>& listener, Impl& impl) {
  if (impl.fd < 0) return;
  std::weak_ptr<ZTStreamListener> weak = listener;
  impl.source = impl.runLoop->addFileDescriptorSource(
      impl.fd, ZTFileDescriptorSource::Event::Readable, [weak, &impl](ZTFileDescriptorSource& source) {
        source.cancel();
        auto strong = weak.lock();
        if (!strong || impl.source.get() != &source) return;
        impl.source.reset();
        const bool accepted = acceptWaiting(*strong, impl);
        if (impl.fd < 0) return;
        if (accepted) {
          watch(strong, impl);
          return;
        }
        // Out of descriptors or memory: the backlog stays readable, so wait a little before
        // watching again rather than spinning.
        impl.pause = impl.runLoop->scheduleTimer(std::chrono::milliseconds(100), false, [weak, &impl](ZTTimer&) {
          if (auto again = weak.lock()) {
            impl.pause.reset();
            watch(again, impl);
          }
        });
      });
}

std::uint16_t ZTStreamListener::port() const { return impl_->fd >= 0 ? impl_->port : 0; }

void ZTStreamListener::close() {
  if (impl_->source) impl_->source->cancel();
  impl_->source.reset();
  if (impl_->pause) impl_->pause->invalidate();
  impl_->pause.reset();
  if (impl_->fd >= 0) ::close(impl_->fd);
  impl_->fd = -1;
}
