// Boxes of density that live outside the engine.
#include "core/memory_system.h"
#include "core/report.h"
#include "map/blobs.h"
#include "map/box.h"
#include "map/interpolate.h"
#include "map/map.h"
#include "map/model_box.h"
#include "map/peaks.h"

#include <quorix/density_box.h>
#include <quorix/engine.h>
#include <quorix/memory.h>
#include <quorix/views.h>

#include <cstdlib>
#include <utility>

using qx::fail;
using qx::ok;
using qx::Status;

double* qx_take_map_density() {
  qx_map_view view;
  if (qx_get_map_view(&view) != 1) return nullptr;
  qxmap* map = qx_get_qxmap();
  if (!map || !qx::map_density(*map)) return nullptr;
  map->statistics_known = false;
  double*** planes = std::exchange(map->density, nullptr);
  double* block = planes[0][0];
  double** rows = planes[0];
  if (!qx::take_block(block)) return nullptr;
  if (xfree(rows) != ok || xfree(planes) != ok) {
    std::free(block);
    return nullptr;
  }
  return block;
}

Status qx_calc_model_bounds(double cushion, const std::int32_t intervals[3], std::int32_t low[3],
                            std::int32_t high[3]) {
  constexpr auto here = "qx_calc_model_bounds():";
  double limits[6] = {};
  QX_TRY(qx::model_limits(here, cushion, limits));
  for (int axis = 0; axis < 3; ++axis) {
    qx::AxisBounds bounds = {};
    if (!qx::fractional_bounds(limits[2 * axis], limits[2 * axis + 1], intervals[axis], bounds)) {
      return fail(here, "Invalid map limits %f and %f ", limits[2 * axis], limits[2 * axis + 1]);
    }
    low[axis] = bounds.low;
    high[axis] = bounds.high;
  }
  return ok;
}

std::int32_t qx_cut_density_box(const qx_density_box* from, const qx_density_box* to,
                                double* density) {
  for (int axis = 0; axis < 3; ++axis) {
    for (std::int32_t i = 0; i < to->counts[axis]; ++i) {
      if (qx::place_in_box(*from, axis, std::int64_t{to->starts[axis]} + i) < 0) return 0;
    }
  }
  const auto place = [&](int axis, std::int32_t i) -> std::ptrdiff_t {
    return qx::place_in_box(*from, axis, std::int64_t{to->starts[axis]} + i);
  };
  for (std::int32_t iz = 0; iz < to->counts[2]; ++iz) {
    for (std::int32_t iy = 0; iy < to->counts[1]; ++iy) {
      const double* row =
          from->density + (place(2, iz) * from->counts[1] + place(1, iy)) * from->counts[0];
      for (std::int32_t ix = 0; ix < to->counts[0]; ++ix) *density++ = row[place(0, ix)];
    }
  }
  return 1;
}

std::int64_t qx_find_density_peaks(const qx_density_box* box, double level, std::int64_t capacity,
                                   qx_density_peak* peaks) {
  return qx::find_peaks(*box, level, capacity, peaks);
}

void qx_interpolate_density(const qx_density_box* box, std::int32_t order, std::int64_t n,
                            const double (*points)[3], double* values) {
  for (std::int64_t i = 0; i < n; ++i) values[i] = qx::interpolate(*box, order, points[i]);
}

void qx_mask_density_box(const qx_density_box* box, const double cell[6], double radius,
                         std::int64_t n, const double (*places)[3], std::uint8_t* mask) {
  const qx::MaskGrid grid = qx::mask_grid(*box, cell);
  for (std::int64_t i = 0; i < n; ++i) qx::mask_place(*box, grid, places[i], radius, mask);
}

std::int64_t qx_count_density_runs(const qx_density_box* box, double level,
                                   const std::uint8_t* mask) {
  return qx::count_runs(*box, level, mask);
}

std::int64_t qx_find_density_runs(const qx_density_box* box, double level, const std::uint8_t* mask,
                                  std::int64_t* rows, qx_density_run* runs) {
  qx::collect_runs(*box, level, mask, rows, runs);
  return qx::join_runs(*box, rows, runs);
}

void qx_measure_density_blobs(const qx_density_box* box, std::int64_t nruns,
                              const qx_density_run* runs, std::int64_t nblobs,
                              qx_density_blob* blobs) {
  qx::measure_blobs(*box, nruns, runs, nblobs, blobs);
}
