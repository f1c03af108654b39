#include "zentrel/text/basic_number_formatter.h"

#include <unicode/decimfmt.h>
#include <unicode/fmtable.h>
#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/parsepos.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "internal/number_formatting.h"
#include "internal/unicode.h"
#include "zentrel/platform/localization.h"

namespace {
constexpr int kMaxDigits = 100;
int clampDigits(int digits) { return std::clamp(digits, 0, kMaxDigits); }
}  // namespace

struct ZTBasicNumberFormatter::Impl {
  std::string locale;
  bool allowsFloats = true;
  int minimumIntegerDigits = 1;
  int minimumFractionDigits = 0;
  int maximumFractionDigits = 0;
  bool grouping = false;
  std::string positiveSuffix;
  std::string negativeSuffix;
  std::optional<double> minimum;
  std::optional<double> maximum;

  // Made on first use for the locale in `cachedLocale`, dropped when a setting changes.
  mutable std::string cachedLocale;
  mutable std::optional<icu::number::LocalizedNumberFormatter> printer;
  mutable std::unique_ptr<icu::DecimalFormat> parser;

  Impl() = default;
  Impl(const Impl& other)
      : locale(other.locale),
        allowsFloats(other.allowsFloats),
        minimumIntegerDigits(other.minimumIntegerDigits),
        minimumFractionDigits(other.minimumFractionDigits),
        maximumFractionDigits(other.maximumFractionDigits),
        grouping(other.grouping),
        positiveSuffix(other.positiveSuffix),
        negativeSuffix(other.negativeSuffix),
        minimum(other.minimum),
        maximum(other.maximum) {}

  void invalidate() {
    printer.reset();
    parser.reset();
    cachedLocale.clear();
  }

  std::string effectiveLocale() const {
    return locale.empty() ? std::string(icu::Locale::getDefault().getName()) : locale;
  }

  void prepare() const {
    std::string current = effectiveLocale();
    if (printer && current == cachedLocale) return;
    const icu::Locale icuLocale = icu::Locale::createCanonical(current.c_str());
    printer = icu::number::NumberFormatter::withLocale(icuLocale)
                  .precision(icu::number::Precision::minMaxFraction(minimumFractionDigits, maximumFractionDigits))
                  .integerWidth(icu::number::IntegerWidth::zeroFillTo(minimumIntegerDigits))
                  .grouping(grouping ? UNUM_GROUPING_AUTO : UNUM_GROUPING_OFF)
                  .roundingMode(UNUM_ROUND_HALFEVEN);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::NumberFormat> format(icu::NumberFormat::createInstance(icuLocale, UNUM_DECIMAL, status));
    parser.reset(U_SUCCESS(status) ? dynamic_cast<icu::DecimalFormat*>(format.release()) : nullptr);
    if (parser) {
      parser->setLenient(false);
      parser->setGroupingUsed(grouping);
      parser->setPositiveSuffix(zt::internal::toUnicode(positiveSuffix));
      parser->setNegativeSuffix(zt::internal::toUnicode(negativeSuffix));
    }
    cachedLocale = std::move(current);
  }

  std::string withSuffix(icu::UnicodeString text, bool negative) const {
    std::string out = zt::internal::toUTF8(text);
    out += negative ? negativeSuffix : positiveSuffix;
    return out;
  }
};

ZTBasicNumberFormatter::ZTBasicNumberFormatter() : impl_(std::make_unique<Impl>()) {}
ZTBasicNumberFormatter::ZTBasicNumberFormatter(const ZTBasicNumberFormatter& other)
    : ZTFormatter(other), impl_(std::make_unique<Impl>(*other.impl_)) {}
ZTBasicNumberFormatter& ZTBasicNumberFormatter::operator=(const ZTBasicNumberFormatter& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}
ZTBasicNumberFormatter::~ZTBasicNumberFormatter() = default;
std::shared_ptr<ZTBasicNumberFormatter> ZTBasicNumberFormatter::create() {
  return std::make_shared<ZTBasicNumberFormatter>();
}
std::shared_ptr<ZTFormatter> ZTBasicNumberFormatter::copy() const { return std::make_shared<ZTBasicNumberFormatter>(*this); }

