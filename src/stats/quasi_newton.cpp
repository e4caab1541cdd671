#include "stats/quasi_newton.h"

namespace qx {

void InverseHessian::reset(double diagonal) noexcept {
  for (int i = 0; i < n_; ++i) {
    std::fill_n(h_[i], n_, 0.0);
    h_[i][i] = diagonal;
  }
}

void InverseHessian::direction(const double* gradient, double* out) const noexcept {
  for (int i = 0; i < n_; ++i) out[i] = -dot(n_, h_[i], gradient);
}

void InverseHessian::update(const double* step, const double* change) noexcept {
  const double curvature = dot(n_, step, change);
  if (!(curvature > 1e-12 * dot(n_, step, step))) return;
  double by_change[most];
  for (int i = 0; i < n_; ++i) by_change[i] = dot(n_, h_[i], change);
  const double factor = (1.0 + dot(n_, change, by_change) / curvature) / curvature;
  for (int i = 0; i < n_; ++i) {
    for (int j = 0; j < n_; ++j) {
      h_[i][j] += factor * step[i] * step[j] -
                  (by_change[i] * step[j] + step[i] * by_change[j]) / curvature;
    }
  }
}

}  // namespace qx
