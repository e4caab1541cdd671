// K. Bins of resolution for a scale that varies with it.
#pragma once

#include <cstdint>

namespace qx {

// At most `most` bins of equal width in ln s^2, joined upwards until each holds `least`
// reflections. `bin_of` takes the bin of every reflection, `centre` the mean s^2 of each; gives the
// number of bins (0 without reflections).
int logarithmic_bins(std::int32_t n, const double* s2, int most, int least, std::int32_t* bin_of,
                     double* centre) noexcept;

// Position of s^2 among ascending centres: value = (1 - t) y[i] + t y[i + 1], constant outside.
struct Between {
  int i;
  double t;
};
inline Between between(int n, const double* centre, double s2) noexcept {
  if (n < 2 || s2 <= centre[0]) return {0, 0.0};
  if (s2 >= centre[n - 1]) return {n - 2, 1.0};
  int i = 0;
  while (i < n - 2 && centre[i + 1] <= s2) ++i;
  return {i, (s2 - centre[i]) / (centre[i + 1] - centre[i])};
}
inline double interpolate(int n, const double* centre, const double* y, double s2) noexcept {
  if (n < 2) return n == 1 ? y[0] : 0.0;
  const Between at = between(n, centre, s2);
  return (1.0 - at.t) * y[at.i] + at.t * y[at.i + 1];
}

}  // namespace qx
