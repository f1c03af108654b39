#pragma once
// How much memory the machine has to give, as the kernel counts it in /proc/meminfo.
//
// Both functions may be called from any thread; each call reads /proc/meminfo afresh (a few tens
// of microseconds) and keeps nothing. An unreadable, truncated or garbled /proc/meminfo gives 0,
// never an exception.

#include <cstdint>

#include "zentrel/platform/export.h"

// Bytes of memory no one uses at all: the kernel's free page count (MemFree) in bytes. Page cache
// that could be dropped on demand does not count, so this is the cautious figure a caller wants
// before a memory-hungry step. 0 when /proc/meminfo cannot be read or has no MemFree line.
[[nodiscard]] ZT_API std::uint64_t ZTGetFreeMemoryAmount();

// Bytes of memory that are neither free, nor on the kernel's active or inactive page lists, nor
// pinned ("wired"): MemTotal - (MemFree + Active + Inactive + wired), where wired counts what the
// kernel cannot page out — Unevictable, SUnreclaim (kernel objects that cannot be reclaimed),
// KernelStack and PageTables. What remains is mostly reclaimable kernel caches and buffers the
// lists do not hold. 0 when any of those lines is missing or unreadable, and 0 (not a wrapped
// value) when the parts add up to more than the total.
[[nodiscard]] ZT_API std::uint64_t ZTGetOtherMemoryAmount();
