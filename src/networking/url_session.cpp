#include "zentrel/networking/url_session.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <deque>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <map>

#include "networking/internal/text.h"
#include "zentrel/filesystem/temporary_files.h"
#include "zentrel/networking/json_serialization.h"
#include "zentrel/platform/log.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/platform/thread.h"

using zt::networking_internal::describeCurrentException;
using zt::networking_internal::equalsIgnoringCase;

namespace {

std::atomic<std::uint64_t> nextTaskIdentifier{1};

void logException(const char* where) { ZTLogf("ZTURLSession: %s threw: %s", where, describeCurrentException().c_str()); }

ZTError urlError(std::int64_t code, const std::string& description, const ZTURL& url) {
  ZTValue info = ZTValue::dictionary();
  info[ZTLocalizedDescriptionKey] = description;
  if (!url.isEmpty()) info[ZTURLErrorFailingURLStringErrorKey] = url.absoluteString();
  return ZTError(ZTURLErrorDomain, code, std::move(info));
}

ZTError errorForCurlCode(CURLcode code, const char* detail, const ZTURL& url) {
  std::string description;
  std::int64_t value = ZTURLErrorUnknown;
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      value = ZTURLErrorCannotFindHost, description = "A server with the specified hostname could not be found.";
      break;
    case CURLE_COULDNT_CONNECT:
      value = ZTURLErrorCannotConnectToHost, description = "Could not connect to the server.";
      break;
    case CURLE_OPERATION_TIMEDOUT:
      value = ZTURLErrorTimedOut, description = "The request timed out.";
      break;
    case CURLE_UNSUPPORTED_PROTOCOL:
      value = ZTURLErrorUnsupportedURL, description = "unsupported URL";
      break;
    case CURLE_URL_MALFORMAT:
      value = ZTURLErrorBadURL, description = "bad URL";
      break;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      value = ZTURLErrorNetworkConnectionLost, description = "The network connection was lost.";
      break;
    case CURLE_READ_ERROR:
      value = ZTURLErrorRequestBodyStreamExhausted, description = "The request body stream could not be read.";
      break;
    case CURLE_WRITE_ERROR:
      value = ZTURLErrorCannotWriteToFile, description = "The downloaded file could not be written.";
      break;
    case CURLE_BAD_CONTENT_ENCODING:
      value = ZTURLErrorCannotDecodeContentData, description = "The response body could not be decoded.";
      break;
    case CURLE_PEER_FAILED_VERIFICATION:
      value = ZTURLErrorServerCertificateUntrusted, description = "The certificate for this server is invalid.";
      break;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_ISSUER_ERROR:
      value = ZTURLErrorSecureConnectionFailed, description = "A TLS error has occurred and a secure connection to the server cannot be made.";
      break;
    case CURLE_FILE_COULDNT_READ_FILE:
      value = ZTURLErrorResourceUnavailable, description = "The requested resource could not be read.";
      break;
    default:
      description = curl_easy_strerror(code);
      break;
  }
  ZTError error = urlError(value, description, url);
  if (detail && *detail) {
    ZTValue info = error.userInfo();
    info[ZTLocalizedFailureReasonErrorKey] = std::string(detail);
    error = ZTError(error.domain(), error.code(), std::move(info));
  }
  return error;
}

std::string trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n'))
    text.remove_suffix(1);
  return std::string(text);
}

