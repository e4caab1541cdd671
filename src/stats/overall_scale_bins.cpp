// K. The scale in bins of resolution.
#include "stats/scale_bins.h"
#include "stats/scale_work.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

constexpr int least_per_bin = 100;
constexpr int most_rounds = 20;
constexpr double round_tolerance = 1e-5;

struct Bins {
  int n = 0;
  double centre[ScaleModel::most_bins];
  double k_mask[ScaleModel::most_bins];
  double smoothed[ScaleModel::most_bins];
  double k_iso[ScaleModel::most_bins];
};

// What each bin explains with the given k_mask and a scale of its own.
void explained_by(const ScaleProblem& fit, int nbins, const double* k_mask,
                  double* explained) noexcept {
  ScaleSums sums[ScaleModel::most_bins] = {};
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    if (fit.data.s2[i] > mask_limit) continue;
    const std::int32_t bin = fit.work.bin_of[i];
    const double f = fit.work.anisotropic[i] * fit.amplitude(i, k_mask[bin]);
    sums[bin].cross += fit.data.fo[i] * f;
    sums[bin].model += f * f;
  }
  for (int bin = 0; bin < nbins; ++bin) explained[bin] = sums[bin].explained();
}

struct Bracket {
  double low, high, left, right, at_left, at_right;
};
constexpr double golden = 0.6180339887498949;

// Golden section in every bin at once: each call of explained_by serves all of them.
void refine_brackets(const ScaleProblem& fit, int nbins, Bracket* brackets) noexcept {
  double trial[ScaleModel::most_bins];
  double value[ScaleModel::most_bins];
  for (int step = 0; step < 14; ++step) {
    for (int bin = 0; bin < nbins; ++bin) {
      Bracket& b = brackets[bin];
      if (b.at_left > b.at_right) {
        b.high = b.right;
        b.right = b.left;
        b.at_right = b.at_left;
        trial[bin] = b.left = b.high - golden * (b.high - b.low);
      } else {
        b.low = b.left;
        b.left = b.right;
        b.at_left = b.at_right;
        trial[bin] = b.right = b.low + golden * (b.high - b.low);
      }
    }
    explained_by(fit, nbins, trial, value);
    for (int bin = 0; bin < nbins; ++bin) {
      Bracket& b = brackets[bin];
      (trial[bin] == b.left ? b.at_left : b.at_right) = value[bin];
    }
  }
}

// k_mask of every bin within [0, 1]: a scan in steps of 0.05, then golden section about the best.
void search_masks(const ScaleProblem& fit, Bins& bins) noexcept {
  constexpr int steps = 20;
  double trial[ScaleModel::most_bins];
  double value[ScaleModel::most_bins];
  double best[ScaleModel::most_bins];
  std::fill_n(best, bins.n, -1.0);
  for (int step = 0; step <= steps; ++step) {
    std::fill_n(trial, bins.n, static_cast<double>(step) / steps);
    explained_by(fit, bins.n, trial, value);
    for (int bin = 0; bin < bins.n; ++bin) {
      if (value[bin] <= best[bin]) continue;
      best[bin] = value[bin];
      bins.k_mask[bin] = trial[bin];
    }
  }
  Bracket brackets[ScaleModel::most_bins];
  double left[ScaleModel::most_bins];
  double right[ScaleModel::most_bins];
  for (int bin = 0; bin < bins.n; ++bin) {
    Bracket& b = brackets[bin];
    b.low = std::max(0.0, bins.k_mask[bin] - 1.0 / steps);
    b.high = std::min(1.0, bins.k_mask[bin] + 1.0 / steps);
    left[bin] = b.left = b.high - golden * (b.high - b.low);
    right[bin] = b.right = b.low + golden * (b.high - b.low);
  }
  explained_by(fit, bins.n, left, value);
  for (int bin = 0; bin < bins.n; ++bin) brackets[bin].at_left = value[bin];
  explained_by(fit, bins.n, right, value);
  for (int bin = 0; bin < bins.n; ++bin) brackets[bin].at_right = value[bin];
  refine_brackets(fit, bins.n, brackets);
  for (int bin = 0; bin < bins.n; ++bin) {
    bins.k_mask[bin] =
        bins.centre[bin] > mask_limit ? 0.0 : 0.5 * (brackets[bin].low + brackets[bin].high);
  }
}

// A bin that is a local extremum takes the mean of three.
void smooth_masks(Bins& bins) noexcept {
  std::copy_n(bins.k_mask, bins.n, bins.smoothed);
  for (int bin = 1; bin + 1 < bins.n; ++bin) {
    const double* k = bins.k_mask + bin;
    const bool extremum = (k[0] - k[-1]) * (k[0] - k[1]) > 0.0;
    if (extremum && bins.centre[bin] <= mask_limit) {
      bins.smoothed[bin] = (k[-1] + k[0] + k[1]) / 3.0;
    }
  }
}

