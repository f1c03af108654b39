#pragma once
// A real HTTP server on 127.0.0.1 (cpp-httplib on a thread of its own) for the session tests, and a
// bare TCP server that drops connections on purpose.
//
// Routes of LoopbackServer:
//   GET  /hello            "hello world", text/plain
//   *    /echo             the request body back; X-Method, X-Content-Type, X-Token, X-Body-Length tell
//                          what arrived
//   GET  /status/<code>    that status with body "status <code>"
//   *    /redirect/<code>/<n>  a chain: <code> to .../<n-1>, the last hop to /echo
//   GET  /slow             answers once release() is called (or after 30 s)
//   GET  /bytes/<n>        n bytes of 'x', with Content-Length

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zt::test {

struct SeenRequest {
  std::string method;
  std::string path;
  std::map<std::string, std::string> headers;  // as received (names as the client wrote them)
  std::string body;
};

class LoopbackServer {
 public:
  LoopbackServer();
  ~LoopbackServer();
  std::string url(const std::string& path) const;
  int port() const { return port_; }
  std::vector<SeenRequest> requests() const;
  // Waits until n requests reached a handler; false when the deadline passes.
  bool waitForRequests(std::size_t n, double seconds) const;
  void release();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  int port_ = 0;
};

// Accepts connections on 127.0.0.1; reads each request (headers and Content-Length body). The
// first `dropCount` connections are closed without an answer; later ones get 200 with the body
// they sent.
class DroppingServer {
 public:
  explicit DroppingServer(int dropCount);
  ~DroppingServer();
  std::string url(const std::string& path) const;
  std::vector<std::string> bodies() const;  // bodies of every request read, dropped ones included

 private:
  void serve();
  int listener_ = -1;
  int port_ = 0;
  int dropCount_;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<std::string> bodies_;
};

// A port on 127.0.0.1 where nothing listens.
int closedLoopbackPort();

}  // namespace zt::test
