// Real density from half a spectrum, in place.
#pragma once

#include <quorix/api.h>

#include <cstdint>

namespace qx {

// Which part of the half spectrum can be non-zero: 0 <= h <= hmax, |k| <= kmax, |l| <= lmax.
// columns[iy], iy in [0, ny): how many h from 0 on have a non-zero term in any row of that k
// (k = iy or iy - ny); 0 for k outside kmax.
struct HalfSpectrum {
  std::int32_t nx, ny, nz;
  std::int32_t hmax, kmax, lmax;
  const std::int32_t* columns;
};

// Sums over all points of the result, gathered while its rows are in cache.
struct DensityMoments {
  double sum = 0, sum_of_squares = 0, minimum = 0, maximum = 0;
};

// True when the half spectrum fits into the density block without wrapping: 2 (hmax + 1) <= nx,
// 2 kmax < ny, 2 lmax < nz. Otherwise only the general transforms will do.
bool half_spectrum_fits(const HalfSpectrum& half) noexcept;

// rho(ix, iy, iz) = sum over all (h, k, l) of F exp(-2 pi i (h ix/nx + k iy/ny + l iz/nz)), with
// F(-h, -k, -l) the conjugate of F(h, k, l): both (0, k, l) and (0, -k, -l) are given, of the
// others h > 0 only. No 1/n factor. `block` holds [nz][ny][nx] doubles. On entry row (l mod nz, k
// mod ny) has the real parts of h = 0 .. hmax in its elements 0 .. hmax and the imaginary parts in
// hmax + 1 .. 2 hmax + 1; rows outside kmax or lmax, and elements outside columns[], need not be
// set. On return it is the density. Uses the plan caches of the engine; `failed` after a report.
Status inverse_half_3d(const HalfSpectrum& half, double* block, DensityMoments* moments);

// A density box and which part of its spectrum is asked for: columns[iy] terms h = 0, 1, ... of
// each k (iy = k mod ny), at most hmax + 1, all l.
struct DensityBox {
  std::int32_t nx, ny, nz;
  std::int32_t hmax;
  const std::int32_t* columns;
};

// F(h, k, l) = sum over the points of rho exp(+2 pi i (h ix/nx + k iy/ny + l iz/nz)), in place: the
// row (l mod nz, k mod ny) of the block then has the real parts of h = 0 .. hmax in its elements 0
// .. hmax and the imaginary parts in hmax + 1 .. 2 hmax + 1; what was not asked for is left
// undefined. 2 (hmax + 1) <= nx; `failed` after a report.
Status forward_half_3d(const DensityBox& box, double* block);

// Zeroes what inverse_half_3d reads.
void clear_half_spectrum(const HalfSpectrum& half, double* block) noexcept;

}  // namespace qx
