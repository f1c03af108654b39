#include "zentrel/geometry/path.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "zentrel/platform/exceptions.h"

namespace {

struct Bounds {
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
  bool any = false;
  void add(ZTPoint p) {
    if (!any) {
      minX = maxX = p.x;
      minY = maxY = p.y;
      any = true;
      return;
    }
    minX = std::min(minX, p.x);
    maxX = std::max(maxX, p.x);
    minY = std::min(minY, p.y);
    maxY = std::max(maxY, p.y);
  }
  ZTRect rect() const { return any ? ZTRect{{minX, minY}, {maxX - minX, maxY - minY}} : ZTRectNull; }
};

// Roots in (0, 1) of the derivative of a one-dimensional quadratic Bezier (p0, p1, p2).
int quadExtrema(double p0, double p1, double p2, double out[1]) {
  const double den = p0 - 2 * p1 + p2;
  if (den == 0) return 0;
  const double t = (p0 - p1) / den;
  if (t > 0 && t < 1) {
    out[0] = t;
    return 1;
  }
  return 0;
}

// Roots in (0, 1) of the derivative of a one-dimensional cubic Bezier (p0..p3).
int cubicExtrema(double p0, double p1, double p2, double p3, double out[2]) {
  // B'(t)/3 = a t^2 + b t + c
  const double a = -p0 + 3 * p1 - 3 * p2 + p3;
  const double b = 2 * (p0 - 2 * p1 + p2);
  const double c = p1 - p0;
  int n = 0;
  auto keep = [&](double t) {
    if (t > 0 && t < 1) out[n++] = t;
  };
  if (std::fabs(a) < 1e-12 * (std::fabs(b) + std::fabs(c) + 1e-300)) {
    if (b != 0) keep(-c / b);
    return n;
  }
  const double disc = b * b - 4 * a * c;
  if (disc < 0) return 0;
  const double root = std::sqrt(disc);
  // The numerically stable pair of roots.
  const double q = -0.5 * (b + (b < 0 ? -root : root));
  if (q != 0) {
    keep(q / a);
    keep(c / q);
  } else {
    keep(0);
  }
  return n;
}

double quadAt(double p0, double p1, double p2, double t) {
  const double u = 1 - t;
  return u * u * p0 + 2 * u * t * p1 + t * t * p2;
}

double cubicAt(double p0, double p1, double p2, double p3, double t) {
  const double u = 1 - t;
  return u * u * u * p0 + 3 * u * u * t * p1 + 3 * u * t * t * p2 + t * t * t * p3;
}

}  // namespace

void ZTPath::requireCurrentPoint(const char* method) const {
  if (!hasCurrentPoint_) {
    throw ZTInternalInconsistencyException(std::string("ZTPath::") + method +
                                           " needs a current point; begin the subpath with moveToPoint.");
  }
}

void ZTPath::append(ElementType type, std::initializer_list<ZTPoint> points) {
  Element e{type, {}, static_cast<int>(points.size())};
  std::copy(points.begin(), points.end(), e.points);
  elements_.push_back(e);
}

void ZTPath::moveToPoint(ZTPoint p) {
  append(ElementType::MoveToPoint, {p});
  currentPoint_ = subpathStart_ = p;
  hasCurrentPoint_ = true;
}

void ZTPath::addLineToPoint(ZTPoint p) {
  requireCurrentPoint("addLineToPoint");
  append(ElementType::AddLineToPoint, {p});
  currentPoint_ = p;
}

void ZTPath::addQuadCurveToPoint(ZTPoint control, ZTPoint end) {
  requireCurrentPoint("addQuadCurveToPoint");
  append(ElementType::AddQuadCurveToPoint, {control, end});
  currentPoint_ = end;
}

void ZTPath::addCurveToPoint(ZTPoint control1, ZTPoint control2, ZTPoint end) {
  requireCurrentPoint("addCurveToPoint");
  append(ElementType::AddCurveToPoint, {control1, control2, end});
  currentPoint_ = end;
}

void ZTPath::closeSubpath() {
  if (!hasCurrentPoint_) return;  // nothing to close
  append(ElementType::CloseSubpath, {});
  currentPoint_ = subpathStart_;
}

void ZTPath::addRect(ZTRect rect) {
  const double minX = ZTRectGetMinX(rect), maxX = ZTRectGetMaxX(rect);
  const double minY = ZTRectGetMinY(rect), maxY = ZTRectGetMaxY(rect);
  moveToPoint({minX, minY});
  addLineToPoint({maxX, minY});
  addLineToPoint({maxX, maxY});
  addLineToPoint({minX, maxY});
  closeSubpath();
}

