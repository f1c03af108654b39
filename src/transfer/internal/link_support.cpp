#include "transfer/internal/link_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "zentrel/transfer/device_identity.h"

namespace zt::transfer_internal {

ZTError makeError(const char* domain, std::int64_t code, const std::string& description) {
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = description;
  return ZTError(domain, code, std::move(info));
}

std::string openSSLErrors(const std::string& fallback) {
  std::string text;
  for (int i = 0; i < 16; ++i) {
    unsigned long code = ERR_get_error();
    if (code == 0) break;
    char buffer[256];
    ERR_error_string_n(code, buffer, sizeof buffer);
    if (!text.empty()) text += "; ";
    text += buffer;
  }
  ERR_clear_error();
  return text.empty() ? fallback : text;
}

FdCloser::~FdCloser() {
  if (fd >= 0) ::close(fd);
}

namespace {
std::string folderOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool writeAllBytes(int fd, const char* data, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    ssize_t n = ::write(fd, data + done, length - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}
}  // namespace

bool writeFileWhole(const std::string& path, const std::string& bytes, unsigned mode, int* failure, bool onlyIfAbsent) {
  std::string temporary;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temporary = path + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
    fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    if (failure) *failure = errno;
    return false;
  }
  int problem = 0;
  if (::fchmod(fd, mode) != 0 || !writeAllBytes(fd, bytes.data(), bytes.size()) || ::fsync(fd) != 0) problem = errno;
  if (::close(fd) != 0 && problem == 0) problem = errno;
  if (problem == 0) {
    if (onlyIfAbsent) {
      if (::link(temporary.c_str(), path.c_str()) != 0) problem = errno;
      ::unlink(temporary.c_str());
    } else if (::rename(temporary.c_str(), path.c_str()) != 0) {
      problem = errno;
    }
  }
  if (problem != 0) {
    ::unlink(temporary.c_str());
    if (failure) *failure = problem;
    return false;
  }
  int folder = ::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0) {
    ::fsync(folder);
    ::close(folder);
  }
  return true;
}

bool isValidDeviceName(const std::string& name) {
  if (name.empty() || name.size() > 255) return false;
  std::size_t i = 0;
  while (i < name.size()) {
    auto c = static_cast<unsigned char>(name[i]);
    std::size_t extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : 4;
    if (extra == 4 || (extra == 0 && (c < 0x20 || c == 0x7f))) return false;
    std::uint32_t code = extra == 0 ? c : (c & (0x3f >> extra));
    for (std::size_t k = 1; k <= extra; ++k) {
      if (i + k >= name.size()) return false;
      auto d = static_cast<unsigned char>(name[i + k]);
      if ((d >> 6) != 2) return false;
      code = (code << 6) | (d & 0x3f);
    }
    static const std::uint32_t smallest[] = {0, 0x80, 0x800, 0x10000};
    if (code < smallest[extra] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return false;
    if (code >= 0x80 && code < 0xa0) return false;  // C1 controls
    i += extra + 1;
  }
  return true;
}

bool readSmallFile(const std::string& path, std::size_t maxBytes, std::string& bytes, int* failure) {
  FdCloser fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (fd.fd < 0) {
    if (failure) *failure = errno;
    return false;
  }
  struct stat info {};
  if (::fstat(fd.fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    if (failure) *failure = S_ISREG(info.st_mode) ? errno : EINVAL;
    return false;
  }
  if (static_cast<std::uint64_t>(info.st_size) > maxBytes) {
    if (failure) *failure = EFBIG;
    return false;
  }
  bytes.clear();
  char buffer[4096];
  for (;;) {
    ssize_t n = ::read(fd.fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (failure) *failure = errno;
      return false;
    }
    if (n == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(n));
    if (bytes.size() > maxBytes) {
      if (failure) *failure = EFBIG;
      return false;
    }
  }
  return true;
}

bool makePrivateFolder(const std::string& folder, std::string* problem) {
  if (folder.empty() || folder[0] != '/') {
    if (problem) *problem = "the folder \"" + folder + "\" is not an absolute path";
    return false;
  }
  // Parents first (mode 0700 for the ones made here too: they are per-user configuration folders).
  for (std::size_t slash = folder.find('/', 1); ; slash = folder.find('/', slash + 1)) {
    std::string part = slash == std::string::npos ? folder : folder.substr(0, slash);
    if (!part.empty() && ::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
      if (problem) *problem = "cannot make the folder \"" + part + "\": " + std::strerror(errno);
      return false;
    }
    if (slash == std::string::npos) break;
  }
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    if (problem) *problem = "\"" + folder + "\" is not a folder";
    return false;
  }
  if (info.st_uid != ::geteuid()) {
    if (problem) *problem = "the folder \"" + folder + "\" belongs to another user";
    return false;
  }
  if ((info.st_mode & 077) != 0) {
    if (problem) *problem = "the folder \"" + folder + "\" can be read or changed by other users (mode must be 0700)";
    return false;
  }
  return true;
}

bool waitFor(int fd, bool forWrite, Clock::time_point deadline) {
  for (int rounds = 0; rounds < 1000000; ++rounds) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      errno = ETIMEDOUT;
      return false;
    }
    pollfd p{fd, static_cast<short>(forWrite ? POLLOUT : POLLIN), 0};
    int n = ::poll(&p, 1, static_cast<int>(std::min<long long>(left, 1000)));
    if (n > 0) return true;
    if (n < 0 && errno != EINTR) return false;
  }
  errno = ETIMEDOUT;
  return false;
}

