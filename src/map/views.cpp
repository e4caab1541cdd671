// What of the map others may look at.
#include "crystal/views.h"

#include "core/refsys.h"
#include "core/root.h"
#include "grid/grid.h"
#include "map/map.h"

#include <algorithm>

namespace {

const qxmap* shown_map() {
  const refsys* system = quorix ? quorix->reflections : nullptr;
  return system ? system->map : nullptr;
}

template <class T>
std::int32_t copy_planes(std::int32_t first, std::int32_t nplanes, T* values) {
  qx_map_view map;
  if (qx_get_map_view(&map) != 1 || first < 0 || nplanes < 0 || nplanes > map.counts[2] - first) {
    return 0;
  }
  if (!map.density) {
    qx::Extremes extremes;
    return qx::make_planes(*shown_map()->recipe, first, nplanes, values, extremes) == qx::ok ? 1
                                                                                             : 0;
  }
  const auto plane = static_cast<std::ptrdiff_t>(map.counts[0]) * map.counts[1];
  std::transform(map.density + first * plane, map.density + (first + nplanes) * plane, values,
                 [](double value) { return static_cast<T>(value); });
  return 1;
}

}  // namespace

std::int32_t qx_get_map_view(qx_map_view* view) {
  const qxmap* map = shown_map();
  qx_grid_view grid;
  if (!map || !qx::has_density(*map) || qx_get_grid_view(&grid) != 1) return 0;
  *view = {map->density ? map->density[0][0] : nullptr,
           {map->xhigh - map->xlow + 1, map->yhigh - map->ylow + 1, map->zhigh - map->zlow + 1},
           {map->xlow, map->ylow, map->zlow},
           {grid.counts[0], grid.counts[1], grid.counts[2]},
           map->mean,
           map->rms,
           map->cell_rms,
           map->scale,
           map->statistics_known || map->recipe ? map->statistics.rms : 0.0};
  return 1;
}

std::int32_t qx_copy_map_planes_float(std::int32_t first, std::int32_t nplanes, float* values) {
  return copy_planes(first, nplanes, values);
}

std::int32_t qx_copy_map_planes_double(std::int32_t first, std::int32_t nplanes, double* values) {
  return copy_planes(first, nplanes, values);
}

std::int32_t qx_get_map_reflections_view(qx_reflections_view* view) {
  const qxmap* map = shown_map();
  const qxrefdata* set = map && map->refdata ? map->refdata : qx::shown_refdata();
  if (!set) return 0;
  *view = qx::view_of(*set);
  return 1;
}

qx_density_statistics qx_calc_density_statistics(const double* values, std::int64_t n) {
  const qx::MapStatistics found = qx::statistics_of({values, 1, 1, static_cast<std::ptrdiff_t>(n)});
  return {found.minimum, found.maximum, found.mean, found.rms};
}
