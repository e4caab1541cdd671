#include "stats/anisotropy.h"

#include "stats/least_squares.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qx {

namespace {

// -log likelihood, its gradient and its expected second derivatives at p. Exponents beyond 20 are
// no anisotropy of a crystal.
double evaluate(std::int32_t n, const double* z, const double (*s)[3], const TensorBasis& basis,
                const double* p, NormalEquations& equations) noexcept {
  const int m = basis.n - 1;
  equations.clear(m);
  double sum = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    double q[6];
    double exponent = 0.0;
    for (int j = 0; j < m; ++j) {
      q[j] = 0.5 * quadratic(basis.tensors[j + 1], s[i]);
      exponent += q[j] * p[j];
    }
    exponent = std::clamp(exponent, -20.0, 20.0);
    const double over_mean = z[i] * std::exp(exponent);
    sum += over_mean - exponent;
    for (int j = 0; j < m; ++j) {
      equations.gradient[j] += q[j] * (over_mean - 1.0);
      for (int k = j; k < m; ++k) equations.matrix[j][k] += q[j] * q[k];
    }
  }
  return sum;
}

}  // namespace

void fit_anisotropy(std::int32_t n, const double* z, const double (*s)[3], const TensorBasis& basis,
                    double (&b)[6]) noexcept {
  constexpr int most_steps = 30;
  std::fill_n(b, 6, 0.0);
  const int m = basis.n - 1;
  if (m < 1 || n < 1) return;
  double p[6] = {};
  NormalEquations equations;
  NormalEquations next;
  double sum = evaluate(n, z, s, basis, p, equations);
  double damping = 0.0;
  for (int step = 0; step < most_steps; ++step) {
    double change[NormalEquations::most];
    if (!solve_damped(equations, damping, change)) return;
    double trial[6];
    for (int j = 0; j < m; ++j) trial[j] = p[j] + change[j];
    const double trial_sum = evaluate(n, z, s, basis, trial, next);
    if (!(trial_sum <= sum)) {
      damping = std::max(2.0 * damping, 1.0);
      continue;
    }
    const bool done = sum - trial_sum <= 1e-9 * std::fabs(sum);
    std::copy_n(trial, m, p);
    equations = next;
    sum = trial_sum;
    if (done) break;
  }
  for (int c = 0; c < 6; ++c) {
    for (int j = 0; j < m; ++j) b[c] += p[j] * basis.tensors[j + 1][c];
    if (std::fabs(b[c]) < 1e-9) b[c] = 0.0;  // rounding of what the group forbids
  }
}

// Eigenvalues of a symmetric matrix by the angle of its characteristic cubic.
double principal_spread(const double (&t)[6]) noexcept {
  const double mean = (t[0] + t[1] + t[2]) / 3.0;
  const double a = t[0] - mean, b = t[1] - mean, c = t[2] - mean;
  const double p2 = (a * a + b * b + c * c + 2.0 * (t[3] * t[3] + t[4] * t[4] + t[5] * t[5])) / 6.0;
  if (!(p2 > 0.0)) return 0.0;
  const double determinant =
      a * (b * c - t[5] * t[5]) - t[3] * (t[3] * c - t[5] * t[4]) + t[4] * (t[3] * t[5] - b * t[4]);
  const double r = std::clamp(determinant / (2.0 * p2 * std::sqrt(p2)), -1.0, 1.0);
  const double angle = std::acos(r) / 3.0;
  return 2.0 * std::sqrt(p2) * (std::cos(angle) - std::cos(angle + 2.0 * std::numbers::pi / 3.0));
}

}  // namespace qx