bool isRedirectStatus(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::string lowercase(std::string text) {
  for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

struct CurlGlobal {
  CurlGlobal() { curl_global_init(CURL_GLOBAL_DEFAULT); }
};
void ensureCurlGlobal() {
  static CurlGlobal global;
  (void)global;
}

}  // namespace

// ------------------------------------------------------------------------------------------------
// The session's machinery. Fields under "loop thread" are touched only on the session's thread.

struct zt::internal::TransferState {
  SessionCore& core;
  std::shared_ptr<ZTURLSessionTask> task;
  CURL* easy = nullptr;
  curl_slist* headerList = nullptr;
  ZTMutableURLRequest request;
  std::shared_ptr<ZTInputStream> bodyStream;  // the stream being read for this hop
  std::shared_ptr<ZTInputStream> sentStream;  // a stream already read by an earlier hop
  ZTBytes bodyData;
  bool bodyReadFailed = false;

  // The response of this hop.
  long status = 0;
  std::string httpVersion;
  std::map<std::string, std::string> responseHeaders;
  std::shared_ptr<ZTURLResponse> response;
  bool headersComplete = false;
  bool finalResponse = false;  // not a redirect we may follow: its body goes to the application
  ZTBytes data;

  // Download tasks.
  std::optional<ZTTemporaryFile> downloadFile;
  bool downloadWriteFailed = false;

  int redirects = 0;
  int retries = 0;
  std::int64_t lastSent = 0;
  std::int64_t bodyBytesRead = 0;
  bool waitingForRedirectAnswer = false;
  std::chrono::steady_clock::time_point resourceDeadline;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  TransferState(SessionCore& c, std::shared_ptr<ZTURLSessionTask> t) : core(c), task(std::move(t)) {}
  ~TransferState() { releaseEasy(); }
  void releaseEasy() {
    if (headerList) curl_slist_free_all(headerList);
    headerList = nullptr;
    if (easy) curl_easy_cleanup(easy);
    easy = nullptr;
  }

  static size_t onHeader(char* buffer, size_t size, size_t count, void* user);
  static size_t onWrite(char* buffer, size_t size, size_t count, void* user);
  static size_t onRead(char* buffer, size_t size, size_t count, void* user);
  static int onProgress(void* user, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal, curl_off_t ulnow);
  void headersDidComplete();
};

struct zt::internal::SessionCore : std::enable_shared_from_this<SessionCore> {
  explicit SessionCore(const ZTURLSessionConfiguration& configuration) : config(configuration) {}

  const ZTURLSessionConfiguration config;
  ZTURLSession::DelegateExecutor executor;

  ZTMutex mutex;
  std::shared_ptr<ZTURLSessionDelegate> delegate ZT_GUARDED_BY(mutex);
  bool invalidated ZT_GUARDED_BY(mutex) = false;
  std::weak_ptr<ZTURLSession> session ZT_GUARDED_BY(mutex);

  // Delivery to the delegate queue, one call at a time in order.
  ZTMutex deliveryMutex;
  std::deque<std::function<void()>> pending ZT_GUARDED_BY(deliveryMutex);
  bool draining ZT_GUARDED_BY(deliveryMutex) = false;

  std::shared_ptr<ZTThread> thread;
  std::shared_ptr<ZTRunLoop> loop;
  std::atomic<bool> stopping{false};

  // Loop thread.
  CURLM* multi = nullptr;
  CURLSH* share = nullptr;
  int epollFd = -1;
  std::shared_ptr<ZTFileDescriptorSource> epollSource;
  std::shared_ptr<ZTTimer> timer;
  std::map<curl_socket_t, std::uint32_t> sockets;
  std::map<std::uint64_t, std::unique_ptr<TransferState>> transfers;
  std::size_t liveTasks = 0;  // started and not yet completed, on the loop thread's count
  bool invalidateWhenIdle = false;

  std::shared_ptr<ZTURLSessionDelegate> currentDelegate() {
    ZTLockGuard lock(mutex);
    return delegate;
  }

  void deliver(std::function<void()> call) {
    bool schedule = false;
    {
      ZTLockGuard lock(deliveryMutex);
      pending.push_back(std::move(call));
      if (!draining) schedule = draining = true;
    }
    if (!schedule) return;
    auto self = shared_from_this();
    try {
      executor([self] { self->drain(); });
    } catch (...) {
      logException("the delegate queue");
      drain();
    }
  }

  void drain() {
    for (;;) {  // ends when the queue is empty; every turn runs one call
      std::function<void()> call;
      {
        ZTLockGuard lock(deliveryMutex);
        if (pending.empty()) {
          draining = false;
          return;
        }
        call = std::move(pending.front());
        pending.pop_front();
      }
      try {
        call();
      } catch (...) {
        logException("a delegate method or completion handler");
      }
    }
  }

  // ---- loop thread
  bool setUp() {
    ensureCurlGlobal();
    multi = curl_multi_init();
    share = curl_share_init();
    epollFd = ::epoll_create1(EPOLL_CLOEXEC);
    if (!multi || !share || epollFd < 0) return false;
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &SessionCore::onSocket);
    curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &SessionCore::onTimer);
    curl_multi_setopt(multi, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, config.HTTPMaximumConnectionsPerHost);
    epollSource = loop->addFileDescriptorSource(epollFd, ZTFileDescriptorSource::Event::Readable,
                                                [this](ZTFileDescriptorSource&) { handleSocketEvents(); });
    return epollSource != nullptr;
  }

  void tearDown() {
    for (auto& [id, transfer] : transfers) {
      if (transfer->easy) curl_multi_remove_handle(multi, transfer->easy);
    }
    transfers.clear();
    if (timer) timer->invalidate();
    if (epollSource) epollSource->cancel();
    if (multi) curl_multi_cleanup(multi);
    if (share) curl_share_cleanup(share);
    if (epollFd >= 0) ::close(epollFd);
    multi = nullptr, share = nullptr, epollFd = -1;
  }

  static int onSocket(CURL*, curl_socket_t socket, int what, void* user, void*) {
    auto* self = static_cast<SessionCore*>(user);
    if (what == CURL_POLL_REMOVE) {
      ::epoll_ctl(self->epollFd, EPOLL_CTL_DEL, socket, nullptr);
      self->sockets.erase(socket);
      return 0;
    }
    epoll_event event{};
    event.events = (what & CURL_POLL_IN ? EPOLLIN : 0u) | (what & CURL_POLL_OUT ? EPOLLOUT : 0u);
    event.data.fd = socket;
    const bool known = self->sockets.count(socket) > 0;
    if (::epoll_ctl(self->epollFd, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event) != 0 && known == false &&
        errno == EEXIST) {
      ::epoll_ctl(self->epollFd, EPOLL_CTL_MOD, socket, &event);
    }
    self->sockets[socket] = event.events;
    return 0;
  }

  static int onTimer(CURLM*, long timeoutMs, void* user) {
    auto* self = static_cast<SessionCore*>(user);
    if (self->timer) self->timer->invalidate();
    self->timer.reset();
    if (timeoutMs < 0) return 0;
    self->timer = self->loop->scheduleTimer(std::chrono::milliseconds(timeoutMs), false, [self](ZTTimer&) {
      int running = 0;
      curl_multi_socket_action(self->multi, CURL_SOCKET_TIMEOUT, 0, &running);
      self->processFinished();
    });
    return 0;
  }

  void handleSocketEvents() {
    if (epollFd < 0) return;
    epoll_event events[64];
    for (int round = 0; round < 16; ++round) {
      const int count = ::epoll_wait(epollFd, events, 64, 0);
      if (count <= 0) {
        processFinished();
        return;
      }
      for (int i = 0; i < count; ++i) {
        int flags = 0;
        if (events[i].events & (EPOLLIN | EPOLLHUP | EPOLLRDHUP)) flags |= CURL_CSELECT_IN;
        if (events[i].events & EPOLLOUT) flags |= CURL_CSELECT_OUT;
        if (events[i].events & EPOLLERR) flags |= CURL_CSELECT_ERR;
        int running = 0;
        curl_multi_socket_action(multi, events[i].data.fd, flags, &running);
      }
      processFinished();
    }
    // Still ready after as many rounds: come back on the next turn rather than starve the loop.
    auto self = shared_from_this();
    (void)loop->post([self] { self->handleSocketEvents(); });
  }

  void processFinished() {
    for (int guard = 0; guard < 1024; ++guard) {  // at most one message per finished transfer
      int left = 0;
      CURLMsg* message = curl_multi_info_read(multi, &left);
      if (!message) return;
      if (message->msg != CURLMSG_DONE) continue;
      TransferState* state = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, reinterpret_cast<char**>(&state));
      const CURLcode result = message->data.result;
      curl_multi_remove_handle(multi, message->easy_handle);
      if (state) transferDone(*state, result);
    }
  }

  void begin(const std::shared_ptr<ZTURLSessionTask>& task);
  bool configure(TransferState& state, ZTError* error);
  void transferDone(TransferState& state, CURLcode result);
  void askForRedirect(TransferState& state, const std::string& location);
  void followRedirect(std::uint64_t identifier, std::optional<ZTURLRequest> request);
  void restart(TransferState& state);
  void cancelTask(const std::shared_ptr<ZTURLSessionTask>& task);
  void complete(std::unique_ptr<TransferState> state, const std::shared_ptr<ZTURLSessionTask>& task,
                std::optional<ZTError> error);
  void completeWithoutTransfer(const std::shared_ptr<ZTURLSessionTask>& task, ZTError error);
  void invalidateIfIdle();
};

