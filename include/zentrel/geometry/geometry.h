#pragma once
// Everything of the geometry area in one include.

#include "zentrel/geometry/affine_transform.h"
#include "zentrel/geometry/angles.h"
#include "zentrel/geometry/bezier_curve.h"
#include "zentrel/geometry/edge_insets.h"
#include "zentrel/geometry/geometry_value.h"
#include "zentrel/geometry/intersection.h"
#include "zentrel/geometry/line.h"
#include "zentrel/geometry/path.h"
#include "zentrel/geometry/point.h"
#include "zentrel/geometry/point_functions.h"
#include "zentrel/geometry/rect.h"
#include "zentrel/geometry/rect_functions.h"
#include "zentrel/geometry/size_functions.h"
#include "zentrel/geometry/transform_functions.h"
