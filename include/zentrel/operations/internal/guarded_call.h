#pragma once
// Calls into code the application supplied (handlers, blocks, start() of its operations) from
// places that must keep their own promises afterwards: the exception is logged as one line and
// swallowed, so the caller can still finish the operation, start the rest of a batch or serve the
// other requests.

#include <exception>
#include <string>
#include <utility>

#include "zentrel/platform/log.h"

namespace zt::detail {

// Returns false when the call threw (after logging "<what> threw: <reason>").
template <class F>
bool callLoggingExceptions(const char* what, F&& call) noexcept {
  try {
    std::forward<F>(call)();
    return true;
  } catch (const std::exception& exception) {
    try {
      ZTLogf("ERROR: %s threw: %s", what, exception.what());
    } catch (...) {
    }
  } catch (...) {
    try {
      ZTLogf("ERROR: %s threw an exception that is not a std::exception.", what);
    } catch (...) {
    }
  }
  return false;
}

}  // namespace zt::detail
