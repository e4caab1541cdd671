// The asymmetric unit on the grid in hand: limits in grid points, the mask of one point an orbit,
// what moves between a point and its mates.
#include "core/report.h"
#include "core/tagged.h"
#include "core/wrapped.h"
#include "crystal/asu.h"
#include "crystal/spacegroup.h"
#include "grid/asu_mask.h"

#include <quorix/crystal.h>
#include <quorix/engine.h>
#include <quorix/grid.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* no_asu = "qxasu object has not been created yet ";

qx::GridOperators grid_operators(const qxasu& asu) {
  return {asu.nops, asu.rotations, asu.translations};
}

}  // namespace

Status qx_set_qxasu_int_limit() {
  constexpr const char* here = "qx_set_qxasu_intlimit():";  // Kept: not quite the routine's name
  qxasu* asu = qx_get_qxasu();
  if (!asu) return fail(here, "%s", no_asu);
  if (!qx_get_qxgrid()) return fail(here, "qxgrid object has not been created yet ");
  std::int32_t n[3];
  QX_TRY(qx_get_grid_counts(&n[0], &n[1], &n[2]));
  for (int axis = 0; axis < 3; ++axis) {
    const double last = std::nearbyint(n[axis] * asu->high[axis]);  // halves to even
    asu->grid_low[axis] = 0;
    asu->grid_high[axis] = static_cast<std::int32_t>(std::min<double>(last + 1, n[axis]));
  }
  return ok;
}

Status qx_run_qxasu_checker() {
  const qxasu* asu = qx_get_qxasu();
  if (!asu) return fail("qx_run_qxasu_checker():", "%s", no_asu);
  return asu->grid_high[0] == 0 ? qx_set_qxasu_int_limit() : ok;
}

namespace {

Status make_grid_operators(qxasu& asu, const qxspg& spg, const std::int32_t n[3]) {
  const auto count = static_cast<std::size_t>(spg.nops);
  QX_TRY(qx::open_block(asu.rotations, count, "pba_rot"));
  QX_TRY(qx::open_block(asu.translations, count, "pba_tran"));
  asu.nops = spg.nops;
  for (std::int32_t i = 0; i < spg.nops; ++i) {
    if (!qx::grid_operator(spg.ops[i], n, asu.rotations[i], asu.translations[i])) {
      return fail("qx_build_ASU():",
                  "The symmetry does not map the grid of %d x %d x %d points onto itself ", n[0],
                  n[1], n[2]);
    }
  }
  return ok;
}

Status append_report(const qx::AsuSummary& unit, const qxspg& spg, const std::int32_t n[3]) {
  const double cell = static_cast<double>(n[0]) * n[1] * n[2];
  std::FILE* file = std::fopen("spg.data", "a");
  if (!file) return fail("qx_build_ASU():", "Failed to open file %s \n", "spg.data");
  std::fprintf(file, "space group number: %d \n", spg.spg_id);
  std::fprintf(file, "space group name  : %s\n", spg.short_name ? spg.short_name : "");
  std::fprintf(file, "ASU boundary               : %d/%d  %d/%d  %d/%d \n", unit.extent[0], n[0],
               unit.extent[1], n[1], unit.extent[2], n[2]);
  std::fprintf(file, "number of special points   : %d \n", static_cast<int>(unit.special));
  std::fprintf(file, "number of ASU grid points  : %d \n", static_cast<int>(unit.points));
  std::fprintf(file, "number of cell grid points : %d \n", static_cast<int>(cell));
  std::fprintf(file, "number of symmetry operat. : %d \n", spg.nops);
  std::fprintf(file, "ratio(ASU/cell grid points): %10.9f \n",
               static_cast<double>(unit.points) / cell);
  std::fprintf(file, "1/number-of-symmetry-oper  : %10.9f \n", 1.0 / spg.nops);
  const bool bad = std::ferror(file) != 0;
  if (std::fclose(file) != 0 || bad) {
    return fail("qx_build_ASU():", "Failed to write file %s \n", "spg.data");
  }
  return ok;
}

}  // namespace

