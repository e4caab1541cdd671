#include "stats/resolution_curve.h"

#include "stats/scale_bins.h"

#include <algorithm>
#include <cmath>

namespace qx {

double ResolutionCurve::at(double s2_there) const noexcept {
  return n > 0 ? std::exp(interpolate(n, s2, log_mean, s2_there)) : 0.0;
}

void order_by_s2(std::int32_t n, const double* s2, std::int32_t* order) noexcept {
  for (std::int32_t i = 0; i < n; ++i) order[i] = i;
  std::sort(order, order + n,
            [&](std::int32_t a, std::int32_t b) { return s2[a] != s2[b] ? s2[a] < s2[b] : a < b; });
}

ResolutionCurve draw_ordered_curve(std::int32_t n, const double* s2, const double* values,
                                   int least, const std::int32_t* order) noexcept {
  ResolutionCurve curve;
  if (n < 1) return curve;
  const int groups = std::clamp(n / least, 1, ResolutionCurve::most);
  double means[ResolutionCurve::most];
  std::int64_t start = 0;
  for (int group = 0; group < groups; ++group) {
    const std::int64_t end = std::int64_t{n} * (group + 1) / groups;
    double sum = 0.0, place = 0.0;
    for (std::int64_t i = start; i < end; ++i) {
      sum += values[order[i]];
      place += s2[order[i]];
    }
    const auto count = static_cast<double>(end - start);
    means[group] = sum / count;
    curve.s2[group] = place / count;
    start = end;
  }
  curve.n = groups;
  const double largest = *std::max_element(means, means + groups);
  const double floor = largest > 0.0 ? 1e-3 * largest : 1e-300;
  for (int group = 0; group < groups; ++group) {
    curve.log_mean[group] = std::log(means[group] > 0.0 ? means[group] : floor);
  }
  return curve;
}

ResolutionCurve draw_curve(std::int32_t n, const double* s2, const double* values, int least,
                           std::int32_t* order) noexcept {
  order_by_s2(n, s2, order);
  return draw_ordered_curve(n, s2, values, least, order);
}

}  // namespace qx
