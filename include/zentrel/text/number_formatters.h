#pragma once
// Number fields with a unit after the number: points (" pt") and pixels (" px"), and a field that
// accepts digits only.
//
// ZTNumberFormatter makes the positive suffix optional on input and leaves it out of the editing
// text: with the suffix " pt", "12" and "12 pt" both read as 12, and 12 is edited as "12". A text
// that does not end with the suffix has it appended before it is read; the empty text stays empty
// (no value, see ZTBasicNumberFormatter).
//
// ZTPointsNumberFormatter: fractions allowed, 0 to 1 fraction digits, at least 1 integer digit,
// suffix " pt" (12.25 shows as "12.2 pt" in en_US: rounding is half to even). With
// replaceZeroValueWithEmptyString, a number whose integer value is 0 shows as the empty text (so
// 0.4 shows empty too) and the empty text reads as the number 0.
//
// ZTPixelsNumberFormatter: whole numbers only, suffix " px"; a fraction is refused on input.
//
// ZTDigitsOnlyNumberFormatter: a text being typed may stand when it is empty or made of decimal
// digits only (any script's, Unicode category Nd): "0123" may, "12a", "-1" and "1.5" may not. It
// proposes no replacement and gives no error description. Invalid UTF-8 is not digits.
//
// Threads and copies as for every ZTFormatter: one thread at a time; copy() is independent.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zentrel/platform/export.h"
#include "zentrel/text/basic_number_formatter.h"

class ZT_API ZTNumberFormatter : public ZTBasicNumberFormatter {
 public:
  ZTNumberFormatter() = default;
  [[nodiscard]] static std::shared_ptr<ZTNumberFormatter> create();

  [[nodiscard]] std::optional<std::string> editingStringForObjectValue(const ZTValue& value) const override;
  [[nodiscard]] bool getObjectValue(ZTValue* value, std::string_view string,
                                    std::string* errorDescription = nullptr) const override;
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;
};

// A points field: numbers followed by " pt".
class ZT_API ZTPointsNumberFormatter : public ZTNumberFormatter {
 public:
  ZTPointsNumberFormatter();
  [[nodiscard]] static std::shared_ptr<ZTPointsNumberFormatter> create();

  bool replaceZeroValueWithEmptyString() const { return replaceZeroValueWithEmptyString_; }
  void setReplaceZeroValueWithEmptyString(bool replace) { replaceZeroValueWithEmptyString_ = replace; }

  [[nodiscard]] std::optional<std::string> stringForObjectValue(const ZTValue& value) const override;
  [[nodiscard]] std::optional<std::string> editingStringForObjectValue(const ZTValue& value) const override;
  [[nodiscard]] bool getObjectValue(ZTValue* value, std::string_view string,
                                    std::string* errorDescription = nullptr) const override;
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;

 private:
  bool isShownEmpty(const ZTValue& value) const;
  bool replaceZeroValueWithEmptyString_ = false;
};

// A pixels field: whole numbers followed by " px".
class ZT_API ZTPixelsNumberFormatter : public ZTNumberFormatter {
 public:
  ZTPixelsNumberFormatter();
  [[nodiscard]] static std::shared_ptr<ZTPixelsNumberFormatter> create();
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;
};

// A field that accepts digits only.
class ZT_API ZTDigitsOnlyNumberFormatter : public ZTBasicNumberFormatter {
 public:
  ZTDigitsOnlyNumberFormatter() = default;
  [[nodiscard]] static std::shared_ptr<ZTDigitsOnlyNumberFormatter> create();

  [[nodiscard]] bool isPartialStringValid(std::string_view partialString, std::string* newEditingString = nullptr,
                                          std::string* errorDescription = nullptr) const override;
  [[nodiscard]] std::shared_ptr<ZTFormatter> copy() const override;
};