const std::string& ZTBasicNumberFormatter::localeIdentifier() const { return impl_->locale; }
void ZTBasicNumberFormatter::setLocaleIdentifier(std::string identifier) {
  impl_->locale = std::move(identifier);
  impl_->invalidate();
}
std::string ZTBasicNumberFormatter::effectiveLocaleIdentifier() const { return impl_->effectiveLocale(); }

void ZTBasicNumberFormatter::setNumberStyle(ZTNumberFormatterStyle style) {
  const bool decimal = style == ZTNumberFormatterStyle::Decimal;
  impl_->minimumFractionDigits = 0;
  impl_->maximumFractionDigits = decimal ? 3 : 0;
  impl_->grouping = decimal;
  impl_->invalidate();
}

bool ZTBasicNumberFormatter::allowsFloats() const { return impl_->allowsFloats; }
void ZTBasicNumberFormatter::setAllowsFloats(bool allows) { impl_->allowsFloats = allows; }
int ZTBasicNumberFormatter::minimumIntegerDigits() const { return impl_->minimumIntegerDigits; }
void ZTBasicNumberFormatter::setMinimumIntegerDigits(int digits) {
  impl_->minimumIntegerDigits = clampDigits(digits);
  impl_->invalidate();
}
int ZTBasicNumberFormatter::minimumFractionDigits() const { return impl_->minimumFractionDigits; }
void ZTBasicNumberFormatter::setMinimumFractionDigits(int digits) {
  impl_->minimumFractionDigits = clampDigits(digits);
  impl_->maximumFractionDigits = std::max(impl_->maximumFractionDigits, impl_->minimumFractionDigits);
  impl_->invalidate();
}
int ZTBasicNumberFormatter::maximumFractionDigits() const { return impl_->maximumFractionDigits; }
void ZTBasicNumberFormatter::setMaximumFractionDigits(int digits) {
  impl_->maximumFractionDigits = std::max(clampDigits(digits), impl_->minimumFractionDigits);
  impl_->invalidate();
}
bool ZTBasicNumberFormatter::usesGroupingSeparator() const { return impl_->grouping; }
void ZTBasicNumberFormatter::setUsesGroupingSeparator(bool uses) {
  impl_->grouping = uses;
  impl_->invalidate();
}
const std::string& ZTBasicNumberFormatter::positiveSuffix() const { return impl_->positiveSuffix; }
void ZTBasicNumberFormatter::setPositiveSuffix(std::string suffix) {
  impl_->positiveSuffix = std::move(suffix);
  impl_->invalidate();
}
const std::string& ZTBasicNumberFormatter::negativeSuffix() const { return impl_->negativeSuffix; }
void ZTBasicNumberFormatter::setNegativeSuffix(std::string suffix) {
  impl_->negativeSuffix = std::move(suffix);
  impl_->invalidate();
}
std::optional<double> ZTBasicNumberFormatter::minimum() const { return impl_->minimum; }
void ZTBasicNumberFormatter::setMinimum(std::optional<double> minimum) {
  impl_->minimum = minimum && !std::isnan(*minimum) ? minimum : std::nullopt;
}
std::optional<double> ZTBasicNumberFormatter::maximum() const { return impl_->maximum; }
void ZTBasicNumberFormatter::setMaximum(std::optional<double> maximum) {
  impl_->maximum = maximum && !std::isnan(*maximum) ? maximum : std::nullopt;
}

std::string ZTBasicNumberFormatter::stringFromNumber(double number) const {
  return ZTBasicNumberFormatterAccess::format(*this, number, nullptr, nullptr);
}

