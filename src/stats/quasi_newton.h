// K. Minimum of a smooth function of a few parameters (BFGS; Nocedal & Wright, Numerical
// Optimization, 2006, chapter 6).
#pragma once

#include <algorithm>
#include <cmath>

namespace qx {

// The inverse Hessian's estimate and its update.
class InverseHessian {
 public:
  static constexpr int most = 32;
  explicit InverseHessian(int n) noexcept : n_(n) { reset(1.0); }
  void reset(double diagonal) noexcept;
  // out = -H gradient.
  void direction(const double* gradient, double* out) const noexcept;
  // From a step and the change of the gradient; skipped when the curvature is not positive.
  void update(const double* step, const double* change) noexcept;

 private:
  int n_;
  double h_[most][most];
};

inline double dot(int n, const double* a, const double* b) noexcept {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

struct MinimumEnd {
  double value;
  int steps;
};

// Minimises from p on; evaluate(p, gradient) gives the value and fills the gradient. Ends when a
// step lowers the value by less than `tolerance` of its magnitude (or of 1).
template <class Evaluate>
MinimumEnd minimise(int n, double* p, int most_steps, double tolerance,
                    Evaluate evaluate) noexcept {
  double gradient[InverseHessian::most];
  double next_gradient[InverseHessian::most];
  double direction[InverseHessian::most];
  double trial[InverseHessian::most];
  double value = evaluate(static_cast<const double*>(p), gradient);
  InverseHessian inverse(n);
  // The first step is of length one at the most.
  inverse.reset(1.0 / std::max(1.0, std::sqrt(dot(n, gradient, gradient))));
  int steps = 0;
  for (; steps < most_steps; ++steps) {
    inverse.direction(gradient, direction);
    const double slope = dot(n, gradient, direction);
    if (!(slope < 0.0)) break;
    double next = value;
    bool better = false;
    double length = 1.0;
    for (int halving = 0; halving < 30 && !better; ++halving, length *= 0.5) {
      for (int i = 0; i < n; ++i) trial[i] = p[i] + length * direction[i];
      next = evaluate(static_cast<const double*>(trial), next_gradient);
      better = next <= value + 1e-4 * length * slope;
    }
    if (!better) break;
    double change[InverseHessian::most];
    for (int i = 0; i < n; ++i) {
      direction[i] = trial[i] - p[i];
      change[i] = next_gradient[i] - gradient[i];
    }
    inverse.update(direction, change);
    const bool done = value - next <= tolerance * std::max(1.0, std::fabs(value));
    std::copy_n(trial, n, p);
    std::copy_n(next_gradient, n, gradient);
    value = next;
    if (done) break;
  }
  return {value, steps};
}

}  // namespace qx