namespace {
void setNoDelay(int fd) {
  int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}
}  // namespace

int connectWithDeadline(const std::string& host, std::uint16_t port, Clock::time_point deadline, std::string* problem,
                        bool* refused) {
  if (refused) *refused = false;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_ADDRCONFIG;
  addrinfo* found = nullptr;
  std::string service = std::to_string(port);
  int status = ::getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
  if (status != 0) {
    if (problem) *problem = "cannot find the host \"" + host + "\": " + ::gai_strerror(status);
    return -1;
  }
  std::unique_ptr<addrinfo, void (*)(addrinfo*)> list(found, ::freeaddrinfo);
  std::string lastProblem = "no address for \"" + host + "\"";
  int count = 0;
  for (addrinfo* a = found; a != nullptr && count < 32; a = a->ai_next, ++count) {
    FdCloser fd(::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol));
    if (fd.fd < 0) {
      lastProblem = std::strerror(errno);
      continue;
    }
    int result = ::connect(fd.fd, a->ai_addr, a->ai_addrlen);
    if (result != 0 && errno == EINPROGRESS) {
      if (!waitFor(fd.fd, true, deadline)) {
        lastProblem = "timed out connecting to " + host + ":" + service;
        continue;
      }
      int socketError = 0;
      socklen_t length = sizeof socketError;
      ::getsockopt(fd.fd, SOL_SOCKET, SO_ERROR, &socketError, &length);
      result = socketError == 0 ? 0 : -1;
      errno = socketError;
    }
    if (result != 0) {
      if (errno == ECONNREFUSED && refused) *refused = true;
      lastProblem = "cannot connect to " + host + ":" + service + ": " + std::strerror(errno);
      continue;
    }
    int flags = ::fcntl(fd.fd, F_GETFL);
    ::fcntl(fd.fd, F_SETFL, flags & ~O_NONBLOCK);
    setNoDelay(fd.fd);
    if (refused) *refused = false;
    return fd.release();
  }
  if (problem) *problem = lastProblem;
  return -1;
}

