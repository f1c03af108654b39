#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>

#include "zentrel/geometry/angles.h"
#include "zentrel/geometry/edge_insets.h"
#include "zentrel/geometry/point_functions.h"
#include "zentrel/geometry/size_functions.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kPi = std::numbers::pi;

TEST(Clamping, LowerBoundWinsWhenTheRangeIsInverted) {
  EXPECT_EQ(ZTEnsureValueInRange(5, 0, 10), 5);
  EXPECT_EQ(ZTEnsureValueInRange(-1, 0, 10), 0);
  EXPECT_EQ(ZTEnsureValueInRange(11, 0, 10), 10);
  EXPECT_EQ(ZTEnsureValueInRange(5, 8, 2), 8);
  EXPECT_EQ(ZTEnsureValueInRange(1, 8, 2), 8);
}

TEST(Angles, WholeDegreesNormaliseWithNegativeMultiplesGoingTo360) {
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(-90), 270);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(450), 90);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(360), 0);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(0), 0);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(-360), 360);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(-720), 360);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(-1), 359);
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(-361), 359);
  const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
  // 2^63 leaves 8 when divided by 360.
  EXPECT_EQ(ZTAngleIn0to360RangeFromAngle(lowest), 352);
}

TEST(Angles, ConversionsAndDirections) {
  EXPECT_NEAR(ZTDegreesToRadians(180), kPi, 1e-15);
  EXPECT_NEAR(ZTRadiansToDegrees(kPi / 2), 90, 1e-12);
  EXPECT_NEAR(ZTXAxisAngleForVectorWithPoints({0, 0}, {-1, -1}), kPi / 4, 1e-15);
  EXPECT_NEAR(ZTXAxisAngleForVectorWithPoints({3, 0}, {0, 0}), 0, 1e-15);
  EXPECT_NEAR(ZTRotationAngleRadiansFromPoints({0, 0}, {-1, 0}), kPi, 1e-15);
  EXPECT_NEAR(ZTRotationAngleRadiansFromPoints({1, 1}, {1, 0}), -kPi / 2, 1e-15);
}

TEST(AngleSnapping, SnapsWithinTheThresholdOnEitherSide) {
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(89, 2), 90);
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(-1, 2), 0);
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(359, 2), 0);
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(-88, 2), 270);
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(540.5, 2), 180);
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(91, -2), 90) << "the threshold's sign is ignored";
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(92, 2), 90) << "the threshold itself still snaps";
}

TEST(AngleSnapping, OutsideTheThresholdGivesTheLargestDouble) {
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(92.5, 2), DBL_MAX);
  EXPECT_EQ(ZTSnapAngleTo90MultipleWithThreshold(45, 2), DBL_MAX);
  EXPECT_EQ(ZTNoAngleSnap, DBL_MAX);
}

TEST(LineSnapping, ToleranceShrinksWithLength) {
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(0.05, 100), ZTLineSnappingHorizontal);
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(-0.05, 100), ZTLineSnappingHorizontal);
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(kPi / 2 - 0.05, 100), ZTLineSnappingVertical);
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(-kPi / 4, 100), ZTLineSnappingDiagonal);
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(0.5, 100), ZTLineSnappingNone);
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(0.05, 1000), ZTLineSnappingNone);
  EXPECT_EQ(static_cast<int>(ZTLineSnappingVertical), 1);
  EXPECT_EQ(static_cast<int>(ZTLineSnappingHorizontal), 2);
  EXPECT_EQ(static_cast<int>(ZTLineSnappingDiagonal), 3);
}

TEST(LineSnapping, HorizontalIsCheckedFirstWhenTolerancesOverlap) {
  // Tolerance 1 radian: 0.7 is nearer to 45 degrees but horizontal is tested first.
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(0.7, 10), ZTLineSnappingHorizontal);
  EXPECT_EQ(ZTSnappingForLineWithXAxisAngleAndLenght(1.2, 10), ZTLineSnappingVertical);
}

TEST(FastDistance, StaysWithinTwoTenthsOfAPercent) {
  EXPECT_NEAR(ZTGetFastDistanceBetweenPoints({0, 0}, {6, 8}), 10.0155, 1e-3);
  EXPECT_GT(std::fabs(ZTGetFastDistanceBetweenPoints({0, 0}, {6, 8}) - 10), 0.01) << "an approximation, not sqrt";
  double worst = 0;
  for (double d = 0.001; d < 1e6; d *= 1.37) {
    const double fast = ZTGetFastDistanceBetweenPoints({1, 2}, {1 + d * 0.6, 2 - d * 0.8});
    worst = std::fmax(worst, std::fabs(fast - d) / d);
  }
  EXPECT_LT(worst, 0.002);
  EXPECT_GT(worst, 0.0001);
}

