// Laying out a landscape page in a portrait view, then hit-testing on it: a quarter-turn fit
// transform, pixel snapping, segment tests, cutting a selection out of a rect, a Bezier curve
// drawn as straight segments, and geometry stored as text in a dictionary.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/page_layout

#include <zentrel/geometry/geometry.h>

#include <cstdio>

int main() {
  // A 200 x 100 page shown turned by 90 degrees in a 100 x 100 view, centred.
  const ZTRect page = ZTRectMake(0, 0, 200, 100);
  const ZTRect view = ZTRectMake(0, 0, 100, 100);
  const ZTAffineTransform pageToView = ZTTransformToFitRect(90, page, ZTRectGetCenterPoint(view), view);
  const ZTRect shown = ZTRectApplyAffineTransform(page, pageToView);
  std::printf("page shown at %s\n", ZTStringFromRect(shown).c_str());

  // A 7 x 7 marker centred on a page point, snapped to the pixels of a 2x screen.
  const ZTPoint mark = ZTPointApplyAffineTransform({50, 25}, pageToView);
  const ZTRect marker = ZTRectMakeWithCenterAndSizeFittedToPixelsWithScale(mark, {7, 7}, true, 2);
  std::printf("marker at %s\n", ZTStringFromRect(marker).c_str());

  // Where does a drag from outside the view to its centre enter it?
  const ZTLine drag{{-20, 50}, {50, 50}};
  const ZTLine inside = ZTRectGetInnerIntersectedLine(view, drag);
  std::printf("the drag enters at %s\n", ZTStringFromPoint(inside.end).c_str());

  // The parts of the view not covered by a selection.
  if (auto parts = ZTRectsByCuttingOutRectFromRect(view, ZTRectMake(25, 25, 50, 50))) {
    std::printf("%zu parts around the selection\n", parts->size());
  }

  // A cubic curve drawn with as many segments as its length suggests.
  auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint({0, 0}, {0, 100}, {100, 100}, {100, 0});
  std::size_t drawn = 0;
  curve->enumerateSegmentsWithSegmentsCount(curve->suggestedNumberOfSegments(),
                                            [&](std::size_t, ZTPoint, ZTPoint) { ++drawn; });
  std::printf("curve drawn with %zu segments\n", drawn);

  // Geometry in a dictionary, as it would be saved in a property list, and read back.
  ZTValue settings = ZTValue::dictionary();
  settings["frame"] = ZTValueWithRect(shown);
  settings["transform"] = ZTValueWithAffineTransform(pageToView);
  std::printf("saved: %s\n", settings.description().c_str());
  ZTError error;
  if (auto frame = ZTRectFromValue(settings["frame"], &error)) {
    std::printf("read back equal: %s\n", *frame == shown ? "yes" : "no");
  } else {
    std::printf("could not read the frame: %s\n", error.localizedDescription().c_str());
    return 1;
  }
  return 0;
}
