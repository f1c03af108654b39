#pragma once
// The progress reporter every long-running zt subcommand shares (copies, transfers, downloads).
//
// On a terminal it keeps one line up to date — label, bar, percentage, bytes, rate and time left —
// redrawn at most ten times a second. When the stream is not a terminal (a pipe, a file, a CI log)
// or TERM is "dumb", it writes plain lines without control characters: one each time another tenth
// of the total is done or five seconds have passed, and a final line from finish().
//
// A ProgressBar belongs to one thread: update() and finish() must not be called concurrently. It
// writes only to the stream it was given, which must outlive it. Bad input does not fail: a
// `done` beyond the total shows as 100 %, a `done` that goes backwards (a retry) is shown as
// reported, calls after finish() are ignored. A bar destroyed without finish() ends its line so
// the shell prompt does not land on it.

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace ztool {

// "512 B", "1.5 KiB", "12.3 MiB", "4.00 GiB": binary units, three significant digits.
std::string formatBytes(std::uint64_t bytes);
// formatBytes() per second: "1.5 MiB/s". Negative or non-finite rates give "-- B/s".
std::string formatRate(double bytesPerSecond);
// "0:07", "12:34", "1:02:03"; negative or non-finite give "--:--"; beyond 99 hours "> 99 h".
std::string formatDuration(double seconds);

class ProgressBar {
 public:
  enum class Style {
    Automatic,  // Terminal when the stream is std::cout/std::cerr/std::clog on a tty and TERM isn't "dumb".
    Terminal,   // one redrawn line
    Plain,      // plain lines
  };
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  // total 0 means the size is unknown: no bar, percentage or time left, only bytes and rate.
  ProgressBar(std::ostream& out, std::string label, std::uint64_t total);
  // For callers that know better than the automatic choice, and for tests that drive time.
  // A terminal `width` of 0 asks the terminal (80 columns when it cannot tell).
  ProgressBar(std::ostream& out, std::string label, std::uint64_t total, Style style,
              Clock clock = {}, unsigned width = 0);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Reports that `done` bytes (or items) of the total are finished. Cheap when nothing is drawn.
  void update(std::uint64_t done);
  // Draws the final state and ends the line: ok says whether the work succeeded.
  void finish(bool ok);

  bool isTerminal() const { return terminal_; }

 private:
  std::chrono::steady_clock::time_point now() const;
  double rate(std::chrono::steady_clock::time_point at) const;
  void drawTerminal(std::chrono::steady_clock::time_point at, const char* verdict);
  void writePlain(std::chrono::steady_clock::time_point at);

  std::ostream& out_;
  std::string label_;
  std::uint64_t total_;
  bool terminal_;
  Clock clock_;
  unsigned width_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point lastDraw_;
  bool drawn_ = false;
  std::uint64_t done_ = 0;
  unsigned lastTenth_ = 0;  // plain style: the last tenth of the total a line was written for
  bool finished_ = false;
};

}  // namespace ztool
