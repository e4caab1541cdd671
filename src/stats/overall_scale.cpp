#include "stats/overall_scale.h"

#include "stats/least_squares.h"
#include "stats/scale_bins.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qx {

namespace {

constexpr double largest_k_sol = 0.8;
constexpr double largest_b_sol = 250.0;
constexpr double largest_b = 500.0;
constexpr int least_per_bin = 100;
constexpr int most_rounds = 20;
constexpr double round_tolerance = 1e-5;

// What the fits derive once per reflection, in the caller's scratch.
struct Work {
  double* atoms;         // |Fc|^2
  double* cross;         // Re(Fc F_mask*)
  double* mask;          // |F_mask|^2
  double* anisotropic;   // exp(-s^T B s / 4)
  double* amplitude;     // |Fc + k_mask F_mask|
  double* projected;     // [n][basis.n]: s^T T_j s / 4
  std::int32_t* bin_of;  // as many places as doubles
};

constexpr std::size_t doubles_each = 5 + 6 + 1;

Work lay_out(std::int32_t n, double* scratch) noexcept {
  const auto size = static_cast<std::size_t>(n);
  return {scratch,
          scratch + size,
          scratch + 2 * size,
          scratch + 3 * size,
          scratch + 4 * size,
          scratch + 5 * size,
          reinterpret_cast<std::int32_t*>(scratch + 11 * size)};
}

struct Fit {
  const ScaleData& data;
  const ScaleSettings& settings;
  Work work;

  [[nodiscard]] int nb() const noexcept { return settings.basis.n; }
  [[nodiscard]] const double* projections(std::int32_t i) const noexcept {
    return work.projected + static_cast<std::ptrdiff_t>(i) * nb();
  }
  [[nodiscard]] double amplitude(std::int32_t i, double k_mask) const noexcept {
    const double square = work.atoms[i] + k_mask * (2.0 * work.cross[i] + k_mask * work.mask[i]);
    return square > 0.0 ? std::sqrt(square) : 0.0;
  }
  // exp(-sum b_j s^T T_j s / 4)
  [[nodiscard]] double damping(std::int32_t i, const double* b) const noexcept {
    const double* x = projections(i);
    double sum = 0.0;
    for (int j = 0; j < nb(); ++j) sum += b[j] * x[j];
    return std::exp(-sum);
  }
};

void derive(const Fit& fit) noexcept {
  const ScaleData& d = fit.data;
  for (std::int32_t i = 0; i < d.n; ++i) {
    fit.work.atoms[i] = d.re[i] * d.re[i] + d.im[i] * d.im[i];
    fit.work.cross[i] = d.re[i] * d.mask_re[i] + d.im[i] * d.mask_im[i];
    fit.work.mask[i] = d.mask_re[i] * d.mask_re[i] + d.mask_im[i] * d.mask_im[i];
    double* x = fit.work.projected + static_cast<std::ptrdiff_t>(i) * fit.nb();
    for (int j = 0; j < fit.nb(); ++j) {
      x[j] = 0.25 * quadratic(fit.settings.basis.tensors[j], d.s[i]);
    }
  }
}

struct Sums {
  double cross = 0.0, model = 0.0;  // of Fo F and F^2
  [[nodiscard]] double k() const noexcept { return model > 0.0 ? cross / model : 1.0; }
  // How much of sum Fo^2 the best scale explains.
  [[nodiscard]] double explained() const noexcept {
    return model > 0.0 ? cross * cross / model : 0.0;
  }
};

// ---- exponential form: parameters k, b_1 .. b_nb, k_sol, B_sol

Sums sums_with(const Fit& fit, double k_sol, double b_sol) noexcept {
  Sums sums;
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    const double s2 = fit.data.s2[i];
    const double k_mask = s2 > mask_limit ? 0.0 : k_sol * std::exp(-0.25 * b_sol * s2);
    const double f = fit.amplitude(i, k_mask);
    sums.cross += fit.data.fo[i] * f;
    sums.model += f * f;
  }
  return sums;
}

