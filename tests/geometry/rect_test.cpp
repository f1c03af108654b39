#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "zentrel/geometry/rect.h"
#include "zentrel/geometry/rect_functions.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

void ExpectRectNear(ZTRect expected, ZTRect actual, double tolerance = 1e-9) {
  EXPECT_NEAR(expected.origin.x, actual.origin.x, tolerance);
  EXPECT_NEAR(expected.origin.y, actual.origin.y, tolerance);
  EXPECT_NEAR(expected.size.width, actual.size.width, tolerance);
  EXPECT_NEAR(expected.size.height, actual.size.height, tolerance);
}

TEST(RectBasics, NegativeSizesAreStandardisedByEveryAccessor) {
  const ZTRect flipped = ZTRectMake(10, 20, -10, -20);
  EXPECT_EQ(ZTRectGetMinX(flipped), 0);
  EXPECT_EQ(ZTRectGetMaxX(flipped), 10);
  EXPECT_EQ(ZTRectGetMidX(flipped), 5);
  EXPECT_EQ(ZTRectGetMinY(flipped), 0);
  EXPECT_EQ(ZTRectGetMaxY(flipped), 20);
  EXPECT_EQ(ZTRectStandardize(flipped), ZTRectMake(0, 0, 10, 20));
  EXPECT_TRUE(ZTRectEqualToRect(flipped, ZTRectMake(0, 0, 10, 20)));
  EXPECT_FALSE(flipped == ZTRectMake(0, 0, 10, 20)) << "raw fields stay as stored";
  EXPECT_TRUE(ZTRectContainsPoint(flipped, {0, 0}));
  EXPECT_EQ(ZTRectArea(flipped), 200);
}

TEST(RectBasics, NullAndInfiniteRectsBehaveAsIdentityElements) {
  EXPECT_TRUE(ZTRectIsNull(ZTRectNull));
  EXPECT_TRUE(ZTRectIsEmpty(ZTRectNull));
  EXPECT_FALSE(ZTRectIsNull(ZTRectZero));
  EXPECT_TRUE(ZTRectIsInfinite(ZTRectInfinite));
  const ZTRect r = ZTRectMake(1, 2, 3, 4);
  EXPECT_EQ(ZTRectUnion(r, ZTRectNull), r);
  EXPECT_EQ(ZTRectUnion(ZTRectNull, r), r);
  EXPECT_TRUE(ZTRectIsNull(ZTRectIntersection(r, ZTRectNull)));
  EXPECT_EQ(ZTRectIntersection(r, ZTRectInfinite), r);
  EXPECT_FALSE(ZTRectContainsPoint(ZTRectNull, {kInf, kInf}));
  EXPECT_TRUE(ZTRectEqualToRect(ZTRectNull, ZTRectMake(kInf, 0, 5, 5)));
  EXPECT_TRUE(ZTRectIsNull(ZTRectIntegral(ZTRectNull)));
}

TEST(RectBasics, PointContainmentExcludesTheMaxEdges) {
  const ZTRect r = ZTRectMake(0, 0, 10, 10);
  EXPECT_TRUE(ZTRectContainsPoint(r, {0, 0}));
  EXPECT_TRUE(ZTRectContainsPoint(r, {9.999, 9.999}));
  EXPECT_FALSE(ZTRectContainsPoint(r, {10, 5}));
  EXPECT_FALSE(ZTRectContainsPoint(r, {5, 10}));
  EXPECT_FALSE(ZTRectContainsPoint(ZTRectMake(0, 0, 0, 10), {0, 5})) << "an empty rect contains nothing";
}

TEST(RectBasics, IntersectionUnionAndContainment) {
  const ZTRect a = ZTRectMake(0, 0, 10, 10);
  EXPECT_EQ(ZTRectIntersection(a, ZTRectMake(5, -5, 10, 10)), ZTRectMake(5, 0, 5, 5));
  EXPECT_TRUE(ZTRectIsNull(ZTRectIntersection(a, ZTRectMake(11, 0, 5, 5))));
  // Rects that share an edge intersect in a line.
  EXPECT_EQ(ZTRectIntersection(a, ZTRectMake(10, 0, 5, 5)), ZTRectMake(10, 0, 0, 5));
  EXPECT_TRUE(ZTRectIntersectsRect(a, ZTRectMake(10, 0, 5, 5)));
  EXPECT_EQ(ZTRectUnion(a, ZTRectMake(20, 20, -5, -5)), ZTRectMake(0, 0, 20, 20));
  EXPECT_TRUE(ZTRectContainsRect(a, a));
  EXPECT_TRUE(ZTRectContainsRect(a, ZTRectMake(10, 10, -10, -10)));
  EXPECT_FALSE(ZTRectContainsRect(a, ZTRectMake(1, 1, 10, 1)));
  EXPECT_FALSE(ZTRectContainsRect(a, ZTRectNull));
}

