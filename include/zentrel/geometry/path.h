#pragma once
// ZTPath: a sequence of subpaths made of straight lines and quadratic and cubic Bezier curves, in
// the same coordinate space as the other geometry values. A value type: copies are independent
// and cheap to move. A path is not synchronised: share a const path between threads freely, but
// do not modify one that another thread reads.
//
// Building rules: every subpath begins with moveToPoint. Drawing (line, curve) without a current
// point throws ZTInternalInconsistencyException, as that is always a programming error.
// closeSubpath ends the current subpath and returns the current point to the subpath's start;
// on a path with no current point it does nothing.

#include <cstddef>
#include <initializer_list>
#include <vector>

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/platform/export.h"

class ZT_API ZTPath {
 public:
  enum class ElementType { MoveToPoint, AddLineToPoint, AddQuadCurveToPoint, AddCurveToPoint, CloseSubpath };

  // One element and its points: 1 for move and line, 2 for a quadratic curve (control, end),
  // 3 for a cubic curve (control 1, control 2, end), 0 for close. Only the first `pointCount`
  // entries of `points` are meaningful.
  struct Element {
    ElementType type;
    ZTPoint points[3];
    int pointCount;
  };

  ZTPath() = default;

  void moveToPoint(ZTPoint point);
  void addLineToPoint(ZTPoint point);
  void addQuadCurveToPoint(ZTPoint control, ZTPoint end);
  void addCurveToPoint(ZTPoint control1, ZTPoint control2, ZTPoint end);
  void closeSubpath();
  // A closed subpath around the standardised rect, counter-clockwise in a y-up frame:
  // (minX, minY), (maxX, minY), (maxX, maxY), (minX, maxY).
  void addRect(ZTRect rect);
  // Every element of another path, in order, each mapped through `t`.
  void addPath(const ZTPath& other, ZTAffineTransform t = ZTAffineTransformIdentity);
  void removeAllPoints();

  bool isEmpty() const { return elements_.empty(); }
  std::size_t elementCount() const { return elements_.size(); }
  const std::vector<Element>& elements() const { return elements_; }
  // The current point: the end of the last element, the subpath's start after a close, or nullptr
  // for an empty path.
  const ZTPoint* currentPoint() const { return hasCurrentPoint_ ? &currentPoint_ : nullptr; }

  // The smallest rect holding every point of the path, control points included; ZTRectNull for an
  // empty path. Cheap: no curve is solved.
  ZTRect boundingBox() const;
  // The smallest rect holding the drawn path itself: curves are bounded by their true extrema,
  // not by their control points. ZTRectNull for an empty path.
  ZTRect pathBoundingBox() const;

  // A new path with every point mapped through `t`.
  ZTPath copyTransformed(ZTAffineTransform t) const;

  friend ZT_API bool operator==(const ZTPath& a, const ZTPath& b);

 private:
  void requireCurrentPoint(const char* method) const;
  void append(ElementType type, std::initializer_list<ZTPoint> points);

  std::vector<Element> elements_;
  ZTPoint currentPoint_{};
  ZTPoint subpathStart_{};
  bool hasCurrentPoint_ = false;
};

// Path building with an optional transform (nullptr for none) applied to the given points first.
ZT_API void ZTPathMoveToPoint(ZTPath& path, const ZTAffineTransform* t, ZTPoint point);
ZT_API void ZTPathAddLineToPoint(ZTPath& path, const ZTAffineTransform* t, ZTPoint point);
// A move to `start` followed by a line to `end`.
ZT_API void ZTPathAddLine(ZTPath& path, const ZTAffineTransform* t, ZTPoint start, ZTPoint end);
// A copy of the path rotated by the angle about the centre of its boundingBox(). An empty path
// gives an empty copy.
ZT_API ZTPath ZTPathRotatedByRadians(const ZTPath& path, double radians);
