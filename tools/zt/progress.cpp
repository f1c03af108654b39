#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

namespace ztool {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr auto kPlainInterval = std::chrono::seconds(5);
constexpr unsigned kFallbackWidth = 80;
constexpr std::size_t kMinBarWidth = 10;

int descriptorOf(const std::ostream& out) {
  if (&out == &std::cout) return STDOUT_FILENO;
  if (&out == &std::cerr || &out == &std::clog) return STDERR_FILENO;
  return -1;
}

bool termIsCapable() {
  const char* term = std::getenv("TERM");
  return term != nullptr && *term != '\0' && std::strcmp(term, "dumb") != 0;
}

unsigned terminalWidth(int fd) {
  winsize size{};
  if (fd >= 0 && ::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  if (const char* columns = std::getenv("COLUMNS")) {
    const long n = std::strtol(columns, nullptr, 10);
    if (n > 0 && n < 10000) return static_cast<unsigned>(n);
  }
  return kFallbackWidth;
}

// Columns a UTF-8 string takes, counting one per code point (wide characters are rare in labels).
std::size_t columnsOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// The longest prefix of `text` that fits in `columns`, cut on a code point boundary, with "…" when cut.
std::string fitTo(const std::string& text, std::size_t columns) {
  if (columnsOf(text) <= columns) return text;
  if (columns == 0) return {};
  std::string out;
  std::size_t used = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool starts = (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    if (starts && ++used > columns - 1) break;
    out += text[i];
  }
  return out + "…";
}

std::string percentOf(std::uint64_t done, std::uint64_t total) {
  const double fraction = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "%3d%%", static_cast<int>(std::floor(fraction * 100.0)));
  return buffer;
}

}  // namespace

std::string formatBytes(std::uint64_t bytes) {
  static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1024.0 && unit + 1 < std::size(kUnits)) {
    value /= 1024.0;
    ++unit;
  }
  char buffer[32];
  // Three significant digits; a value that rounds up to 1024 reads as the next unit.
  if (value >= 999.5 && unit + 1 < std::size(kUnits)) {
    value /= 1024.0;
    ++unit;
  }
  const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
  std::snprintf(buffer, sizeof buffer, "%.*f %s", decimals, value, kUnits[unit]);
  return buffer;
}

std::string formatRate(double bytesPerSecond) {
  if (!std::isfinite(bytesPerSecond) || bytesPerSecond < 0) return "-- B/s";
  const double capped = std::min(bytesPerSecond, 1.8e19);
  return formatBytes(static_cast<std::uint64_t>(std::llround(capped))) + "/s";
}

std::string formatDuration(double seconds) {
  if (!std::isfinite(seconds) || seconds < 0) return "--:--";
  if (seconds >= 99.0 * 3600.0) return "> 99 h";
  const auto whole = static_cast<long>(std::lround(seconds));
  const long hours = whole / 3600, minutes = whole / 60 % 60, secs = whole % 60;
  char buffer[32];
  if (hours > 0) {
    std::snprintf(buffer, sizeof buffer, "%ld:%02ld:%02ld", hours, minutes, secs);
  } else {
    std::snprintf(buffer, sizeof buffer, "%ld:%02ld", minutes, secs);
  }
  return buffer;
}

ProgressBar::ProgressBar(std::ostream& out, std::string label, std::uint64_t total)
    : ProgressBar(out, std::move(label), total, Style::Automatic) {}

ProgressBar::ProgressBar(std::ostream& out, std::string label, std::uint64_t total, Style style, Clock clock,
                         unsigned width)
    : out_(out), label_(std::move(label)), total_(total), clock_(std::move(clock)), width_(width) {
  const int fd = descriptorOf(out);
  switch (style) {
    case Style::Terminal: terminal_ = true; break;
    case Style::Plain: terminal_ = false; break;
    case Style::Automatic: terminal_ = fd >= 0 && ::isatty(fd) == 1 && termIsCapable(); break;
  }
  if (terminal_ && width_ == 0) width_ = terminalWidth(fd);
  start_ = lastDraw_ = now();
}

ProgressBar::~ProgressBar() {
  if (!finished_ && terminal_ && drawn_) {
    out_ << '\n';
    out_.flush();
  }
}

TimePoint ProgressBar::now() const { return clock_ ? clock_() : std::chrono::steady_clock::now(); }

double ProgressBar::rate(TimePoint at) const {
  const double elapsed = std::chrono::duration<double>(at - start_).count();
  if (elapsed < 0.001) return -1;
  return static_cast<double>(done_) / elapsed;
}

