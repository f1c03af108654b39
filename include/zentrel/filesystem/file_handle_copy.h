#pragma once
// Copying the rest of one open file into another.

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/file_handle.h"

// Copies everything from the source's current offset to the destination's current offset, in
// chunks of 32,768 bytes with at most one chunk in memory; it stops after the first read that
// returns fewer than 32,768 bytes. Neither handle is closed or synchronised. On a read or write
// failure the copy stops there and, when `error` is given, it receives the failure; what was
// written before stays written. A source that never ends stops with ZTFileReadTooLargeError after
// 2^50 bytes. Any thread; the handles serialise their own calls.
ZT_API void ZTCopyDataFromFileHandleToFileHandle(ZTFileHandle& source, ZTFileHandle& destination,
                                                 ZTError* error = nullptr);
