// K. What spreading asks of the processor: a table of pure functions, one table per instruction
// set. They differ by rounding only; which points belong to an atom is decided by products and sums
// that cannot fuse, so that all of them touch the same points.
#pragma once

#include "model/gaussians.h"

#include <cstddef>
#include <cstdint>
#include <limits>

namespace qx {

// Whole registers of Gaussians, of rows and of points in a row: arrays are padded to this.
inline constexpr std::int32_t spread_padding = 8;

// Whole registers from any of n places on.
constexpr std::int32_t padded(std::int32_t n) noexcept {
  return (n + 2 * spread_padding - 2) / spread_padding * spread_padding;
}

// Heights of a register of planes: from Gaussian to Gaussian.
inline constexpr std::int32_t heights_pitch = padded(spread_padding);

// What stands for the coordinates of points beyond the last of a row: no point is touched there,
// and nothing becomes a denormal number on the way.
inline constexpr double off_the_row = std::numeric_limits<double>::quiet_NaN();

// The rows of one plane that an atom touches. Lanes are the points of a row from `data` on.
struct SpreadLayer {
  double* data;          // lane 0 of row 0
  std::ptrdiff_t pitch;  // from row to row
  std::int32_t rows, lanes;
  double rest;              // radius^2 - z^2
  const double* y_squared;  // by row
  // Of row j the lanes low_end - j ... high_end - j lie in the cell, where it cuts the sphere.
  bool cut = false;
  std::int32_t low_end = 0;
  std::int32_t high_end = 0;
};

// Products of values along x and along y: value i of lane m is along_x[i x_pitch + m].
struct SpreadCombs {
  std::int32_t n;
  const double* x_squared;  // by lane
  const double* along_x;
  std::ptrdiff_t x_pitch;
  const double* along_y;
  std::ptrdiff_t y_pitch;
};

struct LeaningPoints {
  const double* x;
  double shift, lean;
  double* change;  // by Gaussian
};

// Values of each Gaussian at every point of a layer: value i of lane m in row j is
// values[(j n + i) pitch + m].
struct SpreadSlice {
  std::int32_t n;
  const double* x;       // by lane, without the row's offset
  const double* offset;  // of x, by row
  const double* y;       // by row
  double* values;
  std::ptrdiff_t pitch;
};

// exp(-r^T P r / 2) in a layer at height z; neighbouring rows are (bx, by) apart. When `steady`,
// values along y follow from the first row's by ratios that change by the factors `change`.
struct SliceForm {
  const double (*precision)[6];  // 11 22 33 12 13 23
  const double* change;          // exp(-d^T P d) for d = (bx, by, 0)
  double z, bx, by;
  bool steady;
};

struct SpreadKernels {
  const char* name;

  // values[i pitch + m] = amplitudes[i] exp(-exponents[i] x[m]^2), as far as it matters.
  void (*comb)(std::int32_t n, const double* amplitudes, const double* exponents,
               std::int32_t count, const double* x, double* values, std::ptrdiff_t pitch);

  // The same with amplitudes of one and without limit, the ratio of each to the value at
  // x[m] + lean, and by what that ratio changes with each further `lean`; then one step on, and
  // the squares of shifted points.
  void (*leaning_comb)(std::int32_t n, const double* exponents, std::int32_t count,
                       const LeaningPoints& points, double* values, double* ratios,
                       std::ptrdiff_t pitch);
  void (*lean)(std::int32_t n, std::int32_t count, const double* change, double* values,
               double* ratios, std::ptrdiff_t pitch);
  void (*squares)(std::int32_t count, const double* x, double shift, double* squares);

  // heights[i] = amplitudes[i] exp(-exponents[i] z^2); all arrays padded.
  void (*heights)(const double* amplitudes, const double* exponents, double z, double* heights);

  // Adds sum over i of heights[i heights_pitch] along_x[i] along_y[i] at the layer's points within
  // the radius.
  void (*add_combs)(const SpreadLayer& layer, const SpreadCombs& combs, const double* heights);

  void (*fill_slice)(const SpreadSlice& slice, const SliceForm& form, std::int32_t rows,
                     std::int32_t lanes);

  // Adds sum over i of heights[i] values[i] at the layer's points within the radius; row 0 of the
  // layer is row `first` of the slice.
  void (*add_slice)(const SpreadLayer& layer, const SpreadSlice& slice, std::int32_t first,
                    const double* heights);
};

// Null where the compiler or the target has no such instructions.
const SpreadKernels* spread_kernels_base() noexcept;
const SpreadKernels* spread_kernels_avx2() noexcept;
const SpreadKernels* spread_kernels_avx512() noexcept;

// The widest that this processor runs.
const SpreadKernels& spread_kernels() noexcept;

// For tests and benches: every table that this processor can run, narrowest first, and forcing one
// (null: back to the choice).
std::int32_t list_spread_kernels(const SpreadKernels* (&tables)[3]) noexcept;
void force_spread_kernels(const SpreadKernels* table) noexcept;

}  // namespace qx
