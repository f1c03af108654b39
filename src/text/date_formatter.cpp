#include "zentrel/text/date_formatter.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/parsepos.h>
#include <unicode/timezone.h>

#include <cmath>

#include "internal/unicode.h"
#include "zentrel/platform/localization.h"

namespace {

icu::DateFormat::EStyle icuStyle(ZTDateFormatterStyle style) {
  switch (style) {
    case ZTDateFormatterStyle::None: return icu::DateFormat::kNone;
    case ZTDateFormatterStyle::Short: return icu::DateFormat::kShort;
    case ZTDateFormatterStyle::Medium: return icu::DateFormat::kMedium;
    case ZTDateFormatterStyle::Long: return icu::DateFormat::kLong;
    case ZTDateFormatterStyle::Full: return icu::DateFormat::kFull;
  }
  return icu::DateFormat::kMedium;
}

}  // namespace

struct ZTDateFormatter::Impl {
  ZTDateFormatterStyle dateStyle = ZTDateFormatterStyle::None;
  ZTDateFormatterStyle timeStyle = ZTDateFormatterStyle::None;
  std::string locale;
  std::string timeZone;

  mutable std::string cachedLocale;
  mutable std::unique_ptr<icu::DateFormat> format;

  Impl() = default;
  Impl(const Impl& other)
      : dateStyle(other.dateStyle), timeStyle(other.timeStyle), locale(other.locale), timeZone(other.timeZone) {}

  void invalidate() { format.reset(); }

  icu::DateFormat* prepare() const {
    std::string current = locale.empty() ? std::string(icu::Locale::getDefault().getName()) : locale;
    if (format && current == cachedLocale) return format.get();
    auto dates = icuStyle(dateStyle);
    const auto times = icuStyle(timeStyle);
    if (dates == icu::DateFormat::kNone && times == icu::DateFormat::kNone) dates = icu::DateFormat::kMedium;
    format.reset(icu::DateFormat::createDateTimeInstance(dates, times, icu::Locale::createCanonical(current.c_str())));
    if (format) {
      format->adoptTimeZone(timeZone.empty() ? icu::TimeZone::createDefault()
                                             : icu::TimeZone::createTimeZone(zt::internal::toUnicode(timeZone)));
      format->setLenient(false);
    }
    cachedLocale = std::move(current);
    return format.get();
  }
};

ZTDateFormatter::ZTDateFormatter() : impl_(std::make_unique<Impl>()) {}
ZTDateFormatter::ZTDateFormatter(ZTDateFormatterStyle dateStyle, ZTDateFormatterStyle timeStyle) : ZTDateFormatter() {
  impl_->dateStyle = dateStyle;
  impl_->timeStyle = timeStyle;
}
ZTDateFormatter::ZTDateFormatter(const ZTDateFormatter& other)
    : ZTFormatter(other), impl_(std::make_unique<Impl>(*other.impl_)) {}
ZTDateFormatter& ZTDateFormatter::operator=(const ZTDateFormatter& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}
ZTDateFormatter::~ZTDateFormatter() = default;
std::shared_ptr<ZTDateFormatter> ZTDateFormatter::create(ZTDateFormatterStyle dateStyle, ZTDateFormatterStyle timeStyle) {
  return std::make_shared<ZTDateFormatter>(dateStyle, timeStyle);
}
std::shared_ptr<ZTFormatter> ZTDateFormatter::copy() const { return std::make_shared<ZTDateFormatter>(*this); }

ZTDateFormatterStyle ZTDateFormatter::dateStyle() const { return impl_->dateStyle; }
void ZTDateFormatter::setDateStyle(ZTDateFormatterStyle style) {
  impl_->dateStyle = style;
  impl_->invalidate();
}
ZTDateFormatterStyle ZTDateFormatter::timeStyle() const { return impl_->timeStyle; }
void ZTDateFormatter::setTimeStyle(ZTDateFormatterStyle style) {
  impl_->timeStyle = style;
  impl_->invalidate();
}
const std::string& ZTDateFormatter::localeIdentifier() const { return impl_->locale; }
void ZTDateFormatter::setLocaleIdentifier(std::string identifier) {
  impl_->locale = std::move(identifier);
  impl_->invalidate();
}
const std::string& ZTDateFormatter::timeZoneIdentifier() const { return impl_->timeZone; }
void ZTDateFormatter::setTimeZoneIdentifier(std::string identifier) {
  impl_->timeZone = std::move(identifier);
  impl_->invalidate();
}

std::string ZTDateFormatter::stringFromDate(ZTDate date) const {
  const double seconds = date.timeIntervalSince1970();
  if (!std::isfinite(seconds) || std::fabs(seconds) >= 1.8e14) return {};
  icu::DateFormat* format = impl_->prepare();
  if (!format) return {};
  icu::UnicodeString text;
  format->format(seconds * 1000.0, text);
  return zt::internal::toUTF8(text);
}

std::optional<ZTDate> ZTDateFormatter::dateFromString(std::string_view string) const {
  icu::UnicodeString text = zt::internal::toUnicode(string);
  text.trim();
  if (text.isEmpty()) return std::nullopt;
  icu::DateFormat* format = impl_->prepare();
  if (!format) return std::nullopt;
  icu::ParsePosition position(0);
  const UDate milliseconds = format->parse(text, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != text.length()) return std::nullopt;
  return ZTDate::dateWithTimeIntervalSince1970(milliseconds / 1000.0);
}

std::optional<std::string> ZTDateFormatter::stringForObjectValue(const ZTValue& value) const {
  const auto* date = value.getIf<ZTDate>();
  if (!date) return std::nullopt;
  return stringFromDate(*date);
}

bool ZTDateFormatter::getObjectValue(ZTValue* value, std::string_view string, std::string* errorDescription) const {
  const auto date = dateFromString(string);
  if (!date) {
    if (errorDescription) *errorDescription = ZTLocalizedString("Invalid date");
    return false;
  }
  if (value) *value = ZTValue(*date);
  return true;
}
