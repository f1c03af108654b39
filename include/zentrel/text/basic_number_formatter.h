#pragma once
// ZTBasicNumberFormatter: numbers shown and read in a locale, with the settings desktop number
// fields use — whether fractions are allowed, how many integer and fraction digits are shown,
// grouping, a text after positive and after negative numbers (the suffix), a minimum and a maximum.
// ICU does the work: numbers are printed as ICU's number formatter prints them for the locale
// (digits, decimal and grouping separators, rounding half to even) and read by ICU's parser.
//
// Locale: by default the process's current locale (ZTLocale::current(), looked up at each call, so
// a formatter follows ZTSetCurrentLocale); setLocaleIdentifier("de_DE") pins one. An identifier ICU
// does not know falls back to ICU's root locale (plain digits, "." as decimal separator).
//
// Defaults (a plain number field): whole numbers (0 fraction digits shown, at least 1 integer
// digit), no grouping, fractions allowed on input, no suffix, no minimum or maximum.
// setNumberStyle(Decimal) shows up to 3 fraction digits with grouping, as a decimal field does.
//
// Showing: numbers only (integers, unsigned integers, doubles and booleans as 0 and 1); every
// other value gives std::nullopt. NaN and the infinities show the locale's symbols ("NaN", "∞").
// Huge values (1e300) are shown with all their digits.
//
// Reading (getObjectValue): the whole text must be one number in the locale's form, white space
// around it aside, with the positive or negative suffix when one is set. The empty text (or white
// space only) is no number: it answers true with a null value, as an emptied field does. Otherwise
// the value is a double, or a 64-bit integer when fractions are not allowed. Refused, with an error
// description for the user: text that is no number ("Invalid number"), a fraction when fractions
// are not allowed ("Floating point values are not allowed"), a value below the minimum or above
// the maximum ("The value is too small" / "The value is too large"), NaN, infinities and values
// beyond the range of a double. Invalid UTF-8 never reads as a number.
//
// Threads and copies as for every ZTFormatter: one thread at a time; copy() is independent.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/text/formatter.h"

enum class ZTNumberFormatterStyle : int { None = 0, Decimal = 1 };

// Numbers shown and read in a locale, with the settings of desktop number fields.
class ZT_API ZTBasicNumberFormatter : public ZTFormatter {
 public:
  ZTBasicNumberFormatter();
  ZTBasicNumberFormatter(const ZTBasicNumberFormatter& other);
  ZTBasicNumberFormatter& operator=(const ZTBasicNumberFormatter& other);
  ~ZTBasicNumberFormatter() override;
  [[nodiscard]] static std::shared_ptr<ZTBasicNumberFormatter> create();

  // Empty: the current locale at each call.
  const std::string& localeIdentifier() const;
  void setLocaleIdentifier(std::string identifier);
  // The identifier of the locale a call made now would use.
  std::string effectiveLocaleIdentifier() const;

  // Sets the digit and grouping settings of the style (None: 0 fraction digits, no grouping;
  // Decimal: 0 to 3 fraction digits, grouping).
  void setNumberStyle(ZTNumberFormatterStyle style);

  bool allowsFloats() const;
  void setAllowsFloats(bool allows);
  // Digit counts are clamped to 0...100 (ICU's limit); a maximum below the minimum fraction
  // digits raises the maximum to it.
  int minimumIntegerDigits() const;
  void setMinimumIntegerDigits(int digits);
  int minimumFractionDigits() const;
  void setMinimumFractionDigits(int digits);
  int maximumFractionDigits() const;
  void setMaximumFractionDigits(int digits);
  bool usesGroupingSeparator() const;
  void setUsesGroupingSeparator(bool uses);
  // Shown after a positive number (zero included) / after a negative one.
  const std::string& positiveSuffix() const;
  void setPositiveSuffix(std::string suffix);
  const std::string& negativeSuffix() const;
  void setNegativeSuffix(std::string suffix);
  // Bounds checked when reading; NaN counts as no bound.
  std::optional<double> minimum() const;
  void setMinimum(std::optional<double> minimum);
  std::optional<double> maximum() const;
  void setMaximum(std::optional<double> maximum);

  // The number alone, with its suffix.
  [[nodiscard]] std::string stringFromNumber(double number) const;
  [[nodiscard]] std::string stringFromNumber(std::int64_t number) const;
  // The number of a text as getObjectValue reads it (no value for the empty text).
  [[nodiscard]] std::optional<double> numberFromString(std::string_view string) const;

  [[nodiscard]] std::optional<std::string> stringForObjectValue(const ZTValue& value) const override;
  [[nodiscard]] bool getObjectValue(ZTValue* value, std::string_view string,
                                    std::string* errorDescription = nullptr) const override;
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;

 private:
  friend struct ZTBasicNumberFormatterAccess;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
