#include <gtest/gtest.h>

#include <cmath>

#include "zentrel/geometry/intersection.h"
#include "zentrel/geometry/line.h"

namespace {

void ExpectPointNear(ZTPoint expected, ZTPoint actual, double tolerance = 1e-12) {
  EXPECT_NEAR(expected.x, actual.x, tolerance);
  EXPECT_NEAR(expected.y, actual.y, tolerance);
}

TEST(SegmentCheck, TouchingEndsCountParallelNeverDoes) {
  EXPECT_TRUE(ZTSegmentIntersectionCheck({0, 0}, {10, 10}, {0, 10}, {10, 0}));
  EXPECT_TRUE(ZTSegmentIntersectionCheck({0, 0}, {10, 0}, {10, -5}, {10, 5})) << "at the first segment's end";
  EXPECT_TRUE(ZTSegmentIntersectionCheck({0, 0}, {10, 0}, {5, 0}, {5, 5})) << "at the second segment's start";
  EXPECT_FALSE(ZTSegmentIntersectionCheck({0, 0}, {10, 0}, {11, -5}, {11, 5}));
  EXPECT_FALSE(ZTSegmentIntersectionCheck({0, 0}, {10, 0}, {0, 1}, {10, 1})) << "parallel";
  EXPECT_FALSE(ZTSegmentIntersectionCheck({0, 0}, {10, 0}, {5, 0}, {15, 0})) << "collinear and overlapping";
}

TEST(SegmentIntersection, ThePointWhereTheyCross) {
  ExpectPointNear({5, 5}, ZTGetSegmentIntersection({0, 0}, {10, 10}, {0, 10}, {10, 0}));
  ExpectPointNear({2.5, 0}, ZTGetSegmentIntersection({0, 0}, {10, 0}, {2.5, 7}, {2.5, -1}));
  EXPECT_TRUE(ZTPointIsNoIntersection(ZTGetSegmentIntersection({0, 0}, {10, 0}, {0, 1}, {10, 1})));
  EXPECT_TRUE(ZTPointIsNoIntersection(ZTGetSegmentIntersection({0, 0}, {10, 0}, {11, -5}, {11, 5})));
}

// The ends are treated differently: P1, P3 and P4 count, P2 does not. Both orientations of the
// second segment are checked, as they flip the sign of the denominator.
TEST(SegmentIntersection, TheFirstSegmentsEndPointIsExcluded) {
  EXPECT_TRUE(ZTPointIsNoIntersection(ZTGetSegmentIntersection({0, 0}, {10, 0}, {10, -5}, {10, 5})));
  EXPECT_TRUE(ZTPointIsNoIntersection(ZTGetSegmentIntersection({0, 0}, {10, 0}, {10, 5}, {10, -5})));
  ExpectPointNear({0, 0}, ZTGetSegmentIntersection({0, 0}, {10, 0}, {0, -5}, {0, 5}));
  ExpectPointNear({0, 0}, ZTGetSegmentIntersection({0, 0}, {10, 0}, {0, 5}, {0, -5}));
}

TEST(SegmentIntersection, BothEndsOfTheSecondSegmentAreIncluded) {
  ExpectPointNear({5, 0}, ZTGetSegmentIntersection({5, -5}, {5, 5}, {0, 0}, {5, 0}));
  ExpectPointNear({5, 0}, ZTGetSegmentIntersection({5, 5}, {5, -5}, {10, 0}, {5, 0}));
  ExpectPointNear({5, 0}, ZTGetSegmentIntersection({5, -5}, {5, 5}, {5, 0}, {10, 0}));
  ExpectPointNear({5, 0}, ZTGetSegmentIntersection({5, 5}, {5, -5}, {5, 0}, {0, 0}));
}

TEST(SegmentIntersection, AChainOfSegmentsCountsEachJointOnce) {
  // A polyline crossing a vertical line exactly at a joint is reported by one of its segments.
  const ZTPoint joint{5, 0};
  const ZTPoint lineStart{5, -10}, lineEnd{5, 10};
  const ZTPoint a = ZTGetSegmentIntersection({0, -3}, joint, lineStart, lineEnd);
  const ZTPoint b = ZTGetSegmentIntersection(joint, {10, 3}, lineStart, lineEnd);
  EXPECT_TRUE(ZTPointIsNoIntersection(a));
  ExpectPointNear(joint, b);
}

TEST(SegmentAndRect, EdgesAreCrossedOnlyBySegmentsThatLeave) {
  const ZTRect r = ZTRectMake(0, 0, 10, 10);
  EXPECT_TRUE(ZTRectIntersectedBySegment(r, {-5, 5}, {5, 5}));
  EXPECT_TRUE(ZTRectIntersectedBySegment(r, {-5, -5}, {0, 0})) << "touching a corner";
  EXPECT_TRUE(ZTRectIntersectedBySegment(r, {-5, 5}, {15, 5}));
  EXPECT_FALSE(ZTRectIntersectedBySegment(r, {2, 2}, {8, 8})) << "wholly inside";
  EXPECT_FALSE(ZTRectIntersectedBySegment(r, {-5, -5}, {-1, 20}));
  EXPECT_TRUE(ZTRectContainsSegment(r, {5, 5}, {50, 50}));
  EXPECT_FALSE(ZTRectContainsSegment(r, {10, 10}, {50, 50})) << "the max corner is outside";
  EXPECT_FALSE(ZTRectContainsSegment(r, {-5, 5}, {15, 5})) << "crossing is not containing";
}

TEST(EllipseAndRect, OnlyAnOutlineThatCrossesCounts) {
  const ZTRect ellipse = ZTRectMake(0, 0, 100, 50);  // centre (50, 25), semi-axes 50 and 25
  EXPECT_FALSE(ZTEllipseIntersectedByRect(ellipse, ZTRectMake(40, 20, 10, 10))) << "wholly inside";
  EXPECT_TRUE(ZTEllipseIntersectedByRect(ellipse, ZTRectMake(45, 40, 10, 20))) << "straddles the bottom";
  EXPECT_TRUE(ZTEllipseIntersectedByRect(ellipse, ZTRectMake(45, 10, 100, 100))) << "one corner inside";
  EXPECT_FALSE(ZTEllipseIntersectedByRect(ellipse, ZTRectMake(-10, -10, 120, 70))) << "encloses the ellipse";
  EXPECT_FALSE(ZTEllipseIntersectedByRect(ellipse, ZTRectMake(200, 200, 10, 10))) << "far away";
}

TEST(EllipseAndRect, CornersBeyondTheHorizontalExtentUseTheMirroredCurve) {
  // Just right of the ellipse at mid-height: the absolute value under the root makes every corner
  // count as inside, so the rect is reported as not crossing (as if wholly inside).
  EXPECT_FALSE(ZTEllipseIntersectedByRect(ZTRectMake(0, 0, 100, 50), ZTRectMake(105, 20, 10, 10)));
}

TEST(Lines, InfiniteLineIntersection) {
  ExpectPointNear({5, 5}, ZTLineGetIntersection({{0, 0}, {10, 10}}, {{0, 10}, {10, 0}}));
  ExpectPointNear({5, 5}, ZTLineGetIntersection({{0, 0}, {1, 1}}, {{10, 0}, {9, 1}}));  // beyond both segments
  EXPECT_TRUE(ZTPointIsNoIntersection(ZTLineGetIntersection({{0, 0}, {1, 1}}, {{0, 1}, {1, 2}})));
}

TEST(Lines, NormalIsAUnitVectorInSinglePrecision) {
  const ZTPoint diagonal = ZTLineGetNormal({{0, 0}, {1, 1}});
  EXPECT_EQ(diagonal.y, static_cast<double>(std::sqrt(0.5f)));
  EXPECT_EQ(diagonal.x, -diagonal.y);
  ExpectPointNear({0, 1}, ZTLineGetNormal({{0, 0}, {10, 0}}));
  ExpectPointNear({0.6, 0.8}, ZTLineGetNormal({{0, 0}, {4, -3}}), 1e-7);
  EXPECT_EQ(ZTLineGetNormal({{0, 10}, {0, 0}}), (ZTPoint{-1, 0}));
  EXPECT_EQ(ZTLineGetNormal({{0, 0}, {0, 3}}), (ZTPoint{1, 0}));
  EXPECT_EQ(ZTLineGetNormal({{2, 2}, {2, 2}}), (ZTPoint{0, 1}));
}

TEST(Lines, MeasuresAndTransforms) {
  const ZTLine line{{1, 2}, {-3, 8}};
  EXPECT_EQ(ZTLineGetMiddlePoint(line), (ZTPoint{-1, 5}));
  EXPECT_EQ(ZTLineGetSizeOfProjectionOnXAxis(line), 4);
  EXPECT_EQ(ZTLineGetSizeOfProjectionOnYAxis(line), 6);
  const ZTLine moved = ZTLineApplyAffineTransform(ZTAffineTransformMake(2, 0, 0, 2, 1, 1), line);
  EXPECT_EQ(moved, (ZTLine{{3, 5}, {-5, 17}}));
}

TEST(Lines, RectEdgesRunInTheDocumentedDirections) {
  const ZTRect r = ZTRectMake(10, 20, -10, 20);  // standardised to (0, 20, 10, 20)
  EXPECT_EQ(ZTRectGetLeftLineSegment(r), (ZTLine{{0, 40}, {0, 20}}));
  EXPECT_EQ(ZTRectGetRightLineSegment(r), (ZTLine{{10, 40}, {10, 20}}));
  EXPECT_EQ(ZTRectGetTopLineSegment(r), (ZTLine{{0, 20}, {10, 20}}));
  EXPECT_EQ(ZTRectGetBottomLineSegment(r), (ZTLine{{0, 40}, {10, 40}}));
  EXPECT_EQ(ZTRectGetHorizontalMidlineSegment(r), (ZTLine{{0, 30}, {10, 30}}));
  EXPECT_EQ(ZTRectGetVerticalMidlineSegment(r), (ZTLine{{5, 20}, {5, 40}}));
}

class InnerLine : public ::testing::Test {
 protected:
  const ZTRect r = ZTRectMake(0, 0, 10, 10);
};

TEST_F(InnerLine, SegmentsInsideComeBackUnchanged) {
  const ZTLine inside{{1, 1}, {5, 5}};
  EXPECT_EQ(ZTRectGetInnerIntersectedLine(r, inside), inside);
}

TEST_F(InnerLine, RunsFromTheInsideEndToTheCrossing) {
  EXPECT_EQ(ZTRectGetInnerIntersectedLine(r, {{5, 5}, {15, 5}}), (ZTLine{{5, 5}, {10, 5}}));
  EXPECT_EQ(ZTRectGetInnerIntersectedLine(r, {{-5, 5}, {5, 5}}), (ZTLine{{5, 5}, {0, 5}}));
}

TEST_F(InnerLine, ASegmentThroughTheRectGivesBothCrossingsInEdgeOrder) {
  EXPECT_EQ(ZTRectGetInnerIntersectedLine(r, {{-5, 5}, {15, 5}}), (ZTLine{{0, 5}, {10, 5}}));
  EXPECT_EQ(ZTRectGetInnerIntersectedLine(r, {{15, 5}, {-5, 5}}), (ZTLine{{0, 5}, {10, 5}}));
  // Through two corners: the left edge's end point (0, 0) is not counted there, so the right
  // edge's (10, 10) comes first and the top edge's (0, 0) second.
  EXPECT_EQ(ZTRectGetInnerIntersectedLine(r, {{-5, -5}, {20, 20}}), (ZTLine{{10, 10}, {0, 0}}));
}

TEST_F(InnerLine, MissingOrGrazingSegmentsGiveTheNoneLine) {
  EXPECT_TRUE(ZTLineIsNone(ZTRectGetInnerIntersectedLine(r, {{-5, -5}, {-1, 20}})));
  EXPECT_TRUE(ZTLineIsNone(ZTRectGetInnerIntersectedLine(r, {{-5, 5}, {5, -5}}))) << "only the corner";
  // The corner (0, 10) starts both the left and the bottom edge: found twice, it is still one point.
  EXPECT_TRUE(ZTLineIsNone(ZTRectGetInnerIntersectedLine(r, {{-5, 5}, {5, 15}})));
  // Leaving from a point on the left edge: the inside end and the crossing coincide.
  EXPECT_TRUE(ZTLineIsNone(ZTRectGetInnerIntersectedLine(r, {{0, 5}, {-5, 5}})));
}

}  // namespace
