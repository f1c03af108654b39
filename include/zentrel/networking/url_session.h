#pragma once
// ZTURLSession and ZTURLSessionTask: HTTP(S) requests that really travel.
//
// A session performs data, download and upload tasks with libcurl's multi interface on one thread
// of its own: that thread's run loop watches the transfers' sockets (through one epoll descriptor,
// a file-descriptor source of the loop) and curl's timeouts (a run-loop timer). There is no thread
// per request and no polling. Connections, TLS sessions and cookies are shared by the session's
// tasks. TLS goes through curl's OpenSSL, verifying the peer against the system's certificates
// unless the configuration says otherwise.
//
// Threads:
// - The factories, resume(), cancel() and the accessors may be called from any thread.
// - Everything the application gave — delegate methods, completion handlers — runs on the delegate
//   queue, one call at a time, in the order the events happened (also on a concurrent queue). A
//   session made without a queue delivers on the global queue, still one call at a time.
// - Body streams are read on the session's thread, synchronously: give file or memory streams, or
//   streams that are not scheduled in a run loop.
//
// Ownership: a session is held by std::shared_ptr; a task in flight keeps its session alive until its
// completion has been delivered. The session keeps its delegate until it is invalidated
// (finishTasksAndInvalidate() or invalidateAndCancel()); a delegate that holds its session must
// invalidate it to break the cycle. Destroying a session stops its thread.
//
// Failures: a task that does not complete reports a ZTError in ZTURLErrorDomain (see url_error.h):
// cancelled (−999, zt::isURLCancelledError), timed out, host not found, connection refused,
// connection lost, too many redirects, TLS failures, file failures of download tasks. An HTTP
// status (404, 500) is a response, not an error. When the system reported why (a refused
// connection: ECONNREFUSED), the POSIX error is kept under ZTUnderlyingErrorKey, and curl's own
// text under ZTLocalizedFailureReasonErrorKey. A handler or delegate method that throws is logged
// and the session goes on: the task still completes and the others keep running.
//
// Redirects are not followed by curl but offered to the delegate's willPerformHTTPRedirection():
// it answers the request to follow (the proposed one, its own, or one made with
// ZTURLRequest::RFC2616RedirectRequestFromRequest()), or nullopt to stop and complete with the
// redirect response itself. A body stream that was already read is made again for the next request
// through ZTMutableURLRequest::regenerateBodyStream(); so is the body of a retried request.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "zentrel/networking/url_error.h"
#include "zentrel/networking/url_request.h"
#include "zentrel/networking/url_response.h"
#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

class ZTURLSession;
class ZTURLSessionTask;
namespace zt::internal {
struct SessionCore;
struct TransferState;
}  // namespace zt::internal

enum class ZTURLSessionTaskState : std::int64_t { Running = 0, Suspended = 1, Canceling = 2, Completed = 3 };
enum class ZTURLSessionTaskKind { Data, Download, Upload };

// Unknown expected lengths are ZTURLSessionTransferSizeUnknown.
inline constexpr std::int64_t ZTURLSessionTransferSizeUnknown = -1;

class ZT_API ZTURLSessionTask : public std::enable_shared_from_this<ZTURLSessionTask> {
 public:
  // Completion handlers: the body (nullopt on failure) or the downloaded file's location, the last
  // response (null when none came), and the error (nullopt when the transfer completed).
  using DataCompletion = std::function<void(std::optional<ZTBytes> data, std::shared_ptr<ZTURLResponse> response,
                                            std::optional<ZTError> error)>;
  using DownloadCompletion = std::function<void(std::optional<std::string> location,
                                                std::shared_ptr<ZTURLResponse> response, std::optional<ZTError> error)>;

  ~ZTURLSessionTask();
  ZTURLSessionTask(const ZTURLSessionTask&) = delete;
  ZTURLSessionTask& operator=(const ZTURLSessionTask&) = delete;

