// K. Modified Bessel functions of the first kind, scaled by exp(-x): arguments of the likelihood
// exceed 1000. Relative error below 1e-12; x >= 0.
#pragma once

#include <cmath>

namespace qx {

// exp(-x) I0(x) and exp(-x) I1(x).
struct ScaledBessel {
  double i0, i1;
};
ScaledBessel scaled_bessel(double x) noexcept;

// I1(x) / I0(x): the figure of merit of an acentric reflection.
inline double bessel_ratio(double x) noexcept {
  const ScaledBessel b = scaled_bessel(x);
  return b.i1 / b.i0;
}

// log I0(x) and log cosh(x) without overflow.
inline double log_i0(double x) noexcept { return x + std::log(scaled_bessel(x).i0); }
inline double log_cosh(double x) noexcept {
  constexpr double log_2 = 0.693147180559945309;
  return x + std::log1p(std::exp(-2.0 * x)) - log_2;
}

}  // namespace qx
