#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/geometry/path.h"
#include "zentrel/geometry/transform_functions.h"
#include "zentrel/platform/exceptions.h"

namespace {

constexpr double kPi = std::numbers::pi;

void ExpectPointNear(ZTPoint expected, ZTPoint actual, double tolerance = 1e-9) {
  EXPECT_NEAR(expected.x, actual.x, tolerance);
  EXPECT_NEAR(expected.y, actual.y, tolerance);
}

void ExpectRectNear(ZTRect expected, ZTRect actual, double tolerance = 1e-9) {
  EXPECT_NEAR(expected.origin.x, actual.origin.x, tolerance);
  EXPECT_NEAR(expected.origin.y, actual.origin.y, tolerance);
  EXPECT_NEAR(expected.size.width, actual.size.width, tolerance);
  EXPECT_NEAR(expected.size.height, actual.size.height, tolerance);
}

void ExpectTransformNear(ZTAffineTransform expected, ZTAffineTransform actual, double tolerance = 1e-9) {
  EXPECT_NEAR(expected.a, actual.a, tolerance);
  EXPECT_NEAR(expected.b, actual.b, tolerance);
  EXPECT_NEAR(expected.c, actual.c, tolerance);
  EXPECT_NEAR(expected.d, actual.d, tolerance);
  EXPECT_NEAR(expected.tx, actual.tx, tolerance);
  EXPECT_NEAR(expected.ty, actual.ty, tolerance);
}

TEST(AffineTransform, ConcatAppliesTheFirstTransformFirst) {
  const ZTAffineTransform moveThenDouble =
      ZTAffineTransformConcat(ZTAffineTransformMakeTranslation(10, 0), ZTAffineTransformMakeScale(2, 2));
  EXPECT_EQ(ZTPointApplyAffineTransform({1, 1}, moveThenDouble), (ZTPoint{22, 2}));
  // The modifying forms put their step before the existing transform.
  const ZTAffineTransform doubleThenMove =
      ZTAffineTransformScale(ZTAffineTransformMakeTranslation(10, 0), 2, 2);
  EXPECT_EQ(ZTPointApplyAffineTransform({1, 1}, doubleThenMove), (ZTPoint{12, 2}));
}

TEST(AffineTransform, InversionUndoesAndSingularTransformsComeBackUnchanged) {
  const ZTAffineTransform t = ZTAffineTransformMake(2, 1, -1, 3, 5, -7);
  ExpectTransformNear(ZTAffineTransformIdentity, ZTAffineTransformConcat(t, ZTAffineTransformInvert(t)));
  ExpectPointNear({4, 9}, ZTPointApplyAffineTransform(ZTPointApplyAffineTransform({4, 9}, t), ZTAffineTransformInvert(t)));
  const ZTAffineTransform singular = ZTAffineTransformMake(1, 2, 2, 4, 1, 1);
  EXPECT_TRUE(ZTAffineTransformIsSingular(singular));
  EXPECT_FALSE(ZTAffineTransformIsSingular(t));
  EXPECT_EQ(ZTAffineTransformInvert(singular), singular);
}

TEST(AffineTransform, RectsMapToTheBoundingBoxOfTheirCorners) {
  const ZTRect rotated = ZTRectApplyAffineTransform(ZTRectMake(0, 0, 1, 1), ZTAffineTransformMakeRotation(kPi / 4));
  ExpectRectNear(ZTRectMake(-std::sqrt(0.5), 0, std::sqrt(2.0), std::sqrt(2.0)), rotated);
  EXPECT_TRUE(ZTRectIsNull(ZTRectApplyAffineTransform(ZTRectNull, ZTAffineTransformMakeScale(2, 2))));
  EXPECT_EQ(ZTRectApplyAffineTransform(ZTRectMake(1, 1, 2, 2), ZTAffineTransformMakeScale(-1, 1)), ZTRectMake(-3, 1, 2, 2));
}

TEST(AffineTransform, RotationAngleNormalisationAndRectMapping) {
  const ZTAffineTransform t = ZTAffineTransformTranslate(ZTAffineTransformMakeRotation(0.3), 50, -20);
  EXPECT_NEAR(ZTRotationAngleRadiansFromAffineTransform(t), 0.3, 1e-12);
  EXPECT_NEAR(ZTRotationAngleRadiansFromAffineTransform(ZTAffineTransformMakeScale(-1, 1)), kPi, 1e-12);
  EXPECT_EQ(ZTAffineTransformNormalize(ZTAffineTransformMake(0.5, -0.000001, -3, 0.00001, 7, 8)),
            ZTAffineTransformMake(1, 0, -1, 1, 0, 0));
  const ZTAffineTransform fromTo = ZTAffineTransformMakeFromToRect(ZTRectMake(0, 0, 10, 20), ZTRectMake(100, 100, 20, 10));
  EXPECT_EQ(fromTo, ZTAffineTransformMake(2, 0, 0, 0.5, 100, 100));
  EXPECT_EQ(ZTPointApplyAffineTransform({10, 20}, fromTo), (ZTPoint{120, 110}));
}

TEST(QuarterTurns, DrawingTransformsTakeExactAnglesOnly) {
  const ZTRect page = ZTRectMake(0, 0, 10, 20);
  EXPECT_EQ(ZTDrawingTransformForAngle(90, page), ZTAffineTransformMake(0, -1, 1, 0, 0, 10));
  EXPECT_EQ(ZTDrawingTransformForAngle(180, page), ZTAffineTransformMake(-1, 0, 0, -1, 10, 20));
  EXPECT_EQ(ZTDrawingTransformForAngle(270, page), ZTAffineTransformMake(0, 1, -1, 0, 20, 0));
  EXPECT_EQ(ZTDrawingTransformForAngle(-90, page), ZTAffineTransformIdentity);
  EXPECT_EQ(ZTDrawingTransformForAngle(450, page), ZTAffineTransformIdentity);
  // Each quarter turn maps the W x H page onto a page with its corner at the origin.
  for (int angle : {90, 180, 270}) {
    const ZTRect mapped = ZTRectApplyAffineTransform(page, ZTDrawingTransformForAngle(angle, page));
    EXPECT_EQ(mapped.origin, ZTPointZero) << angle;
  }
}

TEST(QuarterTurns, RotateRectByDegreesTurnsAboutTheCentre) {
  const ZTRect r = ZTRectMake(0, 0, 10, 10);
  const ZTAffineTransform quarter = ZTAffineTransformToRotateRectByDegrees(90, r);
  ExpectPointNear({5, 5}, ZTPointApplyAffineTransform({5, 5}, quarter));
  ExpectPointNear({10, 0}, ZTPointApplyAffineTransform({0, 0}, quarter));
  ExpectTransformNear(quarter, ZTAffineTransformToRotateRectByDegrees(-270, r));
  ExpectTransformNear(ZTAffineTransformIdentity, ZTAffineTransformToRotateRectByDegrees(-360, r));
}

TEST(QuarterTurns, RotateRectAroundItsOrigin) {
  ExpectRectNear(ZTRectMake(-10, 10, 20, 10), ZTRotateRectAroundOrigin(ZTRectMake(10, 10, 10, 20), 90));
  ExpectRectNear(ZTRectMake(10, 10, 10, 20), ZTRotateRectAroundOrigin(ZTRectMake(10, 10, 10, 20), 360));
}

TEST(FitTransform, TurnsAndShrinksContentOntoTheBounds) {
  const ZTRect content = ZTRectMake(0, 0, 200, 100);
  const ZTRect bounds = ZTRectMake(0, 0, 100, 100);
  const ZTAffineTransform t = ZTTransformToFitRect(90, content, {50, 50}, bounds);
  ExpectRectNear(ZTRectMake(25, 0, 50, 100), ZTRectApplyAffineTransform(content, t));
  EXPECT_NEAR(t.a, 0, 1e-12) << "a quarter turn has no diagonal terms";
  EXPECT_NEAR(std::fabs(t.b), 0.5, 1e-12);
  EXPECT_NEAR(std::fabs(t.c), 0.5, 1e-12);
  // -90 is taken as 270: the same placement, turned the other way.
  const ZTAffineTransform back = ZTTransformToFitRect(-90, content, {50, 50}, bounds);
  ExpectRectNear(ZTRectMake(25, 0, 50, 100), ZTRectApplyAffineTransform(content, back));
  EXPECT_NEAR(back.b, -t.b, 1e-12);
}

TEST(FitTransform, NeverEnlargesAndMovesInsideTheBounds) {
  const ZTRect content = ZTRectMake(0, 0, 10, 20);
  const ZTRect bounds = ZTRectMake(0, 0, 100, 100);
  ExpectRectNear(ZTRectMake(45, 40, 10, 20),
                 ZTRectApplyAffineTransform(content, ZTTransformToFitRect(0, content, {50, 50}, bounds)));
  ExpectRectNear(ZTRectMake(90, 80, 10, 20),
                 ZTRectApplyAffineTransform(content, ZTTransformToFitRect(0, content, {95, 95}, bounds)));
  // 360 is not a quarter turn: no rotation at all.
  ExpectRectNear(ZTRectMake(0, 0, 10, 20),
                 ZTRectApplyAffineTransform(content, ZTTransformToFitRect(360, content, {-50, 0}, bounds)));
}

TEST(QuadTransforms, ParallelogramsAreExact) {
  const ZTPoint p0{0, 0}, p1{2, 0}, p2{3, 1}, p3{1, 1};
  const ZTAffineTransform unit = ZTUnintRectToQuadTransfrom(p0, p1, p2, p3);
  EXPECT_EQ(unit, ZTAffineTransformMake(2, 0, 1, 1, 0, 0));
  const ZTAffineTransform fromRect = ZTRectToQuadTransform(ZTRectMake(10, 10, 20, 20), p0, p1, p2, p3);
  ExpectPointNear(p0, ZTPointApplyAffineTransform({10, 10}, fromRect));
  ExpectPointNear(p1, ZTPointApplyAffineTransform({30, 10}, fromRect));
  ExpectPointNear(p2, ZTPointApplyAffineTransform({30, 30}, fromRect));
  ExpectPointNear(p3, ZTPointApplyAffineTransform({10, 30}, fromRect));
}

TEST(QuadTransforms, OtherQuadrilateralsGetTheAffineApproximation) {
  // (0,0), (1,0), (1,1), (0,2): g = 1, h = 0, so the linear part doubles x and y.
  EXPECT_EQ(ZTUnintRectToQuadTransfrom({0, 0}, {1, 0}, {1, 1}, {0, 2}), ZTAffineTransformMake(2, 0, 0, 2, 0, 0));
}

TEST(Path, BuildingRequiresACurrentPoint) {
  ZTPath path;
  EXPECT_EQ(path.currentPoint(), nullptr);
  EXPECT_THROW(path.addLineToPoint({1, 1}), ZTInternalInconsistencyException);
  EXPECT_THROW(path.addCurveToPoint({1, 1}, {2, 2}, {3, 3}), ZTInternalInconsistencyException);
  EXPECT_TRUE(path.isEmpty());
  path.moveToPoint({1, 2});
  path.addLineToPoint({5, 2});
  path.closeSubpath();
  ASSERT_NE(path.currentPoint(), nullptr);
  EXPECT_EQ(*path.currentPoint(), (ZTPoint{1, 2})) << "closing returns to the subpath's start";
  EXPECT_EQ(path.elementCount(), 3u);
}

TEST(Path, BoundingBoxesWithAndWithoutControlPoints) {
  ZTPath path;
  EXPECT_TRUE(ZTRectIsNull(path.boundingBox()));
  EXPECT_TRUE(ZTRectIsNull(path.pathBoundingBox()));
  path.moveToPoint({0, 0});
  path.addQuadCurveToPoint({5, 10}, {10, 0});
  EXPECT_EQ(path.boundingBox(), ZTRectMake(0, 0, 10, 10));
  ExpectRectNear(ZTRectMake(0, 0, 10, 5), path.pathBoundingBox());
  path.addCurveToPoint({10, -10}, {20, -10}, {20, 0});
  EXPECT_EQ(path.boundingBox(), ZTRectMake(0, -10, 20, 20));
  ExpectRectNear(ZTRectMake(0, -7.5, 20, 12.5), path.pathBoundingBox());
}

TEST(Path, TransformedCopiesAndRotation) {
  ZTPath path;
  path.addRect(ZTRectMake(0, 0, 10, 20));
  const ZTPath moved = path.copyTransformed(ZTAffineTransformMakeTranslation(5, 5));
  EXPECT_EQ(moved.boundingBox(), ZTRectMake(5, 5, 10, 20));
  EXPECT_EQ(path.boundingBox(), ZTRectMake(0, 0, 10, 20)) << "the original is untouched";
  const ZTPath turned = ZTPathRotatedByRadians(path, kPi / 2);
  ExpectRectNear(ZTRectMake(-5, 5, 20, 10), turned.boundingBox());
  EXPECT_EQ(turned.elementCount(), path.elementCount());
  EXPECT_TRUE(ZTPathRotatedByRadians(ZTPath(), 1).isEmpty());
}

TEST(Path, FreeFunctionsApplyTheOptionalTransform) {
  ZTPath path;
  const ZTAffineTransform twice = ZTAffineTransformMakeScale(2, 2);
  ZTPathAddLine(path, &twice, {1, 1}, {3, 4});
  ZTPathAddLineToPoint(path, nullptr, {0, 0});
  ASSERT_EQ(path.elementCount(), 3u);
  EXPECT_EQ(path.elements()[0].type, ZTPath::ElementType::MoveToPoint);
  EXPECT_EQ(path.elements()[0].points[0], (ZTPoint{2, 2}));
  EXPECT_EQ(path.elements()[1].points[0], (ZTPoint{6, 8}));
  EXPECT_EQ(path.elements()[2].points[0], (ZTPoint{0, 0}));
  ZTPath copy;
  copy.addPath(path);
  EXPECT_TRUE(copy == path);
  copy.addPath(copy);
  EXPECT_EQ(copy.elementCount(), 6u) << "a path can be appended to itself";
}

}  // namespace