  // Unique within the process.
  std::uint64_t taskIdentifier() const { return identifier_; }
  ZTURLSessionTaskKind kind() const { return kind_; }
  // The request the task was made with, and the one now being sent (after redirects).
  const ZTURLRequest& originalRequest() const { return originalRequest_; }
  ZTURLRequest currentRequest() const;
  // The last response received (the redirect response until the next one arrives), or null.
  std::shared_ptr<ZTURLResponse> response() const;
  ZTURLSessionTaskState state() const;
  // Why the task did not complete; nullopt while running and after a completed transfer.
  std::optional<ZTError> error() const;

  // A text the application keeps with the task.
  std::optional<std::string> taskDescription() const;
  void setTaskDescription(std::optional<std::string> description);

  // Progress: bytes of the body received and sent so far, and the lengths announced
  // (ZTURLSessionTransferSizeUnknown when not known).
  std::int64_t countOfBytesReceived() const { return received_.load(); }
  std::int64_t countOfBytesExpectedToReceive() const { return expectedToReceive_.load(); }
  std::int64_t countOfBytesSent() const { return sent_.load(); }
  std::int64_t countOfBytesExpectedToSend() const { return expectedToSend_.load(); }
  // 0 to 1: received over expected (sent over expected while only sending); 0 while unknown, 1 once
  // completed.
  double fractionCompleted() const;

  // Starts a suspended task (tasks are made suspended). Later calls do nothing.
  void resume();
  // Stops the task; it completes with ZTURLErrorCancelled unless it completed already. Any thread.
  void cancel();

  // Keeps a JSON-serialisable value in the task's description: nullopt clears it; a value that
  // cannot be written as JSON logs "[NSURLSessionTask+ZentrelLib setUserInfo:toNSURLSessionTask:]:
  // failed to save user info – JSON serialization failed" and clears it.
  static void setUserInfo(const std::optional<ZTValue>& userInfo, ZTURLSessionTask& task);
  // The value kept there. Without a description: logs "[NSURLSessionTask+ZentrelLib
  // userInfoFromNSURLSessionTask:]: failed to read user info JSON data from taskDescription" and
  // gives nullopt; a description that is not JSON logs "[NSURLSessionTask+ZentrelLib
  // userInfoFromNSURLSessionTask:]: failed to read JSON from data; error = <reason>" and gives
  // nullopt.
  static std::optional<ZTValue> userInfoFromNSURLSessionTask(const ZTURLSessionTask& task);

 private:
  friend class ZTURLSession;
  friend struct zt::internal::SessionCore;
  friend struct zt::internal::TransferState;
  ZTURLSessionTask(std::shared_ptr<ZTURLSession> session, ZTURLSessionTaskKind kind, ZTURLRequest request);

  const std::uint64_t identifier_;
  const ZTURLSessionTaskKind kind_;
  const ZTURLRequest originalRequest_;
  std::optional<std::string> uploadFilePath_;  // upload tasks from a file
  std::optional<ZTBytes> uploadData_;          // upload tasks from data
  DataCompletion dataCompletion_;
  DownloadCompletion downloadCompletion_;

  mutable ZTMutex mutex_;
  std::shared_ptr<ZTURLSession> session_ ZT_GUARDED_BY(mutex_);  // while not completed
  ZTURLRequest currentRequest_ ZT_GUARDED_BY(mutex_);
  std::shared_ptr<ZTURLResponse> response_ ZT_GUARDED_BY(mutex_);
  ZTURLSessionTaskState state_ ZT_GUARDED_BY(mutex_) = ZTURLSessionTaskState::Suspended;
  std::optional<ZTError> error_ ZT_GUARDED_BY(mutex_);
  std::optional<std::string> description_ ZT_GUARDED_BY(mutex_);
  bool resumed_ ZT_GUARDED_BY(mutex_) = false;