TEST(RectBasics, IntegralCoversTheRectWithWholeEdges) {
  EXPECT_EQ(ZTRectIntegral(ZTRectMake(0.5, -0.5, 1.2, 1.0)), ZTRectMake(0, -1, 2, 2));
  EXPECT_EQ(ZTRectIntegral(ZTRectMake(3.5, 0, -1, 1)), ZTRectMake(2, 0, 2, 1));
  EXPECT_EQ(ZTRectIntegralMake(ZTRectMake(1, 1, 1, 1)), ZTRectMake(1, 1, 1, 1));
}

TEST(RectRounding, SinglePrecisionCeilingDiffersFromDouble) {
  // 1.00000001 is 1 in single precision, so its ceiling is 1, not 2.
  EXPECT_EQ(ZTRectCeilf(ZTRectMake(1.00000001, 0.2, 2.5, -1.5)), ZTRectMake(1, 1, 3, -1));
  EXPECT_EQ(ZTRectRound(ZTRectMake(0.5, -0.5, 1.5, -2.5)), ZTRectMake(1, -1, 2, -3));
}

TEST(RectRounding, PixelSnappingMovesOnlyTheOrigin) {
  const ZTRect snapped = ZTRectMakeWithCenterAndSizeFittedToPixelsWithScale({10.3, 10}, {5, 5}, true, 2);
  // Origin (7.8, 7.5) * 2 = (15.6, 15) -> rounded (16, 15) -> / 2.
  EXPECT_EQ(snapped, ZTRectMake(8, 7.5, 5, 5));
  const ZTRect unsnapped = ZTRectMakeWithCenterAndSizeFittedToPixelsWithScale({10.3, 10}, {5, 5}, false, 2);
  ExpectRectNear(ZTRectMake(7.8, 7.5, 5, 5), unsnapped);
  // Half a pixel rounds away from zero on both sides of the axis.
  EXPECT_EQ(ZTRectFittedToPixels(ZTRectMake(0.25, -0.25, 1, 1), 2), ZTRectMake(0.5, -0.5, 1, 1));
}

TEST(RectEquality, EpsilonComparisonIsStrict) {
  const ZTRect a = ZTRectMake(0, 0, 10, 10);
  EXPECT_TRUE(ZTRectIsEqualToRectWithEpsilon(a, ZTRectMake(0.09, 0, 10, 10.09), 0.1));
  EXPECT_FALSE(ZTRectIsEqualToRectWithEpsilon(a, ZTRectMake(0.5, 0, 10, 10), 0.5));
}

TEST(RectLayout, PreciseIntersectionReturnsTheContainedInputUntouched) {
  const ZTRect outer = ZTRectMake(0.1, 0.2, 100.3, 100.7);
  const ZTRect inner = ZTRectMake(0.1 + 1e-15, 0.7, 0.3, 0.3);
  EXPECT_EQ(ZTPreciseRectIntersection(outer, inner), inner);
  EXPECT_EQ(ZTPreciseRectIntersection(inner, outer), inner);
  EXPECT_EQ(ZTPreciseRectIntersection(ZTRectMake(0, 0, 10, 10), ZTRectMake(5, 5, 10, 10)), ZTRectMake(5, 5, 5, 5));
}

TEST(RectLayout, AdjacencyLooksAtOneAxisOnly) {
  EXPECT_TRUE(ZTRectAdjacentToRect(ZTRectMake(0, 0, 10, 10), ZTRectMake(10, 500, 10, 10)));
  EXPECT_TRUE(ZTRectAdjacentToRect(ZTRectMake(0, 10, 10, 10), ZTRectMake(0, 0, 10, 10)));
  EXPECT_FALSE(ZTRectAdjacentToRect(ZTRectMake(0, 0, 10, 10), ZTRectMake(10.5, 0, 10, 10)));
}

TEST(RectLayout, EnsureRectInRectShrinksThenClamps) {
  const ZTRect bounds = ZTRectMake(0, 0, 100, 50);
  EXPECT_EQ(ZTEnsureRectInRect(ZTRectMake(90, -10, 20, 20), bounds), ZTRectMake(80, 0, 20, 20));
  EXPECT_EQ(ZTEnsureRectInRect(ZTRectMake(-50, 10, 300, 10), bounds), ZTRectMake(0, 10, 100, 10));
  EXPECT_EQ(ZTEnsureRectInRect(ZTRectMake(50, 50, -20, -20), bounds), ZTRectMake(30, 30, 20, 20));
}

