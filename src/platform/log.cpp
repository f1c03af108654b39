#include "zentrel/platform/log.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "zentrel/platform/mutex.h"

namespace {
struct SinkHolder {
  ZTMutex mutex;
  std::shared_ptr<const ZTLogSink> sink ZT_GUARDED_BY(mutex);  // null = standard error
};

SinkHolder& holder() {
  static auto* h = new SinkHolder;  // never destroyed: threads may log during exit
  return *h;
}

void writeToStandardError(std::string_view message) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char stamp[64];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  std::string line;
  line.reserve(message.size() + 96);
  line += stamp;
  char rest[96];
  std::snprintf(rest, sizeof rest, ".%03d %s[%d:%ld] ", static_cast<int>(millis), program_invocation_short_name,
                static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)));
  line += rest;
  // One line per message: line breaks inside it are written as the two characters \n and \r.
  for (const char c : message) {
    if (c == '\n') line += "\\n";
    else if (c == '\r') line += "\\r";
    else line += c;
  }
  line += '\n';
  // One write() per line, so that lines from several threads never interleave.
  std::size_t written = 0;
  while (written < line.size()) {
    const ssize_t n = ::write(STDERR_FILENO, line.data() + written, line.size() - written);
    if (n <= 0) break;
    written += static_cast<std::size_t>(n);
  }
}
}  // namespace

void ZTLog(std::string_view message) {
  std::shared_ptr<const ZTLogSink> sink;
  {
    SinkHolder& h = holder();
    ZTLockGuard lock(h.mutex);
    sink = h.sink;
  }
  if (!sink) {
    writeToStandardError(message);
    return;
  }
  // A log call often reports a failure from inside a catch block: a sink that throws must not
  // turn it into a new one. The line then goes to standard error.
  try {
    (*sink)(message);
  } catch (...) {
    writeToStandardError(message);
  }
}

void ZTLogf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string message(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(message.data(), message.size() + 1, format, args);
  va_end(args);
  ZTLog(message);
}

void ZTSetLogSink(ZTLogSink sink) {
  auto next = sink ? std::make_shared<const ZTLogSink>(std::move(sink)) : nullptr;
  SinkHolder& h = holder();
  ZTLockGuard lock(h.mutex);
  h.sink = std::move(next);
}