  std::atomic<std::int64_t> received_{0};
  std::atomic<std::int64_t> expectedToReceive_{ZTURLSessionTransferSizeUnknown};
  std::atomic<std::int64_t> sent_{0};
  std::atomic<std::int64_t> expectedToSend_{ZTURLSessionTransferSizeUnknown};
};

// What a session's application hears. Every method is optional (the defaults do nothing, or what
// is described), runs on the delegate queue, and may throw (logged; the session goes on).
class ZT_API ZTURLSessionDelegate {
 public:
  using RedirectCompletion = std::function<void(std::optional<ZTURLRequest> request)>;
  virtual ~ZTURLSessionDelegate() = default;

  // A redirect (301, 302, 303, 307, 308 with a Location): call completionHandler once, now or later,
  // with the request to follow or nullopt to stop. The proposed request has the new URL and the
  // task's request's fields; for 303, and for 301/302 answering a POST, it is a GET without body.
  // Default: follows proposedRequest. If the method throws before answering, the proposed request is
  // followed.
  virtual void willPerformHTTPRedirection(ZTURLSession& session, ZTURLSessionTask& task,
                                          const ZTHTTPURLResponse& response, const ZTURLRequest& proposedRequest,
                                          RedirectCompletion completionHandler);
  // The response headers of the final response arrived.
  virtual void didReceiveResponse(ZTURLSession& session, ZTURLSessionTask& task, const ZTURLResponse& response);
  // Body bytes of a data task made without a completion handler, in order.
  virtual void didReceiveData(ZTURLSession& session, ZTURLSessionTask& task, const ZTBytes& data);
  // Upload progress.
  virtual void didSendBodyData(ZTURLSession& session, ZTURLSessionTask& task, std::int64_t bytesSent,
                               std::int64_t totalBytesSent, std::int64_t totalBytesExpectedToSend);
  // Download progress (download tasks).
  virtual void didWriteData(ZTURLSession& session, ZTURLSessionTask& task, std::int64_t bytesWritten,
                            std::int64_t totalBytesWritten, std::int64_t totalBytesExpectedToWrite);
  // A download task without a completion handler finished: the file at location is removed when the
  // method returns; move it away to keep it.
  virtual void didFinishDownloadingToLocation(ZTURLSession& session, ZTURLSessionTask& task,
                                              const std::string& location);
  // Every task made without a completion handler ends here, with nullopt when it completed.
  virtual void didCompleteWithError(ZTURLSession& session, ZTURLSessionTask& task,
                                    const std::optional<ZTError>& error);
  // The session was invalidated and has no task left; the last call the delegate receives.
  virtual void didBecomeInvalidWithError(ZTURLSession& session, const std::optional<ZTError>& error);
};

struct ZT_API ZTURLSessionConfiguration {
  using Seconds = double;
  // Used for requests that keep the default interval of 60 seconds: seconds without data moving.
  Seconds timeoutIntervalForRequest = 60.0;
  // The longest a task may take in all, redirects and retries included.
  Seconds timeoutIntervalForResource = 7 * 24 * 3600.0;
  // Header fields sent with every request that does not set them itself.
  ZTHTTPHeaderFields HTTPAdditionalHeaders;
  long HTTPMaximumConnectionsPerHost = 6;
  // How many times a request is sent again after its connection broke before any response came
  // (its body stream made again); 0 never.
  int maximumRetryCount = 0;
  // How many redirects a task follows before failing with ZTURLErrorHTTPTooManyRedirects.
  int maximumRedirectCount = 16;
  // Verify the server's certificate and name (TLS). Turn off only for tests with own certificates.
  bool TLSVerifyPeer = true;
  // A PEM file of trusted certificates instead of the system's.
  std::optional<std::string> TLSCertificateAuthorityFile;
  // The folder download tasks write into; the library's private temporary folder when empty.
  std::string downloadDirectory;

  static ZTURLSessionConfiguration defaultSessionConfiguration() { return {}; }
};