std::string ZTBasicNumberFormatterAccess::format(const ZTBasicNumberFormatter& formatter, double number,
                                                 const icu::PluralRules* rules, icu::UnicodeString* category) {
  const ZTBasicNumberFormatter::Impl& impl = *formatter.impl_;
  impl.prepare();
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted = impl.printer->formatDouble(number, status);
  icu::UnicodeString text = formatted.toString(status);
  if (U_FAILURE(status)) return {};
  if (rules && category) {
    *category = rules->select(formatted, status);
    if (U_FAILURE(status)) category->remove();
  }
  return impl.withSuffix(std::move(text), std::signbit(number) && !std::isnan(number));
}

std::string ZTBasicNumberFormatter::stringFromNumber(std::int64_t number) const {
  impl_->prepare();
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString text = impl_->printer->formatInt(number, status).toString(status);
  if (U_FAILURE(status)) return {};
  return impl_->withSuffix(std::move(text), number < 0);
}

std::optional<std::string> ZTBasicNumberFormatter::stringForObjectValue(const ZTValue& value) const {
  if (const auto* i = value.getIf<std::int64_t>()) return stringFromNumber(*i);
  if (const auto* b = value.getIf<bool>()) return stringFromNumber(std::int64_t{*b ? 1 : 0});
  if (const auto* u = value.getIf<std::uint64_t>()) {
    if (*u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return stringFromNumber(static_cast<std::int64_t>(*u));
    }
    return stringFromNumber(static_cast<double>(*u));
  }
  if (const auto* d = value.getIf<double>()) return stringFromNumber(*d);
  return std::nullopt;
}

zt::internal::NumberParse ZTBasicNumberFormatterAccess::parseNumber(const ZTBasicNumberFormatter& formatter,
                                                                     std::string_view string) {
  using zt::internal::NumberParse;
  using zt::internal::toUnicode;
  const ZTBasicNumberFormatter::Impl& impl = *formatter.impl_;
  icu::UnicodeString text = toUnicode(string);
  text.trim();
  if (text.isEmpty()) return {NumberParse::Empty, 0.0};
  impl.prepare();
  if (!impl.parser) return {NumberParse::Invalid, 0.0};
  icu::Formattable result;
  icu::ParsePosition position(0);
  impl.parser->parse(text, result, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != text.length()) return {NumberParse::Invalid, 0.0};
  UErrorCode status = U_ZERO_ERROR;
  const double number = result.getDouble(status);
  if (U_FAILURE(status) || !std::isfinite(number)) return {NumberParse::Invalid, 0.0};
  if (!impl.allowsFloats && (number != std::floor(number) || std::fabs(number) >= 9.2e18)) {
    return {NumberParse::FractionRefused, number};
  }
  if (impl.minimum && number < *impl.minimum) return {NumberParse::TooSmall, number};
  if (impl.maximum && number > *impl.maximum) return {NumberParse::TooLarge, number};
  return {NumberParse::Number, number};
}

std::optional<double> ZTBasicNumberFormatter::numberFromString(std::string_view string) const {
  const auto parsed = ZTBasicNumberFormatterAccess::parseNumber(*this, string);
  if (parsed.outcome != zt::internal::NumberParse::Number) return std::nullopt;
  return parsed.number;
}

bool ZTBasicNumberFormatter::getObjectValue(ZTValue* value, std::string_view string, std::string* errorDescription) const {
  using zt::internal::NumberParse;
  const auto parsed = ZTBasicNumberFormatterAccess::parseNumber(*this, string);
  const char* problem = nullptr;
  switch (parsed.outcome) {
    case NumberParse::Empty:
      if (value) *value = ZTValue();
      return true;
    case NumberParse::Number:
      if (value) {
        *value = impl_->allowsFloats ? ZTValue(parsed.number) : ZTValue(static_cast<std::int64_t>(parsed.number));
      }
      return true;
    case NumberParse::Invalid: problem = "Invalid number"; break;
    case NumberParse::FractionRefused: problem = "Floating point values are not allowed"; break;
    case NumberParse::TooSmall: problem = "The value is too small"; break;
    case NumberParse::TooLarge: problem = "The value is too large"; break;
  }
  if (errorDescription) *errorDescription = ZTLocalizedString(problem);
  return false;
}
