#pragma once
// ZTLengthFormatter: lengths shown and read in a unit a user knows. Values are numbers of metres.
//
// Showing: with usesLocaleUnit (the default) the locale picks the unit by the size of the length,
// as ICU's unit preferences for the locale's region say (centimetres, metres, kilometres in
// Germany; inches, feet, miles in the United States), and the number formatter's digit settings
// apply. With usesLocaleUnit off, every length is shown in `unit`: the number converted to that
// unit, printed by numberFormatter(), a space, and the unit's name in the formatter's locale in the
// form for that number ("50 cm"; in the long style "1 inch", "12 inches", "12 Zoll").
//
// Reading (getObjectValue), whatever usesLocaleUnit says: a number in the locale's form (an
// optional sign, digits, the locale's decimal separator, an optional exponent; white space before
// it is skipped), then the name of one of the units, tried in the order millimetre, centimetre,
// metre, kilometre, inch, foot, yard, mile, each in the form for the number read and in the
// formatter's unit style; the first name that matches up to the end of the text (white space
// aside, letter case ignored) wins. A bare number, an unknown unit, invalid UTF-8, the empty text
// and numbers beyond the range of a double are refused. The length, converted to metres, is
// refused below the number formatter's minimum or above its maximum. Refusals give no error
// description.
//
// The attributed form: with usesLocaleUnit, none (as for every formatter); otherwise the shown
// text with the default attributes.
//
// Locale: the number formatter's (the current locale unless one is set on it).
// Threads and copies as for every ZTFormatter: one thread at a time; copy() carries every setting
// and its own copy of the number formatter.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/text/basic_number_formatter.h"
#include "zentrel/text/formatter.h"

// Unit codes of the desktop platform's length units. A code outside this list counts as millimetres.
enum class ZTLengthFormatterUnit : std::int64_t {
  Millimeter = 8,
  Centimeter = 9,
  Meter = 11,
  Kilometer = 14,
  Inch = 1281,
  Foot = 1282,
  Yard = 1283,
  Mile = 1284,
};

// How unit names are written: Short "in" (narrow where the locale has one), Medium "in", Long
// "inches".
enum class ZTFormattingUnitStyle : int { Short = 1, Medium = 2, Long = 3 };

// Lengths in metres shown and read in a unit a user knows.
class ZT_API ZTLengthFormatter : public ZTFormatter {
 public:
  // usesLocaleUnit on, unit millimetre, medium unit style, a decimal number formatter (0 to 3
  // fraction digits, grouping).
  ZTLengthFormatter();
  ZTLengthFormatter(const ZTLengthFormatter& other);
  ZTLengthFormatter& operator=(const ZTLengthFormatter& other);
  ~ZTLengthFormatter() override;
  [[nodiscard]] static std::shared_ptr<ZTLengthFormatter> create();

  bool usesLocaleUnit() const { return usesLocaleUnit_; }
  void setUsesLocaleUnit(bool uses) { usesLocaleUnit_ = uses; }
  ZTLengthFormatterUnit unit() const { return unit_; }
  void setUnit(ZTLengthFormatterUnit unit) { unit_ = unit; }
  ZTFormattingUnitStyle unitStyle() const { return unitStyle_; }
  void setUnitStyle(ZTFormattingUnitStyle style) { unitStyle_ = style; }

  // Prints the numbers, holds the minimum and maximum for reading, and names the locale.
  ZTBasicNumberFormatter& numberFormatter() { return *numberFormatter_; }
  const ZTBasicNumberFormatter& numberFormatter() const { return *numberFormatter_; }

  // The unit's name in the form for `value` ("inch" for 1, "inches" for 12 in the long style).
  [[nodiscard]] std::string unitStringFromValue(double value, ZTLengthFormatterUnit unit) const;
  // value (already in `unit`), a space and the unit's name.
  [[nodiscard]] std::string stringFromValue(double value, ZTLengthFormatterUnit unit) const;
  // A length in metres, in the unit the locale picks for it.
  [[nodiscard]] std::string stringFromMeters(double meters) const;

  [[nodiscard]] std::optional<std::string> stringForObjectValue(const ZTValue& value) const override;
  [[nodiscard]] std::optional<ZTAttributedString> attributedStringForObjectValue(
      const ZTValue& value, const ZTValue& defaultAttributes) const override;
  [[nodiscard]] bool getObjectValue(ZTValue* value, std::string_view string,
                                    std::string* errorDescription = nullptr) const override;
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;

  // value x factor(from) / factor(to).
  [[nodiscard]] static double convertValue(double value, ZTLengthFormatterUnit fromUnits, ZTLengthFormatterUnit toUnits);
  // Metres per unit: 0.001, 0.01, 1, 1000, 0.0254, 0.3048, 0.9144, 1609.344; 0.001 for other codes.
  [[nodiscard]] static double unitToMeterKoefForUnit(ZTLengthFormatterUnit unit);

 private:
  bool usesLocaleUnit_ = true;
  ZTLengthFormatterUnit unit_ = ZTLengthFormatterUnit::Millimeter;
  ZTFormattingUnitStyle unitStyle_ = ZTFormattingUnitStyle::Medium;
  std::unique_ptr<ZTBasicNumberFormatter> numberFormatter_;
  // ICU's unit formatters, made on first use for one locale and style.
  struct Cache;
  std::unique_ptr<Cache> cache_;
};
