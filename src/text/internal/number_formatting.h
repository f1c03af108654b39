#pragma once
// What the number formatters share inside the area: the outcome of reading a number, for the
// formatters built on ZTBasicNumberFormatter.

#include <unicode/plurrule.h>
#include <unicode/unistr.h>

#include <string>
#include <string_view>

#include "zentrel/text/basic_number_formatter.h"

namespace zt::internal {

struct NumberParse {
  enum Outcome { Empty, Number, Invalid, FractionRefused, TooSmall, TooLarge };
  Outcome outcome;
  double number;
};

}  // namespace zt::internal

// Reads a number as the formatter's settings say, with the reason of a refusal.
struct ZTBasicNumberFormatterAccess {
  static zt::internal::NumberParse parseNumber(const ZTBasicNumberFormatter& formatter, std::string_view string);
  // stringFromNumber, also answering the plural category of the number as shown (empty without
  // rules or on failure).
  static std::string format(const ZTBasicNumberFormatter& formatter, double number, const icu::PluralRules* rules,
                            icu::UnicodeString* category);
};
