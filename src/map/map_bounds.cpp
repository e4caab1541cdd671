// The grid points of the map's box, by its extent.
#include "core/report.h"
#include "core/require.h"
#include "crystal/asu.h"
#include "crystal/cell.h"
#include "grid/grid.h"
#include "map/map.h"
#include "map/model_box.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

#include <algorithm>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

Status check_order(const char* here, double low, double high) {
  return low <= high ? ok : fail(here, "Invalid map limits %f and %f ", low, high);
}

// Fractional limits of the box, low and high of x, y, z, for the extents that have them.
Status limits_of(const char* here, const qxmap& map, double (&limits)[6]) {
  if (map.extent == qx::model_extent) return qx::model_limits(here, map.cushion, limits);
  std::copy_n(map.limits, 6, limits);
  if (map.extent != qx::box_extent) return ok;
  // The box about the turned one would hide that its limits are in the wrong order.
  for (int axis = 0; axis < 3; ++axis) {
    QX_TRY(check_order(here, limits[2 * axis], limits[2 * axis + 1]));
  }
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  qx::fractional_limits(cell->orth2frac, map.limits, limits);
  return ok;
}

Status bounds_of(const char* here, const qxmap& map, const std::int32_t (&n)[3],
                 qx::AxisBounds (&bounds)[3]) {
  if (map.extent == qx::unit_extent) {
    for (int axis = 0; axis < 3; ++axis) bounds[axis] = {0, n[axis] - 1};
    return ok;
  }
  if (map.extent == qx::asym_extent) {
    const qxasu* asu = nullptr;
    QX_TRY(qx::require(here, qx_get_qxasu, asu, "qxasu object has not been created yet "));
    for (int axis = 0; axis < 3; ++axis) {
      bounds[axis] = qx::asymmetric_bounds(asu->low[axis], asu->high[axis], n[axis]);
    }
    return ok;
  }
  double limits[6] = {};
  QX_TRY(limits_of(here, map, limits));
  for (int axis = 0; axis < 3; ++axis) {
    const double low = limits[2 * axis];
    const double high = limits[2 * axis + 1];
    if (!qx::fractional_bounds(low, high, n[axis], bounds[axis])) {
      return fail(here, "Invalid map limits %f and %f ", low, high);
    }
  }
  return ok;
}

}  // namespace

Status qx_set_map_bound() {
  constexpr auto here = "qx_set_map_bound():";
  qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid || grid->nx < 1) return fail(here, "qxgrid object has not been created yet ");
  const std::int32_t n[3] = {grid->nx, grid->ny, grid->nz};
  qx::AxisBounds bounds[3] = {};
  QX_TRY(bounds_of(here, *map, n, bounds));
  std::int64_t points[3];
  std::transform(bounds, bounds + 3, points,
                 [](const qx::AxisBounds& b) { return std::int64_t{b.high} - b.low + 1; });
  if (*std::min_element(points, points + 3) < 1 ||
      !qx::fits_in_memory(points[0], points[1], points[2])) {
    return fail(here, "A map of %lld x %lld x %lld points does not fit in memory ",
                static_cast<long long>(points[0]), static_cast<long long>(points[1]),
                static_cast<long long>(points[2]));
  }
  map->xlow = bounds[0].low;
  map->xhigh = bounds[0].high;
  map->ylow = bounds[1].low;
  map->yhigh = bounds[1].high;
  map->zlow = bounds[2].low;
  map->zhigh = bounds[2].high;
  return ok;
}
