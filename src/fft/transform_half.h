// Real density from half a spectrum and back, in place.
#pragma once

#include "fft/half_spectrum.h"

#include <quorix/api.h>

namespace qx {

// Sums over all points of the result, gathered while its rows are in cache.
struct DensityMoments {
  double sum = 0, sum_of_squares = 0, minimum = 0, maximum = 0;
};

// rho(ix, iy, iz) = sum over all (h, k, l) of F exp(-2 pi i (h ix/nx + k iy/ny + l iz/nz)), with
// F(-h, -k, -l) the conjugate of F(h, k, l): both (0, k, l) and (0, -k, -l) are given, of the
// others h > 0 only. No 1/n factor. `block` holds [nz][ny][nx] doubles; of it rows outside kmax or
// lmax, and terms outside columns[], need not be set. On return it is the density. Uses the plan
// caches of the engine; `failed` after a report.
Status inverse_half_3d(const HalfSpectrum& half, double* block, DensityMoments* moments);

// F(h, k, l) = sum over the points of rho exp(+2 pi i (h ix/nx + k iy/ny + l iz/nz)), in place.
// Asked for are columns[iy] terms h = 0, 1, ... of each k (iy = k mod ny), at most hmax + 1, all l;
// what was not asked for is left undefined. `failed` after a report.
Status forward_half_3d(const HalfLayout& half, const std::int32_t* columns, double* block);

// Zeroes what inverse_half_3d reads.
void clear_half_spectrum(const HalfSpectrum& half, double* block) noexcept;

}  // namespace qx
