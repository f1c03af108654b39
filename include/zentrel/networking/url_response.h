#pragma once
// ZTURLResponse and ZTHTTPURLResponse: what came back for a request — the URL, the MIME type and
// expected length and, for HTTP, the status code and header fields — plus the values an
// application attaches to a response (its own user info, an error, and the response object: the
// body as bytes, a string, or parsed JSON, all as ZTValue).
//
// Ownership and threads: held by std::shared_ptr (ZTURLSession makes them). The attached values can
// be read and set from any thread; each access is atomic. The rest is fixed at creation.
//
// Bad input: helpers answer nullopt or false for objects they cannot use; nothing throws.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/networking/url.h"
#include "zentrel/platform/error.h"
#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

class ZTHTTPURLResponse;

class ZT_API ZTURLResponse : public std::enable_shared_from_this<ZTURLResponse> {
 public:
  // expectedContentLength -1 means unknown.
  [[nodiscard]] static std::shared_ptr<ZTURLResponse> create(ZTURL url, std::optional<std::string> MIMEType,
                                                             std::int64_t expectedContentLength,
                                                             std::optional<std::string> textEncodingName);
  virtual ~ZTURLResponse() = default;
  ZTURLResponse(const ZTURLResponse&) = delete;
  ZTURLResponse& operator=(const ZTURLResponse&) = delete;

  const ZTURL& URL() const { return url_; }
  const std::optional<std::string>& MIMEType() const { return mimeType_; }
  std::int64_t expectedContentLength() const { return expectedLength_; }
  const std::optional<std::string>& textEncodingName() const { return encoding_; }
  // The last path component of the URL, or "Unknown" when it has none.
  std::string suggestedFilename() const;

  // Attached values; null / nullopt until set.
  ZTValue userInfo() const;
  void setUserInfo(ZTValue userInfo);
  std::optional<ZTError> error() const;
  void setError(std::optional<ZTError> error);
  ZTValue responseObject() const;
  void setResponseObject(ZTValue object);

  // responseStringFromObject / responseDataFromObject of responseObject().
  std::optional<std::string> responseString() const;
  std::optional<ZTBytes> responseData() const;

  // Bytes decoded as UTF-8; any other value, a string included, gives nullopt (kept so on purpose:
  // a string object has no bytes to decode). Bytes that are not UTF-8 give nullopt.
  static std::optional<std::string> responseStringFromObject(const ZTValue& object);
  // Bytes as they are; a string as its UTF-8 bytes; anything else nullopt.
  static std::optional<ZTBytes> responseDataFromObject(const ZTValue& object);
  // False, writing nothing, when the object gives no data. Otherwise an existing file at path is
  // removed (failure ignored) and the data written whole (a temporary file beside it, flushed and
  // renamed into place); a failed write is false with the error.
  static bool saveResponseObject(const ZTValue& object, const std::string& path, ZTError* error = nullptr);

  // This response if it is an HTTP response, else null.
  std::shared_ptr<ZTHTTPURLResponse> httpResponse();

 protected:
  ZTURLResponse(ZTURL url, std::optional<std::string> mimeType, std::int64_t expectedLength,
                std::optional<std::string> encoding);

 private:
  const ZTURL url_;
  const std::optional<std::string> mimeType_;
  const std::int64_t expectedLength_;
  const std::optional<std::string> encoding_;

  mutable ZTMutex mutex_;
  ZTValue userInfo_ ZT_GUARDED_BY(mutex_);
  std::optional<ZTError> error_ ZT_GUARDED_BY(mutex_);
  ZTValue responseObject_ ZT_GUARDED_BY(mutex_);
};

class ZT_API ZTHTTPURLResponse : public ZTURLResponse {
 public:
  // Header names as received; the MIME type, encoding and expected length are taken from the
  // "Content-Type" and "Content-Length" fields. nullopt-free: a malformed field is ignored.
  [[nodiscard]] static std::shared_ptr<ZTHTTPURLResponse> create(ZTURL url, std::int64_t statusCode,
                                                                 std::string HTTPVersion,
                                                                 std::map<std::string, std::string> headerFields);

  std::int64_t statusCode() const { return statusCode_; }
  const std::string& HTTPVersion() const { return version_; }
  const std::map<std::string, std::string>& allHeaderFields() const { return headers_; }
  // Looks the field up without regard to letter case.
  std::optional<std::string> valueForHTTPHeaderField(std::string_view field) const;
  // The value stored under exactly that name (letter case counts).
  std::optional<std::string> getValueForHTTPHeaderField(std::string_view field) const;
  // A short English text for the code ("no error", "not found"), or its class ("client error").
  static std::string localizedStringForStatusCode(std::int64_t statusCode);

 private:
  ZTHTTPURLResponse(ZTURL url, std::int64_t statusCode, std::string version,
                    std::map<std::string, std::string> headers, std::optional<std::string> mimeType,
                    std::int64_t expectedLength, std::optional<std::string> encoding);
  const std::int64_t statusCode_;
  const std::string version_;
  const std::map<std::string, std::string> headers_;
};
