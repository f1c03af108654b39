#include "zentrel/text/length_formatter.h"

#include <unicode/dcfmtsym.h>
#include <unicode/measunit.h>
#include <unicode/numberformatter.h>
#include <unicode/plurrule.h>
#include <unicode/uchar.h>

#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "internal/number_formatting.h"
#include "internal/unicode.h"

namespace {

constexpr std::array<ZTLengthFormatterUnit, 8> kParsingOrder = {
    ZTLengthFormatterUnit::Millimeter, ZTLengthFormatterUnit::Centimeter, ZTLengthFormatterUnit::Meter,
    ZTLengthFormatterUnit::Kilometer,  ZTLengthFormatterUnit::Inch,       ZTLengthFormatterUnit::Foot,
    ZTLengthFormatterUnit::Yard,       ZTLengthFormatterUnit::Mile,
};

// The position of a unit in kParsingOrder; unknown codes are millimetres.
std::size_t unitIndex(ZTLengthFormatterUnit unit) {
  for (std::size_t i = 0; i < kParsingOrder.size(); ++i) {
    if (kParsingOrder[i] == unit) return i;
  }
  return 0;
}

icu::MeasureUnit measureUnit(std::size_t index) {
  switch (index) {
    case 1: return icu::MeasureUnit::getCentimeter();
    case 2: return icu::MeasureUnit::getMeter();
    case 3: return icu::MeasureUnit::getKilometer();
    case 4: return icu::MeasureUnit::getInch();
    case 5: return icu::MeasureUnit::getFoot();
    case 6: return icu::MeasureUnit::getYard();
    case 7: return icu::MeasureUnit::getMile();
    default: return icu::MeasureUnit::getMillimeter();
  }
}

UNumberUnitWidth unitWidth(ZTFormattingUnitStyle style) {
  switch (style) {
    case ZTFormattingUnitStyle::Short: return UNUM_UNIT_WIDTH_NARROW;
    case ZTFormattingUnitStyle::Long: return UNUM_UNIT_WIDTH_FULL_NAME;
    case ZTFormattingUnitStyle::Medium: break;
  }
  return UNUM_UNIT_WIDTH_SHORT;
}

int32_t skipWhiteSpace(const icu::UnicodeString& text, int32_t index) {
  while (index < text.length() && u_isUWhiteSpace(text.char32At(index))) index = text.moveIndex32(index, 1);
  return index;
}

}  // namespace

struct ZTLengthFormatter::Cache {
  std::string locale;
  int minimumFractionDigits = -1;
  int maximumFractionDigits = -1;
  bool grouping = false;
  ZTFormattingUnitStyle style = ZTFormattingUnitStyle::Medium;
  std::array<std::optional<icu::number::LocalizedNumberFormatter>, 8> units;
  std::optional<icu::number::LocalizedNumberFormatter> localeUnit;
  icu::UnicodeString decimalSeparator;
  icu::Locale icuLocale;
  // A unit's name depends on the number only through its plural category ("one", "other"...),
  // which the number's visible digits decide: names are kept per unit and category.
  std::optional<icu::number::LocalizedNumberFormatter> plain;
  std::unique_ptr<icu::PluralRules> pluralRules;
  std::array<std::vector<std::pair<icu::UnicodeString, icu::UnicodeString>>, 8> names;

  // The plural category of the number as the unit formatters show it; empty when ICU has no rules.
  icu::UnicodeString category(double value) {
    if (!pluralRules || !plain) return {};
    UErrorCode status = U_ZERO_ERROR;
    const icu::number::FormattedNumber formatted = plain->formatDouble(value, status);
    icu::UnicodeString result = pluralRules->select(formatted, status);
    return U_SUCCESS(status) ? result : icu::UnicodeString();
  }