TEST(FastDistance, CoincidentPointsGiveATinyPositiveValue) {
  const double zero = ZTGetFastDistanceBetweenPoints({3, 3}, {3, 3});
  EXPECT_GT(zero, 0);
  EXPECT_NEAR(zero, 5.05e-20, 0.01e-20);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPoints({3, 3}, {3, 3}), 0);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPoints({0, 0}, {-3, 4}), 5);
}

TEST(PointToRectDistance, InsidePointsMeasureToTheNearestEdge) {
  const ZTRect r = ZTRectMake(0, 0, 100, 100);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({5, 5}, r), 5);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({2, 30}, r), 2);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({60, 97}, r), 3);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({50, 50}, r), 50);
}

TEST(PointToRectDistance, APointOnTheMidlineMeasuresToTheMinEdge) {
  // The two edges are equally far only in exact arithmetic: here midX = 0.2, minX = 0.1 and
  // maxX = 0.30000000000000004, so the choice of edge shows in the last bits.
  const ZTRect r = ZTRectMake(0.1, 0, 0.2, 100);
  EXPECT_EQ(ZTDistanceBetweenPointAndRect({0.2, 50}, r), 0.2 - 0.1);
  EXPECT_NE(ZTDistanceBetweenPointAndRect({0.2, 50}, r), ZTRectGetMaxX(r) - 0.2);
}

TEST(PointToRectDistance, OutsidePointsMeasureToTheEdgeOrTheCorner) {
  const ZTRect r = ZTRectMake(0, 0, 100, 100);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({110, 50}, r), 10);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({-5, 50}, r), 5);
  EXPECT_DOUBLE_EQ(ZTDistanceBetweenPointAndRect({50, 120}, r), 20);
  // Beyond a corner: the fast distance, about 5.008 rather than 5.
  const double corner = ZTDistanceBetweenPointAndRect({103, 104}, r);
  EXPECT_NEAR(corner, 5.008, 0.001);
  EXPECT_NE(corner, 5.0);
  EXPECT_NEAR(ZTDistanceBetweenPointAndRect({-3, -4}, r), 5.008, 0.001);
}

TEST(PointsInRects, EnsurePointInRectKeepsToTheLastWholePixel) {
  EXPECT_EQ(ZTEnsurePointInRect({15, -3}, ZTRectMake(0, 0, 10, 10)), (ZTPoint{9, 0}));
  EXPECT_EQ(ZTEnsurePointInRect({1, 1}, ZTRectMake(0, 0, 0.5, 0.5)), (ZTPoint{0, 0}));
  // The upper limit never goes below 0, so rects left of the origin do not clamp from above.
  EXPECT_EQ(ZTEnsurePointInRect({-5, -5}, ZTRectMake(-20, -20, 10, 10)), (ZTPoint{-5, -5}));
}

TEST(PointsInRects, FittedToRectMayLandOnTheMaxEdge) {
  EXPECT_EQ(ZTPointFittedToRect({15, 5}, ZTRectMake(0, 0, 10, 10)), (ZTPoint{10, 5}));
  EXPECT_EQ(ZTPointFittedToRect({-1, 11}, ZTRectMake(0, 0, 10, 10)), (ZTPoint{0, 10}));
  EXPECT_EQ(ZTPointFittedToRect({3, 4}, ZTRectMake(0, 0, 10, 10)), (ZTPoint{3, 4}));
}

TEST(PointRounding, IntegralRoundsInSinglePrecision) {
  EXPECT_EQ(ZTPointIntegral({1.5, -2.5}), (ZTPoint{2, -3}));
  // 2.49999999 is 2.5 in single precision, which rounds away from zero.
  EXPECT_EQ(ZTPointIntegral({2.49999999, 0}).x, 3);
  EXPECT_EQ(ZTPointCeil({1.1, -1.1}), (ZTPoint{2, -1}));
  EXPECT_EQ(ZTPointFloor({1.1, -1.1}), (ZTPoint{1, -2}));
  EXPECT_EQ(ZTPointScale({2, 3}, {-1, 0.5}), (ZTPoint{-2, 1.5}));
}