using zt::internal::SessionCore;
using zt::internal::TransferState;

// ------------------------------------------------------------------------------------- transfers

size_t TransferState::onHeader(char* buffer, size_t size, size_t count, void* user) {
  auto* self = static_cast<TransferState*>(user);
  const size_t length = size * count;
  std::string_view line(buffer, length);
  if (line.starts_with("HTTP/")) {
    self->responseHeaders.clear();
    self->headersComplete = false;
    const auto space = line.find(' ');
    self->httpVersion = trim(line.substr(0, space));
    self->status = 0;
    if (space != std::string_view::npos) {
      std::string_view rest = line.substr(space + 1);
      long status = 0;
      auto [end, ec] = std::from_chars(rest.data(), rest.data() + std::min<size_t>(rest.size(), 3), status);
      if (ec == std::errc()) self->status = status;
    }
    return length;
  }
  const std::string trimmed = trim(line);
  if (trimmed.empty()) {
    if (self->status >= 200 || self->status == 0) self->headersDidComplete();
    return length;
  }
  if ((line.front() == ' ' || line.front() == '\t') && !self->responseHeaders.empty()) {
    return length;  // an obsolete folded line: dropped
  }
  const auto colon = trimmed.find(':');
  if (colon == std::string::npos || colon == 0) return length;
  std::string name = trim(std::string_view(trimmed).substr(0, colon));
  std::string value = trim(std::string_view(trimmed).substr(colon + 1));
  auto it = self->responseHeaders.find(name);
  if (it == self->responseHeaders.end()) {
    self->responseHeaders.emplace(std::move(name), std::move(value));
  } else {
    it->second += ", " + value;
  }
  return length;
}

void TransferState::headersDidComplete() {
  if (headersComplete) return;
  headersComplete = true;
  if (status == 0) return;
  auto http = ZTHTTPURLResponse::create(request.URL(), status, httpVersion, responseHeaders);
  response = http;
  {
    ZTLockGuard lock(task->mutex_);
    task->response_ = response;
  }
  bool hasLocation = http->valueForHTTPHeaderField("Location").has_value();
  finalResponse = !(isRedirectStatus(status) && hasLocation);
  if (!finalResponse) return;
  task->expectedToReceive_ = http->expectedContentLength();
  task->received_ = 0;
  if (auto delegate = core.currentDelegate()) {
    auto task_ = task;
    auto response_ = response;
    core.deliver([delegate, task_, response_] {
      std::shared_ptr<ZTURLSession> session;
      {
        ZTLockGuard lock(task_->mutex_);
        session = task_->session_;
      }
      if (session) delegate->didReceiveResponse(*session, *task_, *response_);
    });
  }
}

size_t TransferState::onWrite(char* buffer, size_t size, size_t count, void* user) {
  auto* self = static_cast<TransferState*>(user);
  const size_t length = size * count;
  if (!self->headersComplete) self->headersDidComplete();
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(buffer);
  if (self->task->kind_ == ZTURLSessionTaskKind::Download && self->finalResponse) {
    const std::uint8_t* p = bytes;
    size_t left = length;
    while (left > 0) {  // bounded by the chunk's size
      const ssize_t n = ::write(self->downloadFile->descriptor.get(), p, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        self->downloadWriteFailed = true;
        return 0;
      }
      p += n;
      left -= static_cast<size_t>(n);
    }
    const std::int64_t total = self->task->received_ += static_cast<std::int64_t>(length);
    if (auto delegate = self->core.currentDelegate()) {
      auto task = self->task;
      const std::int64_t expected = task->expectedToReceive_.load();
      self->core.deliver([delegate, task, length, total, expected] {
        std::shared_ptr<ZTURLSession> session;
        {
          ZTLockGuard lock(task->mutex_);
          session = task->session_;
        }
        if (session) delegate->didWriteData(*session, *task, static_cast<std::int64_t>(length), total, expected);
      });
    }
    return length;
  }
  if (self->finalResponse) self->task->received_ += static_cast<std::int64_t>(length);
  const bool streamToDelegate = self->finalResponse && self->task->kind_ != ZTURLSessionTaskKind::Download &&
                                !self->task->dataCompletion_;
  if (streamToDelegate) {
    if (auto delegate = self->core.currentDelegate()) {
      auto task = self->task;
      ZTBytes chunk(bytes, bytes + length);
      self->core.deliver([delegate, task, chunk = std::move(chunk)] {
        std::shared_ptr<ZTURLSession> session;
        {
          ZTLockGuard lock(task->mutex_);
          session = task->session_;
        }
        if (session) delegate->didReceiveData(*session, *task, chunk);
      });
      return length;
    }
  }
  self->data.insert(self->data.end(), bytes, bytes + length);
  return length;
}

size_t TransferState::onRead(char* buffer, size_t size, size_t count, void* user) {
  auto* self = static_cast<TransferState*>(user);
  if (!self->bodyStream) return 0;
  const std::int64_t n = self->bodyStream->read(reinterpret_cast<std::uint8_t*>(buffer), size * count);
  if (n < 0) {
    self->bodyReadFailed = true;
    return CURL_READFUNC_ABORT;
  }
  self->bodyBytesRead += n;
  return static_cast<size_t>(n);
}

int TransferState::onProgress(void* user, curl_off_t, curl_off_t, curl_off_t ultotal, curl_off_t ulnow) {
  auto* self = static_cast<TransferState*>(user);
  auto& task = *self->task;
  if (ultotal > 0) task.expectedToSend_ = static_cast<std::int64_t>(ultotal);
  // Body bytes only: what curl sent of the stream (not counting chunk framing), or of the data.
  const std::int64_t bodySent =
      self->bodyStream ? std::min<std::int64_t>(self->bodyBytesRead, static_cast<std::int64_t>(ulnow))
                       : std::min<std::int64_t>(static_cast<std::int64_t>(self->bodyData.size()), static_cast<std::int64_t>(ulnow));
  if (bodySent > self->lastSent) {
    const std::int64_t delta = bodySent - self->lastSent;
    self->lastSent = bodySent;
    task.sent_ = self->lastSent;
    if (auto delegate = self->core.currentDelegate()) {
      auto taskPtr = self->task;
      const std::int64_t total = self->lastSent;
      const std::int64_t expected = task.expectedToSend_.load();
      self->core.deliver([delegate, taskPtr, delta, total, expected] {
        std::shared_ptr<ZTURLSession> session;
        {
          ZTLockGuard lock(taskPtr->mutex_);
          session = taskPtr->session_;
        }
        if (session) delegate->didSendBodyData(*session, *taskPtr, delta, total, expected);
      });
    }
  }
  return 0;
}

