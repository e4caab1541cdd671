// K. What one observed amplitude says, given D F of the model and a variance (Luzzati, Acta Cryst.
// 5, 802, 1952; Sim, Acta Cryst. 12, 813, 1959; Read, Acta Cryst. A42, 140, 1986). All amplitudes
// on one scale; v = epsilon S, plus 2 sigma^2 (acentric) or sigma^2 (centric) where errors of
// measurement count.
#pragma once

#include "stats/bessel.h"

#include <cmath>

namespace qx {

struct Conditional {
  double fo, df, v;  // v > 0
  bool centric;

  // Argument of the Bessel functions or of the hyperbolic ones.
  [[nodiscard]] double x() const noexcept { return (centric ? 1.0 : 2.0) * fo * df / v; }
  // Figure of merit: the expected cosine of the phase error.
  [[nodiscard]] double fom() const noexcept { return centric ? std::tanh(x()) : bessel_ratio(x()); }
  // -log P(Fo); 0 < Fo.
  [[nodiscard]] double minus_log() const noexcept {
    constexpr double half_pi = 1.57079632679489662;
    const double squares = fo * fo + df * df;
    if (centric) return 0.5 * std::log(half_pi * v) + squares / (2.0 * v) - log_cosh(x());
    return std::log(0.5 * v) - std::log(fo) + squares / v - log_i0(x());
  }
  // Derivative of -log P by D F.
  [[nodiscard]] double by_df(double fom) const noexcept {
    return (centric ? 1.0 : 2.0) * (df - fom * fo) / v;
  }
  // Derivative of -log P by v.
  [[nodiscard]] double by_v(double fom) const noexcept {
    const double squares = fo * fo + df * df - 2.0 * fom * fo * df;
    return centric ? 0.5 / v - squares / (2.0 * v * v) : 1.0 / v - squares / (v * v);
  }
};

// How often m Fo and D F enter a coefficient a m Fo - b D F, on the scale of Fo. Both multipliers
// set: an acentric reflection shows half of what the model lacks, so its difference counts twice,
// which for a centric one is u - 1 and v - 1; u = v: acentric doubled, centric as it is. So
// (2, 1) less (1, 1) is always D F. One multiplier alone is the same for both classes.
struct MapTerms {
  double a, b;
};
inline MapTerms map_terms(double u, double v, bool centric) noexcept {
  if (u == 0.0 || v == 0.0) return {u, v};
  if (u == v) return centric ? MapTerms{u, v} : MapTerms{2.0 * u, 2.0 * v};
  return centric ? MapTerms{u - 1.0, v - 1.0} : MapTerms{u, v};
}
// A reflection that was not observed stands for its expectation, D F: u - v of it in a map of full
// density, nothing in a difference map.
inline double unobserved_term(double u, double v) noexcept { return u > v ? u - v : 0.0; }

}  // namespace qx
