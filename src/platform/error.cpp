#include "zentrel/platform/error.h"

#include <cstring>

ZTError ZTError::posix(int errnoValue, const std::string& path) {
  ZTValue info = ZTValue::dictionary();
  char buffer[256];
  // GNU strerror_r may return a static string instead of filling the buffer.
  const char* text = strerror_r(errnoValue, buffer, sizeof buffer);
  info[ZTLocalizedDescriptionKey] = std::string(text ? text : "Unknown error");
  if (!path.empty()) info[ZTFilePathErrorKey] = path;
  return ZTError(ZTPOSIXErrorDomain, errnoValue, std::move(info));
}

std::string ZTError::localizedDescription() const {
  const auto& text = userInfo_[ZTLocalizedDescriptionKey];
  if (text.isString()) return text.stringValue();
  return "The operation couldn\u2019t be completed. (" + domain_ + " error " + std::to_string(code_) + ".)";
}

std::string ZTError::description() const {
  std::string out = "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" + localizedDescription() + "\"";
  if (userInfo_.size() > 0) out += " UserInfo=" + userInfo_.description();
  return out;
}

ZTValue ZTError::toValue() const {
  ZTValue value = ZTValue::dictionary();
  value["domain"] = domain_;
  value["code"] = code_;
  value["userInfo"] = userInfo_;
  return value;
}

std::optional<ZTError> ZTError::fromValue(const ZTValue& value) {
  const ZTValue& domain = value["domain"];
  const ZTValue& code = value["code"];
  if (!domain.isString() || !code.isInteger()) return std::nullopt;
  const ZTValue& info = value["userInfo"];
  return ZTError(domain.stringValue(), code.intValue(), info.isDictionary() ? info : ZTValue::dictionary());
}

std::optional<ZTError> ZTError::underlyingError() const { return fromValue(userInfo_[ZTUnderlyingErrorKey]); }
