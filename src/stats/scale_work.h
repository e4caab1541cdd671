// K. What the fits of the overall scale share: data derived once, the exponential form they start
// from.
#pragma once

#include "stats/least_squares.h"
#include "stats/overall_scale.h"

#include <cmath>
#include <cstddef>

namespace qx {

inline constexpr double largest_b = 500.0;

// What the fits derive once per reflection, in the caller's scratch.
struct ScaleWork {
  double* atoms;         // |Fc|^2
  double* cross;         // Re(Fc F_mask*)
  double* mask;          // |F_mask|^2
  double* anisotropic;   // exp(-s^T B s / 4)
  double* amplitude;     // |Fc + k_mask F_mask|
  double* projected;     // [n][basis.n]: s^T T_j s / 4
  std::int32_t* bin_of;  // as many places as doubles
};

struct ScaleProblem {
  const ScaleData& data;
  const ScaleSettings& settings;
  ScaleWork work;

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

struct FitBounds {
  double low[NormalEquations::most];
  double high[NormalEquations::most];
  void set(int i, double from, double to) noexcept {
    low[i] = from;
    high[i] = to;
  }
};

struct ScaleSums {
  double cross = 0.0, model = 0.0;  // of Fo F and F^2
  [[nodiscard]] double k() const noexcept { return model > 0.0 ? cross / model : 1.0; }
  // How much of sum Fo^2 the best scale explains.
  [[nodiscard]] double explained() const noexcept {
    return model > 0.0 ? cross * cross / model : 0.0;
  }
};

// Coefficients of the basis as a tensor.
void to_tensor(const ScaleProblem& fit, const double* coefficients, double (&b)[6]) noexcept;

// Bins from a start of k and B on; `result` is changed where the sum falls.
void fit_bins(const ScaleProblem& fit, const double* start, ScaleFit& result) noexcept;
// The smooth form, from the exponential one's parameters on.
void fit_smooth(const ScaleProblem& fit, const double* exponential, ScaleFit& result) noexcept;
// The smooth form's k_iso.
double series_at(const ScaleModel& model, double s2) noexcept;

}  // namespace qx