Status qx_build_ASU() {
  constexpr const char* here = "qx_build_ASU():";
  if (!qx_get_qxgrid()) return fail(here, "qxgrid object has not been created yet ");
  qxasu* asu = qx_get_qxasu();
  if (!asu) return fail(here, "%s", no_asu);
  const qxspg* spg = qx_get_qxspg();
  if (!spg || spg->nops < 1) return fail(here, "qxspg object has not been created yet ");
  std::int32_t n[3];
  QX_TRY(qx_get_grid_counts(&n[0], &n[1], &n[2]));
  // The report counts points in 32 bits.
  if (std::min({n[0], n[1], n[2]}) < 1 || static_cast<double>(n[0]) * n[1] * n[2] > INT32_MAX) {
    return fail(here, "No asymmetric unit on a grid of %d x %d x %d points ", n[0], n[1], n[2]);
  }
  QX_TRY(qx::drop_mask(*asu));
  QX_TRY(make_grid_operators(*asu, *spg, n));
  QX_TRY(qx::adopt(asu->mask, xopen_3d_char(n[2], n[1], n[0], "pba_mask")));
  QX_TRY(qx::adopt(asu->counts, xopen_3d_short(n[2], n[1], n[0], "pba_count")));
  const qx::AsuSummary unit =
      qx::mark_asymmetric_unit(grid_operators(*asu), qx::view3(asu->mask, n[2], n[1], n[0]),
                               qx::view3(asu->counts, n[2], n[1], n[0]));
  return append_report(unit, *spg, n);
}

Status qx_get_asu_grid_point(std::int32_t nops, const std::int32_t (*rot)[9],
                             const std::int32_t (*trans)[3], std::int32_t nx, std::int32_t ny,
                             std::int32_t nz, std::int32_t mx, std::int32_t my, std::int32_t mz,
                             const char* const* const* mask, std::int32_t i, std::int32_t j,
                             std::int32_t k, std::int32_t* ia, std::int32_t* ja, std::int32_t* ka) {
  const std::int32_t box[3] = {nx, ny, nz};
  const std::int32_t period[3] = {mx, my, mz};
  const std::int32_t point[3] = {i, j, k};
  std::int32_t mate[3];
  if (!qx::find_mate({nops, rot, trans}, box, period, mask, point, mate)) {
    return fail(" qx_get_asu_grid_point(): ",
                "Failed to get the ASU grid point for non-ASU grid point %d %d %d \n", i, j, k);
  }
  *ia = mate[0];
  *ja = mate[1];
  *ka = mate[2];
  return ok;
}

Status qx_get_asubox_grid_point(std::int32_t nops, const std::int32_t (*rot)[9],
                                const std::int32_t (*trans)[3], std::int32_t nx, std::int32_t ny,
                                std::int32_t nz, std::int32_t mx, std::int32_t my, std::int32_t mz,
                                std::int32_t i, std::int32_t j, std::int32_t k, std::int32_t* ia,
                                std::int32_t* ja, std::int32_t* ka) {
  const std::int32_t box[3] = {nx, ny, nz};
  const std::int32_t period[3] = {mx, my, mz};
  const std::int32_t point[3] = {i, j, k};
  std::int32_t mate[3];
  if (!qx::find_mate({nops, rot, trans}, box, period, nullptr, point, mate)) {
    return fail(" qx_get_asubox_grid_point(): ",
                "Can not find symmetry grid point inside the ASU box for (%d %d %d) \n", i, j, k);
  }
  *ia = mate[0];
  *ja = mate[1];
  *ka = mate[2];
  return ok;
}