void amplitudes_of_bins(const ScaleProblem& fit, const Bins& bins) noexcept {
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    const double s2 = fit.data.s2[i];
    fit.work.amplitude[i] = fit.amplitude(
        i, s2 > mask_limit ? 0.0 : interpolate(bins.n, bins.centre, bins.smoothed, s2));
  }
}

// The piecewise linear k_iso by linear least squares: its normal matrix has two diagonals.
void fit_isotropic(const ScaleProblem& fit, Bins& bins) noexcept {
  double diagonal[ScaleModel::most_bins] = {};
  double above[ScaleModel::most_bins] = {};
  double right[ScaleModel::most_bins] = {};
  const int n = bins.n;
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    const Between at = between(n, bins.centre, fit.data.s2[i]);
    const double f = fit.work.anisotropic[i] * fit.work.amplitude[i];
    const double lower = (1.0 - at.t) * f;
    const double upper = at.t * f;
    diagonal[at.i] += lower * lower;
    right[at.i] += lower * fit.data.fo[i];
    if (n < 2) continue;
    above[at.i] += lower * upper;
    diagonal[at.i + 1] += upper * upper;
    right[at.i + 1] += upper * fit.data.fo[i];
  }
  for (int i = 1; i < n; ++i) {
    const double ratio = diagonal[i - 1] > 0.0 ? above[i - 1] / diagonal[i - 1] : 0.0;
    diagonal[i] -= ratio * above[i - 1];
    right[i] -= ratio * right[i - 1];
  }
  for (int i = n - 1; i >= 0; --i) {
    const double known = i + 1 < n ? above[i] * bins.k_iso[i + 1] : 0.0;
    bins.k_iso[i] = diagonal[i] > 0.0 ? (right[i] - known) / diagonal[i] : 0.0;
  }
}

// The tensor alone, everything else as it is; gives the sum of squares.
double fit_tensor(const ScaleProblem& fit, const double* k_iso_amplitude, double* b) noexcept {
  FitBounds bounds;
  for (int j = 0; j < fit.nb(); ++j) bounds.set(j, -largest_b, largest_b);
  return minimise_squares(fit.nb(), b, bounds.low, bounds.high, 10, 1e-9,
                          [&](const double* at, NormalEquations& equations) noexcept {
                            double row[NormalEquations::most];
                            for (std::int32_t i = 0; i < fit.data.n; ++i) {
                              const double model = k_iso_amplitude[i] * fit.damping(i, at);
                              const double* x = fit.projections(i);
                              for (int j = 0; j < fit.nb(); ++j) row[j] = -x[j] * model;
                              equations.add(model - fit.data.fo[i], row);
                            }
                          })
      .sum;
}

void keep_bins(const ScaleProblem& fit, const Bins& bins, const double* b, double sum,
               ScaleFit& result) noexcept {
  ScaleModel& model = result.model;
  model.mode = binned_solvent;
  model.nbins = bins.n;
  std::copy_n(bins.centre, bins.n, model.centre);
  std::copy_n(bins.smoothed, bins.n, model.k_mask);
  std::copy_n(bins.k_iso, bins.n, model.k_iso);
  to_tensor(fit, b, model.b);
  result.sum = sum;
}

}  // namespace

void fit_bins(const ScaleProblem& fit, const double* start, ScaleFit& result) noexcept {
  Bins bins;
  bins.n = logarithmic_bins(fit.data.n, fit.data.s2, ScaleModel::most_bins, least_per_bin,
                            fit.work.bin_of, bins.centre);
  double b[6];
  std::copy_n(start, fit.nb(), b);
  double last = result.sum;
  for (int round = 0; round < most_rounds; ++round) {
    for (std::int32_t i = 0; i < fit.data.n; ++i) fit.work.anisotropic[i] = fit.damping(i, b);
    search_masks(fit, bins);
    smooth_masks(bins);
    amplitudes_of_bins(fit, bins);
    fit_isotropic(fit, bins);
    for (std::int32_t i = 0; i < fit.data.n; ++i) {
      fit.work.amplitude[i] *= interpolate(bins.n, bins.centre, bins.k_iso, fit.data.s2[i]);
    }
    const double sum = fit_tensor(fit, fit.work.amplitude, b);
    result.rounds = round + 1;
    if (sum <= result.sum) keep_bins(fit, bins, b, sum, result);
    if (last - sum < round_tolerance * last) break;
    last = sum;
  }
}

}  // namespace qx
