#include "zentrel/diagnostics/error_additions.h"

#include <cstdio>
#include <utility>

namespace {

constexpr const char* kDomainKey = "ZTErrorDomain";
constexpr const char* kCodeKey = "ZTErrorCode";
constexpr const char* kUserInfoKey = "ZTErrorUserInfo";

std::string nonEmptyString(const ZTValue& value) {
  if (const auto* text = value.getIf<std::string>()) return *text;
  return {};
}

std::string describeAtLevel(const ZTError& error, std::size_t level, std::size_t depth) {
  const std::string tabs(level, '\t');
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&error));
  std::string out = tabs + "<ZTError " + address + ":";
  out += "\n\t" + tabs + "domain = \"" + error.domain() + "\"";
  out += "\n\t" + tabs + "code = " + std::to_string(error.code());
  const ZTValue& info = error.userInfo();
  const std::string description = nonEmptyString(info[ZTLocalizedDescriptionKey]);
  if (!description.empty()) out += "\n\t" + tabs + "description = \"" + description + "\"";
  const std::string reason = nonEmptyString(info[ZTLocalizedFailureReasonErrorKey]);
  if (!reason.empty()) out += "\n\t" + tabs + "failure reason = \"" + reason + "\"";
  if (const auto* entries = info.getIf<ZTValueDictionary>()) {
    ZTValueDictionary rest = *entries;
    rest.erase(ZTUnderlyingErrorKey);
    rest.erase(ZTLocalizedDescriptionKey);
    rest.erase(ZTLocalizedFailureReasonErrorKey);
    if (!rest.empty()) out += "\n\t" + tabs + "user info = " + ZTValue(std::move(rest)).description();
  }
  if (const std::optional<ZTError> underlying = zt::underlyingError(error)) {
    out += "\n\t" + tabs + "underlying error = \n";
    if (depth + 1 < ZTErrorChainDepthLimit) out += describeAtLevel(*underlying, level + 1, depth + 1);
    else out += tabs + "\t...";
  }
  out += "\n" + tabs + ">";
  return out;
}

}  // namespace

namespace zt {

ZTValue valueFromError(const ZTError& error) {
  ZTValue value = ZTValue::dictionary();
  value[kDomainKey] = error.domain();
  value[kCodeKey] = error.code();
  value[kUserInfoKey] = error.userInfo();
  return value;
}

std::optional<ZTError> errorFromValue(const ZTValue& value) {
  const ZTValue& domain = value[kDomainKey];
  const ZTValue& code = value[kCodeKey];
  if (!value.isDictionary() || !domain.isString() || !code.isInteger()) return std::nullopt;
  const ZTValue& info = value[kUserInfoKey];
  return ZTError(domain.stringValue(), code.intValue(), info.isDictionary() ? info : ZTValue::dictionary());
}

std::optional<ZTError> underlyingError(const ZTError& error) {
  return errorFromValue(error.userInfo()[ZTUnderlyingErrorKey]);
}

std::string localizedDescriptionOfUnderlyingErrorOrSelf(const ZTError& error) {
  const ZTValue& own = error.userInfo()[ZTLocalizedDescriptionKey];
  if (own.isString()) return own.stringValue();
  if (const std::optional<ZTError> underlying = underlyingError(error)) return underlying->localizedDescription();
  return error.localizedDescription();
}

ZTError errorWithPOSIXErrorCode(std::int32_t code) { return ZTError::posix(code); }

ZTError errorWithDomain(std::string domain, std::int64_t code, const std::optional<std::string>& localizedDescription,
                        const std::optional<std::string>& localizedFailureReason,
                        const std::optional<ZTError>& underlying) {
  ZTValue info = ZTValue::dictionary();
  if (localizedDescription) info[ZTLocalizedDescriptionKey] = *localizedDescription;
  if (localizedFailureReason) info[ZTLocalizedFailureReasonErrorKey] = *localizedFailureReason;
  if (underlying) info[ZTUnderlyingErrorKey] = valueFromError(*underlying);
  return ZTError(std::move(domain), code, std::move(info));
}

std::string extendedDescription(const ZTError& error) { return describeAtLevel(error, 0, 0); }

std::string extendedDescriptionWithCurrentIndentationLevel(const ZTError& error, std::size_t level) {
  return describeAtLevel(error, level, 0);
}

bool hasNestedCode(const ZTError& error, std::int64_t code, std::string_view domain) {
  std::optional<ZTError> current = error;
  for (std::size_t depth = 0; current && depth < ZTErrorChainDepthLimit; ++depth) {
    if (current->domain() == domain) return current->code() == code;
    current = underlyingError(*current);
  }
  return false;
}

}  // namespace zt
