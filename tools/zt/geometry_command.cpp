// `zt geometry`: rectangle arithmetic, fitting transforms, Bezier curves and the text forms that
// carry geometry through dictionaries, on concrete values (geometry values print their text forms
// with <<).

#include <iostream>

#include "commands.h"
#include "zentrel/geometry/affine_transform.h"
#include "zentrel/geometry/bezier_curve.h"
#include "zentrel/geometry/geometry_value.h"
#include "zentrel/geometry/rect_functions.h"
#include "zentrel/geometry/transform_functions.h"

namespace ztool {

int runGeometryTour() {
  std::cout << "Geometry\n\n";
  const ZTRect page = ZTRectMake(0, 0, 200, 100);
  const ZTRect sidebar = ZTRectMake(150, 0, 100, 100);
  std::cout << "1. " << page << " minus the overlapping " << sidebar
            << "\n   leaves one rectangle: " << ZTRectSubstractIfUnambigous(page, sidebar) << "\n";

  const ZTRect hole = ZTRectMake(40, 30, 40, 40);
  const auto cells = ZTRectsByCuttingOutRectFromRect(page, hole);
  std::cout << "2. Cutting the hole " << hole << " out of the page leaves "
            << (cells ? cells->size() : 0) << " cells, row by row:\n";
  if (cells) {
    for (const auto& cell : *cells) std::cout << "     " << cell << "\n";
  }

  const ZTRect photo = ZTRectMake(0, 0, 400, 300);
  const ZTRect frame = ZTRectMake(0, 0, 200, 200);
  const auto fit = ZTTransformToFitRect(90, photo, ZTPoint{100, 100}, frame);
  std::cout << "3. A 400 x 300 photo turned a quarter and fitted into a 200 x 200 frame:\n   transform "
            << fit << ",\n   it lands on " << ZTRectApplyAffineTransform(photo, fit)
            << "\n";

  auto curve = ZTBezierCurve::cubicBezierCurveWithStartPoint({0, 0}, {0, 100}, {100, 100}, {100, 0});
  std::cout << "4. A cubic curve from (0, 0) to (100, 0): control polygon " << curve->approximateLength()
            << " long, drawn in " << curve->suggestedNumberOfSegments() << " segments; its top is at "
            << curve->curvePointForParameter(0.5) << ".\n";

  const auto boxed = ZTValueWithRect(ZTRectMake(1.5, 2, 3, 4));
  ZTValue document;
  document["selection"] = boxed;
  const auto back = ZTRectFromValue(document["selection"]);
  std::cout << "5. A rectangle stored in a dictionary travels as " << document.description() << "\n   and reads back "
            << (back && ZTRectEqualToRect(*back, ZTRectMake(1.5, 2, 3, 4)) ? "unchanged" : "CHANGED") << ".\n";
  return back ? 0 : 1;
}

void addGeometryCommand(CLI::App& app) {
  auto* command = app.add_subcommand("geometry", "Rectangle arithmetic, fitting transforms, Bezier curves");
  command->footer("Example: zt geometry");
  command->callback([] {
    if (runGeometryTour() != 0) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
