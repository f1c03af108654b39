#include "zentrel/networking/url_session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "common/log_and_environment.h"
#include "networking/support/loopback_server.h"

namespace {

using zt::test::LoopbackServer;

// What a completion handler received, and a wait for it with a deadline.
struct Outcome {
  std::mutex mutex;
  std::condition_variable done;
  bool finished = false;
  std::optional<ZTBytes> data;
  std::shared_ptr<ZTURLResponse> response;
  std::optional<ZTError> error;
  bool fileExistedDuringHandler = false;
  std::string fileContents;
  std::string location;

  ZTURLSessionTask::DataCompletion dataHandler() {
    return [this](std::optional<ZTBytes> d, std::shared_ptr<ZTURLResponse> r, std::optional<ZTError> e) {
      std::lock_guard lock(mutex);
      data = std::move(d), response = std::move(r), error = std::move(e), finished = true;
      done.notify_all();
    };
  }
  ZTURLSessionTask::DownloadCompletion downloadHandler() {
    return [this](std::optional<std::string> path, std::shared_ptr<ZTURLResponse> r, std::optional<ZTError> e) {
      std::lock_guard lock(mutex);
      if (path) {
        location = *path;
        std::ifstream in(*path, std::ios::binary);
        fileExistedDuringHandler = in.good();
        fileContents.assign(std::istreambuf_iterator<char>(in), {});
      }
      response = std::move(r), error = std::move(e), finished = true;
      done.notify_all();
    };
  }
  bool wait(double seconds = 20) {
    std::unique_lock lock(mutex);
    return done.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return finished; });
  }
  std::string body() {
    std::lock_guard lock(mutex);
    return data ? std::string(data->begin(), data->end()) : std::string("<none>");
  }
  std::shared_ptr<ZTHTTPURLResponse> http() {
    std::lock_guard lock(mutex);
    return response ? response->httpResponse() : nullptr;
  }
};

ZTURL url(const std::string& text) { return *ZTURL::URLWithString(text); }

std::string header(const std::shared_ptr<ZTHTTPURLResponse>& response, const char* name) {
  return response ? response->valueForHTTPHeaderField(name).value_or("<absent>") : "<no response>";
}

class URLSession : public ::testing::Test {
 protected:
  LoopbackServer server;
  std::shared_ptr<ZTURLSession> session =
      ZTURLSession::sessionWithConfiguration(ZTURLSessionConfiguration::defaultSessionConfiguration());
  std::filesystem::path folder;