void ZTPath::addPath(const ZTPath& other, ZTAffineTransform t) {
  // Copy first: `other` may be this path.
  const std::vector<Element> source = other.elements_;
  for (const Element& e : source) {
    ZTPoint p[3];
    for (int i = 0; i < e.pointCount; ++i) p[i] = ZTPointApplyAffineTransform(e.points[i], t);
    switch (e.type) {
      case ElementType::MoveToPoint: moveToPoint(p[0]); break;
      case ElementType::AddLineToPoint: addLineToPoint(p[0]); break;
      case ElementType::AddQuadCurveToPoint: addQuadCurveToPoint(p[0], p[1]); break;
      case ElementType::AddCurveToPoint: addCurveToPoint(p[0], p[1], p[2]); break;
      case ElementType::CloseSubpath: closeSubpath(); break;
    }
  }
}

void ZTPath::removeAllPoints() {
  elements_.clear();
  hasCurrentPoint_ = false;
}

ZTRect ZTPath::boundingBox() const {
  Bounds b;
  for (const Element& e : elements_) {
    for (int i = 0; i < e.pointCount; ++i) b.add(e.points[i]);
  }
  return b.rect();
}

ZTRect ZTPath::pathBoundingBox() const {
  Bounds b;
  ZTPoint current{};
  ZTPoint start{};
  for (const Element& e : elements_) {
    switch (e.type) {
      case ElementType::MoveToPoint:
        current = start = e.points[0];
        b.add(current);
        break;
      case ElementType::AddLineToPoint:
        current = e.points[0];
        b.add(current);
        break;
      case ElementType::AddQuadCurveToPoint: {
        const ZTPoint p0 = current, p1 = e.points[0], p2 = e.points[1];
        double t[1];
        if (quadExtrema(p0.x, p1.x, p2.x, t)) b.add({quadAt(p0.x, p1.x, p2.x, t[0]), quadAt(p0.y, p1.y, p2.y, t[0])});
        if (quadExtrema(p0.y, p1.y, p2.y, t)) b.add({quadAt(p0.x, p1.x, p2.x, t[0]), quadAt(p0.y, p1.y, p2.y, t[0])});
        current = p2;
        b.add(current);
        break;
      }
      case ElementType::AddCurveToPoint: {
        const ZTPoint p0 = current, p1 = e.points[0], p2 = e.points[1], p3 = e.points[2];
        double t[2];
        for (int axis = 0; axis < 2; ++axis) {
          const int n = axis == 0 ? cubicExtrema(p0.x, p1.x, p2.x, p3.x, t) : cubicExtrema(p0.y, p1.y, p2.y, p3.y, t);
          for (int i = 0; i < n; ++i) {
            b.add({cubicAt(p0.x, p1.x, p2.x, p3.x, t[i]), cubicAt(p0.y, p1.y, p2.y, p3.y, t[i])});
          }
        }
        current = p3;
        b.add(current);
        break;
      }
      case ElementType::CloseSubpath:
        current = start;
        break;
    }
  }
  return b.rect();
}

ZTPath ZTPath::copyTransformed(ZTAffineTransform t) const {
  ZTPath copy;
  copy.elements_.reserve(elements_.size());
  copy.addPath(*this, t);
  return copy;
}

bool operator==(const ZTPath& a, const ZTPath& b) {
  if (a.elements_.size() != b.elements_.size()) return false;
  for (std::size_t i = 0; i < a.elements_.size(); ++i) {
    const ZTPath::Element& x = a.elements_[i];
    const ZTPath::Element& y = b.elements_[i];
    if (x.type != y.type || x.pointCount != y.pointCount) return false;
    for (int k = 0; k < x.pointCount; ++k) {
      if (!(x.points[k] == y.points[k])) return false;
    }
  }
  return true;
}

void ZTPathMoveToPoint(ZTPath& path, const ZTAffineTransform* t, ZTPoint point) {
  path.moveToPoint(t ? ZTPointApplyAffineTransform(point, *t) : point);
}

void ZTPathAddLineToPoint(ZTPath& path, const ZTAffineTransform* t, ZTPoint point) {
  path.addLineToPoint(t ? ZTPointApplyAffineTransform(point, *t) : point);
}

void ZTPathAddLine(ZTPath& path, const ZTAffineTransform* t, ZTPoint start, ZTPoint end) {
  ZTPathMoveToPoint(path, t, start);
  ZTPathAddLineToPoint(path, t, end);
}

ZTPath ZTPathRotatedByRadians(const ZTPath& path, double radians) {
  if (path.isEmpty()) return path;
  const ZTRect box = path.boundingBox();
  const double cx = ZTRectGetMidX(box), cy = ZTRectGetMidY(box);
  ZTAffineTransform t = ZTAffineTransformIdentity;
  t = ZTAffineTransformTranslate(t, cx, cy);
  t = ZTAffineTransformRotate(t, radians);
  t = ZTAffineTransformTranslate(t, -cx, -cy);
  return path.copyTransformed(t);
}