class ZT_API ZTURLSession : public std::enable_shared_from_this<ZTURLSession> {
 public:
  // Runs a call of the session on the application's chosen queue; for an operation queue:
  // [queue](auto call) { queue->addOperationWithBlock(std::move(call)); }.
  using DelegateExecutor = std::function<void(std::function<void()> call)>;

  // A session with its own thread. delegate may be null; delegateQueue null means the global queue.
  [[nodiscard]] static std::shared_ptr<ZTURLSession> sessionWithConfiguration(
      ZTURLSessionConfiguration configuration, std::shared_ptr<ZTURLSessionDelegate> delegate = nullptr,
      std::shared_ptr<ZTDispatchQueue> delegateQueue = nullptr);
  [[nodiscard]] static std::shared_ptr<ZTURLSession> sessionWithConfiguration(
      ZTURLSessionConfiguration configuration, std::shared_ptr<ZTURLSessionDelegate> delegate,
      DelegateExecutor delegateExecutor);
  ~ZTURLSession();
  ZTURLSession(const ZTURLSession&) = delete;
  ZTURLSession& operator=(const ZTURLSession&) = delete;

  const ZTURLSessionConfiguration& configuration() const { return configuration_; }
  std::shared_ptr<ZTURLSessionDelegate> delegate() const;

  // Tasks are made suspended: call resume(). A task with a completion handler reports only through
  // it (redirects, response and progress still reach the delegate); one without reports its body to
  // didReceiveData (data tasks) or its file to didFinishDownloadingToLocation (download tasks), and
  // its end to didCompleteWithError. The data handed to a data task's handler is the body of the
  // last response; the location of a download task's file is valid only during the handler.
  // After invalidation the factories give null.
  std::shared_ptr<ZTURLSessionTask> dataTaskWithRequest(const ZTURLRequest& request,
                                                        ZTURLSessionTask::DataCompletion completionHandler = {});
  std::shared_ptr<ZTURLSessionTask> dataTaskWithURL(const ZTURL& url,
                                                    ZTURLSessionTask::DataCompletion completionHandler = {});
  std::shared_ptr<ZTURLSessionTask> downloadTaskWithRequest(const ZTURLRequest& request,
                                                            ZTURLSessionTask::DownloadCompletion completionHandler = {});
  std::shared_ptr<ZTURLSessionTask> downloadTaskWithURL(const ZTURL& url,
                                                        ZTURLSessionTask::DownloadCompletion completionHandler = {});
  // The body is the file (read while sending) or the data, whatever body the request has.
  std::shared_ptr<ZTURLSessionTask> uploadTaskWithRequest(const ZTURLRequest& request, const std::string& fromFile,
                                                          ZTURLSessionTask::DataCompletion completionHandler = {});
  std::shared_ptr<ZTURLSessionTask> uploadTaskWithRequest(const ZTURLRequest& request, ZTBytes fromData,
                                                          ZTURLSessionTask::DataCompletion completionHandler = {});

  // No new tasks; the running ones finish, then didBecomeInvalidWithError and the delegate is
  // released.
  void finishTasksAndInvalidate();
  // The same, cancelling every running task.
  void invalidateAndCancel();

 private:
  friend class ZTURLSessionTask;
  friend struct zt::internal::SessionCore;
  friend struct zt::internal::TransferState;
  ZTURLSession(ZTURLSessionConfiguration configuration, std::shared_ptr<ZTURLSessionDelegate> delegate,
               DelegateExecutor executor);
  std::shared_ptr<ZTURLSessionTask> makeTask(ZTURLSessionTaskKind kind, const ZTURLRequest& request);
  void start(const std::shared_ptr<ZTURLSessionTask>& task);
  void cancel(const std::shared_ptr<ZTURLSessionTask>& task);

  const ZTURLSessionConfiguration configuration_;
  std::shared_ptr<zt::internal::SessionCore> core_;
};
