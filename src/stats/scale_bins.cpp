#include "stats/scale_bins.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

struct Edges {
  double low, width;
  int n;

  [[nodiscard]] int cell(double s2) const noexcept {
    if (!(width > 0.0)) return 0;
    const auto at = static_cast<int>((std::log(s2) - low) / width);
    return std::clamp(at, 0, n - 1);
  }
};

Edges equal_edges(std::int32_t n, const double* s2, int most, int least) noexcept {
  const auto [low, high] = std::minmax_element(s2, s2 + n);
  const int cells = std::clamp(n / least, 1, most);
  const double bottom = std::log(*low);
  return {bottom, (std::log(*high) - bottom) / cells, cells};
}

}  // namespace

int logarithmic_bins(std::int32_t n, const double* s2, int most, int least, std::int32_t* bin_of,
                     double* centre) noexcept {
  constexpr int limit = 128;
  if (n < 1) return 0;
  const Edges edges = equal_edges(n, s2, std::min(most, limit), least);
  std::int32_t counts[limit] = {};
  for (std::int32_t i = 0; i < n; ++i) ++counts[bin_of[i] = edges.cell(s2[i])];
  int joined[limit];
  int bins = 0;
  std::int32_t held = 0;
  for (int cell = 0; cell < edges.n; ++cell) {
    joined[cell] = bins;
    held += counts[cell];
    if (held < least) continue;
    ++bins;
    held = 0;
  }
  // What is left over at the end goes to the last bin.
  const int last = std::max(bins - 1, 0);
  bins = last + 1;
  double sums[limit] = {};
  std::int32_t members[limit] = {};
  for (std::int32_t i = 0; i < n; ++i) {
    const int bin = std::min(joined[bin_of[i]], last);
    bin_of[i] = bin;
    sums[bin] += s2[i];
    ++members[bin];
  }
  for (int bin = 0; bin < bins; ++bin) centre[bin] = sums[bin] / members[bin];
  return bins;
}

}  // namespace qx
