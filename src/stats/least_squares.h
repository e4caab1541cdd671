// K. Damped Gauss-Newton steps (Levenberg 1944, Marquardt 1963) of a few parameters within bounds.
#pragma once

#include <algorithm>
#include <cmath>

namespace qx {

// J^T J and J^T r of the residuals r, and sum r^2. Only the upper triangle is filled.
struct NormalEquations {
  static constexpr int most = 24;
  int n = 0;
  double sum = 0.0;
  double gradient[most];
  double matrix[most][most];

  void clear(int parameters) noexcept {
    n = parameters;
    sum = 0.0;
    for (int i = 0; i < n; ++i) {
      gradient[i] = 0.0;
      std::fill_n(matrix[i], n, 0.0);
    }
  }
  // One residual and its derivatives.
  void add(double r, const double* derivatives) noexcept {
    sum += r * r;
    for (int i = 0; i < n; ++i) {
      gradient[i] += derivatives[i] * r;
      for (int j = i; j < n; ++j) matrix[i][j] += derivatives[i] * derivatives[j];
    }
  }
  // Takes the parameters whose bounds are equal out of the equations.
  void hold(const double* low, const double* high) noexcept {
    for (int i = 0; i < n; ++i) {
      if (low[i] < high[i]) continue;
      gradient[i] = 0.0;
      for (int j = 0; j < n; ++j) matrix[std::min(i, j)][std::max(i, j)] = 0.0;
    }
  }
};

// Solves (A + damping diag A) x = -gradient by Cholesky; false when A is not positive definite. A
// parameter that nothing depends on (its diagonal is 0) stays.
bool solve_damped(const NormalEquations& equations, double damping, double* x) noexcept;

struct FitEnd {
  double sum;  // of squares
  int steps;
};

// Minimises the sum of squares over the n parameters p, low <= p <= high (equal bounds hold a
// parameter). fill(p, equations) adds all residuals. Ends when a step lowers the sum by less than
// `tolerance` of it.
template <class Fill>
FitEnd minimise_squares(int n, double* p, const double* low, const double* high, int most_steps,
                        double tolerance, Fill fill) noexcept {
  NormalEquations equations;
  NormalEquations next;
  const auto evaluate = [&](const double* at, NormalEquations& out) noexcept {
    out.clear(n);
    fill(at, out);
    out.hold(low, high);
  };
  evaluate(p, equations);
  double damping = 1e-3;
  int steps = 0;
  for (; steps < most_steps; ++steps) {
    double trial[NormalEquations::most];
    bool better = false;
    for (int attempt = 0; attempt < 12 && !better; ++attempt, damping *= 4.0) {
      double change[NormalEquations::most];
      if (!solve_damped(equations, damping, change)) continue;
      for (int i = 0; i < n; ++i) trial[i] = std::clamp(p[i] + change[i], low[i], high[i]);
      evaluate(trial, next);
      better = next.sum <= equations.sum;
    }
    if (!better) break;
    const bool done = equations.sum - next.sum <= tolerance * equations.sum;
    std::copy_n(trial, n, p);
    equations = next;
    damping = std::max(damping * 0.05, 1e-9);
    if (done) break;
  }
  return {equations.sum, steps};
}

}  // namespace qx
