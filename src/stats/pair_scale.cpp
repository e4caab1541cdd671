#include "stats/pair_scale.h"

#include "stats/least_squares.h"
#include "stats/pair_sums.h"
#include "stats/scale_bins.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

constexpr int least_per_bin = 50;
constexpr double largest_b = 500.0;

// Scratch: F2 on the scale so far, projections of B's tensors, absolute residuals, bins.
struct Work {
  double* scaled;
  double* projected;
  double* residuals;
  std::int32_t* bin_of;
};

Work lay_out(std::int32_t n, double* scratch) noexcept {
  const auto size = static_cast<std::size_t>(n);
  return {scratch, scratch + size, scratch + 7 * size,
          reinterpret_cast<std::int32_t*>(scratch + 8 * size)};
}

// The residual whose square is the soft-L1 loss of r, and what its derivatives are multiplied by.
struct Softened {
  double r, slope;
};
Softened soften(double r, double width) noexcept {
  const double z2 = (r / width) * (r / width);
  const double root = std::sqrt(1.0 + z2);
  const double soft = width * std::sqrt(2.0 * z2 / (root + 1.0));  // of 2 (root - 1), kept exact
  if (!(soft > 0.0)) return {0.0, 1.0};
  return {std::copysign(soft, r), std::fabs(r) / (soft * root)};
}

// 1.4826 times the median of |F1 - scaled|: the rms of normal residuals whatever the outliers are.
double robust_width(const AmplitudePairs& pairs, const Work& work) noexcept {
  double rms = 0.0;
  for (std::int32_t i = 0; i < pairs.n; ++i) {
    const double r = pairs.f1[i] - work.scaled[i];
    work.residuals[i] = std::fabs(r);
    rms += r * r / pairs.n;
  }
  double* middle = work.residuals + pairs.n / 2;
  std::nth_element(work.residuals, middle, work.residuals + pairs.n);
  const double width = 1.4826 * *middle;
  return width > 1e-9 * std::sqrt(rms) ? width : std::max(std::sqrt(rms), 1e-30);
}

double damping_of(const double* b, int n, const double* x) noexcept {
  double sum = 0.0;
  for (int j = 0; j < n; ++j) sum += b[j] * x[j];
  return std::exp(-sum);
}

struct Fit {
  const AmplitudePairs& pairs;
  const TensorBasis& basis;
  Work work;

  [[nodiscard]] const double* projections(std::int32_t i) const noexcept {
    return work.projected + static_cast<std::ptrdiff_t>(i) * basis.n;
  }
  void rescale(const double* p) const noexcept {
    for (std::int32_t i = 0; i < pairs.n; ++i) {
      work.scaled[i] = p[0] * damping_of(p + 1, basis.n, projections(i)) * pairs.f2[i];
    }
  }
};

// Parameters k, b_1 .. b_n.
int fit_overall(const Fit& fit, double* p) noexcept {
  double low[7], high[7];
  low[0] = 0.0;
  high[0] = 1e30;
  std::fill_n(low + 1, 6, -largest_b);
  std::fill_n(high + 1, 6, largest_b);
  const int n = fit.basis.n;
  const double width = robust_width(fit.pairs, fit.work);
  const FitEnd end = minimise_squares(
      1 + n, p, low, high, 50, 1e-8, [&](const double* at, NormalEquations& equations) noexcept {
        double row[7];
        for (std::int32_t i = 0; i < fit.pairs.n; ++i) {
          const double* x = fit.projections(i);
          const double unit = damping_of(at + 1, n, x) * fit.pairs.f2[i];
          const Softened soft = soften(fit.pairs.f1[i] - at[0] * unit, width);
          row[0] = -soft.slope * unit;
          for (int j = 0; j < n; ++j) row[1 + j] = soft.slope * at[0] * unit * x[j];
          equations.add(soft.r, row);
        }
      });
  fit.rescale(p);
  return end.steps;
}

