#include "networking/support/loopback_server.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace zt::test {

struct LoopbackServer::Impl {
  httplib::Server server;
  std::thread thread;
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<SeenRequest> seen;
  bool released = false;

  void record(const httplib::Request& request) {
    SeenRequest r;
    r.method = request.method;
    r.path = request.path;
    for (const auto& [name, value] : request.headers) r.headers[name] = value;
    r.body = request.body;
    std::lock_guard lock(mutex);
    seen.push_back(std::move(r));
    changed.notify_all();
  }
};

LoopbackServer::LoopbackServer() : impl_(std::make_unique<Impl>()) {
  auto& s = impl_->server;
  Impl* impl = impl_.get();
  s.Get("/hello", [impl](const httplib::Request& req, httplib::Response& res) {
    impl->record(req);
    res.set_content("hello world", "text/plain");
  });
  auto echo = [impl](const httplib::Request& req, httplib::Response& res) {
    impl->record(req);
    res.set_header("X-Method", req.method);
    res.set_header("X-Content-Type", req.get_header_value("Content-Type"));
    res.set_header("X-Token", req.get_header_value("X-Token"));
    res.set_header("X-Body-Length", std::to_string(req.body.size()));
    res.set_content(req.body, "application/octet-stream");
  };
  s.Get("/echo", echo);
  s.Post("/echo", echo);
  s.Put("/echo", echo);
  auto redirect = [impl](const httplib::Request& req, httplib::Response& res) {
    impl->record(req);
    const int code = std::stoi(req.matches[1]);
    const int left = std::stoi(req.matches[2]);
    res.status = code;
    res.set_header("Location", left <= 1 ? "/echo" : "/redirect/" + std::string(req.matches[1]) + "/" +
                                                         std::to_string(left - 1));
    res.set_content("moving", "text/plain");
  };
  s.Get(R"(/redirect/(\d+)/(\d+))", redirect);
  s.Post(R"(/redirect/(\d+)/(\d+))", redirect);
  s.Get(R"(/status/(\d+))", [impl](const httplib::Request& req, httplib::Response& res) {
    impl->record(req);
    res.status = std::stoi(req.matches[1]);
    res.set_content("status " + std::string(req.matches[1]), "text/plain");
  });
  s.Get("/slow", [impl](const httplib::Request& req, httplib::Response& res) {
    impl->record(req);
    std::unique_lock lock(impl->mutex);
    impl->changed.wait_for(lock, std::chrono::seconds(30), [impl] { return impl->released; });
    res.set_content("late", "text/plain");
  });
  s.Get(R"(/bytes/(\d+))", [impl](const httplib::Request& req, httplib::Response& res) {
    impl->record(req);
    res.set_content(std::string(std::stoul(req.matches[1]), 'x'), "application/octet-stream");
  });
  port_ = s.bind_to_any_port("127.0.0.1");
  impl_->thread = std::thread([impl] { impl->server.listen_after_bind(); });
}

LoopbackServer::~LoopbackServer() {
  release();
  impl_->server.stop();
  impl_->thread.join();
}

std::string LoopbackServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<SeenRequest> LoopbackServer::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->seen;
}

bool LoopbackServer::waitForRequests(std::size_t n, double seconds) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, std::chrono::duration<double>(seconds),
                                 [&] { return impl_->seen.size() >= n; });
}

void LoopbackServer::release() {
  std::lock_guard lock(impl_->mutex);
  impl_->released = true;
  impl_->changed.notify_all();
}

// ------------------------------------------------------------------------------------------------

DroppingServer::DroppingServer(int dropCount) : dropCount_(dropCount) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::listen(listener_, 8);
  socklen_t length = sizeof address;
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

DroppingServer::~DroppingServer() {
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  ::close(listener_);
}

std::string DroppingServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<std::string> DroppingServer::bodies() const {
  std::lock_guard lock(mutex_);
  return bodies_;
}

void DroppingServer::serve() {
  for (int served = 0; served < 16; ++served) {
    const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    std::string received;
    char buffer[4096];
    std::size_t headerEnd = std::string::npos;
    std::size_t contentLength = 0;
    for (int reads = 0; reads < 10000; ++reads) {
      pollfd p{connection, POLLIN, 0};
      if (::poll(&p, 1, 10000) <= 0) break;
      const ssize_t n = ::read(connection, buffer, sizeof buffer);
      if (n <= 0) break;
      received.append(buffer, static_cast<std::size_t>(n));
      if (headerEnd == std::string::npos && (headerEnd = received.find("\r\n\r\n")) != std::string::npos) {
        headerEnd += 4;
        const auto at = received.find("Content-Length: ");
        if (at != std::string::npos && at < headerEnd) contentLength = std::stoul(received.substr(at + 16));
      }
      if (headerEnd != std::string::npos && received.size() >= headerEnd + contentLength) break;
    }
    const std::string body = headerEnd == std::string::npos ? "" : received.substr(headerEnd);
    {
      std::lock_guard lock(mutex_);
      bodies_.push_back(body);
    }
    if (served >= dropCount_) {
      const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
                                 "\r\nConnection: close\r\n\r\n" + body;
      (void)!::write(connection, answer.data(), answer.size());
    }
    ::close(connection);
  }
}

int closedLoopbackPort() {
  const int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(s, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(s);  // bound but never listening, then freed: connecting is refused
  return ntohs(address.sin_port);
}

}  // namespace zt::test
