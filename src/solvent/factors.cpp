// Structure factors of the solvent: one transform of the mask. The mask has the group's symmetry,
// so a reflection is read off at its own index.
#include "core/parallel.h"
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "fft/fft.h"
#include "fft/transform_half.h"
#include "solvent/solvent.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cstdlib>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* here = "qx_calc_solvent_structure_factor():";

bool counts(const qxsolvent& solvent, const qxrefdata& data, std::int32_t i) {
  return data.s_length[i] * solvent.cutoff <= 1.0;
}

// Which columns of the spectrum the reflections lie on: those with h >= 0, or their opposites.
struct Columns {
  std::int32_t hmax = 0;
  qx::Tagged<std::int32_t> counts;
};

Status mark_columns(const qxsolvent& solvent, const qxrefdata& data, Columns& columns) {
  const qx::MaskGrid& grid = solvent.grid;
  columns.counts = qx::Tagged<std::int32_t>(
      qx::allocate_zeroed<std::int32_t>(static_cast<std::size_t>(grid.ny), "psf_columns"));
  if (!columns.counts) return failed;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    if (!counts(solvent, data, i)) continue;
    const std::int32_t h = std::abs(data.h[i]);
    const std::int32_t k = data.h[i] < 0 ? -data.k[i] : data.k[i];
    if (2 * (h + 1) > grid.nx || 2 * std::abs(k) >= grid.ny || 2 * std::abs(data.l[i]) >= grid.nz) {
      return fail(here, "The solvent's grid of %d x %d x %d is too coarse for (%d %d %d) ", grid.nx,
                  grid.ny, grid.nz, data.h[i], data.k[i], data.l[i]);
    }
    columns.hmax = std::max(columns.hmax, h);
    std::int32_t& count = columns.counts[static_cast<std::size_t>(k < 0 ? k + grid.ny : k)];
    count = std::max(count, h + 1);
  }
  return ok;
}

// F at an index from the rows that forward_half_3d leaves.
void read_off(const qx::HalfLayout& half, const double* block, double scale,
              const std::int32_t (&index)[3], double& re, double& im) {
  const bool opposite = index[0] < 0;
  const std::int32_t sign = opposite ? -1 : 1;
  const double* term = block + half.at(sign * index[0], sign * index[1], sign * index[2]);
  re = scale * term[0];
  im = scale * (opposite ? -term[half.terms()] : term[half.terms()]);
}

Status transform(const qxsolvent& solvent, const std::uint8_t* mask, const qxrefdata& data,
                 double volume, double* re, double* im) {
  const qx::MaskGrid& grid = solvent.grid;
  Columns columns;
  QX_TRY(mark_columns(solvent, data, columns));
  const qx::Tagged<double> block(grid.points(), "psf_block");
  if (!block) return failed;
  const std::int32_t threads = qx::threads_worth(static_cast<double>(grid.points()));
  qx::parallel(grid.nz, threads, [&](std::int32_t iz, std::int32_t) {
    for (std::size_t i = grid.row(iz, 0); i < grid.row(iz + 1, 0); ++i) {
      block[i] = mask[i] ? 0.0 : 1.0;
    }
  });
  if (!qx::fft_object()) return failed;
  const qx::HalfLayout half = {grid.nx, grid.ny, grid.nz, columns.hmax};
  QX_TRY(qx::forward_half_3d(half, columns.counts.get(), block.get()));
  const double scale = volume / static_cast<double>(grid.points());
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    re[i] = im[i] = 0.0;
    if (!counts(solvent, data, i)) continue;
    read_off(half, block.get(), scale, {data.h[i], data.k[i], data.l[i]}, re[i], im[i]);
  }
  return ok;
}

Status fetch_volume(double& volume) {
  const qxcell* cell = nullptr;
  QX_TRY(
      qx::require_of_engine(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  volume = cell->volume;
  return ok;
}

}  // namespace

Status qx::mask_factors(const qxsolvent& solvent, const std::uint8_t* mask, const qxrefdata& data,
                        double* re, double* im) {
  double volume = 0.0;
  QX_TRY(fetch_volume(volume));
  return transform(solvent, mask, data, volume, re, im);
}

Status qx_calc_solvent_structure_factor() {
  const qxsolvent* found = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxsolvent, found, " qxsolvent object has not been created yet "),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  if (data->nreflections < 1 || !data->s_length) {
    return fail(here, "There is no reflection to calculate the solvent for.");
  }
  if (!found->mask) QX_TRY(qx_make_solvent_mask());
  qxsolvent* solvent = qx_get_qxsolvent();
  if (!solvent) return failed;
  QX_TRY(qx::drop_solvent_factors(solvent));
  const auto n = static_cast<std::size_t>(data->nreflections);
  QX_TRY(qx::open_block(solvent->re, n, "psf_re"));
  QX_TRY(qx::open_block(solvent->im, n, "psf_im"));
  solvent->nref = data->nreflections;
  return qx::mask_factors(*solvent, solvent->mask, *data, solvent->re, solvent->im);
}