// The curve's values at the bins' middles.
int fit_curve(const Fit& fit, PairScale& scale) noexcept {
  const AmplitudePairs& pairs = fit.pairs;
  scale.nbins = logarithmic_bins(pairs.n, pairs.s2, PairScale::most_bins, least_per_bin,
                                 fit.work.bin_of, scale.centre);
  std::fill_n(scale.curve, scale.nbins, 1.0);
  double low[PairScale::most_bins], high[PairScale::most_bins];
  std::fill_n(low, PairScale::most_bins, 0.05);
  std::fill_n(high, PairScale::most_bins, 20.0);
  const double width = robust_width(pairs, fit.work);
  const FitEnd end =
      minimise_squares(scale.nbins, scale.curve, low, high, 30, 1e-8,
                       [&](const double* at, NormalEquations& equations) noexcept {
                         double row[PairScale::most_bins] = {};
                         for (std::int32_t i = 0; i < pairs.n; ++i) {
                           const double f = fit.work.scaled[i];
                           const Between place = between(scale.nbins, scale.centre, pairs.s2[i]);
                           const double k = interpolate(scale.nbins, scale.centre, at, pairs.s2[i]);
                           const Softened soft = soften(pairs.f1[i] - k * f, width);
                           const int next = std::min(place.i + 1, scale.nbins - 1);
                           row[place.i] = row[next] = 0.0;
                           row[place.i] -= soft.slope * (1.0 - place.t) * f;
                           row[next] -= soft.slope * place.t * f;
                           equations.add(soft.r, row);
                           row[place.i] = row[next] = 0.0;
                         }
                       });
  return end.steps;
}

// The k that makes both mean squares one; 0 when there is none.
double start_of(const AmplitudePairs& pairs) noexcept {
  double one = 0.0, two = 0.0;
  for (std::int32_t i = 0; i < pairs.n; ++i) {
    one += pairs.f1[i] * pairs.f1[i];
    two += pairs.f2[i] * pairs.f2[i];
  }
  const double k = two > 0.0 ? std::sqrt(one / two) : 0.0;
  return std::isfinite(k) ? k : 0.0;
}

}  // namespace

std::size_t pair_scale_scratch(std::int32_t n) noexcept { return 9 * static_cast<std::size_t>(n); }

PairScale fit_pair_scale(const AmplitudePairs& pairs, const TensorBasis& basis,
                         double* scratch) noexcept {
  PairScale scale;
  double p[7] = {start_of(pairs)};
  if (pairs.n < 1 || !(p[0] > 0.0)) return scale;
  const Fit fit = {pairs, basis, lay_out(pairs.n, scratch)};
  for (std::int32_t i = 0; i < pairs.n; ++i) {
    double* x = fit.work.projected + static_cast<std::ptrdiff_t>(i) * basis.n;
    for (int j = 0; j < basis.n; ++j) x[j] = 0.25 * quadratic(basis.tensors[j], pairs.s[i]);
  }
  fit.rescale(p);
  // The second round has the width of what the first one left.
  for (int round = 0; round < 2; ++round) scale.steps += fit_overall(fit, p);
  scale.k = p[0];
  for (int j = 0; j < basis.n; ++j) {
    for (int c = 0; c < 6; ++c) scale.b[c] += p[1 + j] * basis.tensors[j][c];
  }
  scale.steps += fit_curve(fit, scale);
  return scale;
}

double pair_scale_at(const PairScale& scale, double s2, const double (&s)[3]) noexcept {
  const double curve =
      scale.nbins > 0 ? interpolate(scale.nbins, scale.centre, scale.curve, s2) : 1.0;
  return scale.k * curve * std::exp(-0.25 * quadratic(scale.b, s));
}

PairDifferences pair_differences(const AmplitudePairs& pairs, const PairScale& scale, double* d,
                                 double* sigma) noexcept {
  PairDifferences means;
  PairSums sums;
  std::int32_t with_error = 0;
  for (std::int32_t i = 0; i < pairs.n; ++i) {
    const double k = pair_scale_at(scale, pairs.s2[i], pairs.s[i]);
    d[i] = k * pairs.f2[i] - pairs.f1[i];
    const bool known = pairs.sigma1[i] > 0.0 && pairs.sigma2[i] > 0.0;
    sigma[i] = known ? std::hypot(pairs.sigma1[i], k * pairs.sigma2[i]) : 0.0;
    with_error += known ? 1 : 0;
    means.mean_d2 += d[i] * d[i];
    means.mean_variance += sigma[i] * sigma[i];
    means.r += std::fabs(d[i]);
    sums.add(pairs.f1[i], k * pairs.f2[i]);
  }
  means.without_error = pairs.n - with_error;
  if (pairs.n > 0) means.mean_d2 /= pairs.n;
  if (with_error > 0) means.mean_variance /= with_error;
  means.r = sums.x > 0.0 ? means.r / sums.x : 0.0;
  means.correlation = sums.correlation();
  return means;
}

double difference_weight(const PairDifferences& means, double d, double sigma,
                         double alpha) noexcept {
  const double error =
      sigma > 0.0 ? sigma * sigma / means.mean_variance : (means.mean_variance > 0.0 ? 1.0 : 0.0);
  const double size = means.mean_d2 > 0.0 ? d * d / means.mean_d2 : 0.0;
  return 1.0 / (1.0 + error + alpha * size);
}

}  // namespace qx