void ProgressBar::update(std::uint64_t done) {
  if (finished_) return;
  done_ = done;
  const TimePoint at = now();
  if (terminal_) {
    if (!drawn_ || at - lastDraw_ >= kRedrawInterval) drawTerminal(at, nullptr);
    return;
  }
  const unsigned tenth =
      total_ == 0 ? 0
                  : static_cast<unsigned>(std::min(10.0, std::floor(static_cast<double>(done_) * 10.0 /
                                                                    static_cast<double>(total_))));
  const bool newTenth = tenth > lastTenth_;
  if (newTenth || at - lastDraw_ >= kPlainInterval) {
    if (newTenth) lastTenth_ = tenth;
    writePlain(at);
  }
}

void ProgressBar::finish(bool ok) {
  if (finished_) return;
  const TimePoint at = now();
  if (terminal_) {
    drawTerminal(at, ok ? "done" : "failed");
    out_ << '\n';
  } else {
    const std::string elapsed = formatDuration(std::chrono::duration<double>(at - start_).count());
    out_ << label_ << ": ";
    if (ok) {
      out_ << "done, " << formatBytes(done_) << " in " << elapsed << " (" << formatRate(rate(at)) << ")\n";
    } else {
      out_ << "failed after " << formatBytes(done_);
      if (total_ != 0) out_ << " of " << formatBytes(total_);
      out_ << " (" << elapsed << ")\n";
    }
  }
  out_.flush();
  finished_ = true;
}

void ProgressBar::writePlain(TimePoint at) {
  lastDraw_ = at;
  const double speed = rate(at);
  out_ << label_ << ": ";
  if (total_ != 0) {
    std::string percent = percentOf(done_, total_);
    percent.erase(0, percent.find_first_not_of(' '));
    out_ << percent << " (" << formatBytes(done_) << " of " << formatBytes(total_) << ", " << formatRate(speed);
    if (speed > 0 && done_ < total_) {
      out_ << ", " << formatDuration(static_cast<double>(total_ - done_) / speed) << " left";
    }
    out_ << ")\n";
  } else {
    out_ << formatBytes(done_) << " (" << formatRate(speed) << ")\n";
  }
  out_.flush();
}

void ProgressBar::drawTerminal(TimePoint at, const char* verdict) {
  lastDraw_ = at;
  drawn_ = true;
  const double speed = rate(at);
  // The line's fields in display order; on a narrow terminal the least useful go first.
  struct Field {
    std::string text;
    int keep;  // higher stays longer
    const char* gap = "  ";
  };
  std::vector<Field> fields;
  if (total_ != 0) fields.push_back({percentOf(done_, total_), 5});
  fields.push_back({formatBytes(done_), 3});
  if (total_ != 0) fields.push_back({"/ " + formatBytes(total_), 1, " "});
  fields.push_back({formatRate(speed), 0});
  if (verdict != nullptr) {
    std::string text = verdict;
    if (std::strcmp(verdict, "done") == 0) {
      text += " in " + formatDuration(std::chrono::duration<double>(at - start_).count());
    }
    fields.push_back({std::move(text), 6});
  } else if (total_ != 0) {
    fields.push_back({"ETA " + (speed > 0 && done_ < total_
                                    ? formatDuration(static_cast<double>(total_ - done_) / speed)
                                    : std::string(done_ >= total_ ? "0:00" : "--:--")),
                      2});
  }
  const auto joined = [&fields] {
    std::string tail;
    for (const Field& field : fields) tail += (tail.empty() ? " " : field.gap) + field.text;
    return tail;
  };
  // One column stays free: writing the last column makes many terminals wrap before the \r.
  const std::size_t usable = width_ > 1 ? width_ - 1 : 0;
  std::string tail = joined();
  while (fields.size() > 1 && columnsOf(tail) + 4 > usable) {
    fields.erase(std::min_element(fields.begin(), fields.end(),
                                  [](const Field& a, const Field& b) { return a.keep < b.keep; }));
    tail = joined();
  }
  const std::size_t tailColumns = columnsOf(tail);
  std::string line;
  if (total_ != 0 && usable >= tailColumns + kMinBarWidth + 3) {
    const std::size_t room = usable - tailColumns - 3;  // " [" + "]"
    const std::string label = fitTo(label_, std::min(columnsOf(label_), room - kMinBarWidth));
    const std::size_t barWidth = room - columnsOf(label);
    const double fraction = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
    const auto filled = static_cast<std::size_t>(std::floor(fraction * static_cast<double>(barWidth)));
    line = label + " [" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "]" + tail;
  } else {
    const std::size_t room = usable > tailColumns ? usable - tailColumns : 0;
    line = fitTo(label_, room) + tail;
    if (columnsOf(line) > usable) line = fitTo(line, usable);
  }
  out_ << '\r' << line << "\x1b[K";
  out_.flush();
}

}  // namespace ztool
