#pragma once
// Helpers shared by the identity, the pairing and the secure link: errors, whole-file writes,
// sockets with deadlines and the OpenSSL contexts of this library's TLS.

#include <openssl/ssl.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zentrel/platform/error.h"

class ZTDeviceIdentity;

namespace zt::transfer_internal {

using Clock = std::chrono::steady_clock;

ZTError makeError(const char* domain, std::int64_t code, const std::string& description);
// The OpenSSL error queue as one line (emptied), or `fallback` when it is empty.
std::string openSSLErrors(const std::string& fallback = "unknown TLS failure");

// Writes `bytes` to `path` whole: a temporary file beside it (O_EXCL|O_NOFOLLOW, the given mode),
// fsync, rename over the path, fsync of the folder. On failure nothing at `path` changes and errno
// is kept in *failure.
// With `onlyIfAbsent`, an existing file is kept and the call fails with EEXIST (link, not rename).
bool writeFileWhole(const std::string& path, const std::string& bytes, unsigned mode, int* failure,
                    bool onlyIfAbsent = false);
// A device name people see: 1 to 255 bytes of valid UTF-8 without control characters.
bool isValidDeviceName(const std::string& name);
// Reads a regular file of at most maxBytes (refusing symbolic links). false with errno in *failure.
bool readSmallFile(const std::string& path, std::size_t maxBytes, std::string& bytes, int* failure);
// Makes `folder` and missing parents; the last one with mode 0700. Refuses a folder that exists but
// belongs to another user or lets group or others in.
bool makePrivateFolder(const std::string& folder, std::string* problem);

struct FdCloser {
  int fd = -1;
  explicit FdCloser(int f = -1) : fd(f) {}
  ~FdCloser();
  FdCloser(const FdCloser&) = delete;
  FdCloser& operator=(const FdCloser&) = delete;
  int release() { int f = fd; fd = -1; return f; }
};

// Connects to host:port, trying each resolved address, within the deadline. Returns a connected
// blocking socket with TCP_NODELAY, or -1 with *problem.
int connectWithDeadline(const std::string& host, std::uint16_t port, Clock::time_point deadline, std::string* problem,
                        bool* refused = nullptr);
// Listens on `port` (0 for any) on IPv6 with IPv4 mapped, falling back to IPv4; loopback only when
// asked. Returns the listening socket and the bound port, or -1 with *problem.
int listenOn(std::uint16_t port, bool loopbackOnly, std::uint16_t* boundPort, std::string* problem);
// Waits for fd to be readable/writable until the deadline; false on timeout (errno ETIMEDOUT).
bool waitFor(int fd, bool forWrite, Clock::time_point deadline);

struct SSLCtxDeleter { void operator()(SSL_CTX* c) const { SSL_CTX_free(c); } };
struct SSLDeleter { void operator()(SSL* s) const { SSL_free(s); } };
using SSLCtxPtr = std::unique_ptr<SSL_CTX, SSLCtxDeleter>;
using SSLPtr = std::unique_ptr<SSL, SSLDeleter>;

// A TLS 1.3-only context presenting `identity`, asking the peer for its certificate, issuing no
// session tickets. The caller installs its own verification callback. nullptr with *problem.
SSLCtxPtr makeTLSContext(const ZTDeviceIdentity& identity, bool server, std::string* problem);
// Connects `ssl` to a socket through a BIO that sends with MSG_NOSIGNAL, so a peer that has gone
// never raises SIGPIPE in the application (OpenSSL's own socket BIO writes with write()). The
// descriptor stays the caller's.
bool attachSocket(SSL* ssl, int fd);
// The canonical fingerprint of the certificate the peer presented; empty when none.
std::string peerFingerprint(SSL* ssl);

}  // namespace zt::transfer_internal