// The best of a few starting points; what the user gave stays.
void choose_start(const Fit& fit, double* p) noexcept {
  constexpr double k_starts[] = {0.0, 0.2, 0.35, 0.5};
  constexpr double b_starts[] = {20.0, 50.0, 90.0};
  const bool k_given = fit.settings.k_sol >= 0.0;
  const bool b_given = fit.settings.b_sol >= 0.0;
  double best = -1.0;
  double* solvent = p + 1 + fit.nb();
  for (const double k_start : k_starts) {
    for (const double b_start : b_starts) {
      const double k_sol = k_given ? fit.settings.k_sol : k_start;
      const double b_sol = b_given ? fit.settings.b_sol : b_start;
      const Sums sums = sums_with(fit, k_sol, b_sol);
      if (sums.explained() > best) {
        best = sums.explained();
        p[0] = sums.k();
        solvent[0] = k_sol;
        solvent[1] = b_sol;
      }
      if (b_given || k_start == 0.0) break;  // the others would be the same
    }
    if (k_given) break;
  }
  std::fill_n(p + 1, fit.nb(), 0.0);
}

void fill_exponential(const Fit& fit, const double* p, NormalEquations& equations) noexcept {
  const int nb = fit.nb();
  const double k_sol = p[1 + nb];
  const double b_sol = p[2 + nb];
  double row[NormalEquations::most];
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    const double s2 = fit.data.s2[i];
    const double fall = s2 > mask_limit ? 0.0 : std::exp(-0.25 * b_sol * s2);
    const double f = fit.amplitude(i, k_sol * fall);
    const double aniso = fit.damping(i, p + 1);
    const double model = p[0] * aniso * f;
    const double* x = fit.projections(i);
    row[0] = aniso * f;
    for (int j = 0; j < nb; ++j) row[1 + j] = -x[j] * model;
    const double by_mask =
        f > 0.0 ? p[0] * aniso * (fit.work.cross[i] + k_sol * fall * fit.work.mask[i]) / f : 0.0;
    row[1 + nb] = by_mask * fall;
    row[2 + nb] = -0.25 * s2 * by_mask * k_sol * fall;
    equations.add(model - fit.data.fo[i], row);
  }
}

struct Bounds {
  double low[NormalEquations::most];
  double high[NormalEquations::most];
  void set(int i, double from, double to) noexcept {
    low[i] = from;
    high[i] = to;
  }
};

FitEnd fit_exponential(const Fit& fit, double* p) noexcept {
  const int nb = fit.nb();
  choose_start(fit, p);
  Bounds bounds;
  bounds.set(0, 0.0, 1e30);
  for (int j = 0; j < nb; ++j) bounds.set(1 + j, -largest_b, largest_b);
  const double* solvent = p + 1 + nb;
  const bool none = fit.settings.mode == no_solvent;
  const bool k_given = none || fit.settings.k_sol >= 0.0;
  const bool b_given = none || fit.settings.b_sol >= 0.0;
  bounds.set(1 + nb, k_given ? solvent[0] : 0.0, k_given ? solvent[0] : largest_k_sol);
  bounds.set(2 + nb, b_given ? solvent[1] : 0.0, b_given ? solvent[1] : largest_b_sol);
  return minimise_squares(nb + 3, p, bounds.low, bounds.high, 60, 1e-9,
                          [&](const double* at, NormalEquations& equations) noexcept {
                            fill_exponential(fit, at, equations);
                          });
}

void to_tensor(const Fit& fit, const double* coefficients, double (&b)[6]) noexcept {
  for (int t = 0; t < 6; ++t) {
    b[t] = 0.0;
    for (int j = 0; j < fit.nb(); ++j) b[t] += coefficients[j] * fit.settings.basis.tensors[j][t];
  }
}

// ---- bins

struct Bins {
  int n = 0;
  double centre[ScaleModel::most_bins];
  double k_mask[ScaleModel::most_bins];
  double smoothed[ScaleModel::most_bins];
  double k_iso[ScaleModel::most_bins];
};

