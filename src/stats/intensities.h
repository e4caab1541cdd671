// K. What intensities say about their distribution and their amplitudes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

// Moments of normalised intensities Z = I / (epsilon <I / epsilon>): <Z^2> is 2 (acentric) and 3
// (centric) without twinning, <E> = <sqrt Z> 0.886 and 0.798 (Wilson statistics, Acta Cryst. 2,
// 318, 1949).
struct Moments {
  std::int32_t n = 0;
  double z2 = 0.0, e = 0.0;
};
Moments moments(std::int32_t n, const double* z) noexcept;

// Padilla & Yeates, Acta Cryst. D59, 1124, 2003: L = (I1 - I2) / (I1 + I2) of acentric reflections
// two steps apart on each axis (pseudo-translations spare these pairs). <|L|> is 0.5 and <L^2>
// 0.333 untwinned, 0.375 and 0.2 perfectly twinned.
struct LTest {
  std::int32_t n = 0;
  double mean_l = 0.0, mean_l2 = 0.0;
};
struct LReflection {
  std::int32_t h, k, l;
  double intensity;
};
// Sorts the reflections (acentric ones with an intensity above 0).
LTest l_test(std::int32_t n, LReflection* reflections) noexcept;

// Posterior means of the amplitude and its error from an intensity with error sigma > 0, the prior
// being Wilson's with mean intensity `mean` > 0, epsilon included (French & Wilson, Acta Cryst.
// A34, 517, 1978). By quadrature, to a relative 1e-6; no table.
struct Amplitude {
  double f, sigma;
};
Amplitude french_wilson(double intensity, double sigma, double mean, bool centric) noexcept;

}  // namespace qx
