// From what was asked for to the counts that are transformed.
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/tagged.h"
#include "crystal/asu.h"
#include "crystal/cell.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "grid/grid_size.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr double count_slack = 1e-9;  // relative
constexpr double count_limit = 2147483648.0;
constexpr double default_spacing = 0.6;  // Angstrom, when nothing else is known

struct Edges {
  double length[3];
};

Edges edges_of(const qxcell& cell) { return {{cell.a, cell.b, cell.c}}; }

bool all_counts_set(const qxgrid& grid) {
  return std::none_of(grid.requested_n, grid.requested_n + 3,
                      [](std::int32_t n) { return n == qx::unset_count; });
}

bool all_spacings_set(const qxgrid& grid) {
  return std::none_of(grid.requested_spacing, grid.requested_spacing + 3,
                      [](double s) { return s == qx::unset; });
}

// Spacings that were made of the counts lead back to them but for rounding.
bool counts_agree_with_spacings(const qxgrid& grid, const Edges& edges) {
  for (int axis = 0; axis < 3; ++axis) {
    const double quotient = edges.length[axis] / grid.requested_spacing[axis];
    const double n = grid.requested_n[axis];
    if (std::trunc(quotient) != n && !(std::fabs(quotient - n) <= count_slack * n)) return false;
  }
  return true;
}

// Spacings of a third of the resolution; without one, a spacing that suits most data.
Status request_default(qxgrid& grid) {
  const qxresol* resol = nullptr;
  QX_TRY(qx::require("qx_run_qxgrid_io_checker():", qx_get_qxresol, resol,
                     "qxresol object has not been created yet "));
  double spacing = resol->high / 3.0;
  if (!(resol->high > 0.0)) {
    qx::say("WARNING: the high resolution has not been defined yet, \n");
    qx::say("0.6 A will be tried for the grid spacing. \n");
    spacing = default_spacing;
  }
  std::fill_n(grid.requested_spacing, 3, spacing);
  return qx_set_qxgrid_nxyz_by_sxyz();
}

// What the space group demands of an axis' count.
Status axis_multiple(const char* here, std::int32_t axis, std::int64_t& multiple) {
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(here, qx_get_qxspg, spg, "qxspg object has not been created yet "));
  if (axis < 0 || axis > 2) return fail(here, "invalid axis %d ", axis);
  multiple = 1;
  for (const auto* divisors : {&spg->translation_divisors[axis], &spg->asu_divisors[axis]}) {
    const std::span<const std::int32_t> values(divisors->values,
                                               static_cast<std::size_t>(divisors->count));
    std::int32_t culprit = 0;
    if (!qx::combine_divisors(values, multiple, culprit)) {
      return fail(here, "The grid cannot be divided by %d, only 2, 3 and 5 are supported. ",
                  culprit);
    }
  }
  return ok;
}

// Masks, limits and tables hold for one set of counts only.
Status drop_what_depends_on_counts(qxgrid& grid) {
  QX_TRY(qx::drop_reflection_tables(grid));
  qxasu* asu = qx_get_qxasu();
  if (!asu) return ok;
  QX_TRY(qx::drop_mask(*asu));
  std::fill_n(asu->grid_low, 3, 0);
  std::fill_n(asu->grid_high, 3, 0);
  return ok;
}

// The coarse count of one axis: enough points for every index, and the coarse factor times those of
// a third of the resolution. 0 when that is beyond any grid.
Status coarse_count(double edge, double high, double factor, std::int32_t index_max,
                    std::int32_t axis, std::int32_t& count) {
  constexpr double beyond = count_limit / 4;
  const double by_spacing = std::trunc(std::trunc(edge / (high / 3.0)) * factor);
  const double by_index = 2.0 * index_max + 1.0;
  count = 0;
  if (!(by_spacing < beyond) || !(by_index < beyond)) return ok;
  std::int32_t m1 = 0;
  std::int32_t m2 = 0;
  QX_TRY(qx_get_closest_ngrid(static_cast<std::int32_t>(by_index), &m1, axis));
  QX_TRY(qx_get_closest_ngrid(static_cast<std::int32_t>(by_spacing), &m2, axis));
  count = std::max(m1, m2);
  return ok;
}