bool SessionCore::configure(TransferState& state, ZTError* error) {
  const ZTURLRequest& request = state.request;
  const ZTURL& url = request.URL();
  const std::string scheme = lowercase(url.scheme());
  if (url.isEmpty() || scheme.empty()) {
    ZTSetError(error, urlError(ZTURLErrorBadURL, "bad URL", url));
    return false;
  }
  if (scheme != "http" && scheme != "https" && scheme != "file") {
    ZTSetError(error, urlError(ZTURLErrorUnsupportedURL, "unsupported URL", url));
    return false;
  }
  if ((scheme == "http" || scheme == "https") && url.host().empty()) {
    ZTSetError(error, urlError(ZTURLErrorBadURL, "bad URL", url));
    return false;
  }
  if (request.cachePolicy() == ZTURLRequestCachePolicy::ReturnCacheDataDontLoad) {
    ZTSetError(error, urlError(ZTURLErrorResourceUnavailable, "The requested resource is not in the cache.", url));
    return false;
  }

  state.releaseEasy();
  CURL* easy = state.easy = curl_easy_init();
  if (!easy) {
    ZTSetError(error, urlError(ZTURLErrorUnknown, "out of memory", url));
    return false;
  }
  state.status = 0;
  state.httpVersion.clear();
  state.responseHeaders.clear();
  state.headersComplete = false;
  state.finalResponse = false;
  state.data.clear();
  state.bodyReadFailed = false;
  state.lastSent = 0;
  state.bodyBytesRead = 0;
  state.errorBuffer[0] = 0;

  curl_easy_setopt(easy, CURLOPT_PRIVATE, &state);
  curl_easy_setopt(easy, CURLOPT_URL, url.absoluteString().c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https,file");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, state.errorBuffer);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &TransferState::onHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &state);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &TransferState::onWrite);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &state);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &TransferState::onProgress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &state);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, config.TLSVerifyPeer ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, config.TLSVerifyPeer ? 2L : 0L);
  if (config.TLSCertificateAuthorityFile) curl_easy_setopt(easy, CURLOPT_CAINFO, config.TLSCertificateAuthorityFile->c_str());
  if (request.HTTPShouldHandleCookies()) {
    curl_easy_setopt(easy, CURLOPT_SHARE, share);
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");
  }

  double timeout = request.timeoutInterval();
  if (timeout == 60.0) timeout = config.timeoutIntervalForRequest;
  if (!(timeout > 0) || !std::isfinite(timeout)) timeout = 60.0;
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(timeout * 1000.0, 2.0e9)));
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>(std::min(std::ceil(timeout), 2.0e9)));
  const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(state.resourceDeadline -
                                                                               std::chrono::steady_clock::now());
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(std::clamp<std::int64_t>(remaining.count(), 1, 2000000000)));

  // Body.
  std::string method = request.HTTPMethod().empty() ? std::string("GET") : request.HTTPMethod();
  std::optional<std::int64_t> declaredLength;
  if (auto value = request.valueForHTTPHeaderField("Content-Length")) {
    std::int64_t length = 0;
    auto [end, ec] = std::from_chars(value->data(), value->data() + value->size(), length);
    if (ec == std::errc() && end == value->data() + value->size() && length >= 0) declaredLength = length;
  }
  if (!declaredLength && request.requestContentLength()) declaredLength = *request.requestContentLength();

  state.bodyStream.reset();
  const auto& task = *state.task;
  bool hasBody = false;
  if (task.uploadData_) {
    state.bodyData = *task.uploadData_;
    hasBody = true;
  } else if (task.uploadFilePath_) {
    state.bodyStream = ZTInputStream::inputStreamWithFileAtPath(*task.uploadFilePath_);
    struct stat info {};
    if (::stat(task.uploadFilePath_->c_str(), &info) == 0) declaredLength = info.st_size;
    hasBody = true;
  } else if (request.HTTPBodyStream()) {
    std::shared_ptr<ZTInputStream> stream = request.HTTPBodyStream();
    if (stream == state.sentStream || stream->streamStatus() != ZTStreamStatus::NotOpen) {
      stream = state.request.regenerateBodyStream();
      if (!stream) {
        ZTSetError(error, urlError(ZTURLErrorRequestBodyStreamExhausted,
                                   "The request body stream could not be made again.", url));
        return false;
      }
      state.request.setHTTPBodyStream(stream);
    }
    state.bodyStream = stream;
    hasBody = true;
  } else if (request.HTTPBody()) {
    state.bodyData = *request.HTTPBody();
    hasBody = true;
  }
  if (state.bodyStream) {
    state.sentStream = state.bodyStream;
    state.bodyStream->open();
    if (state.bodyStream->streamStatus() == ZTStreamStatus::Error) {
      ZTSetError(error, urlError(ZTURLErrorRequestBodyStreamExhausted, "The request body stream could not be opened.", url));
      return false;
    }
  }

  if (method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  } else if (hasBody) {
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    if (state.bodyStream) {
      curl_easy_setopt(easy, CURLOPT_READFUNCTION, &TransferState::onRead);
      curl_easy_setopt(easy, CURLOPT_READDATA, &state);
      if (declaredLength) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(*declaredLength));
        state.task->expectedToSend_ = *declaredLength;
      }
    } else {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(state.bodyData.size()));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, state.bodyData.data());
      state.task->expectedToSend_ = static_cast<std::int64_t>(state.bodyData.size());
    }
    if (method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  } else if (method != "GET") {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
  }

  // Header fields: the request's, then the session's additional ones it does not set.
  ZTHTTPHeaderFields fields = request.allHTTPHeaderFields();
  for (const auto& [name, value] : config.HTTPAdditionalHeaders) fields.emplace(name, value);
  fields.erase("Content-Length");  // curl sends the length it is given, or chunks
  if (!fields.count("Expect")) fields.emplace("Expect", "");
  // Without a type of its own a body goes untyped: curl would otherwise call it a form.
  if (hasBody && !fields.count("Content-Type")) fields.emplace("Content-Type", "");
  for (const auto& [name, value] : fields) {
    if (name.find_first_of("\r\n:") != std::string::npos || value.find_first_of("\r\n") != std::string::npos) continue;
    const bool removesCurlDefault = (name == "Expect" || name == "Content-Type") && value.empty();
    const std::string line = value.empty() ? (removesCurlDefault ? name + ":" : name + ";") : name + ": " + value;
    curl_slist* next = curl_slist_append(state.headerList, line.c_str());
    if (next) state.headerList = next;
  }
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, state.headerList);
  return true;
}

