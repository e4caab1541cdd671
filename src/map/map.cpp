// The map object, and the road from coefficients to the density of its box.
#include "map/map.h"

#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/slot.h"
#include "crystal/asu.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "grid/grid.h"
#include "map/coefficients.h"
#include "map/model_box.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cstring>
#include <utility>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

// The map, or null without a report.
qxmap* map_or_null() {
  const refsys* system = qx_exist_quorix() ? qx_get_refsys() : nullptr;
  return system ? system->map : nullptr;
}

Status drop_contents(qxmap& map) {
  QX_TRY(qx::drop_density(map));
  QX_TRY(qx::release(map.path));
  QX_TRY(qx::release(map.kind));
  QX_TRY(qx::release(map.input));
  QX_TRY(qx::release(map.columns));
  qxrefdata* set = std::exchange(map.refdata, nullptr);
  return set ? qx_delete_qxrefdata_obj(set) : ok;
}

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
  const qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "qxcell object has not been created yet ");
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
    const qxasu* asu = qx_get_qxasu();
    if (!asu) return fail(here, "qxasu object has not been created yet ");
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

Status qx_new_qxmap() { return qx::create_in(qx_delete_qxmap, qx_set_qxmap, "pnp_map"); }

Status qx_delete_qxmap() {
  qxmap* map = map_or_null();
  if (!map) return ok;
  QX_TRY(drop_contents(*map));
  return qx::remove_from(map, qx_set_qxmap);
}

qxmap* qx_get_qxmap() { return qx::slot(qx_get_refsys(), &refsys::map); }
Status qx_set_qxmap(qxmap* object) { return qx::install(qx_get_refsys(), &refsys::map, object); }

Status qx_set_map_default() {
  qxmap* map = qx_get_qxmap();
  if (!map) return fail("qx_set_map_default():", "qxmap object has not been created yet.");
  QX_TRY(drop_contents(*map));
  *map = qxmap{};
  return ok;
}

Status qx_set_map_bound() {
  constexpr auto here = "qx_set_map_bound():";
  qxmap* map = qx_get_qxmap();
  if (!map) return fail(here, "qxmap object has not been created yet.");
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

Status qx_generate_map() {
  constexpr auto here = "qx_generate_map():";
  const qxmap* map = qx_get_qxmap();
  if (!map) return fail(here, "qxmap object has not been created yet.");
  const qxrefdata* set = qx::map_refdata();
  if (!set) return failed;
  const auto n = static_cast<std::size_t>(set->nreflections);
  const qx::Tagged<double> amplitude(n, "pgm_fa");
  if (!amplitude) return failed;
  const qx::Tagged<double> phase(n, "pgm_fb");
  if (!phase) return failed;
  QX_TRY(qx::map_coefficients(*map, amplitude.get(), phase.get()));
  return qx_generate_map_core(amplitude.get(), phase.get());
}

Status qx_generate_map_core(const double* amplitude, const double* phase) {
  const qxrefdata* set = qx::map_refdata();
  if (!set) return failed;
  return qx_generate_map_with_coef(set->nreflections, set->h, set->k, set->l, amplitude, phase);
}

Status qx_write_map(const char* format) {
  constexpr auto here = "qx_write_map():";
  const qxmap* map = qx_get_qxmap();
  if (!map) return fail(here, "qxmap object has not been created yet.");
  if (!map->density) return fail(here, "There is no way to get map coefficients.");
  if (std::strcmp(format, "ccp4") == 0) return qx_wr_ccp4_map();
  return fail(here, "Feature for writing %s map has not been implemented yet.", format);
}

namespace qx {

const qxrefdata* map_refdata() {
  const qxmap* map = qx_get_qxmap();
  const qxrefdata* set = map && map->refdata ? map->refdata : qx_get_qxrefdata();
  if (!set || set->nreflections < 1) {
    (void)fail("qx_generate_map():", "There is no reflections defined for generating map");
    return nullptr;
  }
  return set;
}

Status drop_density(qxmap& map) {
  map.statistics_known = false;
  double*** density = std::exchange(map.density, nullptr);
  return density ? xfree_3d_double(density) : ok;
}

}  // namespace qx

std::int32_t qx_get_map_statistics(qx_map_statistics_view* view) {
  const qxmap* map = qx_get_qxmap();
  if (!map || !map->density) return 0;
  *view = {map->mean, map->rms};
  return 1;
}