void print_coarse_grid(const qxgrid& grid, double ratio) {
  qx::say("The coarse grid used: \n");
  qx::say("nx_coarse = %d  ny_coarse = %d  nz_coarse = %d \n", grid.coarse_n[0], grid.coarse_n[1],
          grid.coarse_n[2]);
  qx::say("sx_coarse = %f  sy_coarse = %f  sz_coarse = %f \n", grid.coarse_spacing[0],
          grid.coarse_spacing[1], grid.coarse_spacing[2]);
  qx::say("Ratio(coarse grid/fine grid)= %7.3f \n", ratio);
}

}  // namespace

Status qx_set_qxgrid_nxyz_by_sxyz() {
  constexpr auto here = "qx_set_qxgrid_nxyz_by_sxyz():";
  qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been defined yet "));
  const double* s = grid->requested_spacing;
  if (!(s[0] > 0) || !(s[1] > 0) || !(s[2] > 0)) {
    return fail(here, "invalid grid spacing (%f  %f  %f) ", s[0], s[1], s[2]);
  }
  const Edges edges = edges_of(*cell);
  for (int axis = 0; axis < 3; ++axis) {
    const double n = edges.length[axis] / s[axis];
    if (!(n >= 0 && n < count_limit)) return fail(here, "Failed to set up a grid for FFT ");
    grid->requested_n[axis] = static_cast<std::int32_t>(n);
  }
  return ok;
}

Status qx_set_qxgrid_sxyz_by_nxyz() {
  constexpr auto here = "qx_set_qxgrid_sxyz_by_nxyz():";
  qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been defined yet "));
  const std::int32_t* n = grid->requested_n;
  if (n[0] < 1 || n[1] < 1 || n[2] < 1) {
    return fail(here, "invalid grid numbers (%d  %d  %d) ", n[0], n[1], n[2]);
  }
  const Edges edges = edges_of(*cell);
  for (int axis = 0; axis < 3; ++axis) grid->requested_spacing[axis] = edges.length[axis] / n[axis];
  return ok;
}

Status qx_get_closest_ngrid(std::int32_t n, std::int32_t* out, std::int32_t axis) {
  constexpr auto here = "qx_get_closest_ngrid():";
  std::int64_t multiple = 1;
  QX_TRY(axis_multiple(here, axis, multiple));
  const std::int32_t count = qx::closest_count(std::max(n, 1), multiple);
  if (count == 0) return fail(here, "There is no grid count of at least %d ", n);
  *out = count;
  return ok;
}

Status qx_get_closest_ngrid_wo_trn(std::int32_t n, std::int32_t* out) {
  const std::int32_t count = qx::closest_count(std::max(n, 1), 1);
  if (count == 0) {
    return fail("qx_get_closest_ngrid_wo_trn():", "There is no grid count of at least %d ", n);
  }
  *out = count;
  return ok;
}

Status qx_run_qxgrid_io_checker() {
  constexpr auto here = "qx_run_qxgrid_io_checker():";
  qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been defined yet "));
  if (all_counts_set(*grid)) {
    if (!all_spacings_set(*grid)) return qx_set_qxgrid_sxyz_by_nxyz();
    if (counts_agree_with_spacings(*grid, edges_of(*cell))) return ok;
    qx::say("Both space and ngrid command are defined unconsistently, \n");
    qx::say("grid spacing will be used. \n");
    return qx_set_qxgrid_nxyz_by_sxyz();
  }
  if (all_spacings_set(*grid)) return qx_set_qxgrid_nxyz_by_sxyz();
  return request_default(*grid);
}

