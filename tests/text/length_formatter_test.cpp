// Lengths shown in a fixed unit or the locale's, and typed lengths read back as metres.

#include "zentrel/text/length_formatter.h"

#include <gtest/gtest.h>

namespace {

using Unit = ZTLengthFormatterUnit;

ZTLengthFormatter fixed(const char* locale, Unit unit, ZTFormattingUnitStyle style = ZTFormattingUnitStyle::Medium) {
  ZTLengthFormatter formatter;
  formatter.numberFormatter().setLocaleIdentifier(locale);
  formatter.setUsesLocaleUnit(false);
  formatter.setUnit(unit);
  formatter.setUnitStyle(style);
  return formatter;
}

std::optional<double> metres(const ZTLengthFormatter& formatter, std::string_view text) {
  ZTValue value;
  std::string error = "none";
  if (!formatter.getObjectValue(&value, text, &error)) {
    EXPECT_EQ(error, "none") << "reading a length gives no error text";
    return std::nullopt;
  }
  return value.doubleValue();
}

TEST(LengthFormatter, ShowsAFixedUnitWithTheLocalesNumberAndUnitName) {
  EXPECT_EQ(fixed("en_US", Unit::Centimeter).stringForObjectValue(0.5), "50 cm");
  EXPECT_EQ(fixed("de_DE", Unit::Centimeter).stringForObjectValue(0.5), "50 cm");
  EXPECT_EQ(fixed("de_DE", Unit::Kilometer).stringForObjectValue(1234.5), "1,234 km");
  EXPECT_EQ(fixed("en_US", Unit::Inch).stringForObjectValue(0.3048), "12 in");
  EXPECT_EQ(fixed("en_US", Unit::Mile).stringForObjectValue(1609.344 * 1500), "1,500 mi");
  EXPECT_EQ(fixed("de_DE", Unit::Meter).stringForObjectValue(1234.5), "1.234,5 m");
  EXPECT_EQ(fixed("en_US", Unit::Meter).stringForObjectValue(ZTValue("1")), std::nullopt);
}

TEST(LengthFormatter, LongUnitNamesAgreeWithTheNumber) {
  const auto en = fixed("en_US", Unit::Inch, ZTFormattingUnitStyle::Long);
  EXPECT_EQ(en.stringForObjectValue(0.0254), "1 inch");
  EXPECT_EQ(en.stringForObjectValue(0.3048), "12 inches");
  EXPECT_EQ(fixed("de_DE", Unit::Inch, ZTFormattingUnitStyle::Long).stringForObjectValue(0.3048), "12 Zoll");
  EXPECT_EQ(fixed("fr_FR", Unit::Inch, ZTFormattingUnitStyle::Long).stringForObjectValue(0.3048), "12 pouces");
  EXPECT_EQ(fixed("fr_FR", Unit::Inch, ZTFormattingUnitStyle::Long).stringForObjectValue(0.0254), "1 pouce");
  EXPECT_EQ(en.unitStringFromValue(2, Unit::Foot), "feet");
  EXPECT_EQ(en.unitStringFromValue(1, Unit::Foot), "foot");
}

TEST(LengthFormatter, LocaleUnitFollowsTheRegion) {
  ZTLengthFormatter de;
  de.numberFormatter().setLocaleIdentifier("de_DE");
  EXPECT_EQ(de.stringForObjectValue(0.5), "50 cm");
  EXPECT_EQ(de.stringForObjectValue(2500), "2,5 km");
  ZTLengthFormatter us;
  us.numberFormatter().setLocaleIdentifier("en_US");
  EXPECT_EQ(us.stringForObjectValue(2500), "1.553 mi");
  EXPECT_EQ(us.attributedStringForObjectValue(2500, ZTValue::dictionary()), std::nullopt);
}

TEST(LengthFormatter, AttributedTextOfAFixedUnitCarriesTheDefaultAttributes) {
  ZTValue attributes;
  attributes["font"] = "Sans 12";
  const auto text = fixed("en_US", Unit::Centimeter).attributedStringForObjectValue(0.5, attributes);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->string(), "50 cm");
  ASSERT_EQ(text->runs().size(), 1u);
  EXPECT_EQ(text->runs()[0].attributes, attributes);
}

