// Where each symmetry mate of each reflection falls on the grid, and with what phase.
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "core/wrapped.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"

#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::wrapped;

namespace {

struct Mate {
  std::int64_t hkl[3];
  double shift;  // cycles
};

Mate mate_of(const double (&op)[16], const std::int32_t (&hkl)[3]) {
  Mate mate = {{0, 0, 0}, 0.0};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) mate.hkl[j] += hkl[i] * std::llrint(op[4 * i + j]);
    mate.shift += hkl[i] * op[4 * i + 3];
  }
  return mate;
}

// Whole cycles would multiply the error of the single-precision 2 pi.
double fraction_of(double cycles) { return cycles - std::floor(cycles); }

Status open_tables(qxgrid& grid, std::int32_t nops, std::int32_t nref) {
  for (std::int32_t*** table : {&grid.ref_ix, &grid.ref_iy, &grid.ref_iz, &grid.ref_l}) {
    std::int32_t** rows = xopen_matrix_int(nops, nref, "pcr_ind");
    if (!rows) return failed;
    *table = rows;
  }
  double** rows = xopen_matrix_double(nops, nref, "pcr_shift");
  if (!rows) return failed;
  grid.ref_shift = rows;
  grid.ref_nops = nops;
  grid.ref_count = nref;
  return ok;
}

void fill_tables(const qxgrid& grid, const std::int32_t (&n)[3], const qxspg& spg,
                 const qxrefdata& set) {
  for (std::int32_t op = 0; op < spg.nops; ++op) {
    for (std::int32_t ref = 0; ref < set.nreflections; ++ref) {
      const std::int32_t hkl[3] = {set.h[ref], set.k[ref], set.l[ref]};
      const Mate mate = mate_of(spg.ops[op], hkl);
      grid.ref_ix[op][ref] = wrapped(mate.hkl[0], n[0]);
      grid.ref_iy[op][ref] = wrapped(mate.hkl[1], n[1]);
      grid.ref_iz[op][ref] = wrapped(mate.hkl[2], n[2]);
      grid.ref_l[op][ref] = static_cast<std::int32_t>(mate.hkl[2]);
      grid.ref_shift[op][ref] = mate.shift;
    }
  }
}

// Sine and cosine of 2 pi (l' j / nz + shift) for the planes j.
Status fill_sincos(qxgrid& grid, std::int32_t planes, std::int32_t nops, std::int32_t nref) {
  double*** sine = xopen_3d_double(planes, nops, nref, "pcr_sin");
  if (!sine) return failed;
  grid.sine = sine;
  double*** cosine = xopen_3d_double(planes, nops, nref, "pcr_cos");
  if (!cosine) return failed;
  grid.cosine = cosine;
  for (std::int32_t j = 0; j < planes; ++j) {
    for (std::int32_t op = 0; op < nops; ++op) {
      for (std::int32_t ref = 0; ref < nref; ++ref) {
        const double cycles =
            fraction_of(static_cast<double>(
                            wrapped(static_cast<std::int64_t>(grid.ref_l[op][ref]) * j, grid.nz)) /
                            grid.nz +
                        grid.ref_shift[op][ref]);
        sine[j][op][ref] = std::sin(qx::two_pi_single * cycles);
        cosine[j][op][ref] = std::cos(qx::two_pi_single * cycles);
      }
    }
  }
  return ok;
}

}  // namespace

Status qx_calc_ref2gind() {
  constexpr auto here = "qx_calc_ref2gind():";
  const qxsubgrid* box = nullptr;
  QX_TRY(qx::require(here, qx_get_qxsubgrid, box, "qxsubgrid object has not been created yet."));
  const qxrefdata* set = nullptr;
  QX_TRY(qx::require(here, qx_get_qxrefdata, set, "qxrefdata object has not been created yet."));
  qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(here, qx_get_qxspg, spg, "qxspg object has not been created yet "));
  const std::int32_t n[3] = {box->one_box ? grid->nx : box->points[0],
                             box->one_box ? grid->ny : box->points[1],
                             box->one_box ? grid->nz : box->points[2]};
  if (n[0] < 1 || n[1] < 1 || n[2] < 1) {
    return fail(here, "input fft grid sizes have not been defined yet ");
  }
  QX_TRY(qx::drop_reflection_tables(*grid));
  if (spg->nops < 1 || set->nreflections < 1) return ok;
  QX_TRY(open_tables(*grid, spg->nops, set->nreflections));
  fill_tables(*grid, n, *spg, *set);
  if (!box->one_box && !grid->sincos_memory) return ok;
  return fill_sincos(*grid, box->one_box ? 1 : box->boxes[2], spg->nops, set->nreflections);
}
