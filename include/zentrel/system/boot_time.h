#pragma once
// When the machine started and how long it has been up, on the wall clock.
//
// Both functions may be called from any thread and never throw.

#include <optional>

#include "zentrel/platform/date.h"
#include "zentrel/platform/export.h"

// The moment the kernel booted, from "btime" in /proc/stat (whole seconds since 1970). Read once:
// after the first successful reading the answer is kept for the life of the process (two threads
// racing to the first reading both compute the same value). nullopt, and another try next time,
// when /proc/stat cannot be read or has no usable btime line.
[[nodiscard]] ZT_API std::optional<ZTDate> ZTGetBootDate();

// Seconds from ZTGetBootDate() to now on the wall clock; 0 when there is no boot date. Moving the
// wall clock moves the answer (the kernel shifts btime with it only on the next boot).
[[nodiscard]] ZT_API double ZTGetSystemUptime();