void SessionCore::begin(const std::shared_ptr<ZTURLSessionTask>& task) {
  {
    ZTLockGuard lock(task->mutex_);
    if (task->state_ != ZTURLSessionTaskState::Running) return;  // cancelled before it began
  }
  ++liveTasks;
  auto state = std::make_unique<TransferState>(*this, task);
  state->request = ZTMutableURLRequest(task->currentRequest());
  state->resourceDeadline =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(
          std::chrono::duration<double>(std::clamp(config.timeoutIntervalForResource, 0.001, 3.0e8)));
  if (task->kind_ == ZTURLSessionTaskKind::Download) {
    ZTError fileError;
    state->downloadFile = ZTTempFile(config.downloadDirectory, ".download", &fileError);
    if (!state->downloadFile) {
      complete(std::move(state), task, urlError(ZTURLErrorCannotCreateFile, "The download file could not be created.",
                                                 task->originalRequest_.URL()));
      return;
    }
  }
  ZTError error;
  if (!configure(*state, &error)) {
    complete(std::move(state), task, error);
    return;
  }
  CURL* easy = state->easy;
  transfers[task->identifier_] = std::move(state);
  curl_multi_add_handle(multi, easy);
}

void SessionCore::restart(TransferState& state) {
  ZTError error;
  if (state.downloadFile) {
    ::ftruncate(state.downloadFile->descriptor.get(), 0);
    ::lseek(state.downloadFile->descriptor.get(), 0, SEEK_SET);
  }
  state.task->received_ = 0;
  state.task->sent_ = 0;
  state.task->expectedToReceive_ = ZTURLSessionTransferSizeUnknown;
  if (!configure(state, &error)) {
    auto it = transfers.find(state.task->identifier_);
    if (it == transfers.end()) return;
    auto owned = std::move(it->second);
    transfers.erase(it);
    auto task = owned->task;
    complete(std::move(owned), task, error);
    return;
  }
  curl_multi_add_handle(multi, state.easy);
}

