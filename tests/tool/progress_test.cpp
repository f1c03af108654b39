#include "progress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace ztool {
namespace {

using namespace std::chrono_literals;

// A clock the test moves by hand.
struct ManualClock {
  std::chrono::steady_clock::time_point now{};
  ProgressBar::Clock function() {
    return [this] { return now; };
  }
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The frames a terminal bar drew: the text between each "\r" and the following erase-line code.
std::vector<std::string> framesOf(const std::string& text) {
  std::vector<std::string> frames;
  for (std::size_t at = text.find('\r'); at != std::string::npos; at = text.find('\r', at + 1)) {
    const std::size_t end = text.find("\x1b[K", at);
    frames.push_back(text.substr(at + 1, end - at - 1));
  }
  return frames;
}

std::size_t columns(const std::string& s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

TEST(ProgressFormat, SizesRatesAndDurationsReadLikeAPersonWouldWriteThem) {
  EXPECT_EQ(formatBytes(0), "0 B");
  EXPECT_EQ(formatBytes(1023), "1023 B");
  EXPECT_EQ(formatBytes(1024), "1.00 KiB");
  EXPECT_EQ(formatBytes(1536), "1.50 KiB");
  EXPECT_EQ(formatBytes(12'900'000), "12.3 MiB");
  EXPECT_EQ(formatBytes(1023 * 1024 + 1000), "1.00 MiB");  // rounds up into the next unit
  EXPECT_EQ(formatBytes(4ULL << 30), "4.00 GiB");
  EXPECT_EQ(formatBytes(~0ULL), "16.0 EiB");

  EXPECT_EQ(formatRate(1536), "1.50 KiB/s");
  EXPECT_EQ(formatRate(-1), "-- B/s");
  EXPECT_EQ(formatRate(1.0 / 0.0), "-- B/s");

  EXPECT_EQ(formatDuration(7), "0:07");
  EXPECT_EQ(formatDuration(754), "12:34");
  EXPECT_EQ(formatDuration(3723), "1:02:03");
  EXPECT_EQ(formatDuration(-1), "--:--");
  EXPECT_EQ(formatDuration(1e9), "> 99 h");
}

TEST(ProgressPlain, WritesALineEachTenthAndAFinalLineWithoutControlCharacters) {
  ManualClock clock;
  std::ostringstream out;
  {
    ProgressBar bar(out, "copy", 1000, ProgressBar::Style::Plain, clock.function());
    for (std::uint64_t done = 0; done <= 1000; done += 25) {
      clock.now += 10ms;
      bar.update(done);
    }
    bar.finish(true);
  }
  const std::string text = out.str();
  EXPECT_EQ(text.find_first_of("\r\x1b"), std::string::npos) << text;
  const auto lines = linesOf(text);
  ASSERT_EQ(lines.size(), 11u) << text;  // 10 %, 20 %, ... 100 %, then the final line
  EXPECT_EQ(lines[0].rfind("copy: 10% (100 B of 1000 B, ", 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find(" left)"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[9].rfind("copy: 100% (1000 B of 1000 B", 0), 0u) << lines[9];
  EXPECT_EQ(lines[10].rfind("copy: done, 1000 B in 0:00 (", 0), 0u) << lines[10];
}

TEST(ProgressPlain, WithoutATotalOrBetweenTenthsWritesEveryFiveSeconds) {
  ManualClock clock;
  std::ostringstream out;
  ProgressBar bar(out, "download", 0, ProgressBar::Style::Plain, clock.function());
  clock.now += 4s;
  bar.update(4096);
  EXPECT_EQ(out.str(), "");
  clock.now += 1s;
  bar.update(5 * 1024 * 1024);
  EXPECT_EQ(out.str(), "download: 5.00 MiB (1.00 MiB/s)\n");
  clock.now += 1s;
  bar.update(6 * 1024 * 1024);
  EXPECT_EQ(linesOf(out.str()).size(), 1u);
  bar.finish(false);
  EXPECT_EQ(linesOf(out.str()).back(), "download: failed after 6.00 MiB (0:06)");
}

TEST(ProgressPlain, BadCountsAreShownNotTrusted) {
  ManualClock clock;
  std::ostringstream out;
  ProgressBar bar(out, "x", 100, ProgressBar::Style::Plain, clock.function());
  bar.update(500);  // more than the total
  bar.update(20);   // going backwards after a retry
  bar.finish(false);
  bar.update(90);  // after finish: ignored
  bar.finish(true);
  const auto lines = linesOf(out.str());
  ASSERT_EQ(lines.size(), 2u) << out.str();
  EXPECT_EQ(lines[0].rfind("x: 100% (500 B of 100 B", 0), 0u) << lines[0];
  EXPECT_EQ(lines[1], "x: failed after 20 B of 100 B (0:00)");
}

TEST(ProgressTerminal, RedrawsOneLineAtMostTenTimesASecond) {
  ManualClock clock;
  std::ostringstream out;
  ProgressBar bar(out, "copy big.iso", 10 << 20, ProgressBar::Style::Terminal, clock.function(), 80);
  for (int i = 1; i <= 100; ++i) {
    clock.now += 1ms;
    bar.update(static_cast<std::uint64_t>(i) << 10);
  }
  EXPECT_EQ(framesOf(out.str()).size(), 1u);  // the first update draws; the rest fall in 100 ms
  clock.now += 100ms;
  bar.update(5 << 20);
  clock.now += 50ms;
  bar.update(6 << 20);
  auto frames = framesOf(out.str());
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(out.str().find('\n'), std::string::npos);
  EXPECT_NE(frames[1].find(" 50%  5.00 MiB / 10.0 MiB  "), std::string::npos) << frames[1];
  EXPECT_NE(frames[1].find("  ETA 0:"), std::string::npos) << frames[1];
  EXPECT_NE(frames[1].find("[#"), std::string::npos) << frames[1];

  bar.update(10 << 20);
  bar.finish(true);
  frames = framesOf(out.str());
  EXPECT_NE(frames.back().find("100%"), std::string::npos) << frames.back();
  EXPECT_NE(frames.back().find("done in 0:00"), std::string::npos) << frames.back();
  EXPECT_EQ(out.str().back(), '\n');
}

TEST(ProgressTerminal, EveryFrameFitsTheWidthWhateverTheLabel) {
  for (unsigned width : {20u, 40u, 80u, 200u}) {
    for (const std::string& label : std::vector<std::string>{"", "ok", std::string(300, 'L'), "größe-" + std::string(100, 'x')}) {
      for (std::uint64_t total : {0ULL, 1000ULL}) {
        ManualClock clock;
        std::ostringstream out;
        {
          ProgressBar bar(out, label, total, ProgressBar::Style::Terminal, clock.function(), width);
          clock.now += 1s;
          bar.update(500);
          bar.finish(false);
        }
        for (const auto& frame : framesOf(out.str())) {
          EXPECT_LE(columns(frame), width - 1) << "width " << width << ": " << frame;
        }
        EXPECT_NE(out.str().find("failed"), std::string::npos) << "width " << width << ": " << out.str();
      }
    }
  }
}

TEST(ProgressTerminal, ABarLeftUnfinishedEndsItsLine) {
  std::ostringstream out;
  { ProgressBar(out, "copy", 10, ProgressBar::Style::Terminal, {}, 80).update(3); }
  EXPECT_EQ(out.str().back(), '\n');
  EXPECT_EQ(out.str().find("done"), std::string::npos);
}

TEST(ProgressStyle, AStreamThatIsNoTerminalGetsPlainLines) {
  std::ostringstream out;
  ProgressBar bar(out, "copy", 10);
  EXPECT_FALSE(bar.isTerminal());
  bar.update(10);
  bar.finish(true);
  EXPECT_EQ(out.str().find_first_of("\r\x1b"), std::string::npos);
}

}  // namespace
}  // namespace ztool