namespace {

// The mask of the current grid, built if need be; empty after a report.
qx::View3<char> current_mask(const char* heading) {
  const qxasu* asu = qx_get_qxasu();
  if (!asu) {
    (void)fail(heading, "%s", no_asu);
    return {};
  }
  if (!asu->mask && qx_build_ASU() != ok) return {};
  std::int32_t n[3];
  if (qx_get_grid_counts(&n[0], &n[1], &n[2]) != ok) return {};
  return qx::view3(asu->mask, n[2], n[1], n[0]);
}

}  // namespace

Status qx_sortout_ASU_grid_points(std::int64_t* indices, std::int64_t* nasu) {
  const qx::View3<char> mask = current_mask("qx_sortout_ASU_grid_points():");
  if (!mask.data) return failed;
  *nasu = std::count_if(mask.data, mask.data + mask.size(), [](char mark) { return mark != 0; });
  std::int64_t* marked = indices;
  std::int64_t* others = indices + *nasu;
  for (std::ptrdiff_t i = 0; i < mask.size(); ++i) *(mask.data[i] ? marked++ : others++) = i;
  return ok;
}

Status qx_clean_non_ASU_gridpoints(double*** density) {
  const qx::View3<char> mask = current_mask("qx_clean_non_ASU_gridpoints():");
  if (!mask.data) return failed;
  double* values = density[0][0];
  for (std::ptrdiff_t i = 0; i < mask.size(); ++i) {
    if (!mask.data[i]) values[i] = 0;
  }
  return ok;
}

Status qx_clean_non_ASU_sub_gridpoints(double*** density, std::int32_t x0, std::int32_t y0,
                                       std::int32_t z0, std::int32_t nx, std::int32_t ny,
                                       std::int32_t nz) {
  const qx::View3<char> mask = current_mask("qx_clean_non_ASU_sub_gridpoints():");
  if (!mask.data) return failed;
  for (std::int32_t iz = 0; iz < nz; ++iz) {
    for (std::int32_t iy = 0; iy < ny; ++iy) {
      const char* marks = mask.row(qx::wrapped(std::int64_t{z0} + iz, mask.n0),
                                   qx::wrapped(std::int64_t{y0} + iy, mask.n1));
      for (std::int32_t ix = 0; ix < nx; ++ix) {
        if (!marks[qx::wrapped(std::int64_t{x0} + ix, mask.n2)]) density[iz][iy][ix] = 0;
      }
    }
  }
  return ok;
}

Status qx_check_asu_consistent() {
  constexpr const char* here = "qx_check_asu_consistent():";
  const qx::View3<char> mask = current_mask(here);
  if (!mask.data) return failed;
  const qxasu* asu = qx_get_qxasu();
  if (!asu) return failed;
  const qx::GridOperators ops = grid_operators(*asu);
  const std::int32_t n[3] = {static_cast<std::int32_t>(mask.n2), static_cast<std::int32_t>(mask.n1),
                             static_cast<std::int32_t>(mask.n0)};
  std::int64_t total = 0;
  for (std::int32_t iz = 0; iz < n[2]; ++iz) {
    for (std::int32_t iy = 0; iy < n[1]; ++iy) {
      for (std::int32_t ix = 0; ix < n[0]; ++ix) {
        if (!mask(iz, iy, ix)) continue;
        total += asu->counts[iz][iy][ix];
        const std::int32_t point[3] = {ix, iy, iz};
        for (std::int32_t op = 0; op < ops.count; ++op) {
          std::int32_t mate[3];
          qx::move_point(ops, op, n, point, mate);
          if (!std::equal(mate, mate + 3, point) && mask(mate[2], mate[1], mate[0])) {
            return fail(here, "Two grid points of one orbit in the ASU: %d %d %d and %d %d %d \n",
                        ix, iy, iz, mate[0], mate[1], mate[2]);
          }
        }
      }
    }
  }
  if (total != mask.size()) return fail(here, "The orbits of the ASU do not fill the cell ");
  return ok;
}