  // The unit's name for a number in that category, formatted once and then kept.
  icu::UnicodeString name(std::size_t index, const icu::UnicodeString& pluralCategory, double value,
                          ZTFormattingUnitStyle unitStyle) {
    if (!pluralCategory.isEmpty()) {
      for (const auto& [known, text] : names[index]) {
        if (known == pluralCategory) return text;
      }
    }
    auto& formatter = units[index];
    if (!formatter) {
      formatter = icu::number::NumberFormatter::withLocale(icuLocale)
                      .unit(measureUnit(index))
                      .unitWidth(unitWidth(unitStyle))
                      .precision(icu::number::Precision::minMaxFraction(minimumFractionDigits, maximumFractionDigits));
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::number::FormattedNumber formatted = formatter->formatDouble(value, status);
    const icu::UnicodeString text = formatted.toString(status);
    icu::ConstrainedFieldPosition position;
    position.constrainField(UFIELD_CATEGORY_NUMBER, UNUM_MEASURE_UNIT_FIELD);
    if (U_FAILURE(status) || !formatted.nextPosition(position, status) || U_FAILURE(status)) return {};
    icu::UnicodeString result;
    text.extractBetween(position.getStart(), position.getLimit(), result);
    if (!pluralCategory.isEmpty()) names[index].emplace_back(pluralCategory, result);
    return result;
  }

  // Brings the cache in line with the formatter's locale and settings; answers the ICU locale.
  const icu::Locale& refresh(const ZTBasicNumberFormatter& numbers, ZTFormattingUnitStyle unitStyle) {
    std::string current = numbers.effectiveLocaleIdentifier();
    if (current == locale && unitStyle == style && numbers.minimumFractionDigits() == minimumFractionDigits &&
        numbers.maximumFractionDigits() == maximumFractionDigits && numbers.usesGroupingSeparator() == grouping) {
      return icuLocale;
    }
    units = {};
    names = {};
    localeUnit.reset();
    locale = std::move(current);
    icuLocale = icu::Locale::createCanonical(locale.c_str());
    style = unitStyle;
    minimumFractionDigits = numbers.minimumFractionDigits();
    maximumFractionDigits = numbers.maximumFractionDigits();
    grouping = numbers.usesGroupingSeparator();
    UErrorCode status = U_ZERO_ERROR;
    const icu::DecimalFormatSymbols symbols(icuLocale, status);
    decimalSeparator = U_SUCCESS(status) ? symbols.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol)
                                         : icu::UnicodeString(u".");
    plain = icu::number::NumberFormatter::withLocale(icuLocale).precision(
        icu::number::Precision::minMaxFraction(minimumFractionDigits, maximumFractionDigits));
    status = U_ZERO_ERROR;
    pluralRules.reset(icu::PluralRules::forLocale(icuLocale, status));
    if (U_FAILURE(status)) pluralRules.reset();
    return icuLocale;
  }
};

ZTLengthFormatter::ZTLengthFormatter()
    : numberFormatter_(std::make_unique<ZTBasicNumberFormatter>()), cache_(std::make_unique<Cache>()) {
  numberFormatter_->setNumberStyle(ZTNumberFormatterStyle::Decimal);
}
ZTLengthFormatter::ZTLengthFormatter(const ZTLengthFormatter& other)
    : ZTFormatter(other),
      usesLocaleUnit_(other.usesLocaleUnit_),
      unit_(other.unit_),
      unitStyle_(other.unitStyle_),
      numberFormatter_(std::make_unique<ZTBasicNumberFormatter>(*other.numberFormatter_)),
      cache_(std::make_unique<Cache>()) {}
ZTLengthFormatter& ZTLengthFormatter::operator=(const ZTLengthFormatter& other) {
  if (this != &other) {
    usesLocaleUnit_ = other.usesLocaleUnit_;
    unit_ = other.unit_;
    unitStyle_ = other.unitStyle_;
    numberFormatter_ = std::make_unique<ZTBasicNumberFormatter>(*other.numberFormatter_);
    cache_ = std::make_unique<Cache>();
  }
  return *this;
}
ZTLengthFormatter::~ZTLengthFormatter() = default;
std::shared_ptr<ZTLengthFormatter> ZTLengthFormatter::create() { return std::make_shared<ZTLengthFormatter>(); }
std::shared_ptr<ZTFormatter> ZTLengthFormatter::copy() const { return std::make_shared<ZTLengthFormatter>(*this); }

double ZTLengthFormatter::unitToMeterKoefForUnit(ZTLengthFormatterUnit unit) {
  switch (unit) {
    case ZTLengthFormatterUnit::Millimeter: return 0.001;
    case ZTLengthFormatterUnit::Centimeter: return 0.01;
    case ZTLengthFormatterUnit::Meter: return 1.0;
    case ZTLengthFormatterUnit::Kilometer: return 1000.0;
    case ZTLengthFormatterUnit::Inch: return 0.0254;
    case ZTLengthFormatterUnit::Foot: return 0.3048;
    case ZTLengthFormatterUnit::Yard: return 0.9144;
    case ZTLengthFormatterUnit::Mile: return 1609.344;
  }
  return 0.001;
}

double ZTLengthFormatter::convertValue(double value, ZTLengthFormatterUnit fromUnits, ZTLengthFormatterUnit toUnits) {
  return value * unitToMeterKoefForUnit(fromUnits) * (1.0 / unitToMeterKoefForUnit(toUnits));
}

std::string ZTLengthFormatter::unitStringFromValue(double value, ZTLengthFormatterUnit unit) const {
  Cache& cache = *cache_;
  (void)cache.refresh(*numberFormatter_, unitStyle_);
  return zt::internal::toUTF8(cache.name(unitIndex(unit), cache.category(value), value, unitStyle_));
}

std::string ZTLengthFormatter::stringFromValue(double value, ZTLengthFormatterUnit unit) const {
  Cache& cache = *cache_;
  (void)cache.refresh(*numberFormatter_, unitStyle_);
  // The number as shown decides the plural category, so it is formatted once for both.
  icu::UnicodeString category;
  std::string text = ZTBasicNumberFormatterAccess::format(*numberFormatter_, value, cache.pluralRules.get(), &category);
  text += ' ';
  text += zt::internal::toUTF8(cache.name(unitIndex(unit), category, value, unitStyle_));
  return text;
}

