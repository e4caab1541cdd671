#include "stats/overall_scale.h"

#include "stats/scale_bins.h"
#include "stats/scale_work.h"

#include <algorithm>
#include <cmath>

namespace qx {

void to_tensor(const ScaleProblem& fit, const double* coefficients, double (&b)[6]) noexcept {
  for (int t = 0; t < 6; ++t) {
    b[t] = 0.0;
    for (int j = 0; j < fit.nb(); ++j) b[t] += coefficients[j] * fit.settings.basis.tensors[j][t];
  }
}

namespace {

constexpr double largest_k_sol = 0.8;
constexpr double largest_b_sol = 250.0;
constexpr std::size_t doubles_each = 5 + 6 + 1;

ScaleWork lay_out(std::int32_t n, double* scratch) noexcept {
  const auto size = static_cast<std::size_t>(n);
  return {scratch,
          scratch + size,
          scratch + 2 * size,
          scratch + 3 * size,
          scratch + 4 * size,
          scratch + 5 * size,
          reinterpret_cast<std::int32_t*>(scratch + 11 * size)};
}

void derive(const ScaleProblem& fit) noexcept {
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

ScaleSums sums_with(const ScaleProblem& fit, double k_sol, double b_sol) noexcept {
  ScaleSums sums;
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
void choose_start(const ScaleProblem& fit, double* p) noexcept {
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
      const ScaleSums sums = sums_with(fit, k_sol, b_sol);
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

void fill_exponential(const ScaleProblem& fit, const double* p,
                      NormalEquations& equations) noexcept {
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

FitEnd fit_exponential(const ScaleProblem& fit, double* p) noexcept {
  const int nb = fit.nb();
  choose_start(fit, p);
  FitBounds bounds;
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
  const ScaleProblem fit = {data, settings, lay_out(data.n, scratch)};
  derive(fit);
  ScaleSettings plain = settings;
  if (settings.mode == no_solvent) plain.k_sol = plain.b_sol = 0.0;
  const ScaleProblem first = {data, plain, fit.work};
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