int listenOn(std::uint16_t port, bool loopbackOnly, std::uint16_t* boundPort, std::string* problem) {
  int one = 1;
  FdCloser fd(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (fd.fd >= 0) {
    int zero = 0;
    ::setsockopt(fd.fd, IPPROTO_IPV6, IPV6_V6ONLY, &zero, sizeof zero);
    ::setsockopt(fd.fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = loopbackOnly ? in6addr_loopback : in6addr_any;
    if (::bind(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || loopbackOnly) {
      // IPv6 off, or loopback wanted: ::1 does not accept 127.0.0.1, so IPv4 is the portable loopback.
      ::close(fd.release());
    }
  }
  if (fd.fd < 0) {
    fd.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd.fd < 0) {
      if (problem) *problem = std::string("cannot make a socket: ") + std::strerror(errno);
      return -1;
    }
    ::setsockopt(fd.fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
    if (::bind(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      if (problem) *problem = "cannot listen on port " + std::to_string(port) + ": " + std::strerror(errno);
      return -1;
    }
  }
  if (::listen(fd.fd, 16) != 0) {
    if (problem) *problem = std::string("cannot listen: ") + std::strerror(errno);
    return -1;
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  ::getsockname(fd.fd, reinterpret_cast<sockaddr*>(&bound), &length);
  if (boundPort) {
    *boundPort = bound.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port)
                                             : ntohs(reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  }
  return fd.release();
}

SSLCtxPtr makeTLSContext(const ZTDeviceIdentity& identity, bool server, std::string* problem) {
  ERR_clear_error();
  SSLCtxPtr context(SSL_CTX_new(server ? TLS_server_method() : TLS_client_method()));
  if (!context) {
    if (problem) *problem = openSSLErrors("cannot make a TLS context");
    return nullptr;
  }
  SSL_CTX* ctx = context.get();
  SSL_CTX_set_min_proto_version(ctx, TLS1_3_VERSION);
  SSL_CTX_set_max_proto_version(ctx, TLS1_3_VERSION);
  SSL_CTX_set_num_tickets(ctx, 0);
  SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(ctx, SSL_OP_NO_TICKET);
  SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);

  const auto& der = identity.certificateDER();
  const unsigned char* cursor = der.data();
  X509* certificate = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
  const std::string& keyPEM = identity.privateKeyPEM();
  BIO* keyBio = BIO_new_mem_buf(keyPEM.data(), static_cast<int>(keyPEM.size()));
  EVP_PKEY* key = keyBio ? PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr) : nullptr;
  BIO_free(keyBio);
  bool ok = certificate && key && SSL_CTX_use_certificate(ctx, certificate) == 1 && SSL_CTX_use_PrivateKey(ctx, key) == 1 &&
            SSL_CTX_check_private_key(ctx) == 1;
  X509_free(certificate);
  EVP_PKEY_free(key);
  if (!ok) {
    if (problem) *problem = openSSLErrors("the device identity cannot be used for TLS");
    return nullptr;
  }
  return context;
}

namespace {
struct SocketBioState {
  int fd = -1;
  bool atEnd = false;
};

SocketBioState* stateOf(BIO* bio) { return static_cast<SocketBioState*>(BIO_get_data(bio)); }

int socketBioWrite(BIO* bio, const char* data, std::size_t length, std::size_t* written) {
  BIO_clear_retry_flags(bio);
  ssize_t n;
  do {
    n = ::send(stateOf(bio)->fd, data, length, MSG_NOSIGNAL);
  } while (n < 0 && errno == EINTR);
  if (n < 0) {
    if (errno == EAGAIN || errno == EWOULDBLOCK) BIO_set_retry_write(bio);
    return 0;
  }
  *written = static_cast<std::size_t>(n);
  return 1;
}

int socketBioRead(BIO* bio, char* data, std::size_t length, std::size_t* count) {
  BIO_clear_retry_flags(bio);
  ssize_t n;
  do {
    n = ::recv(stateOf(bio)->fd, data, length, 0);
  } while (n < 0 && errno == EINTR);
  if (n < 0) {
    if (errno == EAGAIN || errno == EWOULDBLOCK) BIO_set_retry_read(bio);
    return 0;
  }
  if (n == 0) {
    stateOf(bio)->atEnd = true;
    return 0;
  }
  *count = static_cast<std::size_t>(n);
  return 1;
}

long socketBioControl(BIO* bio, int command, long, void*) {
  switch (command) {
    case BIO_CTRL_FLUSH:
      return 1;
    case BIO_CTRL_EOF:
      return stateOf(bio)->atEnd ? 1 : 0;
    default:
      return 0;
  }
}

int socketBioCreate(BIO* bio) {
  BIO_set_data(bio, new SocketBioState);
  BIO_set_init(bio, 1);
  return 1;
}

int socketBioDestroy(BIO* bio) {
  delete stateOf(bio);
  BIO_set_data(bio, nullptr);
  return 1;
}

BIO_METHOD* socketBioMethod() {
  static BIO_METHOD* method = [] {
    BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "zentrel socket");
    BIO_meth_set_write_ex(m, socketBioWrite);
    BIO_meth_set_read_ex(m, socketBioRead);
    BIO_meth_set_ctrl(m, socketBioControl);
    BIO_meth_set_create(m, socketBioCreate);
    BIO_meth_set_destroy(m, socketBioDestroy);
    return m;
  }();
  return method;
}
}  // namespace

bool attachSocket(SSL* ssl, int fd) {
  BIO_METHOD* method = socketBioMethod();
  BIO* bio = method ? BIO_new(method) : nullptr;
  if (!bio) return false;
  stateOf(bio)->fd = fd;
  SSL_set_bio(ssl, bio, bio);
  return true;
}

std::string peerFingerprint(SSL* ssl) {
  X509* certificate = SSL_get1_peer_certificate(ssl);
  if (!certificate) return {};
  unsigned char* der = nullptr;
  int length = i2d_X509(certificate, &der);
  X509_free(certificate);
  if (length <= 0) return {};
  std::vector<std::uint8_t> bytes(der, der + length);
  OPENSSL_free(der);
  return ZTFingerprintOfCertificateDER(bytes);
}

}  // namespace zt::transfer_internal