std::string ZTLengthFormatter::stringFromMeters(double meters) const {
  Cache& cache = *cache_;
  const icu::Locale& locale = cache.refresh(*numberFormatter_, unitStyle_);
  if (!cache.localeUnit) {
    cache.localeUnit = icu::number::NumberFormatter::withLocale(locale)
                           .unit(icu::MeasureUnit::getMeter())
                           .usage("default")
                           .unitWidth(unitWidth(unitStyle_))
                           .grouping(cache.grouping ? UNUM_GROUPING_AUTO : UNUM_GROUPING_OFF)
                           .precision(icu::number::Precision::minMaxFraction(cache.minimumFractionDigits,
                                                                             cache.maximumFractionDigits));
  }
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString text = cache.localeUnit->formatDouble(meters, status).toString(status);
  if (U_FAILURE(status)) return {};
  return zt::internal::toUTF8(text);
}

std::optional<std::string> ZTLengthFormatter::stringForObjectValue(const ZTValue& value) const {
  if (!value.isNumber()) return std::nullopt;
  const double meters = value.doubleValue();
  if (usesLocaleUnit_) return stringFromMeters(meters);
  return stringFromValue(convertValue(meters, ZTLengthFormatterUnit::Meter, unit_), unit_);
}

std::optional<ZTAttributedString> ZTLengthFormatter::attributedStringForObjectValue(
    const ZTValue& value, const ZTValue& defaultAttributes) const {
  if (usesLocaleUnit_) return ZTFormatter::attributedStringForObjectValue(value, defaultAttributes);
  auto text = stringForObjectValue(value);
  if (!text) return std::nullopt;
  return ZTAttributedString(*text, defaultAttributes);
}

bool ZTLengthFormatter::getObjectValue(ZTValue* value, std::string_view string, std::string*) const {
  Cache& cache = *cache_;
  (void)cache.refresh(*numberFormatter_, unitStyle_);
  const icu::UnicodeString text = zt::internal::toUnicode(string);

  // The number: sign, digits of any script, the locale's decimal separator, an exponent.
  int32_t index = skipWhiteSpace(text, 0);
  std::string number;
  if (index < text.length() && (text[index] == u'-' || text[index] == u'+' || text[index] == 0x2212)) {
    if (text[index] != u'+') number += '-';
    ++index;
  }
  auto scanDigits = [&] {
    bool any = false;
    while (index < text.length()) {
      const UChar32 c = text.char32At(index);
      if (!u_isdigit(c)) break;
      number += static_cast<char>('0' + u_charDigitValue(c));
      index = text.moveIndex32(index, 1);
      any = true;
    }
    return any;
  };
  bool digits = scanDigits();
  const icu::UnicodeString& separator = cache.decimalSeparator;
  if (!separator.isEmpty() && text.compare(index, separator.length(), separator) == 0) {
    const int32_t before = index;
    const std::size_t numberBefore = number.size();
    index += separator.length();
    number += '.';
    if (!scanDigits() && !digits) {
      index = before;
      number.resize(numberBefore);
    } else {
      digits = true;
    }
  }
  if (!digits) return false;
  if (index < text.length() && (text[index] == u'e' || text[index] == u'E')) {
    const int32_t before = index;
    const std::size_t numberBefore = number.size();
    number += 'e';
    ++index;
    if (index < text.length() && (text[index] == u'-' || text[index] == u'+')) number += static_cast<char>(text[index++]);
    if (!scanDigits()) {
      index = before;
      number.resize(numberBefore);
    }
  }
  double scanned = 0.0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), scanned);
  if (error != std::errc() || end != number.data() + number.size() || !std::isfinite(scanned)) return false;
  const int32_t afterNumber = index;

  // The unit: the first whose name, in the form for the number, runs to the end of the text.
  std::optional<ZTLengthFormatterUnit> matched;
  const icu::UnicodeString pluralCategory = cache.category(scanned);
  for (std::size_t candidate = 0; candidate < kParsingOrder.size(); ++candidate) {
    const ZTLengthFormatterUnit unit = kParsingOrder[candidate];
    const icu::UnicodeString name = cache.name(candidate, pluralCategory, scanned, unitStyle_);
    if (name.isEmpty()) continue;
    const int32_t at = skipWhiteSpace(text, afterNumber);
    if (at + name.length() > text.length()) continue;
    if (text.caseCompare(at, name.length(), name, U_FOLD_CASE_DEFAULT) != 0) continue;
    if (skipWhiteSpace(text, at + name.length()) != text.length()) continue;
    matched = unit;
    break;
  }
  if (!matched) return false;

  const double meters = convertValue(scanned, *matched, ZTLengthFormatterUnit::Meter);
  if (const auto minimum = numberFormatter_->minimum(); minimum && meters < *minimum) return false;
  if (const auto maximum = numberFormatter_->maximum(); maximum && meters > *maximum) return false;
  if (value) *value = ZTValue(meters);
  return true;
}