TEST(LengthFormatter, ReadsANumberAndAUnitName) {
  const auto en = fixed("en_US", Unit::Centimeter);
  EXPECT_EQ(metres(en, "12"), std::nullopt) << "a bare number names no unit";
  EXPECT_NEAR(metres(en, "12 in").value(), 0.3048, 1e-12);
  EXPECT_NEAR(metres(en, "1.5 km").value(), 1500, 1e-9);
  EXPECT_NEAR(metres(en, "  -2mm ").value(), -0.002, 1e-15);
  EXPECT_NEAR(metres(en, "3 M").value(), 3, 1e-12) << "letter case is ignored";
  EXPECT_NEAR(metres(en, "2 mi").value(), 3218.688, 1e-9) << "mi is a mile, not metres followed by i";
  EXPECT_NEAR(metres(en, "1e3 mm").value(), 1, 1e-12);
  EXPECT_NEAR(metres(en, ".5 m").value(), 0.5, 1e-12);
  const auto de = fixed("de_DE", Unit::Centimeter);
  EXPECT_NEAR(metres(de, "1,5 km").value(), 1500, 1e-9);
  EXPECT_EQ(metres(de, "1.5 km"), std::nullopt) << "the German decimal separator is the comma";
  EXPECT_NEAR(metres(fixed("de_DE", Unit::Meter, ZTFormattingUnitStyle::Long), "12 Zoll").value(), 0.3048, 1e-12);
  EXPECT_NEAR(metres(fixed("en_US", Unit::Meter, ZTFormattingUnitStyle::Long), "12 inches").value(), 0.3048, 1e-12);
  EXPECT_EQ(metres(fixed("en_US", Unit::Meter, ZTFormattingUnitStyle::Long), "12 inch"), std::nullopt)
      << "the unit's form must agree with the number";
}

TEST(LengthFormatter, ReadsWhatItShows) {
  for (const char* locale : {"en_US", "de_DE", "fr_FR"}) {
    for (const Unit unit : {Unit::Millimeter, Unit::Centimeter, Unit::Meter, Unit::Kilometer, Unit::Inch, Unit::Foot,
                            Unit::Yard, Unit::Mile}) {
      for (const auto style : {ZTFormattingUnitStyle::Medium, ZTFormattingUnitStyle::Long}) {
        auto formatter = fixed(locale, unit, style);
        formatter.numberFormatter().setUsesGroupingSeparator(false);
        const double length = ZTLengthFormatter::convertValue(2.5, unit, Unit::Meter);
        const auto text = formatter.stringForObjectValue(length);
        ASSERT_TRUE(text);
        const auto back = metres(formatter, *text);
        ASSERT_TRUE(back) << locale << ": " << *text;
        EXPECT_NEAR(*back, length, length * 1e-12) << locale << ": " << *text;
      }
    }
  }
}

TEST(LengthFormatter, RefusesBadTextAndLengthsOutsideTheBounds) {
  auto en = fixed("en_US", Unit::Centimeter);
  for (const std::string_view text : {"", " ", "cm", "12 furlongs", "12 cm cm", "1e400 m", "\xff m", "12 \xff", "- m", "NaN m"}) {
    EXPECT_EQ(metres(en, text), std::nullopt) << text;
  }
  en.numberFormatter().setMinimum(0.0);
  en.numberFormatter().setMaximum(1.0);
  EXPECT_NEAR(metres(en, "50 cm").value(), 0.5, 1e-12);
  EXPECT_EQ(metres(en, "2 m"), std::nullopt);
  EXPECT_EQ(metres(en, "101 cm"), std::nullopt);
  EXPECT_EQ(metres(en, "-1 mm"), std::nullopt);
}

TEST(LengthFormatter, UnitFactorsAndConversions) {
  EXPECT_DOUBLE_EQ(ZTLengthFormatter::unitToMeterKoefForUnit(Unit::Mile), 1609.344);
  EXPECT_DOUBLE_EQ(ZTLengthFormatter::unitToMeterKoefForUnit(Unit::Yard), 0.9144);
  EXPECT_DOUBLE_EQ(ZTLengthFormatter::unitToMeterKoefForUnit(static_cast<Unit>(42)), 0.001);
  EXPECT_DOUBLE_EQ(ZTLengthFormatter::convertValue(1, Unit::Inch, Unit::Centimeter), 2.54);
  EXPECT_DOUBLE_EQ(ZTLengthFormatter::convertValue(3, Unit::Foot, Unit::Yard), 1);
  EXPECT_DOUBLE_EQ(ZTLengthFormatter::convertValue(5, static_cast<Unit>(42), Unit::Meter), 0.005);
  // An unknown unit is shown and read as millimetres.
  const auto odd = fixed("en_US", static_cast<Unit>(42));
  EXPECT_EQ(odd.stringForObjectValue(0.005), "5 mm");
}

TEST(LengthFormatter, CopiesCarryEverySetting) {
  auto original = fixed("de_DE", Unit::Inch, ZTFormattingUnitStyle::Long);
  original.numberFormatter().setMaximum(2.0);
  const auto copy = original.copy();
  auto* length = dynamic_cast<ZTLengthFormatter*>(copy.get());
  ASSERT_NE(length, nullptr);
  EXPECT_FALSE(length->usesLocaleUnit());
  EXPECT_EQ(length->unit(), Unit::Inch);
  EXPECT_EQ(length->stringForObjectValue(0.3048), "12 Zoll");
  EXPECT_EQ(length->numberFormatter().maximum(), 2.0);
  length->numberFormatter().setLocaleIdentifier("en_US");
  EXPECT_EQ(length->stringForObjectValue(0.3048), "12 inches");
  EXPECT_EQ(original.stringForObjectValue(0.3048), "12 Zoll");
}

}  // namespace
