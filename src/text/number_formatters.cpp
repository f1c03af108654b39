#include "zentrel/text/number_formatters.h"

#include <unicode/uchar.h>

#include <cmath>

#include "internal/unicode.h"

namespace {

std::string_view trimmedEnd(std::string_view text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n' || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  return text;
}

bool isBlank(std::string_view text) {
  icu::UnicodeString unicode = zt::internal::toUnicode(text);
  return unicode.trim().isEmpty();
}

}  // namespace

// ZTNumberFormatter

std::shared_ptr<ZTNumberFormatter> ZTNumberFormatter::create() { return std::make_shared<ZTNumberFormatter>(); }
std::shared_ptr<ZTFormatter> ZTNumberFormatter::copy() const { return std::make_shared<ZTNumberFormatter>(*this); }

std::optional<std::string> ZTNumberFormatter::editingStringForObjectValue(const ZTValue& value) const {
  auto text = ZTBasicNumberFormatter::editingStringForObjectValue(value);
  const std::string& suffix = positiveSuffix();
  if (!text || suffix.empty()) return text;
  std::string edited;
  edited.reserve(text->size());
  std::size_t from = 0;
  for (std::size_t at = text->find(suffix); at != std::string::npos; at = text->find(suffix, from)) {
    edited.append(*text, from, at - from);
    from = at + suffix.size();
  }
  edited.append(*text, from, std::string::npos);
  return edited;
}

bool ZTNumberFormatter::getObjectValue(ZTValue* value, std::string_view string, std::string* errorDescription) const {
  const std::string& suffix = positiveSuffix();
  const std::string_view text = trimmedEnd(string);
  if (suffix.empty() || text.empty() || text.ends_with(suffix)) {
    return ZTBasicNumberFormatter::getObjectValue(value, string, errorDescription);
  }
  std::string withSuffix(text);
  withSuffix += suffix;
  std::string problem;
  if (ZTBasicNumberFormatter::getObjectValue(value, withSuffix, &problem)) return true;
  // A negative number carries the negative suffix, not the positive one: it is read as typed.
  if (ZTBasicNumberFormatter::getObjectValue(value, string, nullptr)) return true;
  if (errorDescription) *errorDescription = std::move(problem);
  return false;
}

// ZTPointsNumberFormatter

ZTPointsNumberFormatter::ZTPointsNumberFormatter() {
  setAllowsFloats(true);
  setMinimumFractionDigits(0);
  setMaximumFractionDigits(1);
  setMinimumIntegerDigits(1);
  setPositiveSuffix(" pt");
}
std::shared_ptr<ZTPointsNumberFormatter> ZTPointsNumberFormatter::create() {
  return std::make_shared<ZTPointsNumberFormatter>();
}
std::shared_ptr<ZTFormatter> ZTPointsNumberFormatter::copy() const {
  return std::make_shared<ZTPointsNumberFormatter>(*this);
}

bool ZTPointsNumberFormatter::isShownEmpty(const ZTValue& value) const {
  if (!replaceZeroValueWithEmptyString_ || !value.isNumber()) return false;
  const double number = value.doubleValue();
  return std::isfinite(number) && std::trunc(number) == 0.0;
}

std::optional<std::string> ZTPointsNumberFormatter::stringForObjectValue(const ZTValue& value) const {
  if (isShownEmpty(value)) return std::string();
  return ZTNumberFormatter::stringForObjectValue(value);
}

std::optional<std::string> ZTPointsNumberFormatter::editingStringForObjectValue(const ZTValue& value) const {
  if (isShownEmpty(value)) return std::string();
  return ZTNumberFormatter::editingStringForObjectValue(value);
}

bool ZTPointsNumberFormatter::getObjectValue(ZTValue* value, std::string_view string,
                                             std::string* errorDescription) const {
  if (replaceZeroValueWithEmptyString_ && isBlank(string)) {
    if (value) *value = ZTValue(0.0);
    return true;
  }
  return ZTNumberFormatter::getObjectValue(value, string, errorDescription);
}

// ZTPixelsNumberFormatter

ZTPixelsNumberFormatter::ZTPixelsNumberFormatter() {
  setAllowsFloats(false);
  setPositiveSuffix(" px");
}
std::shared_ptr<ZTPixelsNumberFormatter> ZTPixelsNumberFormatter::create() {
  return std::make_shared<ZTPixelsNumberFormatter>();
}
std::shared_ptr<ZTFormatter> ZTPixelsNumberFormatter::copy() const {
  return std::make_shared<ZTPixelsNumberFormatter>(*this);
}

// ZTDigitsOnlyNumberFormatter

std::shared_ptr<ZTDigitsOnlyNumberFormatter> ZTDigitsOnlyNumberFormatter::create() {
  return std::make_shared<ZTDigitsOnlyNumberFormatter>();
}
std::shared_ptr<ZTFormatter> ZTDigitsOnlyNumberFormatter::copy() const {
  return std::make_shared<ZTDigitsOnlyNumberFormatter>(*this);
}

bool ZTDigitsOnlyNumberFormatter::isPartialStringValid(std::string_view partialString, std::string*,
                                                       std::string*) const {
  if (partialString.empty()) return true;
  const icu::UnicodeString text = zt::internal::toUnicode(partialString);
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    if (!u_isdigit(text.char32At(i))) return false;
  }
  return true;
}
