#include <gtest/gtest.h>

#include <cmath>
#include <latch>
#include <limits>
#include <thread>
#include <vector>

#include "zentrel/geometry/bezier_curve.h"
#include "zentrel/platform/exceptions.h"

namespace {

void ExpectPointNear(ZTPoint expected, ZTPoint actual, double tolerance = 1e-12) {
  EXPECT_NEAR(expected.x, actual.x, tolerance);
  EXPECT_NEAR(expected.y, actual.y, tolerance);
}

struct Segment {
  std::size_t index;
  ZTPoint from, to;
};

std::vector<Segment> Segments(const ZTBezierCurve& curve, std::size_t count) {
  std::vector<Segment> out;
  curve.enumerateSegmentsWithSegmentsCount(count, [&](std::size_t i, ZTPoint a, ZTPoint b) {
    out.push_back({i, a, b});
  });
  return out;
}

template <class Curve>
concept CanChangeOwnership = requires(Curve& curve) { curve.setReleasePointsWhenDone(true); };

std::vector<double> Parameters(const ZTBezierCurve& curve, double step) {
  std::vector<double> out;
  curve.enumerateCurvePointsWithParameterStep(step, [&](ZTPoint, double t) { out.push_back(t); });
  return out;
}

TEST(BezierCurve, QuadraticEvaluationLengthAndSegments) {
  auto curve = ZTBezierCurve::quadraticBezierCurveWithStartPoint({0, 0}, {1, 2}, {2, 0});
  ASSERT_NE(curve, nullptr);
  ExpectPointNear({1, 1}, curve->curvePointForParameter(0.5));
  ExpectPointNear({0, 0}, curve->curvePointForParameter(0));
  ExpectPointNear({2, 0}, curve->curvePointForParameter(1));
  ExpectPointNear({4, -8}, curve->curvePointForParameter(2));  // not clamped to 0...1
  EXPECT_NEAR(curve->approximateLength(), 2 * std::sqrt(5.0), 1e-12);
  // sqrt(0.03 + 225) is just above 15.
  EXPECT_EQ(curve->suggestedNumberOfSegments(), 16u);
  EXPECT_EQ(curve->controlPointsCount(), 1u);
  EXPECT_EQ(curve->controlPoints()[0], (ZTPoint{1, 2}));
  EXPECT_EQ(curve->endPoint(), (ZTPoint{2, 0}));
}

TEST(BezierCurve, CubicEvaluation) {
  auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint({0, 0}, {0, 10}, {10, 10}, {10, 0});
  ASSERT_NE(curve, nullptr);
  ExpectPointNear({5, 7.5}, curve->curvePointForParameter(0.5));
  ExpectPointNear({10, 0}, curve->curvePointForParameter(1));
  ExpectPointNear({0.28, 2.7}, curve->curvePointForParameter(0.1));
  EXPECT_NEAR(curve->approximateLength(), 30, 1e-12);
}

TEST(BezierCurve, SegmentCountsGrowWithLength) {
  const ZTPoint line[2] = {{0, 0}, {0, 0}};
  EXPECT_EQ(ZTBezierCurve::create(line, 2)->suggestedNumberOfSegments(), 15u) << "the minimum";
  const ZTPoint longLine[2] = {{0, 0}, {10000, 0}};
  // sqrt(500^2 * 0.6 + 225) = 387.5...
  EXPECT_EQ(ZTBezierCurve::create(longLine, 2)->suggestedNumberOfSegments(), 388u);
}

TEST(BezierCurve, StoredValuesReplaceTheComputedOnes) {
  auto curve = ZTBezierCurve::quadraticBezierCurveWithStartPoint({0, 0}, {1, 2}, {2, 0});
  curve->setApproximateLength(100);
  EXPECT_EQ(curve->approximateLength(), 100);
  EXPECT_EQ(curve->suggestedNumberOfSegments(), 16u);  // ceil(sqrt(25 * 0.6 + 225))
  curve->setSuggestedNumberOfSegments(3);
  EXPECT_EQ(curve->suggestedNumberOfSegments(), 3u);
  curve->setSuggestedNumberOfSegments(ZTBezierCurve::kSegmentsNotComputed);
  curve->setApproximateLength(-1);
  EXPECT_EQ(curve->suggestedNumberOfSegments(), 16u) << "recomputed from the real length 4.47";
  EXPECT_NEAR(curve->approximateLength(), 2 * std::sqrt(5.0), 1e-12);
}

TEST(BezierCurve, SegmentCountsAreBoundedForEveryLength) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const ZTPoint broken[3] = {{0, 0}, {kNaN, 1}, {2, 0}};
  auto curve = ZTBezierCurve::create(broken, 3);
  EXPECT_TRUE(std::isnan(curve->approximateLength()));
  EXPECT_EQ(curve->suggestedNumberOfSegments(), ZTBezierCurve::kMinimumSuggestedSegments) << "NaN tells nothing";
  for (double length : {1e21, 1e300, kInfinity, 433'200'000.0}) {
    curve = ZTBezierCurve::create(broken, 3);
    curve->setApproximateLength(length);
    EXPECT_EQ(curve->suggestedNumberOfSegments(), ZTBezierCurve::kMaximumSuggestedSegments) << length;
  }
  const ZTPoint huge[2] = {{-1e308, 0}, {1e308, 0}};  // the length overflows to infinity
  EXPECT_EQ(ZTBezierCurve::create(huge, 2)->suggestedNumberOfSegments(), ZTBezierCurve::kMaximumSuggestedSegments);
  // Just below the maximum the formula still decides: sqrt((4.3e8 / 20)^2 * 0.6 + 225) = 16,653,828.4...
  curve = ZTBezierCurve::create(broken, 3);
  curve->setApproximateLength(4.3e8);
  EXPECT_EQ(curve->suggestedNumberOfSegments(), 16'653'828u);
}