// What each bin explains with the given k_mask and a scale of its own.
void explained_by(const Fit& fit, int nbins, const double* k_mask, double* explained) noexcept {
  Sums sums[ScaleModel::most_bins] = {};
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
void refine_brackets(const Fit& fit, int nbins, Bracket* brackets) noexcept {
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
void search_masks(const Fit& fit, Bins& bins) noexcept {
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

void amplitudes_of_bins(const Fit& fit, const Bins& bins) noexcept {
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    const double s2 = fit.data.s2[i];
    fit.work.amplitude[i] = fit.amplitude(
        i, s2 > mask_limit ? 0.0 : interpolate(bins.n, bins.centre, bins.smoothed, s2));
  }
}

// The piecewise linear k_iso by linear least squares: its normal matrix has two diagonals.
void fit_isotropic(const Fit& fit, Bins& bins) noexcept {
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
double fit_tensor(const Fit& fit, const double* k_iso_amplitude, double* b) noexcept {
  Bounds bounds;
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

void keep_bins(const Fit& fit, const Bins& bins, const double* b, double sum,
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

void fit_bins(const Fit& fit, const double* start, ScaleFit& result) noexcept {
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

// ---- smooth form: parameters k_sol, s_h^2, n, the series, the tensor (its mean held: the series
// takes up what is isotropic)

// Chebyshev polynomials of x in [-1, 1].
void chebyshev(double x, double (&t)[ScaleModel::terms]) noexcept {
  t[0] = 1.0;
  t[1] = x;
  for (int i = 2; i < ScaleModel::terms; ++i) t[i] = 2.0 * x * t[i - 1] - t[i - 2];
}

double to_unit(const ScaleModel& model, double s2) noexcept {
  const double span = model.high_s2 - model.low_s2;
  if (!(span > 0.0)) return 0.0;
  return std::clamp(2.0 * (s2 - model.low_s2) / span - 1.0, -1.0, 1.0);
}

double series_at(const ScaleModel& model, double s2) noexcept {
  double t[ScaleModel::terms];
  chebyshev(to_unit(model, s2), t);
  double sum = 0.0;
  for (int i = 0; i < ScaleModel::terms; ++i) sum += model.series[i] * t[i];
  return sum;
}

void fill_smooth(const Fit& fit, const ScaleModel& range, const double* p,
                 NormalEquations& equations) noexcept {
  const int nb = fit.nb();
  double row[NormalEquations::most];
  double t[ScaleModel::terms];
  for (std::int32_t i = 0; i < fit.data.n; ++i) {
    const double s2 = fit.data.s2[i];
    const double ratio = s2 / p[1];
    const double exponent = std::numbers::ln2 * std::pow(ratio, p[2]);
    const double fall = s2 > mask_limit ? 0.0 : std::exp(-exponent);
    const double f = fit.amplitude(i, p[0] * fall);
    const double aniso = fit.damping(i, p + 3 + ScaleModel::terms);
    chebyshev(to_unit(range, s2), t);
    double k_iso = 0.0;
    for (int j = 0; j < ScaleModel::terms; ++j) k_iso += p[3 + j] * t[j];
    const double model = k_iso * aniso * f;
    const double by_mask =
        f > 0.0 ? k_iso * aniso * (fit.work.cross[i] + p[0] * fall * fit.work.mask[i]) / f : 0.0;
    row[0] = by_mask * fall;
    row[1] = by_mask * p[0] * fall * exponent * p[2] / p[1];
    row[2] = -by_mask * p[0] * fall * exponent * std::log(ratio);
    for (int j = 0; j < ScaleModel::terms; ++j) row[3 + j] = aniso * f * t[j];
    const double* x = fit.projections(i);
    for (int j = 0; j < nb; ++j) row[3 + ScaleModel::terms + j] = -x[j] * model;
    equations.add(model - fit.data.fo[i], row);
  }
}

struct SmoothStart {
  double k_sol, half_s2, power;
};

FitEnd fit_smooth_from(const Fit& fit, const ScaleModel& range, const SmoothStart& start,
                       double k_iso, const double* b, double* p) noexcept {
  const int nb = fit.nb();
  p[0] = start.k_sol;
  p[1] = start.half_s2;
  p[2] = start.power;
  std::fill_n(p + 3, ScaleModel::terms, 0.0);
  p[3] = k_iso;
  std::copy_n(b, nb, p + 3 + ScaleModel::terms);
  Bounds bounds;
  bounds.set(0, 0.0, largest_k_sol);
  bounds.set(1, 1e-4, 1.0);
  bounds.set(2, 0.25, 8.0);
  for (int j = 0; j < ScaleModel::terms; ++j) bounds.set(3 + j, -1e30, 1e30);
  for (int j = 0; j < nb; ++j) bounds.set(3 + ScaleModel::terms + j, -largest_b, largest_b);
  bounds.set(3 + ScaleModel::terms, b[0], b[0]);
  return minimise_squares(3 + ScaleModel::terms + nb, p, bounds.low, bounds.high, 60, 1e-9,
                          [&](const double* at, NormalEquations& equations) noexcept {
                            fill_smooth(fit, range, at, equations);
                          });
}

void keep_smooth(const Fit& fit, const double* p, ScaleModel& model) noexcept {
  model.mode = smooth_solvent;
  model.smooth_k = p[0];
  model.half_s2 = p[1];
  model.power = p[2];
  std::copy_n(p + 3, ScaleModel::terms, model.series);
  to_tensor(fit, p + 3 + ScaleModel::terms, model.b);
}

// From where the exponential form ended, and from a plain start: the better of the two.
void fit_smooth(const Fit& fit, const double* exponential, ScaleFit& result) noexcept {
  const auto [low, high] = std::minmax_element(fit.data.s2, fit.data.s2 + fit.data.n);
  ScaleModel& model = result.model;
  model.low_s2 = *low;
  model.high_s2 = *high;
  const int nb = fit.nb();
  const double k_sol = exponential[1 + nb];
  const double b_sol = std::max(exponential[2 + nb], 10.0);
  const SmoothStart starts[] = {{k_sol, 4.0 * std::numbers::ln2 / b_sol, 1.0}, {0.35, 0.04, 2.0}};
  for (const SmoothStart& start : starts) {
    double p[NormalEquations::most];
    const FitEnd end = fit_smooth_from(fit, model, start, exponential[0], exponential + 1, p);
    result.rounds += end.steps;
    if (end.sum > result.sum) continue;
    result.sum = end.sum;
    keep_smooth(fit, p, model);
  }
}

// The mean of k_iso over the reflections.
double mean_scale(const ScaleData& data, const ScaleModel& model) noexcept {
  constexpr double zero[3] = {0.0, 0.0, 0.0};
  double sum = 0.0;
  for (std::int32_t i = 0; i < data.n; ++i) sum += total_scale(model, data.s2[i], zero);
  return sum / data.n;
}

}  // namespace

double solvent_scale(const ScaleModel& model, double s2) noexcept {
  if (s2 > mask_limit) return 0.0;
  switch (model.mode) {
    case no_solvent:
      return 0.0;
    case exponential_solvent:
      return model.k_sol * std::exp(-0.25 * model.b_sol * s2);
    case binned_solvent:
      return interpolate(model.nbins, model.centre, model.k_mask, s2);
    case smooth_solvent:
      return model.smooth_k *
             std::exp(-std::numbers::ln2 * std::pow(s2 / model.half_s2, model.power));
  }
  return 0.0;
}

double total_scale(const ScaleModel& model, double s2, const double (&s)[3]) noexcept {
  double k = model.k;
  if (model.mode == binned_solvent) k = interpolate(model.nbins, model.centre, model.k_iso, s2);
  if (model.mode == smooth_solvent) k = series_at(model, s2);
  return k * std::exp(-0.25 * quadratic(model.b, s));
}

std::size_t scale_scratch_size(std::int32_t n) noexcept {
  return doubles_each * static_cast<std::size_t>(n);
}

ScaleFit fit_model_scale(const ScaleData& data, const ScaleSettings& settings,
                         double* scratch) noexcept {
  ScaleFit result;
  if (data.n < 1) return result;
  const Fit fit = {data, settings, lay_out(data.n, scratch)};
  derive(fit);
  ScaleSettings plain = settings;
  if (settings.mode == no_solvent) plain.k_sol = plain.b_sol = 0.0;
  const Fit first = {data, plain, fit.work};
  double p[NormalEquations::most];
  const FitEnd end = fit_exponential(first, p);
  ScaleModel& model = result.model;
  model.mode = settings.mode == no_solvent ? no_solvent : exponential_solvent;
  model.k = p[0];
  to_tensor(fit, p + 1, model.b);
  model.k_sol = p[1 + fit.nb()];
  model.b_sol = p[2 + fit.nb()];
  result.sum = end.sum;
  result.steps = end.steps;
  if (settings.mode == binned_solvent) fit_bins(fit, p + 1, result);
  if (settings.mode == smooth_solvent) fit_smooth(fit, p, result);
  if (model.mode >= binned_solvent) model.k = mean_scale(data, model);
  return result;
}

}  // namespace qx
