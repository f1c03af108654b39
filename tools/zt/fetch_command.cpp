// `zt fetch URL [-o FILE]`: downloads one URL through ZTURLSession into a file, with a progress bar
// on a terminal (plain progress lines otherwise). The file is downloaded beside its destination
// under a temporary name, flushed and renamed into place only when the whole body has arrived with
// a success status, so a failed or interrupted download never leaves a partial file under the
// destination name. Delegate calls and the completion run on the main run loop.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "progress.h"
#include "zentrel/networking/url_session.h"
#include "zentrel/platform/run_loop.h"

namespace ztool {
namespace {

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Progress on the main thread, drawn once the announced length is known.
class FetchProgress : public ZTURLSessionDelegate {
 public:
  explicit FetchProgress(std::string label) : label_(std::move(label)) {}
  void didWriteData(ZTURLSession&, ZTURLSessionTask&, std::int64_t, std::int64_t total,
                    std::int64_t expected) override {
    if (!bar_) bar_ = std::make_unique<ProgressBar>(std::cerr, label_, expected > 0 ? static_cast<std::uint64_t>(expected) : 0);
    bar_->update(static_cast<std::uint64_t>(total));
    written_ = total;
  }
  // Ends the bar; a download that succeeded without any progress report still shows one line.
  void finish(bool ok) {
    if (!bar_ && ok) bar_ = std::make_unique<ProgressBar>(std::cerr, label_, static_cast<std::uint64_t>(written_));
    if (!bar_) return;
    bar_->update(static_cast<std::uint64_t>(written_));
    bar_->finish(ok);
  }

 private:
  std::string label_;
  std::unique_ptr<ProgressBar> bar_;
  std::int64_t written_ = 0;
};

std::string describeFailure(const ZTError& error, const ZTURL& url) {
  const std::string detail = error.userInfo()[ZTLocalizedFailureReasonErrorKey].stringValue();
  const std::string port = url.port() ? std::to_string(*url.port()) : (url.scheme() == "https" ? "443" : "80");
  if (error.domain() == ZTURLErrorDomain) {
    switch (error.code()) {
      case ZTURLErrorCannotFindHost:
        return "could not resolve host \"" + url.host() + "\" (no such name, or no DNS answer)";
      case ZTURLErrorCannotConnectToHost:
        if (auto cause = error.underlyingError(); cause && cause->domain() == ZTPOSIXErrorDomain) {
          if (cause->code() == ECONNREFUSED) return "connection refused by " + url.host() + ":" + port;
          return "could not connect to " + url.host() + ":" + port + ": " + cause->localizedDescription();
        }
        return "could not connect to " + url.host() + ":" + port + (detail.empty() ? "" : " (" + detail + ")");
      case ZTURLErrorTimedOut:
        return "no answer from " + url.host() + " in time";
      case ZTURLErrorUnsupportedURL:
        return "only http, https and file URLs can be fetched";
      case ZTURLErrorBadURL:
        return "the URL names no host to fetch from";
      case ZTURLErrorSecureConnectionFailed:
      case ZTURLErrorServerCertificateUntrusted:
        return "secure connection to " + url.host() + " failed" + (detail.empty() ? "" : ": " + detail);
      default:
        break;
    }
  }
  return error.localizedDescription() + (detail.empty() ? "" : " (" + detail + ")");
}

int runFetch(const std::string& text, std::string output, double timeout) {
  auto url = ZTURL::URLWithString(text);
  if (!url || url->scheme().empty()) {
    std::cerr << "zt fetch: not a valid absolute URL: " << text << "\n";
    return 1;
  }
  if (output.empty()) {
    output = url->lastPathComponent();
    if (output.empty() || output == "/") output = "index.html";
  }
  struct stat info {};
  if (::stat(output.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    std::cerr << "zt fetch: " << output << " is a folder; give a file name with -o\n";
    return 1;
  }

  auto loop = ZTRunLoop::main();
  auto progress = std::make_shared<FetchProgress>(output);
  ZTURLSessionConfiguration configuration;
  configuration.downloadDirectory = folderOf(output);  // the partial file lives beside its destination
  auto session = ZTURLSession::sessionWithConfiguration(
      configuration, progress, [loop](std::function<void()> call) { (void)loop->post(std::move(call)); });

  ZTMutableURLRequest request(*url);
  request.setTimeoutInterval(timeout);
  int status = 1;
  bool done = false;
  auto task = session->downloadTaskWithRequest(
      request, [&](std::optional<std::string> location, std::shared_ptr<ZTURLResponse> response,
                   std::optional<ZTError> error) {
        done = true;
        if (error) {
          progress->finish(false);
          std::cerr << "zt fetch: " << describeFailure(*error, *url) << "\n";
          return;
        }
        auto http = response ? response->httpResponse() : nullptr;
        if (http && (http->statusCode() < 200 || http->statusCode() >= 300)) {
          progress->finish(false);
          std::cerr << "zt fetch: the server answered " << http->statusCode() << " ("
                    << ZTHTTPURLResponse::localizedStringForStatusCode(http->statusCode()) << ") for " << text
                    << "; nothing saved\n";
          return;
        }
        struct stat downloaded {};
        if (!location || ::stat(location->c_str(), &downloaded) != 0) {
          progress->finish(false);
          std::cerr << "zt fetch: the downloaded data is missing\n";
          return;
        }
        ::chmod(location->c_str(), 0644);
        if (::rename(location->c_str(), output.c_str()) != 0) {
          progress->finish(false);
          std::cerr << "zt fetch: could not save " << output << ": " << std::strerror(errno) << "\n";
          return;
        }
        progress->finish(true);
        std::cout << "Saved " << output << " (" << formatBytes(static_cast<std::uint64_t>(downloaded.st_size))
                  << ")\n";
        status = 0;
      });
  if (!task) {
    std::cerr << "zt fetch: the download could not be started\n";
    return 1;
  }
  task->resume();
  while (!done) loop->runOnce(std::chrono::seconds(1));  // the task ends: done, failed or timed out
  session->finishTasksAndInvalidate();
  return status;
}

}  // namespace

void addFetchCommand(CLI::App& app) {
  auto* command = app.add_subcommand("fetch", "Download a URL into a file, with progress");
  command->footer(
      "Downloads with the library's URL session (libcurl underneath, TLS verified against the system's\n"
      "certificates). Redirects are followed. The data goes to a temporary file beside the destination,\n"
      "which takes the destination's name only once everything has arrived: a failed download leaves\n"
      "nothing behind and an existing file untouched until then. Without -o the file is named after the\n"
      "URL's last path component (index.html when there is none), in the current folder.\n"
      "Exit status 0, or 1 when the name does not resolve, the connection is refused, the server answers\n"
      "with an error status, or the file cannot be written.\n\n"
      "Example: zt fetch https://www.debian.org/ -o debian.html");
  static std::string url;
  static std::string output;
  static double timeout = 60.0;
  command->add_option("url", url, "The http, https or file URL to download")->required();
  command->add_option("-o,--output", output, "The file to write");
  command->add_option("--timeout", timeout, "Seconds without data after which the download fails")
      ->default_val(60.0)
      ->check(CLI::Range(0.1, 86400.0));
  command->callback([] {
    if (runFetch(url, output, timeout) != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
