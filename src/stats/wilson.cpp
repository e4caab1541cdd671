#include "stats/wilson.h"

#include "stats/pair_sums.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

void add_bin(const WilsonData& data, const std::int32_t* first, const std::int32_t* last,
             WilsonPlot& plot) noexcept {
  double ratio = 0.0, s2 = 0.0;
  for (const std::int32_t* i = first; i != last; ++i) {
    ratio += data.intensity[*i] / data.sum_f2[*i];
    s2 += data.s2[*i];
  }
  const auto count = static_cast<double>(last - first);
  if (!(ratio > 0.0)) return;
  plot.bins[plot.nbins++] = {static_cast<std::int32_t>(last - first), s2 / count,
                             std::log(ratio / count)};
}

void fit_line(WilsonPlot& plot) noexcept {
  PairSums line;
  for (int i = 0; i < plot.nbins; ++i) line.add(0.5 * plot.bins[i].s2, plot.bins[i].log_ratio);
  if (line.n < 2.0 || !(line.vxx() > 0.0)) return;
  plot.b = -line.vxy() / line.vxx();
  plot.k = std::exp(0.5 * (line.y + plot.b * line.x) / line.n);
  plot.correlation = line.correlation();
}

}  // namespace

WilsonPlot wilson_plot(const WilsonData& data, int nbins, double low_s2, double high_s2,
                       std::int32_t* order) noexcept {
  WilsonPlot plot;
  std::int32_t n = 0;
  for (std::int32_t i = 0; i < data.n; ++i) {
    if (data.s2[i] >= low_s2 && data.s2[i] <= high_s2) order[n++] = i;
  }
  std::sort(order, order + n, [&](std::int32_t a, std::int32_t b) {
    return data.s2[a] != data.s2[b] ? data.s2[a] < data.s2[b] : a < b;
  });
  const int bins = std::min({nbins, WilsonPlot::most_bins, static_cast<int>(n)});
  for (int bin = 0; bin < bins; ++bin) {
    const std::int64_t start = std::int64_t{n} * bin / bins;
    const std::int64_t end = std::int64_t{n} * (bin + 1) / bins;
    add_bin(data, order + start, order + end, plot);
  }
  fit_line(plot);
  return plot;
}

}  // namespace qx