TEST(SizeFitting, GetFittedSizeEnlargesAndShrinks) {
  EXPECT_EQ(ZTGetFittedSize({200, 100}, {50, 50}), (ZTSize{50, 25}));
  EXPECT_EQ(ZTGetFittedSize({10, 20}, {100, 100}), (ZTSize{50, 100}));
  EXPECT_EQ(ZTGetFittedSize({0, 5}, {10, 10}), ZTSizeZero);
}

TEST(SizeFitting, FittedSizeForSizeOnlyScalesUpWhenForced) {
  EXPECT_EQ(ZTFittedSizeForSize({100, 50}, {400, 400}, false), (ZTSize{100, 50}));
  EXPECT_EQ(ZTFittedSizeForSize({100, 50}, {400, 400}, true), (ZTSize{400, 200}));
  EXPECT_EQ(ZTFittedSizeForSize({100, 50}, {40, 40}, false), (ZTSize{40, 20}));
  EXPECT_EQ(ZTFittedSizeForSize({50, 100}, {40, 40}, false), (ZTSize{20, 40}));
}

TEST(SizeFitting, FittedSizeForSizeDegenerateMaximums) {
  EXPECT_EQ(ZTFittedSizeForSize({100, 50}, {-1, 10}, false), (ZTSize{-1, 10}));
  EXPECT_EQ(ZTFittedSizeForSize({100, 50}, {0, 30}, false), (ZTSize{0, 30}));
  EXPECT_EQ(ZTFittedSizeForSize({100, 50}, {30, 0}, false), (ZTSize{30, 0}));
  EXPECT_EQ(ZTFittedSizeForSize({0, 50}, {10, 10}, false), ZTSizeZero);
  EXPECT_EQ(ZTFittedSizeForSize({0, 5}, {10, 10}, false), (ZTSize{0, 5})) << "fits: returned before the zero check";
}

TEST(SizeArithmetic, ScalesRoundingAndRatios) {
  EXPECT_EQ(ZTScaleBetweenSizes({10, 0}, {20, 5}), (ZTSize{2, 1}));
  EXPECT_EQ(ZTScaleBetweenSizes({10, 4}, {0, 2}), (ZTSize{1, 0.5}));
  EXPECT_EQ(ZTSizeCeilf({1.00000001, 2.1}), (ZTSize{1, 3}));
  EXPECT_EQ(ZTSizeRound({-2.5, 2.5}), (ZTSize{-3, 3}));
  EXPECT_EQ(ZTSizeFloor({-2.5, 2.5}), (ZTSize{-3, 2}));
  EXPECT_EQ(ZTSizeAbs({-2, 3}), (ZTSize{2, 3}));
  EXPECT_EQ(ZTSizeInflate({1, 2}, {-3, 4}), (ZTSize{-2, 6}));
  EXPECT_EQ(ZTSizeArea({-2, 3}), -6);
  EXPECT_EQ(ZTSizeAspectRatioOrZero({4, 0}), 0);
  EXPECT_EQ(ZTSizeAspectRatioOrZero({4, -2}), 0);
  EXPECT_EQ(ZTSizeAspectRatioOrZero({4, 1e-17}), 0);
  EXPECT_EQ(ZTSizeAspectRatioOrZero({4, 2}), 2);
  EXPECT_TRUE(ZTSizeIsEqualToSizeWithEpsilon({1, 1}, {1.05, 0.95}, 0.1));
  EXPECT_FALSE(ZTSizeIsEqualToSizeWithEpsilon({1, 1}, {1.5, 1}, 0.5));
}

TEST(EdgeInsets, NullInsetsNeedAllFourInfinite) {
  EXPECT_TRUE(ZTEdgeInsetsIsNull(ZTEdgeInsetsNull));
  EXPECT_FALSE(ZTEdgeInsetsIsNull({kInf, kInf, kInf, 0}));
  EXPECT_FALSE(ZTEdgeInsetsIsNull({-kInf, -kInf, -kInf, -kInf}));
}

TEST(EdgeInsets, RemovingAndRecoveringInsetsRoundTrips) {
  const ZTEdgeInsets insets{1, 2, 3, 4};
  const ZTRect rect = ZTRectMake(10, 20, 100, 50);
  const ZTRect inner = ZTRectByRemovingEdgeInsetsFromRect(insets, rect);
  EXPECT_EQ(inner, ZTRectMake(12, 21, 94, 46));
  EXPECT_EQ(ZTRectByAddingEdgeInsetsToRect(insets, inner), rect);
  EXPECT_EQ(ZTEdgeInsetsForInsetedRectAndOriginalRect(inner, rect), insets);
}

}  // namespace
