#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <version>
#if defined(__cpp_lib_format)
#include <format>
#endif

#include "zentrel/geometry/geometry_value.h"
#include "zentrel/geometry/line.h"

namespace {

TEST(GeometryText, FormsAreWrittenAsDocumented) {
  EXPECT_EQ(ZTStringFromPoint({0.1, -2.5}), "{0.1, -2.5}");
  EXPECT_EQ(ZTStringFromSize({3, 4}), "{3, 4}");
  EXPECT_EQ(ZTStringFromRect(ZTRectMake(1, 2, 3, 4)), "{{1, 2}, {3, 4}}");
  EXPECT_EQ(ZTStringFromEdgeInsets({1, 2, 3, 4}), "{1, 2, 3, 4}");
  EXPECT_EQ(ZTStringFromAffineTransform(ZTAffineTransformIdentity), "[1, 0, 0, 1, 0, 0]");
  EXPECT_EQ(ZTStringFromRect(ZTRectNull), "{{inf, inf}, {0, 0}}");
}

template <class T>
std::string streamed(const T& value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

TEST(GeometryText, StreamsAndFormattersWriteTheTextForms) {
  const ZTRect rect = ZTRectMake(0.1, -2.5, 1e300, std::numeric_limits<double>::infinity());
  EXPECT_EQ(streamed(ZTPoint{0.1, -2.5}), "{0.1, -2.5}");
  EXPECT_EQ(streamed(ZTSize{3, 4}), ZTStringFromSize({3, 4}));
  EXPECT_EQ(streamed(rect), "{{0.1, -2.5}, {1e+300, inf}}");
  EXPECT_EQ(streamed(ZTEdgeInsetsNull), ZTStringFromEdgeInsets(ZTEdgeInsetsNull));
  EXPECT_EQ(streamed(ZTAffineTransformMake(1, 0, -0.0, 1, 5, 6)), "[1, 0, -0, 1, 5, 6]");
  EXPECT_EQ(streamed(ZTLineMake({1, 2}, {3, 4})), "{{1, 2}, {3, 4}}");
  // The stream's own number settings do not apply: the form is fixed.
  std::ostringstream stream;
  stream << std::fixed << ZTPoint{1.5, 2};
  EXPECT_EQ(stream.str(), "{1.5, 2}");
#if defined(__cpp_lib_format)
  EXPECT_EQ(std::format("{}", rect), ZTStringFromRect(rect));
  EXPECT_EQ(std::format("[{:>10}]", ZTPoint{1, 2}), "[    {1, 2}]");
#endif
}

TEST(GeometryText, RoundTripsBitForBit) {
  const double awkward[] = {0.1, 1.0 / 3, -0.0, 1e300, 5e-324, -123456.789e-20,
                            std::numeric_limits<double>::max(), std::numeric_limits<double>::infinity()};
  for (double v : awkward) {
    const ZTRect r = ZTRectMake(v, -v, v / 7, 2.5);
    const auto back = ZTRectFromString(ZTStringFromRect(r));
    ASSERT_TRUE(back.has_value()) << ZTStringFromRect(r);
    EXPECT_EQ(std::signbit(back->origin.x), std::signbit(v));
    EXPECT_EQ(*back, r) << ZTStringFromRect(r);
  }
  const ZTAffineTransform t{0.1, 0.2, 0.3, 0.7, -1e-9, 12345.678};
  EXPECT_EQ(ZTAffineTransformFromString(ZTStringFromAffineTransform(t)), t);
  EXPECT_TRUE(ZTRectIsNull(*ZTRectFromString(ZTStringFromRect(ZTRectNull))));
  const auto nan = ZTPointFromString(ZTStringFromPoint({std::nan(""), 1}));
  ASSERT_TRUE(nan.has_value());
  EXPECT_TRUE(std::isnan(nan->x));
}

TEST(GeometryText, ReadingToleratesWhitespaceAndPlusSigns) {
  EXPECT_EQ(ZTRectFromString("  {{1,2},{ 3 ,\t4}}\n"), ZTRectMake(1, 2, 3, 4));
  EXPECT_EQ(ZTPointFromString("{+1.5e2, -0}"), (ZTPoint{150, 0}));
  EXPECT_EQ(ZTEdgeInsetsFromString("{1,2,3,4}"), (ZTEdgeInsets{1, 2, 3, 4}));
}

TEST(GeometryText, MalformedTextIsRejectedWithAnExplanation) {
  const char* bad[] = {"", "{1, 2", "{1, 2}}", "{1 2}", "{1, two}", "{{1, 2}, {3}}", "(1, 2)", "{1, 2} x"};
  for (const char* text : bad) {
    ZTError error;
    EXPECT_FALSE(ZTPointFromString(text, &error).has_value()) << text;
    EXPECT_FALSE(ZTRectFromString(text, &error).has_value()) << text;
    EXPECT_EQ(error.domain(), ZTCocoaErrorDomain);
    EXPECT_EQ(error.code(), ZTGeometryFormattingError);
    EXPECT_NE(error.localizedDescription().find("{{x, y}, {width, height}}"), std::string::npos);
  }
  EXPECT_FALSE(ZTAffineTransformFromString("{1, 0, 0, 1, 0, 0}").has_value()) << "transforms use brackets";
  EXPECT_FALSE(ZTSizeFromString("{1, 2, 3}").has_value());
}

TEST(GeometryValues, BoxedValuesAreTextAndComeBack) {
  const ZTRect r = ZTRectMake(0.5, 1, 2, 3);
  const ZTValue boxed = ZTValueWithRect(r);
  ASSERT_TRUE(boxed.isString());
  EXPECT_EQ(boxed.stringValue(), "{{0.5, 1}, {2, 3}}");
  EXPECT_EQ(ZTRectFromValue(boxed), r);
  EXPECT_EQ(ZTPointFromValue(ZTValueWithPoint({7, 8})), (ZTPoint{7, 8}));
  EXPECT_EQ(ZTSizeFromValue(ZTValueWithSize({7, 8})), (ZTSize{7, 8}));
  EXPECT_EQ(ZTEdgeInsetsFromValue(ZTValueWithEdgeInsets({1, 2, 3, 4})), (ZTEdgeInsets{1, 2, 3, 4}));
  const ZTAffineTransform t{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(ZTAffineTransformFromValue(ZTValueWithAffineTransform(t)), t);
}

TEST(GeometryValues, DictionaryFormsAreReadWithNumbersOfAnyKind) {
  ZTValue dict = ZTValue::dictionary();
  dict["X"] = 1;
  dict["Y"] = 2u;
  dict["Width"] = 3.5;
  dict["Height"] = -4;
  EXPECT_EQ(ZTRectFromValue(dict), ZTRectMake(1, 2, 3.5, -4));
  EXPECT_EQ(ZTPointFromValue(dict), (ZTPoint{1, 2}));
  EXPECT_EQ(ZTSizeFromValue(dict), (ZTSize{3.5, -4}));
  EXPECT_EQ(ZTRectFromValue(ZTDictionaryRepresentationOfRect(ZTRectMake(9, 8, 7, 6))), ZTRectMake(9, 8, 7, 6));
  EXPECT_EQ(ZTPointFromValue(ZTDictionaryRepresentationOfPoint({9, 8})), (ZTPoint{9, 8}));
  EXPECT_EQ(ZTSizeFromValue(ZTDictionaryRepresentationOfSize({9, 8})), (ZTSize{9, 8}));
}

TEST(GeometryValues, WrongShapesAreRejected) {
  ZTValue missing = ZTValue::dictionary();
  missing["X"] = 1;
  missing["Y"] = 2;
  missing["Width"] = 3;
  ZTError error;
  EXPECT_FALSE(ZTRectFromValue(missing, &error).has_value());
  EXPECT_EQ(error.code(), ZTGeometryFormattingError);
  EXPECT_NE(error.localizedDescription().find("is not a rectangle"), std::string::npos);
  ZTValue textual = missing;
  textual["Height"] = "4";
  EXPECT_FALSE(ZTRectFromValue(textual).has_value()) << "numbers are not parsed from strings";
  ZTValue boolean = missing;
  boolean["Height"] = true;
  EXPECT_FALSE(ZTRectFromValue(boolean).has_value());
  EXPECT_FALSE(ZTPointFromValue(ZTValue(42)).has_value());
  EXPECT_FALSE(ZTPointFromValue(ZTValue()).has_value());
  EXPECT_FALSE(ZTPointFromValue(ZTValue("not a point"), &error).has_value());
  EXPECT_NE(error.localizedDescription().find("not a point"), std::string::npos);
}

}  // namespace
