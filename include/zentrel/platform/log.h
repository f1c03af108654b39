#pragma once
// ZTLog: the library's log. Each call writes exactly one line; there are no levels. Lines that
// report failures begin with "ERROR: ".
//
// By default lines go to standard error as
//   2026-11-22 15:30:01.123 myapp[1234:1240] <message>
// (local time, process name, process id and thread id). An application can install its own sink,
// which then receives the bare message. The sink may be called from any thread, concurrently.

#include <functional>
#include <string_view>

#include "zentrel/platform/export.h"

using ZTLogSink = std::function<void(std::string_view message)>;

ZT_API void ZTLog(std::string_view message);
// printf-style formatting; the compiler checks the arguments against the format.
ZT_API void ZTLogf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Replaces the process-wide sink; an empty function restores the standard-error sink.
// Thread-safe; a line being written while the sink changes goes to one of the two.
ZT_API void ZTSetLogSink(ZTLogSink sink);
