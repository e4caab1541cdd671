// K. The scale in a smooth form: parameters k_sol, s_h^2, n, the series, the tensor (its mean held:
// the series takes up what is isotropic).
#include "stats/scale_work.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qx {

namespace {

constexpr double largest_k_sol = 0.8;

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

}  // namespace

double series_at(const ScaleModel& model, double s2) noexcept {
  double t[ScaleModel::terms];
  chebyshev(to_unit(model, s2), t);
  double sum = 0.0;
  for (int i = 0; i < ScaleModel::terms; ++i) sum += model.series[i] * t[i];
  return sum;
}

namespace {

void fill_smooth(const ScaleProblem& fit, const ScaleModel& range, const double* p,
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

FitEnd fit_smooth_from(const ScaleProblem& fit, const ScaleModel& range, const SmoothStart& start,
                       double k_iso, const double* b, double* p) noexcept {
  const int nb = fit.nb();
  p[0] = start.k_sol;
  p[1] = start.half_s2;
  p[2] = start.power;
  std::fill_n(p + 3, ScaleModel::terms, 0.0);
  p[3] = k_iso;
  std::copy_n(b, nb, p + 3 + ScaleModel::terms);
  FitBounds bounds;
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

void keep_smooth(const ScaleProblem& fit, const double* p, ScaleModel& model) noexcept {
  model.mode = smooth_solvent;
  model.smooth_k = p[0];
  model.half_s2 = p[1];
  model.power = p[2];
  std::copy_n(p + 3, ScaleModel::terms, model.series);
  to_tensor(fit, p + 3 + ScaleModel::terms, model.b);
}

// From where the exponential form ended, and from a plain start: the better of the two.
}  // namespace

void fit_smooth(const ScaleProblem& fit, const double* exponential, ScaleFit& result) noexcept {
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
}  // namespace qx