TEST(BezierCurve, OwnershipIsFixedByTheWayTheCurveIsMade) {
  ZTPoint points[3] = {{0, 0}, {3, 4}, {6, 0}};
  auto borrowing = ZTQuadraticBezierCurve::createWithPointsNoCopy(points);
  ASSERT_NE(borrowing, nullptr);
  EXPECT_FALSE(borrowing->releasePointsWhenDone());
  EXPECT_EQ(borrowing->points().data(), points);
  EXPECT_EQ(borrowing->approximateLength(), 10);
  points[2] = {100, 0};
  EXPECT_EQ(borrowing->approximateLength(), 10) << "cached";
  EXPECT_EQ(borrowing->endPoint(), (ZTPoint{100, 0})) << "the points are borrowed, not copied";

  std::vector<ZTPoint> handedOver = {{0, 0}, {0, 10}, {10, 10}, {10, 0}};
  const ZTPoint* storage = handedOver.data();
  auto owning = ZTCubicBezierCurve::create(std::move(handedOver));
  ASSERT_NE(owning, nullptr);
  EXPECT_TRUE(owning->releasePointsWhenDone());
  EXPECT_EQ(owning->points().data(), storage) << "taken over, not copied";

  auto copying = ZTBezierCurve::create(std::span<const ZTPoint>(points));
  EXPECT_TRUE(copying->releasePointsWhenDone());
  EXPECT_NE(copying->points().data(), points);

  // Ownership cannot be changed after the fact (a borrowed buffer can never be freed by the curve).
  static_assert(!CanChangeOwnership<ZTBezierCurve>);
  EXPECT_EQ(ZTCubicBezierCurve::create(std::vector<ZTPoint>(3)), nullptr);
  EXPECT_EQ(ZTBezierCurve::createWithPointsNoCopy(std::span<const ZTPoint>(points, 1)), nullptr);
}

TEST(BezierCurve, CachesFillSafelyFromSeveralThreads) {
  // Run under ThreadSanitizer: the lazily filled caches are read and filled by four threads at once.
  for (int round = 0; round < 20; ++round) {
    auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint({0, 0}, {0, 1000}, {1000, 1000}, {1000, 0});
    std::latch start(4);
    std::vector<std::size_t> counts(4);
    std::vector<double> lengths(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        counts[i] = curve->suggestedNumberOfSegments();
        lengths[i] = curve->approximateLength();
      });
    }
    for (auto& thread : threads) thread.join();
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(lengths[i], 3000);
      EXPECT_EQ(counts[i], 118u);  // ceil(sqrt(150^2 * 0.6 + 225)) = ceil(117.15...)
    }
  }
}

TEST(BezierCurve, CreationRejectsTooFewOrMissingPoints) {
  const ZTPoint points[4] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};
  EXPECT_EQ(ZTBezierCurve::create(nullptr, 4), nullptr);
  EXPECT_EQ(ZTBezierCurve::create(points, 1), nullptr);
  EXPECT_EQ(ZTBezierCurve::createWithPointsNoCopy({}), nullptr);
  EXPECT_EQ(ZTQuadraticBezierCurve::create(points, 4), nullptr);
  EXPECT_EQ(ZTCubicBezierCurve::create(points, 3), nullptr);
  EXPECT_NE(ZTCubicBezierCurve::create(points, 4), nullptr);
}

TEST(BezierCurve, CopyingCreationOwnsItsBuffer) {
  ZTPoint points[3] = {{0, 0}, {1, 2}, {2, 0}};
  auto curve = ZTBezierCurve::create(points, 3);
  ASSERT_NE(curve, nullptr);
  EXPECT_NE(curve->points().data(), points);
  EXPECT_TRUE(curve->releasePointsWhenDone());
  points[0] = {9, 9};
  EXPECT_EQ(curve->startPoint(), (ZTPoint{0, 0}));
}

