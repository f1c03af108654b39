#pragma once
// Whether the process runs under a test harness or a debugger, for code that must behave
// differently there (skip a first-run dialog, keep a watchdog from firing while stepping).
//
// Both functions may be called from any thread, look afresh on each call and never throw.

#include "zentrel/platform/export.h"

// True when, tested in this order, the environment variable "ZT2UITests" equals "YES", or
// "XCTestConfigurationFilePath" is set (to anything, even empty), or "DYLD_INSERT_LIBRARIES"
// contains "libXCTTargetBootstrapInject.dylib". A harness sets one of them for the process it
// drives.
[[nodiscard]] ZT_API bool ZTIsRunningInTestEnvironment();

// True when a debugger (or any other tracer: gdb, lldb, strace) is attached: a non-zero TracerPid
// in /proc/self/status. False when it is not, or the file cannot be read.
[[nodiscard]] ZT_API bool ZTIsDebuggerAttached();
