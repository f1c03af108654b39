#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "zentrel/platform/date.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/log.h"

namespace {

TEST(Date, CountsFromTheReferenceDateAndConvertsToTheSystemClock) {
  EXPECT_EQ(ZTDate(0).description(), "2001-01-01T00:00:00.000Z");
  EXPECT_DOUBLE_EQ(ZTDate::dateWithTimeIntervalSince1970(0).timeIntervalSinceReferenceDate(), -978307200.0);
  EXPECT_EQ(ZTDate::dateWithTimeIntervalSince1970(0).description(), "1970-01-01T00:00:00.000Z");
  // Before the reference date the fraction counts back from the next whole second.
  EXPECT_EQ(ZTDate(-0.25).description(), "2000-12-31T23:59:59.750Z");
  EXPECT_EQ(ZTDate(-0.0006).description(), "2000-12-31T23:59:59.999Z");
  // Rounding to milliseconds carries into the seconds.
  EXPECT_EQ(ZTDate(59.9996).description(), "2001-01-01T00:01:00.000Z");
  EXPECT_EQ(ZTDate::distantFuture().description(), "4001-01-01T00:00:00.000Z");
  EXPECT_LT(ZTDate::distantPast(), ZTDate(0));
  EXPECT_LT(ZTDate(0), ZTDate::distantFuture());

  const auto now = std::chrono::system_clock::now();
  const ZTDate date = ZTDate::fromSystemClock(now);
  EXPECT_LT(std::abs(std::chrono::duration<double>(date.toSystemClock() - now).count()), 1e-5);
  EXPECT_LT(std::abs(date.timeIntervalSinceNow()), 5.0);
  EXPECT_DOUBLE_EQ(date.dateByAddingTimeInterval(90).timeIntervalSinceDate(date), 90.0);
}

TEST(Date, DatesBeyondTheSystemClockSaturateInsteadOfOverflowing) {
  using Clock = std::chrono::system_clock;
  EXPECT_EQ(ZTDate(1e300).toSystemClock(), Clock::time_point::max());
  EXPECT_EQ(ZTDate(-1e300).toSystemClock(), Clock::time_point::min());
  EXPECT_EQ(ZTDate(std::numeric_limits<double>::infinity()).toSystemClock(), Clock::time_point::max());
  EXPECT_EQ(ZTDate::distantFuture().toSystemClock(), Clock::time_point::max());
}

TEST(Error, PosixErrorsCarryTheSystemTextAndThePath) {
  const ZTError error = ZTError::posix(ENOENT, "/no/such/file");
  EXPECT_EQ(error.domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.localizedDescription(), "No such file or directory");
  EXPECT_EQ(error.userInfo()[ZTFilePathErrorKey].stringValue(), "/no/such/file");
  EXPECT_EQ(error.description().rfind("Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"", 0), 0u);
  // Without a path, there is no path key; an unknown errno still has a text.
  EXPECT_FALSE(ZTError::posix(EACCES).userInfo()[ZTFilePathErrorKey].isString());
  EXPECT_FALSE(ZTError::posix(99999).localizedDescription().empty());
}

TEST(Error, DescriptionFallsBackToDomainAndCode) {
  const ZTError bare("MyDomain", -7);
  EXPECT_EQ(bare.localizedDescription(), "The operation couldn\u2019t be completed. (MyDomain error -7.)");
  EXPECT_EQ(bare.description(), "Error Domain=MyDomain Code=-7 \"The operation couldn\u2019t be completed. (MyDomain error -7.)\"");
  EXPECT_EQ(bare, ZTError("MyDomain", -7));
  EXPECT_FALSE(bare == ZTError("MyDomain", 7));
  ZTError out;
  ZTSetError(nullptr, bare);  // a caller that does not want the error
  ZTSetError(&out, bare);
  EXPECT_EQ(out, bare);
}

// Captures what the default sink writes to standard error.
std::string captureStandardError(const std::function<void()>& body) {
  std::fflush(stderr);
  FILE* file = std::tmpfile();
  const int saved = ::dup(STDERR_FILENO);
  ::dup2(::fileno(file), STDERR_FILENO);
  body();
  ::dup2(saved, STDERR_FILENO);
  ::close(saved);
  std::string text;
  std::rewind(file);
  char buffer[512];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, n);
  std::fclose(file);
  return text;
}

TEST(Log, DefaultSinkWritesOneStampedLinePerMessage) {
  const std::string text = captureStandardError([] {
    ZTLogf("ERROR: %s %d", "disk full", 28);
    ZTLog("first\nsecond");  // a message with a line break stays one line
  });
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(text.substr(start, end - start));
  ASSERT_EQ(lines.size(), 2u) << text;
  // "2026-11-22 15:30:01.123 name[pid:tid] message"
  const auto messageOf = [](const std::string& line) {
    int date[7];
    long ids[2];
    int consumed = 0;
    const int fields = std::sscanf(line.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%3d %*[^[][%ld:%ld] %n", &date[0], &date[1],
                                   &date[2], &date[3], &date[4], &date[5], &date[6], &ids[0], &ids[1], &consumed);
    return fields == 9 && consumed > 0 ? line.substr(static_cast<std::size_t>(consumed)) : std::string("<no stamp>");
  };
  EXPECT_EQ(messageOf(lines[0]), "ERROR: disk full 28") << lines[0];
  EXPECT_EQ(messageOf(lines[1]), "first\\nsecond") << lines[1];
}

TEST(Log, InstalledSinkGetsTheBareMessageAndAThrowingSinkDoesNotEscape) {
  std::vector<std::string> seen;
  ZTSetLogSink([&](std::string_view message) { seen.emplace_back(message); });
  ZTLogf("%s=%.1f", "ratio", 0.5);
  ZTLog(std::string_view("with\0nul", 8));
  ZTSetLogSink({});
  EXPECT_EQ(seen, (std::vector<std::string>{"ratio=0.5", std::string("with\0nul", 8)}));

  // Logging happens inside catch blocks all over the library: a sink that throws must not turn a
  // reported failure into a new one. The line then goes to standard error.
  ZTSetLogSink([](std::string_view) { throw std::runtime_error("sink broken"); });
  std::string text;
  EXPECT_NO_THROW(text = captureStandardError([] { ZTLog("still reported"); }));
  ZTSetLogSink({});
  EXPECT_NE(text.find("still reported"), std::string::npos) << text;
}

}  // namespace