TEST(BezierCurve, TheBaseClassHoldsPointsButCannotEvaluate) {
  const ZTPoint points[2] = {{1, 2}, {3, 4}};
  auto curve = ZTBezierCurve::create(points, 2);
  ASSERT_NE(curve, nullptr);
  EXPECT_EQ(curve->startPoint(), (ZTPoint{1, 2}));
  EXPECT_EQ(curve->endPoint(), (ZTPoint{3, 4}));
  EXPECT_EQ(curve->controlPointsCount(), 0u);
  try {
    curve->curvePointForParameter(0.5);
    FAIL() << "evaluation on the base class must throw";
  } catch (const ZTInternalInconsistencyException& e) {
    EXPECT_STREQ(e.what(), "You must override curvePointForParameter in ZTBezierCurve class.");
  }
  EXPECT_THROW(Segments(*curve, 2), ZTInternalInconsistencyException);
}

TEST(BezierEnumeration, SegmentsChainFromStartToEnd) {
  auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint({0, 0}, {0, 10}, {10, 10}, {10, 0});
  const auto segments = Segments(*curve, 4);
  ASSERT_EQ(segments.size(), 4u);
  EXPECT_EQ(segments.front().from, curve->startPoint());
  for (std::size_t i = 0; i < segments.size(); ++i) {
    EXPECT_EQ(segments[i].index, i);
    if (i > 0) {
      EXPECT_EQ(segments[i].from, segments[i - 1].to);
    }
  }
  ExpectPointNear(curve->endPoint(), segments.back().to);
  ExpectPointNear({5, 7.5}, segments[1].to);
}

TEST(BezierEnumeration, ExactlyTheRequestedNumberOfSegments) {
  auto curve = ZTBezierCurve::quadraticBezierCurveWithStartPoint({0, 0}, {1, 2}, {2, 0});
  EXPECT_TRUE(Segments(*curve, 0).empty()) << "an infinite step calls nothing";
  // 1/3 in single precision overshoots 1 slightly; the last segment still counts.
  const auto thirds = Segments(*curve, 3);
  ASSERT_EQ(thirds.size(), 3u);
  ExpectPointNear(curve->endPoint(), thirds.back().to, 1e-6);
  EXPECT_EQ(Segments(*curve, 1).size(), 1u);
  // Single-precision steps of 1/n fall short of 1/n for these counts, so the accumulated parameter
  // would pass 1 and stay below the loop bound for one or two more steps.
  for (std::size_t n : {9'999u, 10'000u, 20'000u, 65'537u, 1'000'003u}) {
    std::size_t calls = 0;
    ZTPoint last{};
    curve->enumerateSegmentsWithSegmentsCount(n, [&](std::size_t index, ZTPoint, ZTPoint to) {
      EXPECT_EQ(index, calls);
      ++calls;
      last = to;
    });
    EXPECT_EQ(calls, n);
    ExpectPointNear(curve->endPoint(), last, 1e-6);  // t within 6e-8 of 1, not 1 + 2/n
  }
}

TEST(BezierEnumeration, TheLoopBoundIsOnePlusTheSinglePrecisionTenThousandth) {
  EXPECT_EQ(ZTBezierCurve::kParameterLimit, 1.0000999999974738);
  auto curve = ZTBezierCurve::quadraticBezierCurveWithStartPoint({0, 0}, {1, 2}, {2, 0});
  // 1.0001 lies above the bound (it was below 1.0001 taken in single precision, 1.000100016...).
  EXPECT_EQ(Parameters(*curve, 1.0001), (std::vector<double>{0}));
  EXPECT_EQ(Parameters(*curve, 1.0000999999974738).size(), 2u) << "the bound itself is included";
}

TEST(BezierEnumeration, CurvePointsIncludeBothEnds) {
  auto curve = ZTBezierCurve::quadraticBezierCurveWithStartPoint({0, 0}, {1, 2}, {2, 0});
  EXPECT_EQ(Parameters(*curve, 0.25), (std::vector<double>{0, 0.25, 0.5, 0.75, 1}));
  // Ten steps of 0.1 add up to just below 1; still eleven calls.
  const auto tenths = Parameters(*curve, 0.1);
  ASSERT_EQ(tenths.size(), 11u);
  EXPECT_NEAR(tenths.back(), 1, 1e-12);
  EXPECT_EQ(Parameters(*curve, 5).size(), 1u) << "t = 0 is always visited";
  EXPECT_THROW(Parameters(*curve, 0), ZTInternalInconsistencyException);
  EXPECT_THROW(Parameters(*curve, -0.5), ZTInternalInconsistencyException);
  EXPECT_THROW(Parameters(*curve, std::nan("")), ZTInternalInconsistencyException);
  // Too small to move the parameter near 1: the walk would stop advancing and never end.
  EXPECT_THROW(Parameters(*curve, 1e-17), ZTInternalInconsistencyException);
  EXPECT_EQ(Parameters(*curve, std::numeric_limits<double>::infinity()).size(), 1u);
  std::vector<ZTPoint> points;
  curve->enumerateCurvePointsWithParameterStep(0.5, [&](ZTPoint p, double) { points.push_back(p); });
  ASSERT_EQ(points.size(), 3u);
  ExpectPointNear({1, 1}, points[1]);
}

}  // namespace