void SessionCore::transferDone(TransferState& state, CURLcode result) {
  auto task = state.task;
  const std::uint64_t id = task->identifier_;
  if (state.bodyStream) state.bodyStream->close();

  if (result != CURLE_OK) {
    const bool connectionBroke = result == CURLE_GOT_NOTHING || result == CURLE_SEND_ERROR ||
                                 result == CURLE_RECV_ERROR;
    if (connectionBroke && state.status == 0 && state.retries < config.maximumRetryCount) {
      ++state.retries;
      restart(state);
      return;
    }
    ZTError error = errorForCurlCode(result, state.errorBuffer, state.request.URL());
    long osError = 0;
    if (curl_easy_getinfo(state.easy, CURLINFO_OS_ERRNO, &osError) == CURLE_OK && osError > 0) {
      ZTValue info = error.userInfo();
      info[ZTUnderlyingErrorKey] = ZTError::posix(static_cast<int>(osError)).toValue();
      error = ZTError(error.domain(), error.code(), std::move(info));
    }
    if (state.bodyReadFailed && state.bodyStream && state.bodyStream->streamError()) {
      ZTValue info = error.userInfo();
      info[ZTUnderlyingErrorKey] = state.bodyStream->streamError()->toValue();
      error = ZTError(error.domain(), ZTURLErrorRequestBodyStreamExhausted, std::move(info));
    }
    if (state.downloadWriteFailed) error = urlError(ZTURLErrorCannotWriteToFile, "The downloaded file could not be written.", state.request.URL());
    auto owned = std::move(transfers[id]);
    transfers.erase(id);
    complete(std::move(owned), task, error);
    return;
  }

  if (!state.headersComplete) state.headersDidComplete();
  if (!state.response) {
    // Not HTTP (a file URL): a plain response with the type guessed from the name.
    curl_off_t length = -1;
    curl_easy_getinfo(state.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    state.response = ZTURLResponse::create(state.request.URL(), state.request.URL().MIMETypeByExtension(),
                                           static_cast<std::int64_t>(length), std::nullopt);
    ZTLockGuard lock(task->mutex_);
    task->response_ = state.response;
  }
  auto http = state.response->httpResponse();
  if (http && !state.finalResponse) {
    const std::string location = http->valueForHTTPHeaderField("Location").value_or("");
    if (state.redirects >= config.maximumRedirectCount) {
      auto owned = std::move(transfers[id]);
      transfers.erase(id);
      complete(std::move(owned), task, urlError(ZTURLErrorHTTPTooManyRedirects, "too many HTTP redirects",
                                                 state.request.URL()));
      return;
    }
    askForRedirect(state, location);
    return;
  }
  auto owned = std::move(transfers[id]);
  transfers.erase(id);
  complete(std::move(owned), task, std::nullopt);
}

void SessionCore::askForRedirect(TransferState& state, const std::string& location) {
  auto task = state.task;
  const std::uint64_t id = task->identifier_;
  auto target = ZTURL::URLWithString(location, state.request.URL());
  if (!target) {
    // A Location that is no URL: the redirect response is the answer.
    followRedirect(id, std::nullopt);
    return;
  }
  ZTMutableURLRequest proposed(state.request);
  proposed.setURL(*target);
  if (state.status == 303 || ((state.status == 301 || state.status == 302) && state.request.HTTPMethod() == "POST")) {
    proposed.setHTTPMethod("GET");
    proposed.setHTTPBody(std::nullopt);
    proposed.setHTTPBodyStream(nullptr);
    proposed.setValue(std::nullopt, "Content-Type");
    proposed.setValue(std::nullopt, "Content-Length");
  }
  auto appDelegate = currentDelegate();
  if (!appDelegate) {
    followRedirect(id, ZTURLRequest(proposed));
    return;
  }
  state.waitingForRedirectAnswer = true;
  auto self = shared_from_this();
  auto response = state.response->httpResponse();
  deliver([self, appDelegate, task, id, response, proposed = ZTURLRequest(proposed)] {
    auto answered = std::make_shared<std::atomic<bool>>(false);
    auto answer = [self, id, answered](std::optional<ZTURLRequest> request) {
      if (answered->exchange(true)) return;
      if (!self->loop->post([self, id, request = std::move(request)] { self->followRedirect(id, request); })) {
        ZTLog("ZTURLSession: a redirect was answered after the session ended");
      }
    };
    std::shared_ptr<ZTURLSession> owner;
    {
      ZTLockGuard lock(task->mutex_);
      owner = task->session_;
    }
    if (!owner) return answer(proposed);
    try {
      appDelegate->willPerformHTTPRedirection(*owner, *task, *response, proposed, answer);
    } catch (...) {
      logException("willPerformHTTPRedirection");
      answer(proposed);
    }
  });
}

void SessionCore::followRedirect(std::uint64_t identifier, std::optional<ZTURLRequest> request) {
  auto it = transfers.find(identifier);
  if (it == transfers.end()) return;  // cancelled meanwhile
  TransferState& state = *it->second;
  state.waitingForRedirectAnswer = false;
  if (!request) {
    // Stop here: the redirect response and its body are the result.
    state.finalResponse = true;
    auto owned = std::move(it->second);
    transfers.erase(it);
    auto task = owned->task;
    complete(std::move(owned), task, std::nullopt);
    return;
  }
  ++state.redirects;
  state.request = ZTMutableURLRequest(*request);
  {
    ZTLockGuard lock(state.task->mutex_);
    state.task->currentRequest_ = state.request;
  }
  restart(state);
}

void SessionCore::cancelTask(const std::shared_ptr<ZTURLSessionTask>& task) {
  const ZTError error = urlError(ZTURLErrorCancelled, "cancelled", task->originalRequest_.URL());
  auto it = transfers.find(task->identifier_);
  if (it == transfers.end()) {
    // Not begun (or already done: complete() ignores a completed task).
    ++liveTasks;
    complete(nullptr, task, error);
    return;
  }
  auto owned = std::move(it->second);
  transfers.erase(it);
  if (owned->easy && !owned->waitingForRedirectAnswer) curl_multi_remove_handle(multi, owned->easy);
  if (owned->bodyStream) owned->bodyStream->close();
  complete(std::move(owned), task, error);
}

void SessionCore::complete(std::unique_ptr<TransferState> state, const std::shared_ptr<ZTURLSessionTask>& task,
                           std::optional<ZTError> error) {
  if (liveTasks > 0) --liveTasks;
  {
    ZTLockGuard lock(task->mutex_);
    if (task->state_ == ZTURLSessionTaskState::Completed) return;
    task->state_ = ZTURLSessionTaskState::Completed;
    task->error_ = error;
  }
  std::shared_ptr<ZTURLResponse> response = state ? state->response : nullptr;
  std::optional<ZTBytes> data;
  std::optional<std::string> location;
  if (state) {
    state->releaseEasy();
    if (!error) data = std::move(state->data);
    if (state->downloadFile) {
      location = state->downloadFile->path;
      ::fsync(state->downloadFile->descriptor.get());
      state->downloadFile->descriptor.reset();
      if (error) {
        ::unlink(location->c_str());
        location.reset();
      }
    }
  }
  auto appDelegate = currentDelegate();
  auto self = shared_from_this();
  deliver([self, task, appDelegate, response, data = std::move(data), location, error]() mutable {
    std::shared_ptr<ZTURLSession> owner;
    {
      ZTLockGuard lock(task->mutex_);
      owner = task->session_;
    }
    try {
      if (task->dataCompletion_) {
        task->dataCompletion_(error ? std::nullopt : std::move(data), response, error);
      } else if (task->downloadCompletion_) {
        task->downloadCompletion_(location, response, error);
      } else if (appDelegate && owner) {
        if (location && !error) {
          try {
            appDelegate->didFinishDownloadingToLocation(*owner, *task, *location);
          } catch (...) {
            logException("didFinishDownloadingToLocation");
          }
        }
        appDelegate->didCompleteWithError(*owner, *task, error);
      }
    } catch (...) {
      logException("a task's completion");
    }
    if (location) ::unlink(location->c_str());
    {
      ZTLockGuard lock(task->mutex_);
      task->session_.reset();
      task->dataCompletion_ = nullptr;
      task->downloadCompletion_ = nullptr;
    }
  });
  invalidateIfIdle();
}

void SessionCore::invalidateIfIdle() {
  if (!invalidateWhenIdle || liveTasks > 0 || !transfers.empty()) return;
  invalidateWhenIdle = false;
  std::shared_ptr<ZTURLSessionDelegate> lastDelegate;
  std::shared_ptr<ZTURLSession> owner;
  {
    ZTLockGuard lock(mutex);
    lastDelegate = std::move(delegate);
    delegate.reset();
    owner = session.lock();
  }
  if (!lastDelegate) return;
  deliver([lastDelegate, owner] {
    if (owner) lastDelegate->didBecomeInvalidWithError(*owner, std::nullopt);
  });
}

// ------------------------------------------------------------------------------- ZTURLSessionTask

ZTURLSessionTask::ZTURLSessionTask(std::shared_ptr<ZTURLSession> session, ZTURLSessionTaskKind kind,
                                   ZTURLRequest request)
    : identifier_(nextTaskIdentifier.fetch_add(1)),
      kind_(kind),
      originalRequest_(request),
      session_(std::move(session)),
      currentRequest_(std::move(request)) {}

ZTURLSessionTask::~ZTURLSessionTask() = default;

ZTURLRequest ZTURLSessionTask::currentRequest() const {
  ZTLockGuard lock(mutex_);
  return currentRequest_;
}

std::shared_ptr<ZTURLResponse> ZTURLSessionTask::response() const {
  ZTLockGuard lock(mutex_);
  return response_;
}

ZTURLSessionTaskState ZTURLSessionTask::state() const {
  ZTLockGuard lock(mutex_);
  return state_;
}

std::optional<ZTError> ZTURLSessionTask::error() const {
  ZTLockGuard lock(mutex_);
  return error_;
}

std::optional<std::string> ZTURLSessionTask::taskDescription() const {
  ZTLockGuard lock(mutex_);
  return description_;
}

void ZTURLSessionTask::setTaskDescription(std::optional<std::string> description) {
  ZTLockGuard lock(mutex_);
  description_ = std::move(description);
}

double ZTURLSessionTask::fractionCompleted() const {
  if (state() == ZTURLSessionTaskState::Completed) return 1.0;
  const std::int64_t expected = expectedToReceive_.load();
  const std::int64_t received = received_.load();
  if (expected > 0) return std::min(1.0, static_cast<double>(received) / static_cast<double>(expected));
  const std::int64_t toSend = expectedToSend_.load();
  if (received == 0 && toSend > 0) return std::min(1.0, static_cast<double>(sent_.load()) / static_cast<double>(toSend));
  return 0.0;
}

void ZTURLSessionTask::resume() {
  std::shared_ptr<ZTURLSession> session;
  {
    ZTLockGuard lock(mutex_);
    if (resumed_ || state_ != ZTURLSessionTaskState::Suspended) return;
    resumed_ = true;
    state_ = ZTURLSessionTaskState::Running;
    session = session_;
  }
  if (session) session->start(shared_from_this());
}

void ZTURLSessionTask::cancel() {
  std::shared_ptr<ZTURLSession> session;
  {
    ZTLockGuard lock(mutex_);
    if (state_ == ZTURLSessionTaskState::Completed || state_ == ZTURLSessionTaskState::Canceling) return;
    state_ = ZTURLSessionTaskState::Canceling;
    resumed_ = true;
    session = session_;
  }
  if (session) session->cancel(shared_from_this());
}

void ZTURLSessionTask::setUserInfo(const std::optional<ZTValue>& userInfo, ZTURLSessionTask& task) {
  if (!userInfo) {
    task.setTaskDescription(std::nullopt);
    return;
  }
  auto text = ZTJSONSerialization::stringWithJSONObject(*userInfo);
  if (!text) {
    ZTLog("[NSURLSessionTask+ZentrelLib setUserInfo:toNSURLSessionTask:]: failed to save user info – JSON "
          "serialization failed");
    task.setTaskDescription(std::nullopt);
    return;
  }
  task.setTaskDescription(std::move(*text));
}

std::optional<ZTValue> ZTURLSessionTask::userInfoFromNSURLSessionTask(const ZTURLSessionTask& task) {
  auto description = task.taskDescription();
  if (!description) {
    ZTLog("[NSURLSessionTask+ZentrelLib userInfoFromNSURLSessionTask:]: failed to read user info JSON data from "
          "taskDescription");
    return std::nullopt;
  }
  std::string reason;
  if (!zt::networking_internal::isValidUTF8(*description)) {
    reason = "the description is not UTF-8";
  } else {
    try {
      auto json = nlohmann::json::parse(*description);
      (void)json;
    } catch (const std::exception& e) {
      reason = e.what();
    }
  }
  if (!reason.empty()) {
    ZTLogf("[NSURLSessionTask+ZentrelLib userInfoFromNSURLSessionTask:]: failed to read JSON from data; error = %s",
           reason.c_str());
    return std::nullopt;
  }
  auto value = ZTJSONSerialization::JSONObjectWithString(*description);
  if (!value) {
    ZTLog("[NSURLSessionTask+ZentrelLib userInfoFromNSURLSessionTask:]: failed to read JSON from data; error = "
          "the root is not an array or object");
  }
  return value;
}

// --------------------------------------------------------------------------- ZTURLSessionDelegate

void ZTURLSessionDelegate::willPerformHTTPRedirection(ZTURLSession&, ZTURLSessionTask&, const ZTHTTPURLResponse&,
                                                      const ZTURLRequest& proposedRequest,
                                                      RedirectCompletion completionHandler) {
  completionHandler(proposedRequest);
}
void ZTURLSessionDelegate::didReceiveResponse(ZTURLSession&, ZTURLSessionTask&, const ZTURLResponse&) {}
void ZTURLSessionDelegate::didReceiveData(ZTURLSession&, ZTURLSessionTask&, const ZTBytes&) {}
void ZTURLSessionDelegate::didSendBodyData(ZTURLSession&, ZTURLSessionTask&, std::int64_t, std::int64_t, std::int64_t) {}
void ZTURLSessionDelegate::didWriteData(ZTURLSession&, ZTURLSessionTask&, std::int64_t, std::int64_t, std::int64_t) {}
void ZTURLSessionDelegate::didFinishDownloadingToLocation(ZTURLSession&, ZTURLSessionTask&, const std::string&) {}
void ZTURLSessionDelegate::didCompleteWithError(ZTURLSession&, ZTURLSessionTask&, const std::optional<ZTError>&) {}
void ZTURLSessionDelegate::didBecomeInvalidWithError(ZTURLSession&, const std::optional<ZTError>&) {}

// ------------------------------------------------------------------------------------ ZTURLSession

std::shared_ptr<ZTURLSession> ZTURLSession::sessionWithConfiguration(ZTURLSessionConfiguration configuration,
                                                                     std::shared_ptr<ZTURLSessionDelegate> delegate,
                                                                     std::shared_ptr<ZTDispatchQueue> delegateQueue) {
  if (!delegateQueue) delegateQueue = ZTDispatchQueue::global();
  return sessionWithConfiguration(std::move(configuration), std::move(delegate),
                                  [delegateQueue](std::function<void()> call) { delegateQueue->async(std::move(call)); });
}

std::shared_ptr<ZTURLSession> ZTURLSession::sessionWithConfiguration(ZTURLSessionConfiguration configuration,
                                                                     std::shared_ptr<ZTURLSessionDelegate> delegate,
                                                                     DelegateExecutor delegateExecutor) {
  if (!delegateExecutor) {
    auto queue = ZTDispatchQueue::global();
    delegateExecutor = [queue](std::function<void()> call) { queue->async(std::move(call)); };
  }
  auto session = std::shared_ptr<ZTURLSession>(
      new ZTURLSession(std::move(configuration), std::move(delegate), std::move(delegateExecutor)));
  {
    ZTLockGuard lock(session->core_->mutex);
    session->core_->session = session;
  }
  return session;
}

ZTURLSession::ZTURLSession(ZTURLSessionConfiguration configuration, std::shared_ptr<ZTURLSessionDelegate> delegate,
                           DelegateExecutor executor)
    : configuration_(std::move(configuration)), core_(std::make_shared<SessionCore>(configuration_)) {
  core_->executor = std::move(executor);
  {
    ZTLockGuard lock(core_->mutex);
    core_->delegate = std::move(delegate);
  }
  std::weak_ptr<SessionCore> weakCore = core_;
  core_->thread = ZTThread::create([weakCore] {
    auto core = weakCore.lock();
    if (!core) return;
    auto loop = ZTRunLoop::current();
    auto keepAlive = loop->keepAlive();
    if (!core->setUp()) ZTLog("ZTURLSession: the transfer engine could not be set up");
    while (!core->stopping.load()) loop->runOnce(std::chrono::seconds(1));
    core->tearDown();
  });
  core_->thread->setName("ZTURLSession");
  core_->loop = core_->thread->runLoop();
  core_->thread->start();
}

ZTURLSession::~ZTURLSession() {
  {
    ZTLockGuard lock(core_->mutex);
    core_->invalidated = true;
  }
  core_->stopping = true;
  auto loop = core_->loop;
  (void)loop->post([loop] { loop->stop(); });
  loop->stop();
  core_->thread->waitUntilFinished();
}

std::shared_ptr<ZTURLSessionDelegate> ZTURLSession::delegate() const { return core_->currentDelegate(); }

std::shared_ptr<ZTURLSessionTask> ZTURLSession::makeTask(ZTURLSessionTaskKind kind, const ZTURLRequest& request) {
  {
    ZTLockGuard lock(core_->mutex);
    if (core_->invalidated) return nullptr;
  }
  return std::shared_ptr<ZTURLSessionTask>(new ZTURLSessionTask(shared_from_this(), kind, request));
}

std::shared_ptr<ZTURLSessionTask> ZTURLSession::dataTaskWithRequest(const ZTURLRequest& request,
                                                                    ZTURLSessionTask::DataCompletion completionHandler) {
  auto task = makeTask(ZTURLSessionTaskKind::Data, request);
  if (task) task->dataCompletion_ = std::move(completionHandler);
  return task;
}

std::shared_ptr<ZTURLSessionTask> ZTURLSession::dataTaskWithURL(const ZTURL& url,
                                                                ZTURLSessionTask::DataCompletion completionHandler) {
  return dataTaskWithRequest(ZTURLRequest(url), std::move(completionHandler));
}

std::shared_ptr<ZTURLSessionTask> ZTURLSession::downloadTaskWithRequest(
    const ZTURLRequest& request, ZTURLSessionTask::DownloadCompletion completionHandler) {
  auto task = makeTask(ZTURLSessionTaskKind::Download, request);
  if (task) task->downloadCompletion_ = std::move(completionHandler);
  return task;
}

std::shared_ptr<ZTURLSessionTask> ZTURLSession::downloadTaskWithURL(const ZTURL& url,
                                                                    ZTURLSessionTask::DownloadCompletion completionHandler) {
  return downloadTaskWithRequest(ZTURLRequest(url), std::move(completionHandler));
}

std::shared_ptr<ZTURLSessionTask> ZTURLSession::uploadTaskWithRequest(const ZTURLRequest& request,
                                                                      const std::string& fromFile,
                                                                      ZTURLSessionTask::DataCompletion completionHandler) {
  auto task = makeTask(ZTURLSessionTaskKind::Upload, request);
  if (!task) return task;
  task->uploadFilePath_ = fromFile;
  task->dataCompletion_ = std::move(completionHandler);
  return task;
}

std::shared_ptr<ZTURLSessionTask> ZTURLSession::uploadTaskWithRequest(const ZTURLRequest& request, ZTBytes fromData,
                                                                      ZTURLSessionTask::DataCompletion completionHandler) {
  auto task = makeTask(ZTURLSessionTaskKind::Upload, request);
  if (!task) return task;
  task->uploadData_ = std::move(fromData);
  task->dataCompletion_ = std::move(completionHandler);
  return task;
}

void ZTURLSession::start(const std::shared_ptr<ZTURLSessionTask>& task) {
  auto core = core_;
  if (!core_->loop->post([core, task] {
        if (!core->multi) {
          ++core->liveTasks;
          core->complete(nullptr, task, urlError(ZTURLErrorUnknown, "The transfer engine is not available.",
                                                 task->originalRequest().URL()));
          return;
        }
        core->begin(task);
      })) {
    ZTLog("ZTURLSession: a task was resumed after its session ended");
  }
}

void ZTURLSession::cancel(const std::shared_ptr<ZTURLSessionTask>& task) {
  auto core = core_;
  if (!core_->loop->post([core, task] { core->cancelTask(task); })) {
    ZTLog("ZTURLSession: a task was cancelled after its session ended");
  }
}

void ZTURLSession::finishTasksAndInvalidate() {
  {
    ZTLockGuard lock(core_->mutex);
    if (core_->invalidated) return;
    core_->invalidated = true;
  }
  auto core = core_;
  (void)core_->loop->post([core] {
    core->invalidateWhenIdle = true;
    core->invalidateIfIdle();
  });
}

void ZTURLSession::invalidateAndCancel() {
  {
    ZTLockGuard lock(core_->mutex);
    if (core_->invalidated) return;
    core_->invalidated = true;
  }
  auto core = core_;
  (void)core_->loop->post([core] {
    core->invalidateWhenIdle = true;
    std::vector<std::shared_ptr<ZTURLSessionTask>> running;
    for (auto& [id, transfer] : core->transfers) running.push_back(transfer->task);
    for (auto& task : running) {
      {
        ZTLockGuard lock(task->mutex_);
        if (task->state_ == ZTURLSessionTaskState::Running) task->state_ = ZTURLSessionTaskState::Canceling;
      }
      core->cancelTask(task);
    }
    core->invalidateIfIdle();
  });
}
