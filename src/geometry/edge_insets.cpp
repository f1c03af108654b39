#include "zentrel/geometry/edge_insets.h"

#include <limits>

namespace {
constexpr double kInf = std::numeric_limits<double>::infinity();
}

bool ZTEdgeInsetsIsNull(ZTEdgeInsets i) {
  return i.top == kInf && i.left == kInf && i.bottom == kInf && i.right == kInf;
}

ZTRect ZTRectByRemovingEdgeInsetsFromRect(ZTEdgeInsets i, ZTRect r) {
  return {{r.origin.x + i.left, r.origin.y + i.top},
          {r.size.width - i.left - i.right, r.size.height - i.top - i.bottom}};
}

ZTRect ZTRectByAddingEdgeInsetsToRect(ZTEdgeInsets i, ZTRect r) {
  return {{r.origin.x - i.left, r.origin.y - i.top},
          {r.size.width + i.left + i.right, r.size.height + i.top + i.bottom}};
}

ZTEdgeInsets ZTEdgeInsetsForInsetedRectAndOriginalRect(ZTRect inseted, ZTRect original) {
  ZTEdgeInsets i;
  i.top = inseted.origin.y - original.origin.y;
  i.left = inseted.origin.x - original.origin.x;
  i.bottom = original.size.height - inseted.size.height - i.top;
  i.right = original.size.width - inseted.size.width - i.left;
  return i;
}