  void SetUp() override {
    char pattern[] = "/tmp/zt-session-test-XXXXXX";
    folder = ::mkdtemp(pattern);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  std::string writeFile(const std::string& name, const std::string& contents) {
    const auto path = folder / name;
    std::ofstream(path, std::ios::binary) << contents;
    return path.string();
  }
};

TEST_F(URLSession, GetDeliversBodyStatusAndHeaderFields) {
  Outcome outcome;
  auto task = session->dataTaskWithURL(url(server.url("/hello")), outcome.dataHandler());
  EXPECT_EQ(task->state(), ZTURLSessionTaskState::Suspended);
  task->resume();
  ASSERT_TRUE(outcome.wait());
  EXPECT_FALSE(outcome.error.has_value());
  EXPECT_EQ(outcome.body(), "hello world");
  auto http = outcome.http();
  ASSERT_NE(http, nullptr);
  EXPECT_EQ(http->statusCode(), 200);
  EXPECT_EQ(http->MIMEType(), "text/plain");
  // The server compresses for a client that accepts it; the body arrives decoded, and the expected
  // length is the one announced.
  EXPECT_EQ(http->expectedContentLength(), std::stoll(header(http, "Content-Length")));
  EXPECT_EQ(http->getValueForHTTPHeaderField("Content-Type"), "text/plain");
  EXPECT_EQ(http->getValueForHTTPHeaderField("content-type"), std::nullopt);
  EXPECT_EQ(http->valueForHTTPHeaderField("content-type"), "text/plain");
  EXPECT_EQ(task->state(), ZTURLSessionTaskState::Completed);
  EXPECT_EQ(task->countOfBytesReceived(), 11);
  EXPECT_EQ(task->fractionCompleted(), 1.0);
}

TEST_F(URLSession, AnHTTPErrorStatusIsAResponseNotAnError) {
  Outcome outcome;
  session->dataTaskWithURL(url(server.url("/status/404")), outcome.dataHandler())->resume();
  ASSERT_TRUE(outcome.wait());
  EXPECT_FALSE(outcome.error.has_value());
  EXPECT_EQ(outcome.http()->statusCode(), 404);
  EXPECT_EQ(outcome.body(), "status 404");
}

TEST_F(URLSession, PostSendsDataStreamAndFileBodies) {
  {
    ZTMutableURLRequest request(url(server.url("/echo")));
    request.setHTTPMethod("POST");
    request.setHTTPBodyData(ZTBytes{'a', 'b', 'c'}, std::string("text/x-data"));
    Outcome outcome;
    session->dataTaskWithRequest(request, outcome.dataHandler())->resume();
    ASSERT_TRUE(outcome.wait());
    EXPECT_EQ(outcome.body(), "abc");
    EXPECT_EQ(header(outcome.http(), "X-Method"), "POST");
    EXPECT_EQ(header(outcome.http(), "X-Content-Type"), "text/x-data");
  }
  {
    ZTMutableURLRequest request(url(server.url("/echo")));
    request.setHTTPMethod("PUT");
    const std::string text(100000, 's');
    request.setHTTPBodyStream(ZTInputStream::inputStreamWithData(ZTBytes(text.begin(), text.end())),
                              std::string("text/x-stream"));
    Outcome outcome;
    auto task = session->dataTaskWithRequest(request, outcome.dataHandler());
    task->resume();
    ASSERT_TRUE(outcome.wait());
    EXPECT_TRUE(outcome.body() == text);  // without a length the body goes in chunks
    EXPECT_EQ(header(outcome.http(), "X-Method"), "PUT");
    EXPECT_EQ(task->countOfBytesSent(), 100000);
  }
  {
    const std::string contents = "{\"file\": true}";
    ZTMutableURLRequest request(url(server.url("/echo")));
    request.setHTTPMethod("POST");
    request.setHTTPBodyFilePath(writeFile("body.json", contents), true);
    Outcome outcome;
    session->dataTaskWithRequest(request, outcome.dataHandler())->resume();
    ASSERT_TRUE(outcome.wait());
    EXPECT_EQ(outcome.body(), contents);
    EXPECT_EQ(header(outcome.http(), "X-Content-Type"), "application/json");
    EXPECT_EQ(server.requests().back().headers["Content-Length"], std::to_string(contents.size()));
  }
}

TEST_F(URLSession, UploadTasksSendFileOrData) {
  ZTMutableURLRequest request(url(server.url("/echo")));
  request.setHTTPMethod("POST");
  Outcome fromFile, fromData;
  session->uploadTaskWithRequest(request, writeFile("upload.bin", std::string(70000, 'u')), fromFile.dataHandler())
      ->resume();
  session->uploadTaskWithRequest(request, ZTBytes{'d'}, fromData.dataHandler())->resume();
  ASSERT_TRUE(fromFile.wait());
  ASSERT_TRUE(fromData.wait());
  EXPECT_TRUE(fromFile.body() == std::string(70000, 'u')) << fromFile.body().size();
  EXPECT_EQ(fromData.body(), "d");
}

TEST_F(URLSession, DownloadTaskHandsOverAFileThatIsRemovedAfterwards) {
  Outcome outcome;
  auto task = session->downloadTaskWithURL(url(server.url("/bytes/300000")), outcome.downloadHandler());
  task->resume();
  ASSERT_TRUE(outcome.wait());
  EXPECT_FALSE(outcome.error.has_value());
  EXPECT_TRUE(outcome.fileExistedDuringHandler);
  EXPECT_TRUE(outcome.fileContents == std::string(300000, 'x')) << outcome.fileContents.size();
  // Removed once the handler has returned (the removal follows it on the same delivery).
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::filesystem::exists(outcome.location) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(std::filesystem::exists(outcome.location));
}

// Follows redirects the way an application's networking layer does: with the request built by
// RFC2616RedirectRequestFromRequest, so method and body survive every hop.
class RFC2616Follower : public ZTURLSessionDelegate {
 public:
  std::atomic<int> redirects{0};
  void willPerformHTTPRedirection(ZTURLSession&, ZTURLSessionTask& task, const ZTHTTPURLResponse&,
                                  const ZTURLRequest& proposed, RedirectCompletion completion) override {
    ++redirects;
    completion(ZTURLRequest(task.currentRequest().RFC2616RedirectRequestFromRequest(proposed)));
  }
};

TEST_F(URLSession, RedirectChainKeepsMethodAndRegeneratesTheFileBody) {
  auto follower = std::make_shared<RFC2616Follower>();
  auto redirecting = ZTURLSession::sessionWithConfiguration({}, follower);
  for (bool replace : {false, true}) {
    for (const char* code : {"301", "302", "307"}) {
      ZTMutableURLRequest request(url(server.url(std::string("/redirect/") + code + "/3")));
      request.setHTTPMethod("POST");
      request.setValue(std::string("secret"), "X-Token");
      request.setHTTPBodyFilePath(writeFile("redirected.txt", "payload"), false);
      request.setValue(std::string("text/x-payload"), "Content-Type");
      request.setShouldReplaceHTTPHeaderFieldsOnRFC2616RedirectBehaviour(replace);
      Outcome outcome;
      redirecting->dataTaskWithRequest(request, outcome.dataHandler())->resume();
      ASSERT_TRUE(outcome.wait()) << code;
      ASSERT_FALSE(outcome.error.has_value()) << outcome.error->description();
      EXPECT_EQ(outcome.http()->statusCode(), 200) << code;
      EXPECT_EQ(outcome.body(), "payload") << code << " replace " << replace;
      EXPECT_EQ(header(outcome.http(), "X-Method"), "POST") << code;
      EXPECT_EQ(header(outcome.http(), "X-Token"), "secret") << code;
      // For 301 and 302 the proposed request is a GET without content type: replacing header
      // fields takes that over; keeping them keeps the request's own.
      const bool typeDropped = replace && std::string(code) != "307";
      EXPECT_EQ(header(outcome.http(), "X-Content-Type"), typeDropped ? "" : "text/x-payload") << code;
    }
  }
  EXPECT_EQ(follower->redirects.load(), 18);
  redirecting->invalidateAndCancel();
}

class RedirectRefuser : public ZTURLSessionDelegate {
 public:
  void willPerformHTTPRedirection(ZTURLSession&, ZTURLSessionTask&, const ZTHTTPURLResponse&, const ZTURLRequest&,
                                  RedirectCompletion completion) override {
    completion(std::nullopt);
  }
};

class ThrowingDelegate : public ZTURLSessionDelegate {
 public:
  std::atomic<bool> completed{false};
  std::optional<ZTError> error;
  void willPerformHTTPRedirection(ZTURLSession&, ZTURLSessionTask&, const ZTHTTPURLResponse&, const ZTURLRequest&,
                                  RedirectCompletion) override {
    throw std::runtime_error("redirect handler failed");
  }
  void didReceiveData(ZTURLSession&, ZTURLSessionTask&, const ZTBytes&) override {
    throw std::runtime_error("data handler failed");
  }
  void didCompleteWithError(ZTURLSession&, ZTURLSessionTask&, const std::optional<ZTError>& e) override {
    error = e;
    completed = true;
  }
};

TEST_F(URLSession, RedirectsCanBeRefusedAndThrowingDelegatesDoNotWedgeTheTask) {
  {
    auto refusing = ZTURLSession::sessionWithConfiguration({}, std::make_shared<RedirectRefuser>());
    Outcome outcome;
    refusing->dataTaskWithURL(url(server.url("/redirect/302/1")), outcome.dataHandler())->resume();
    ASSERT_TRUE(outcome.wait());
    EXPECT_EQ(outcome.http()->statusCode(), 302);
    EXPECT_EQ(outcome.http()->getValueForHTTPHeaderField("Location"), "/echo");
    EXPECT_EQ(outcome.body(), "moving");
  }
  zt::test::LogCapture log;
  auto delegate = std::make_shared<ThrowingDelegate>();
  auto throwing = ZTURLSession::sessionWithConfiguration({}, delegate);
  throwing->dataTaskWithURL(url(server.url("/redirect/301/1")))->resume();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!delegate->completed && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  ASSERT_TRUE(delegate->completed);
  EXPECT_FALSE(delegate->error.has_value());
  EXPECT_EQ(server.requests().back().path, "/echo");  // the throwing redirect handler still moved on
  EXPECT_GE(log.lines().size(), 1u);
}

TEST_F(URLSession, TooManyRedirectsFail) {
  ZTURLSessionConfiguration configuration;
  configuration.maximumRedirectCount = 2;
  auto limited = ZTURLSession::sessionWithConfiguration(configuration);
  Outcome outcome;
  limited->dataTaskWithURL(url(server.url("/redirect/302/5")), outcome.dataHandler())->resume();
  ASSERT_TRUE(outcome.wait());
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_EQ(outcome.error->code(), ZTURLErrorHTTPTooManyRedirects);
}

TEST_F(URLSession, CancelledTaskCompletesWithTheCancelledError) {
  Outcome outcome;
  auto task = session->dataTaskWithURL(url(server.url("/slow")), outcome.dataHandler());
  task->resume();
  ASSERT_TRUE(server.waitForRequests(1, 20));
  task->cancel();
  ASSERT_TRUE(outcome.wait());
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_TRUE(zt::isURLCancelledError(*outcome.error));
  EXPECT_EQ(task->state(), ZTURLSessionTaskState::Completed);
  EXPECT_TRUE(zt::isURLCancelledError(*task->error()));

  Outcome neverStarted;
  auto suspended = session->dataTaskWithURL(url(server.url("/hello")), neverStarted.dataHandler());
  suspended->cancel();
  suspended->resume();  // too late: it stays cancelled
  ASSERT_TRUE(neverStarted.wait());
  EXPECT_TRUE(zt::isURLCancelledError(*neverStarted.error));
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(URLSession, SlowServerHitsTheRequestTimeout) {
  ZTMutableURLRequest request(url(server.url("/slow")));
  request.setTimeoutInterval(1.0);
  Outcome outcome;
  const auto start = std::chrono::steady_clock::now();
  session->dataTaskWithRequest(request, outcome.dataHandler())->resume();
  ASSERT_TRUE(outcome.wait());
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_EQ(outcome.error->domain(), ZTURLErrorDomain);
  EXPECT_EQ(outcome.error->code(), ZTURLErrorTimedOut);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST_F(URLSession, BrokenConnectionIsRetriedWithARegeneratedBodyStream) {
  zt::test::DroppingServer dropping(1);
  ZTURLSessionConfiguration configuration;
  configuration.maximumRetryCount = 1;
  auto retrying = ZTURLSession::sessionWithConfiguration(configuration);
  auto made = std::make_shared<std::atomic<int>>(0);
  ZTMutableURLRequest request(url(dropping.url("/upload")));
  request.setHTTPMethod("POST");
  request.setValue(std::string("4"), "Content-Length");
  request.setHTTPBodyStream(ZTInputStream::inputStreamWithData(ZTBytes{'b', 'o', 'd', 'y'}), std::nullopt);
  request.setHTTPBodyStreamCreationBlock([made] {
    ++*made;
    return ZTInputStream::inputStreamWithData(ZTBytes{'b', 'o', 'd', 'y'});
  });
  Outcome outcome;
  retrying->dataTaskWithRequest(request, outcome.dataHandler())->resume();
  ASSERT_TRUE(outcome.wait());
  ASSERT_FALSE(outcome.error.has_value()) << outcome.error->description();
  EXPECT_EQ(outcome.body(), "body");
  EXPECT_EQ(made->load(), 1);
  EXPECT_EQ(dropping.bodies(), (std::vector<std::string>{"body", "body"}));

  zt::test::DroppingServer alwaysDropping(16);
  Outcome lost;
  session->dataTaskWithURL(url(alwaysDropping.url("/")), lost.dataHandler())->resume();
  ASSERT_TRUE(lost.wait());
  ASSERT_TRUE(lost.error.has_value());
  EXPECT_EQ(lost.error->code(), ZTURLErrorNetworkConnectionLost);
}

TEST_F(URLSession, UnusableURLsAndUnreachableServersGiveURLErrors) {
  struct Case {
    std::string text;
    std::int64_t code;
  };
  const std::vector<Case> cases = {
      {"ftp://127.0.0.1/file", ZTURLErrorUnsupportedURL},
      {"relative/path", ZTURLErrorBadURL},
      {"http:///nohost", ZTURLErrorBadURL},
      {"http://127.0.0.1:" + std::to_string(zt::test::closedLoopbackPort()) + "/", ZTURLErrorCannotConnectToHost},
      {"http://no-such-host.invalid/", ZTURLErrorCannotFindHost},
  };
  for (const auto& c : cases) {
    Outcome outcome;
    session->dataTaskWithURL(url(c.text), outcome.dataHandler())->resume();
    ASSERT_TRUE(outcome.wait(60)) << c.text;
    ASSERT_TRUE(outcome.error.has_value()) << c.text;
    EXPECT_EQ(outcome.error->code(), c.code) << c.text << ": " << outcome.error->description();
    EXPECT_EQ(outcome.error->userInfo()[ZTURLErrorFailingURLStringErrorKey].stringValue(), c.text);
    if (c.code == ZTURLErrorCannotConnectToHost) {
      ASSERT_TRUE(outcome.error->underlyingError().has_value());
      EXPECT_EQ(outcome.error->underlyingError()->code(), ECONNREFUSED);
    }
  }
}

class Recorder : public ZTURLSessionDelegate {
 public:
  std::mutex mutex;
  std::string received;
  std::vector<std::string> events;
  std::atomic<bool> invalid{false};
  void didReceiveResponse(ZTURLSession&, ZTURLSessionTask&, const ZTURLResponse&) override {
    std::lock_guard lock(mutex);
    events.push_back("response");
  }
  void didReceiveData(ZTURLSession&, ZTURLSessionTask&, const ZTBytes& data) override {
    std::lock_guard lock(mutex);
    received.append(data.begin(), data.end());
  }
  void didCompleteWithError(ZTURLSession&, ZTURLSessionTask&, const std::optional<ZTError>& error) override {
    std::lock_guard lock(mutex);
    events.push_back(error ? "error" : "complete");
  }
  void didBecomeInvalidWithError(ZTURLSession&, const std::optional<ZTError>&) override {
    std::lock_guard lock(mutex);
    events.push_back("invalid");
    invalid = true;
  }
};

TEST_F(URLSession, DelegateHearsDataInOrderThenCompletionThenInvalidation) {
  auto recorder = std::make_shared<Recorder>();
  auto delegating = ZTURLSession::sessionWithConfiguration({}, recorder);
  delegating->dataTaskWithURL(url(server.url("/bytes/200000")))->resume();
  delegating->finishTasksAndInvalidate();
  EXPECT_EQ(delegating->dataTaskWithURL(url(server.url("/hello"))), nullptr);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!recorder->invalid && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  std::lock_guard lock(recorder->mutex);
  EXPECT_TRUE(recorder->received == std::string(200000, 'x')) << recorder->received.size();
  EXPECT_EQ(recorder->events, (std::vector<std::string>{"response", "complete", "invalid"}));
  EXPECT_EQ(delegating->delegate(), nullptr);
}

TEST(URLSessionTaskUserInfo, IsKeptAsJSONInTheDescription) {
  auto session = ZTURLSession::sessionWithConfiguration({});
  auto task = session->dataTaskWithURL(*ZTURL::URLWithString("http://127.0.0.1/"));
  zt::test::LogCapture log;
  ZTValue info = ZTValue::dictionary();
  info["id"] = 7;
  info["name"] = "upload";
  ZTURLSessionTask::setUserInfo(info, *task);
  EXPECT_EQ(task->taskDescription(), "{\"id\":7,\"name\":\"upload\"}");
  EXPECT_EQ(ZTURLSessionTask::userInfoFromNSURLSessionTask(*task), info);

  ZTURLSessionTask::setUserInfo(ZTValue(ZTBytes{1}), *task);
  EXPECT_EQ(task->taskDescription(), std::nullopt);
  EXPECT_EQ(ZTURLSessionTask::userInfoFromNSURLSessionTask(*task), std::nullopt);
  task->setTaskDescription("not json");
  EXPECT_EQ(ZTURLSessionTask::userInfoFromNSURLSessionTask(*task), std::nullopt);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "passed object cannot be serialized to JSON");
  EXPECT_EQ(lines[1],
            "[NSURLSessionTask+ZentrelLib setUserInfo:toNSURLSessionTask:]: failed to save user info – JSON "
            "serialization failed");
  EXPECT_EQ(lines[2],
            "[NSURLSessionTask+ZentrelLib userInfoFromNSURLSessionTask:]: failed to read user info JSON data from "
            "taskDescription");
  EXPECT_TRUE(lines[3].starts_with(
      "[NSURLSessionTask+ZentrelLib userInfoFromNSURLSessionTask:]: failed to read JSON from data; error = "));
  task->cancel();
}

}  // namespace
