#pragma once
// Errors of URL loading: the domain and codes with which ZTURLSession reports a request that did
// not complete (cancelled, timed out, host not found, connection refused...), and the two names the
// library defines for its clients' own HTTP status failures.
//
// All of these are plain values; nothing here performs input or output.

#include <cstdint>

#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"

// The domain of URL-loading failures. Its codes are the negative ZTURLError values below; the
// user info carries ZTLocalizedDescriptionKey and, when known, ZTURLErrorFailingURLStringErrorKey.
inline constexpr const char* ZTURLErrorDomain = "NSURLErrorDomain";
inline constexpr const char* ZTURLErrorFailingURLStringErrorKey = "NSErrorFailingURLStringKey";

enum ZTURLError : std::int64_t {
  ZTURLErrorUnknown = -1,
  ZTURLErrorCancelled = -999,
  ZTURLErrorBadURL = -1000,
  ZTURLErrorTimedOut = -1001,
  ZTURLErrorUnsupportedURL = -1002,
  ZTURLErrorCannotFindHost = -1003,
  ZTURLErrorCannotConnectToHost = -1004,
  ZTURLErrorNetworkConnectionLost = -1005,
  ZTURLErrorHTTPTooManyRedirects = -1007,
  ZTURLErrorResourceUnavailable = -1008,
  ZTURLErrorNotConnectedToInternet = -1009,
  ZTURLErrorBadServerResponse = -1011,
  ZTURLErrorZeroByteResource = -1014,
  ZTURLErrorCannotDecodeContentData = -1016,
  ZTURLErrorRequestBodyStreamExhausted = -1021,
  ZTURLErrorSecureConnectionFailed = -1200,
  ZTURLErrorServerCertificateUntrusted = -1202,
  ZTURLErrorCannotCreateFile = -3000,
  ZTURLErrorCannotWriteToFile = -3003,
};

// A domain for failures an application derives from HTTP status codes. The library defines it for
// its clients and never creates errors in it itself.
inline constexpr const char* ZTResponseCodeErrorDomain = "ZTResponseCodeErrorDomain";
// A user-info key for an application's own description of such a failure.
inline constexpr const char* ZTErrorDescriptionKey = "ZTErrorDescriptionKey";

namespace zt {

// True exactly when the error is ZTURLErrorDomain's ZTURLErrorCancelled (−999): the request was
// cancelled by its owner, which an application usually does not report.
ZT_API bool isURLCancelledError(const ZTError& error);

}  // namespace zt
