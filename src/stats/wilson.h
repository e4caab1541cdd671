// K. Wilson's plot (Wilson, Nature 150, 152, 1942): ln(<F^2 / epsilon> / sum f^2) = ln k^2 - B s^2
// / 2, a line through bins of equal count.
#pragma once

#include <cstdint>

namespace qx {

struct WilsonData {
  std::int32_t n = 0;
  const double* intensity = nullptr;  // F^2 / epsilon, any sign
  const double* s2 = nullptr;         // 1/Angstrom^2
  const double* sum_f2 = nullptr;     // expected of atoms at rest, electrons^2
};

struct WilsonBin {
  std::int32_t n;
  double s2, log_ratio;
};

struct WilsonPlot {
  static constexpr int most_bins = 200;
  int nbins = 0;  // of those with a mean above 0
  WilsonBin bins[most_bins];
  double k = 1.0;            // F = k F(absolute)
  double b = 0.0;            // Angstrom^2
  double correlation = 0.0;  // of the line, negative where the plot falls
};

// Bins of the reflections given; the line through those between low_s2 and high_s2. `order`: n
// places of scratch. With fewer than two bins k is 1 and B 0.
WilsonPlot wilson_plot(const WilsonData& data, int nbins, double low_s2, double high_s2,
                       std::int32_t* order) noexcept;

}  // namespace qx
