// HTTP through ZTURLSession beside bare libcurl. Read the result as a ratio:
//   SessionGets / CurlMultiGets   (1,000 small GETs to a loopback server per iteration, at most 6
//                                  connections, all requests issued at once)
// Both talk to the same in-process cpp-httplib server; the peer drives one curl multi handle with
// curl_multi_poll on the benchmark thread, which is what a hand-written client would do.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <atomic>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "zentrel/networking/url_session.h"

namespace {

constexpr int kRequests = 1000;
constexpr long kConnections = 6;

class Server {
 public:
  Server() {
    server_.Get("/small", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("a small answer of 32 bytes......", "application/octet-stream");
    });
    server_.set_tcp_nodelay(true);           // no Nagle stall between header and body writes
    server_.set_keep_alive_max_count(100000);  // connections are reused, as a real server allows
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }
  ~Server() {
    server_.stop();
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/small"; }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

Server& server() {
  static Server instance;
  return instance;
}

struct Countdown {
  std::atomic<long> remaining{0};
  std::binary_semaphore done{0};
  void count() {
    if (remaining.fetch_sub(1, std::memory_order_acq_rel) == 1) done.release();
  }
};

void SessionGets(benchmark::State& state) {
  ZTURLSessionConfiguration configuration;
  configuration.HTTPMaximumConnectionsPerHost = kConnections;
  auto session = ZTURLSession::sessionWithConfiguration(configuration);
  const ZTURL url = *ZTURL::URLWithString(server().url());
  std::atomic<long> failures{0};
  for (auto _ : state) {
    Countdown countdown;
    countdown.remaining = kRequests;
    for (int i = 0; i < kRequests; ++i) {
      session
          ->dataTaskWithURL(url,
                            [&](std::optional<ZTBytes> data, std::shared_ptr<ZTURLResponse>, std::optional<ZTError> error) {
                              if (error || !data || data->size() != 32) ++failures;
                              countdown.count();
                            })
          ->resume();
    }
    countdown.done.acquire();
  }
  if (failures) state.SkipWithError("requests failed");
  state.SetItemsProcessed(state.iterations() * kRequests);
}

size_t collect(char* buffer, size_t size, size_t count, void* user) {
  static_cast<std::string*>(user)->append(buffer, size * count);
  return size * count;
}

void CurlMultiGets(benchmark::State& state) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* multi = curl_multi_init();
  curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, kConnections);
  const std::string url = server().url();
  long failures = 0;
  for (auto _ : state) {
    std::vector<CURL*> handles;
    std::vector<std::string> bodies(kRequests);
    for (int i = 0; i < kRequests; ++i) {
      CURL* easy = curl_easy_init();
      curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
      curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &collect);
      curl_easy_setopt(easy, CURLOPT_WRITEDATA, &bodies[i]);
      curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
      curl_multi_add_handle(multi, easy);
      handles.push_back(easy);
    }
    int running = 1;
    while (running > 0) {  // ends when every transfer is done
      curl_multi_perform(multi, &running);
      if (running > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    for (int left = 0; CURLMsg* message = curl_multi_info_read(multi, &left);) {
      if (message->msg == CURLMSG_DONE && message->data.result != CURLE_OK) ++failures;
    }
    for (int i = 0; i < kRequests; ++i) {
      if (bodies[i].size() != 32) ++failures;
      curl_multi_remove_handle(multi, handles[i]);
      curl_easy_cleanup(handles[i]);
    }
  }
  curl_multi_cleanup(multi);
  if (failures) state.SkipWithError("requests failed");
  state.SetItemsProcessed(state.iterations() * kRequests);
}

BENCHMARK(SessionGets)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(CurlMultiGets)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
