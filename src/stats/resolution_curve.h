// K. A positive quantity that falls with resolution, as a smooth curve of s^2.
#pragma once

#include <cstdint>

namespace qx {

// Means of groups of equal count in order of s^2, linear in between on a logarithmic scale and
// constant outside.
struct ResolutionCurve {
  static constexpr int most = 60;
  int n = 0;
  double s2[most];
  double log_mean[most];

  // exp of the interpolated logarithm; 0 for a curve without points.
  [[nodiscard]] double at(double s2_there) const noexcept;
};

// The reflections by s^2, as those that curves are drawn of.
void order_by_s2(std::int32_t n, const double* s2, std::int32_t* order) noexcept;

// Groups of at least `least` values, at most ResolutionCurve::most of them, of reflections in that
// order. A group whose mean is not above 0 takes a thousandth of the largest.
ResolutionCurve draw_ordered_curve(std::int32_t n, const double* s2, const double* values,
                                   int least, const std::int32_t* order) noexcept;
// The same; `order`: n places of scratch.
ResolutionCurve draw_curve(std::int32_t n, const double* s2, const double* values, int least,
                           std::int32_t* order) noexcept;

}  // namespace qx