TEST(RectLayout, OffsetToFitAlignsAnOversizedRectToTheMaxEdges) {
  const ZTRect bounds = ZTRectMake(0, 0, 100, 100);
  EXPECT_EQ(ZTOffsetRectToFitInRect(ZTRectMake(-10, 95, 20, 20), bounds), ZTRectMake(0, 80, 20, 20));
  EXPECT_EQ(ZTOffsetRectToFitInRect(ZTRectMake(-50, -50, 200, 150), bounds), ZTRectMake(-100, -50, 200, 150));
}

TEST(RectLayout, FittedToRectScalesByWidthThenHeightKeepingProportions) {
  const ZTRect bounds = ZTRectMake(0, 0, 100, 100);
  ExpectRectNear(ZTRectMake(0, 0, 100, 50), ZTRectFittedToRect(ZTRectMake(0, 0, 200, 100), bounds));
  ExpectRectNear(ZTRectMake(75, 0, 25, 100), ZTRectFittedToRect(ZTRectMake(90, 0, 50, 200), bounds));
  // A zero bounds width does not scale; the final move still aligns the max edges.
  ExpectRectNear(ZTRectMake(-200, 0, 200, 100),
                 ZTRectFittedToRect(ZTRectMake(0, 0, 200, 100), ZTRectMake(0, 0, 0, 100)));
}

TEST(RectLayout, InsetTakesLeftTopRightBottom) {
  EXPECT_EQ(ZTRectInset(ZTRectMake(10, 20, 100, 50), 1, 2, 3, 4), ZTRectMake(11, 22, 96, 44));
  EXPECT_EQ(ZTRectInset(ZTRectMake(0, 0, 10, 10), -1, -1, -1, -1), ZTRectMake(-1, -1, 12, 12));
  EXPECT_EQ(ZTRectInsetBy(ZTRectMake(10, 10, -10, -10), 2, 3), ZTRectMake(2, 3, 6, 4)) << "standardised first";
  EXPECT_TRUE(ZTRectIsNull(ZTRectInsetBy(ZTRectMake(0, 0, 10, 10), 6, 0))) << "shrunk past zero";
  EXPECT_EQ(ZTRectOffset(ZTRectMake(1, 1, 2, 2), 3, -1), ZTRectMake(4, 0, 2, 2));
}

TEST(RectLayout, PerpendicularRectKeepsTheCentre) {
  EXPECT_EQ(ZTRectMakeWithPerpendicularRect(ZTRectMake(0, 0, 40, 20)), ZTRectMake(10, -10, 20, 40));
  EXPECT_EQ(ZTRectMakeWithPoints({5, 1}, {1, 7}), ZTRectMake(1, 1, 4, 6));
  EXPECT_EQ(ZTRectByExtendingRectToPoint(ZTRectMake(0, 0, 1, 1), {5, -2}), ZTRectMake(0, -2, 5, 3));
}

class Subtraction : public ::testing::Test {
 protected:
  const ZTRect r = ZTRectMake(0, 0, 100, 100);
};

TEST_F(Subtraction, RemovesAStripFromEachSide) {
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(0, 0, 100, 30)), ZTRectMake(0, 30, 100, 70));
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(-5, 60, 110, 50)), ZTRectMake(0, 0, 100, 60));
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(0, -1, 25, 102)), ZTRectMake(25, 0, 75, 100));
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(70, 0, 30, 100)), ZTRectMake(0, 0, 70, 100));
}

TEST_F(Subtraction, AmbiguousCutsLeaveTheRectUnchanged) {
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(0, 30, 100, 30)), r) << "band through the middle";
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(30, 0, 30, 100)), r) << "vertical band";
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(50, 50, 80, 80)), r) << "a corner";
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(200, 0, 10, 10)), r) << "disjoint";
}

TEST_F(Subtraction, CoveringCutLeavesTheZeroRect) {
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(-10, -10, 200, 200)), ZTRectZero);
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, r), ZTRectZero);
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, ZTRectMake(-10, 0, 120, 100)), ZTRectZero);
}

