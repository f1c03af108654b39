// Number fields: the shown text, the editing text and what a typed text reads as, in pinned locales.

#include "zentrel/text/number_formatters.h"

#include <gtest/gtest.h>

#include <cmath>

#include "zentrel/text/locale.h"

namespace {

template <class Formatter>
Formatter in(const char* locale) {
  Formatter formatter;
  formatter.setLocaleIdentifier(locale);
  return formatter;
}

// Reads a text; the value, or null when refused.
ZTValue read(const ZTFormatter& formatter, std::string_view text, std::string* error = nullptr) {
  ZTValue value("untouched");
  if (!formatter.getObjectValue(&value, text, error)) {
    EXPECT_EQ(value, ZTValue("untouched")) << "a refused text must leave the value alone";
    return ZTValue();
  }
  return value;
}

TEST(PointsField, ShowsOneFractionDigitAndTheSuffixInTheLocalesForm) {
  const auto en = in<ZTPointsNumberFormatter>("en_US");
  const auto de = in<ZTPointsNumberFormatter>("de_DE");
  EXPECT_EQ(en.stringForObjectValue(12.25), "12.2 pt");  // half to even
  EXPECT_EQ(en.stringForObjectValue(12.26), "12.3 pt");
  EXPECT_EQ(en.stringForObjectValue(0.5), "0.5 pt");
  EXPECT_EQ(en.stringForObjectValue(12), "12 pt");
  EXPECT_EQ(de.stringForObjectValue(12.25), "12,2 pt");
  EXPECT_EQ(de.stringForObjectValue(1234.5), "1234,5 pt");  // no grouping in a plain field
  EXPECT_EQ(en.editingStringForObjectValue(12.25), "12.2");
  EXPECT_EQ(de.editingStringForObjectValue(12.25), "12,2");
  EXPECT_EQ(en.stringForObjectValue(ZTValue("12")), std::nullopt);
  EXPECT_EQ(en.stringForObjectValue(ZTValue()), std::nullopt);
}

TEST(PointsField, ReadsNumbersWithOrWithoutTheSuffix) {
  const auto en = in<ZTPointsNumberFormatter>("en_US");
  const auto de = in<ZTPointsNumberFormatter>("de_DE");
  EXPECT_EQ(read(en, "12"), ZTValue(12.0));
  EXPECT_EQ(read(en, "12 pt"), ZTValue(12.0));
  EXPECT_EQ(read(en, " 12.5 pt "), ZTValue(12.5));
  EXPECT_EQ(read(de, "12,5"), ZTValue(12.5));
  EXPECT_EQ(read(de, "12,5 pt"), ZTValue(12.5));
  EXPECT_EQ(read(en, "-3"), ZTValue(-3.0));
  std::string error;
  EXPECT_TRUE(read(en, "12 px", &error).isNull());
  EXPECT_EQ(error, "Invalid number");
  EXPECT_TRUE(read(en, "twelve").isNull());
  EXPECT_TRUE(read(de, "12.5").isNull()) << "'.' groups thousands in German and 12.5 is not a valid grouping";
}

TEST(PointsField, ZeroReplacementHidesNumbersBelowOneAndReadsEmptyAsZero) {
  auto points = in<ZTPointsNumberFormatter>("en_US");
  EXPECT_EQ(points.stringForObjectValue(0), "0 pt");
  ZTValue value(5.0);
  EXPECT_TRUE(points.getObjectValue(&value, ""));
  EXPECT_TRUE(value.isNull()) << "without replacement an emptied field holds no number";

  points.setReplaceZeroValueWithEmptyString(true);
  EXPECT_EQ(points.stringForObjectValue(0), "");
  EXPECT_EQ(points.stringForObjectValue(0.4), "");
  EXPECT_EQ(points.stringForObjectValue(-0.9), "");
  EXPECT_EQ(points.editingStringForObjectValue(0.4), "");
  EXPECT_EQ(points.stringForObjectValue(1.0), "1 pt");
  EXPECT_EQ(read(points, ""), ZTValue(0.0));
  EXPECT_EQ(read(points, "  "), ZTValue(0.0));
  EXPECT_EQ(read(points, "3"), ZTValue(3.0));
}

TEST(PixelsField, WholeNumbersOnly) {
  const auto en = in<ZTPixelsNumberFormatter>("en_US");
  EXPECT_EQ(en.stringForObjectValue(12), "12 px");
  EXPECT_EQ(en.stringForObjectValue(12.6), "13 px");
  EXPECT_EQ(en.editingStringForObjectValue(12), "12");
  EXPECT_EQ(read(en, "12"), ZTValue(std::int64_t{12}));
  EXPECT_EQ(read(en, "12 px"), ZTValue(std::int64_t{12}));
  std::string error;
  EXPECT_TRUE(read(en, "12.5", &error).isNull());
  EXPECT_EQ(error, "Floating point values are not allowed");
}

TEST(NumberField, BoundsAreCheckedWhenReading) {
  auto field = in<ZTNumberFormatter>("en_US");
  field.setMinimum(0.0);
  field.setMaximum(10.0);
  std::string error;
  EXPECT_EQ(read(field, "10"), ZTValue(10.0));
  EXPECT_TRUE(read(field, "11", &error).isNull());
  EXPECT_EQ(error, "The value is too large");
  EXPECT_TRUE(read(field, "-1", &error).isNull());
  EXPECT_EQ(error, "The value is too small");
  field.setMaximum(std::nan(""));
  EXPECT_EQ(field.maximum(), std::nullopt) << "NaN is no bound";
}

TEST(NumberField, BadInputHasDocumentedResults) {
  const auto en = in<ZTPointsNumberFormatter>("en_US");
  EXPECT_EQ(en.stringForObjectValue(std::nan("")), "NaN pt");
  EXPECT_EQ(en.stringForObjectValue(-INFINITY), "-∞");
  const auto huge = en.stringForObjectValue(1e300);
  ASSERT_TRUE(huge);
  EXPECT_EQ(huge->size(), 301 + 3u) << *huge;
  EXPECT_EQ(huge->substr(0, 2), "10");
  for (const std::string_view text : {"\xff\xfe", "1\xff", "NaN", "∞", "1e999", "12 pt pt", "--1"}) {
    EXPECT_TRUE(read(en, text).isNull()) << text;
  }
}

TEST(NumberField, DecimalStyleGroupsAndReadsItsOwnTextBackInEveryLocale) {
  for (const char* locale : {"en_US", "de_DE", "fr_FR", "de_CH", "hi_IN", "ar_EG"}) {
    auto field = in<ZTBasicNumberFormatter>(locale);
    field.setNumberStyle(ZTNumberFormatterStyle::Decimal);
    const auto text = field.stringForObjectValue(1234567.125);
    ASSERT_TRUE(text) << locale;
    EXPECT_EQ(read(field, *text), ZTValue(1234567.125)) << locale << ": " << *text;
  }
  auto en = in<ZTBasicNumberFormatter>("en_US");
  en.setNumberStyle(ZTNumberFormatterStyle::Decimal);
  EXPECT_EQ(en.stringForObjectValue(1234.5), "1,234.5");
  auto de = in<ZTBasicNumberFormatter>("de_DE");
  de.setNumberStyle(ZTNumberFormatterStyle::Decimal);
  EXPECT_EQ(de.stringForObjectValue(1234.5), "1.234,5");
}

TEST(NumberField, WithoutALocaleFollowsTheCurrentOne) {
  const ZTLocale before = ZTLocale::current();
  ZTBasicNumberFormatter field;
  field.setMaximumFractionDigits(2);
  ZTSetCurrentLocale(ZTLocale("de_DE"));
  EXPECT_EQ(field.stringForObjectValue(1.5), "1,5");
  ZTSetCurrentLocale(ZTLocale("en_US"));
  EXPECT_EQ(field.stringForObjectValue(1.5), "1.5");
  EXPECT_EQ(field.effectiveLocaleIdentifier(), "en_US");
  ZTSetCurrentLocale(before);
}

TEST(NumberField, CopiesCarryTheSettingsAndChangeAlone) {
  auto points = in<ZTPointsNumberFormatter>("de_DE");
  points.setReplaceZeroValueWithEmptyString(true);
  const auto copy = points.copy();
  auto* copied = dynamic_cast<ZTPointsNumberFormatter*>(copy.get());
  ASSERT_NE(copied, nullptr);
  EXPECT_TRUE(copied->replaceZeroValueWithEmptyString());
  EXPECT_EQ(copied->stringForObjectValue(2.5), "2,5 pt");
  copied->setLocaleIdentifier("en_US");
  copied->setPositiveSuffix(" pts");
  EXPECT_EQ(copied->stringForObjectValue(2.5), "2.5 pts");
  EXPECT_EQ(points.stringForObjectValue(2.5), "2,5 pt");
}

TEST(DigitsOnlyField, AcceptsEmptyAndDecimalDigitsOnly) {
  const ZTDigitsOnlyNumberFormatter digits;
  std::string replacement = "kept", error = "kept";
  EXPECT_TRUE(digits.isPartialStringValid("", &replacement, &error));
  EXPECT_TRUE(digits.isPartialStringValid("0123"));
  EXPECT_TRUE(digits.isPartialStringValid("\u0663\u0664"));  // Arabic-Indic digits
  for (const std::string_view text : {"12a", "-1", "1.5", " 1", "\xff", "①"}) {
    EXPECT_FALSE(digits.isPartialStringValid(text, &replacement, &error)) << text;
  }
  EXPECT_EQ(replacement, "kept");
  EXPECT_EQ(error, "kept");
}

}  // namespace
