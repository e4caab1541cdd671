#include "refine/gradient_map.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "fft/transform_half.h"
#include "grid/grid.h"
#include "sf/fft_route.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qx {

namespace {

struct Needs {
  const qxgrid* grid = nullptr;
  Tagged<IndexOperator> operators;
  std::int32_t nops = 0;
  const qxcell* cell = nullptr;
  const qxstructfact* sf = nullptr;

  [[nodiscard]] RotatedIndex mate(std::int32_t op, const qxrefdata& data, std::int32_t i) const {
    return mate_of(operators[static_cast<std::size_t>(op)], data.h[i], data.k[i], data.l[i]);
  }
};

Status fetch(const char* heading, const qxrefdata& data, Needs& needs) {
  needs.grid = qx_get_qxgrid();
  if (!qx_exist_quorix()) return failed;
  if (!needs.grid || needs.grid->nx < 1) {
    return fail(heading, "qxgrid object has not been created yet.");
  }
  QX_TRY(fetch_operators(heading, needs.operators, needs.nops));
  QX_TRY(qx::require_of_engine(
      heading, qx::need(qx_get_qxcell, needs.cell, "qxcell object has not been created yet."),
      qx::need(qx_get_qxstructfact, needs.sf, "qxstructfact object has not been created yet.")));
  if (needs.sf->nprefactor != data.nreflections) {
    return fail(heading, "The structure factors have not been calculated for these reflections.");
  }
  return ok;
}

// The index in the grid's period that is nearest to 0.
std::int32_t signed_index(std::int64_t index, std::int32_t n) {
  const std::int32_t i = wrapped(index, n);
  return 2 * i > n ? i - n : i;
}

// Where the terms of a spectrum lie, h >= 0.
struct Extent {
  HalfSpectrum half = {};
  Tagged<std::int32_t> columns;
};

void mark(Extent& extent, std::int32_t ny, std::int32_t k, std::int32_t h) {
  std::int32_t& count = extent.columns[static_cast<std::size_t>(k < 0 ? k + ny : k)];
  count = std::max(count, h + 1);
}

Status measure(const char* heading, const Needs& needs, const qxrefdata& data, Extent& extent) {
  const qxgrid& grid = *needs.grid;
  extent.columns = Tagged<std::int32_t>(
      allocate_zeroed<std::int32_t>(static_cast<std::size_t>(grid.ny), "pgm_columns"));
  if (!extent.columns) return failed;
  HalfSpectrum& half = extent.half;
  half = {{grid.nx, grid.ny, grid.nz, 0}, 0, 0, extent.columns.get()};
  for (std::int32_t op = 0; op < needs.nops; ++op) {
    for (std::int32_t i = 0; i < data.nreflections; ++i) {
      const RotatedIndex mate = needs.mate(op, data, i);
      const std::int32_t h = signed_index(mate.h, grid.nx);
      const std::int32_t k = signed_index(mate.k, grid.ny);
      half.hmax = std::max(half.hmax, std::abs(h));
      half.kmax = std::max(half.kmax, std::abs(k));
      half.lmax = std::max(half.lmax, std::abs(signed_index(mate.l, grid.nz)));
      mark(extent, grid.ny, h < 0 ? -k : k, std::abs(h));
      if (h == 0) mark(extent, grid.ny, -k, 0);
    }
  }
  if (half.fits()) return ok;
  return fail(heading, "The grid of %d x %d x %d is too coarse for the gradient ", grid.nx, grid.ny,
              grid.nz);
}

struct Spectrum {
  const HalfSpectrum& half;
  double* block;

  void add(std::int32_t h, std::int32_t k, std::int32_t l, double re, double im) const {
    double* term = block + half.at(h, k, l);
    term[0] += re;
    term[half.terms()] += im;
  }
  // A real term Re(w exp(2 pi i m x)): half of w* at m and of w at -m, of which one side is stored,
  // both where h is 0.
  void add_real(std::int32_t h, std::int32_t k, std::int32_t l, double re, double im) const {
    if (h >= 0) add(h, k, l, 0.5 * re, -0.5 * im);
    if (h <= 0) add(-h, -k, -l, 0.5 * re, 0.5 * im);
  }
};

void add_operator(const Needs& needs, const qxrefdata& data, std::int32_t op, const double* by_re,
                  const double* by_im, const Spectrum& spectrum) {
  const qxgrid& grid = *needs.grid;
  const double ratio = needs.cell->volume / (needs.cell->a * needs.cell->b * needs.cell->c);
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    if (by_re[i] == 0.0 && by_im[i] == 0.0) continue;
    const IndexOperator& symmetry = needs.operators[static_cast<std::size_t>(op)];
    const double angle = two_pi * (data.h[i] * symmetry.t[0] + data.k[i] * symmetry.t[1] +
                                   data.l[i] * symmetry.t[2]);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double factor = needs.sf->prefactor[i] * ratio;
    // conj(g) exp(2 pi i h.t)
    const double re = factor * (by_re[i] * c + by_im[i] * s);
    const double im = factor * (by_re[i] * s - by_im[i] * c);
    const RotatedIndex mate = needs.mate(op, data, i);
    spectrum.add_real(signed_index(mate.h, grid.nx), signed_index(mate.k, grid.ny),
                      signed_index(mate.l, grid.nz), re, im);
  }
}

}  // namespace

Status gradient_map(const char* heading, const qxrefdata& data, const double* by_re,
                    const double* by_im, double* block) {
  Needs needs;
  QX_TRY(fetch(heading, data, needs));
  Extent extent;
  QX_TRY(measure(heading, needs, data, extent));
  clear_half_spectrum(extent.half, block);
  const Spectrum spectrum = {extent.half, block};
  for (std::int32_t op = 0; op < needs.nops; ++op) {
    add_operator(needs, data, op, by_re, by_im, spectrum);
  }
  return inverse_half_3d(extent.half, block, nullptr);
}

}  // namespace qx