TEST_F(Subtraction, EpsilonMakesNearlyAlignedEdgesCount) {
  const ZTRect nearlyTop = ZTRectMake(0.3, 0, 100, 30);
  EXPECT_EQ(ZTRectSubstractIfUnambigous(r, nearlyTop), r) << "exact comparison: S starts inside R";
  EXPECT_EQ(ZTRectSubstractIfUnambigousWithEpsilon(r, nearlyTop, 0.5), ZTRectMake(0, 30, 100, 70));
  EXPECT_EQ(ZTRectSubstractIfUnambigousWithEpsilon(r, nearlyTop, 0.3), r) << "the tolerance is strict";
  // A left strip whose right edge is within epsilon of R's right edge removes everything.
  EXPECT_EQ(ZTRectSubstractIfUnambigousWithEpsilon(r, ZTRectMake(0, 0, 99.8, 100), 0.5), ZTRectZero);
  EXPECT_EQ(ZTRectSubstractIfUnambigousWithEpsilon(r, ZTRectMake(0, 0, 99.8, 100), kInf),
            ZTRectMake(99.8, 0, 100 - 99.8, 100));
}

TEST(RectCutting, EightCellsInReadingOrder) {
  const auto cells = ZTRectsByCuttingOutRectFromRect(ZTRectMake(0, 0, 30, 30), ZTRectMake(10, 10, 10, 10));
  ASSERT_TRUE(cells.has_value());
  const std::vector<ZTRect> expected = {
      ZTRectMake(0, 0, 10, 10),  ZTRectMake(10, 0, 10, 10),  ZTRectMake(20, 0, 10, 10),
      ZTRectMake(0, 10, 10, 10), ZTRectMake(20, 10, 10, 10), ZTRectMake(0, 20, 10, 10),
      ZTRectMake(10, 20, 10, 10), ZTRectMake(20, 20, 10, 10)};
  EXPECT_EQ(*cells, expected);
}

TEST(RectCutting, ThinCellsAreDropped) {
  const auto left = ZTRectsByCuttingOutRectFromRect(ZTRectMake(0, 0, 30, 30), ZTRectMake(0, 10, 10, 10));
  ASSERT_TRUE(left.has_value());
  const std::vector<ZTRect> expected = {ZTRectMake(0, 0, 10, 10),  ZTRectMake(10, 0, 20, 10),
                                        ZTRectMake(10, 10, 20, 10), ZTRectMake(0, 20, 10, 10),
                                        ZTRectMake(10, 20, 20, 10)};
  EXPECT_EQ(*left, expected);
  // A sliver of 0.00005 is below the tolerance and disappears.
  const auto sliver = ZTRectsByCuttingOutRectFromRect(ZTRectMake(0, 0, 30, 30), ZTRectMake(0.00005, 0, 30, 30));
  ASSERT_TRUE(sliver.has_value());
  EXPECT_TRUE(sliver->empty());
}

TEST(RectCutting, SentinelResults) {
  const ZTRect r = ZTRectMake(0, 0, 30, 30);
  EXPECT_FALSE(ZTRectsByCuttingOutRectFromRect(ZTRectNull, r).has_value());
  EXPECT_FALSE(ZTRectsByCuttingOutRectFromRect(r, ZTRectNull).has_value());
  EXPECT_FALSE(ZTRectsByCuttingOutRectFromRect(ZTRectMake(0, 0, 0.00009, 30), r).has_value());
  EXPECT_FALSE(ZTRectsByCuttingOutRectFromRect(ZTRectMake(30, 30, -30, -30), r).has_value());
  const auto thinCut = ZTRectsByCuttingOutRectFromRect(r, ZTRectMake(5, 5, 10, 0.00001));
  ASSERT_TRUE(thinCut.has_value());
  EXPECT_EQ(*thinCut, std::vector<ZTRect>{r});
  const auto same = ZTRectsByCuttingOutRectFromRect(r, r);
  ASSERT_TRUE(same.has_value());
  EXPECT_TRUE(same->empty());
}

TEST(RectCutting, ACutOutsideTheRectIsNotRejected) {
  // The grid columns run 0, 40, 50, 30: only cells with positive extent survive.
  const auto cells = ZTRectsByCuttingOutRectFromRect(ZTRectMake(0, 0, 30, 30), ZTRectMake(40, 10, 10, 10));
  ASSERT_TRUE(cells.has_value());
  const std::vector<ZTRect> expected = {ZTRectMake(0, 0, 40, 10), ZTRectMake(40, 0, 10, 10),
                                        ZTRectMake(0, 10, 40, 10), ZTRectMake(0, 20, 40, 10),
                                        ZTRectMake(40, 20, 10, 10)};
  EXPECT_EQ(*cells, expected);
}

}  // namespace
