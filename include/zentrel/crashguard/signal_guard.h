#pragma once
// executeInTryCatchWithSignalHandler: runs a callback with the fatal signals turned into a failed
// result instead of the death of the process.
//
// While the callback runs, the handler is installed for SIGABRT, SIGILL, SIGSEGV, SIGFPE, SIGBUS and
// SIGPIPE (in that order), each with an empty mask and SA_NODEFER; the previous actions are put back
// afterwards, in the same order. When one of these signals hits the thread running the callback, the
// thread jumps back (siglongjmp) into this function, which returns false. Without a signal it returns
// true. A C++ exception thrown by the callback passes through, after the previous actions are back.
//
// What a jump leaves behind: the callback's frames are abandoned, not unwound. Destructors of C++
// objects on those frames do not run: memory they own leaks, locks they hold stay locked, files stay
// open, and an object the callback was modifying may be half changed. Recover only from callbacks
// that own nothing of that kind across the faulting instruction (work on a buffer owned by the
// caller, a read through a possibly bad pointer, a parse of untrusted bytes), and treat the data they
// touched as suspect.
// Signals worth recovering from: SIGSEGV, SIGBUS, SIGFPE and SIGILL raised by the callback's own
// instruction, SIGPIPE from its own write, SIGABRT from abort() (glibc releases its lock before
// raising). Not recoverable: a fault inside malloc or another library holding an internal lock (the
// lock stays held and the next use deadlocks), and a stack overflow (no alternate stack is
// installed, so the handler cannot run and the process dies as it would without the guard).
//
// Threads: signal actions are process-wide. Calls may run on several threads at once: the first
// active call installs the handler, the last one puts the previous actions back. A signal on a thread
// that is not inside a guarded callback goes to the action that was in place before (the default
// action ends the process as usual). Calls may be nested; the innermost catches.

#include <functional>

#include "zentrel/platform/export.h"

[[nodiscard]] ZT_API bool executeInTryCatchWithSignalHandler(const std::function<void()>& block);