Status qx_get_ideal_fftgrid() {
  constexpr auto here = "qx_get_ideal_fftgrid():";
  qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been defined yet "));
  std::int32_t n[3];
  for (std::int32_t axis = 0; axis < 3; ++axis) {
    if (grid->requested_n[axis] < 1) {
      return fail(here, "input fft grid sizes have not been defined yet ");
    }
    QX_TRY(qx_get_closest_ngrid(grid->requested_n[axis], &n[axis], axis));
  }
  if (!qx::fits_in_memory(n[0], n[1], n[2])) {
    return fail(here, "A grid of %d x %d x %d points does not fit in memory ", n[0], n[1], n[2]);
  }
  if (n[0] != grid->nx || n[1] != grid->ny || n[2] != grid->nz) {
    QX_TRY(drop_what_depends_on_counts(*grid));
  }
  grid->nx = n[0];
  grid->ny = n[1];
  grid->nz = n[2];
  grid->sx = cell->a / n[0];
  grid->sy = cell->b / n[1];
  grid->sz = cell->c / n[2];
  return ok;
}

Status qx_setup_coarse_grid() {
  constexpr auto here = "qx_setup_coarse_grid():";
  qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxrefdata* refdata = nullptr;
  QX_TRY(qx::require(here, qx_get_qxrefdata, refdata, "refdata object has not been created yet"));
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been defined yet "));
  if (!qx_get_qxverbsys()) return fail(here, "qxverbsys object has not been created yet ");
  const qxresol* resol = nullptr;
  QX_TRY(qx::require(here, qx_get_qxresol, resol, "qxresol object has not been created yet "));
  grid->coarse_in_use = 0;
  if (!(resol->high > 0.0)) return ok;

  const Edges edges = edges_of(*cell);
  const std::int32_t fine[3] = {grid->nx, grid->ny, grid->nz};
  const std::int32_t index_max[3] = {refdata->hmax, refdata->kmax, refdata->lmax};
  double ratio = 1.0;
  for (std::int32_t axis = 0; axis < 3; ++axis) {
    QX_TRY(coarse_count(edges.length[axis], resol->high, grid->coarse_factor, index_max[axis], axis,
                        grid->coarse_n[axis]));
    if (grid->coarse_n[axis] == 0) return ok;
    grid->coarse_spacing[axis] = edges.length[axis] / grid->coarse_n[axis];
    ratio *= static_cast<double>(grid->coarse_n[axis]) / fine[axis];
  }
  grid->coarse_in_use = grid->coarse_switch && grid->coarse_ratio_limit >= ratio ? 1 : 0;
  if (!grid->coarse_in_use) return ok;
  const bool debug = qx_get_qxverbsys_verb_debug() != 0;
  if (!qx_exist_quorix()) return qx::failed;
  if (debug) print_coarse_grid(*grid, ratio);
  return ok;
}

Status qx_set_grids() {
  constexpr auto here = "qx_set_grids():";
  if (!qx_get_qxcell()) return fail(here, "qxcell object has not been defined yet ");
  qxsubgrid* box = nullptr;
  QX_TRY(qx::require(here, qx_get_qxsubgrid, box, "qxsubgrid object has not been created yet. "));
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet. "));
  if (qx_get_ideal_fftgrid() != ok) return fail(here, "Failed to set up a grid for FFT ");
  QX_TRY(qx_setup_coarse_grid());
  const std::int32_t points[3] = {grid->nx, grid->ny, grid->nz};
  std::fill_n(box->boxes, 3, 1);
  std::copy_n(points, 3, box->points);
  box->one_box = 1;
  return ok;
}

Status qx_run_qxgrid_checker() {
  QX_TRY(qx_run_qxgrid_io_checker());
  QX_TRY(qx_set_grids());
  QX_TRY(qx_run_qxasu_checker());
  const qxasu* asu = qx_get_qxasu();
  // The mask costs a pass over the whole grid for every operator: only who asks pays.
  return asu && asu->check ? qx_build_ASU() : ok;
}
