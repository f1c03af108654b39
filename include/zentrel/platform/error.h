#pragma once
// ZTError: a recoverable failure, reported as a value — a domain (a text naming the family of
// codes), a code, and user info (a ZTValue dictionary with details such as a description or the
// path involved). Functions that can fail return false / nullptr / std::nullopt and, when the
// caller passes a non-null ZTError*, fill it in.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "zentrel/platform/export.h"
#include "zentrel/platform/value.h"

// Domains of codes that come from the system.
inline constexpr const char* ZTPOSIXErrorDomain = "NSPOSIXErrorDomain";  // codes are errno values
inline constexpr const char* ZTCocoaErrorDomain = "NSCocoaErrorDomain";  // the library's general codes

// Well-known user-info keys.
inline constexpr const char* ZTLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* ZTLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
inline constexpr const char* ZTUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr const char* ZTFilePathErrorKey = "NSFilePath";

// A recoverable failure as a value: a domain, a code and user info.
class ZT_API ZTError {
 public:
  ZTError() = default;
  ZTError(std::string domain, std::int64_t code, ZTValue userInfo = ZTValue::dictionary())
      : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

  // An error in ZTPOSIXErrorDomain for an errno value, with the system's text as description
  // and, when given, the path involved.
  [[nodiscard]] static ZTError posix(int errnoValue, const std::string& path = {});

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const ZTValue& userInfo() const { return userInfo_; }

  // An error kept inside another error's user info (under ZTUnderlyingErrorKey) is stored as the
  // dictionary {"domain": text, "code": integer, "userInfo": dictionary}. toValue() makes that
  // form; fromValue() reads it back, nullopt for a value of any other shape.
  ZTValue toValue() const;
  [[nodiscard]] static std::optional<ZTError> fromValue(const ZTValue& value);
  // The error kept under ZTUnderlyingErrorKey, if any.
  std::optional<ZTError> underlyingError() const;

  // The description from the user info, or "The operation couldn’t be completed. (<domain> error <code>.)".
  std::string localizedDescription() const;
  // "Error Domain=<domain> Code=<code> \"<description>\" UserInfo={...}"
  std::string description() const;

  friend bool operator==(const ZTError& a, const ZTError& b) {
    return a.domain_ == b.domain_ && a.code_ == b.code_ && a.userInfo_ == b.userInfo_;
  }

 private:
  std::string domain_;
  std::int64_t code_ = 0;
  ZTValue userInfo_ = ZTValue::dictionary();
};

// Fills *out when out is not null; a convenience for functions with an optional error parameter.
inline void ZTSetError(ZTError* out, ZTError error) {
  if (out) *out = std::move(error);
}
