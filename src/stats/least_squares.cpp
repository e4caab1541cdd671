#include "stats/least_squares.h"

namespace qx {

namespace {

using Square = double[NormalEquations::most][NormalEquations::most];

// Lower triangle of the Cholesky factor of a matrix with ones on its diagonal (damping added).
bool factorise(int n, const Square& a, Square& l) noexcept {
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = a[i][j];
      for (int k = 0; k < j; ++k) sum -= l[i][k] * l[j][k];
      if (i != j) {
        l[i][j] = sum / l[j][j];
      } else if (sum > 1e-13) {
        l[i][i] = std::sqrt(sum);
      } else {
        return false;
      }
    }
  }
  return true;
}

void substitute(int n, const Square& l, double* x) noexcept {
  for (int i = 0; i < n; ++i) {
    for (int k = 0; k < i; ++k) x[i] -= l[i][k] * x[k];
    x[i] /= l[i][i];
  }
  for (int i = n - 1; i >= 0; --i) {
    for (int k = i + 1; k < n; ++k) x[i] -= l[k][i] * x[k];
    x[i] /= l[i][i];
  }
}

}  // namespace

bool solve_damped(const NormalEquations& equations, double damping, double* x) noexcept {
  const int n = equations.n;
  double scale[NormalEquations::most];
  for (int i = 0; i < n; ++i) {
    const double d = equations.matrix[i][i];
    if (!std::isfinite(d)) return false;
    scale[i] = d > 0.0 ? 1.0 / std::sqrt(d) : 0.0;
  }
  Square a;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < i; ++j) a[i][j] = equations.matrix[j][i] * scale[i] * scale[j];
    a[i][i] = 1.0 + damping;
    x[i] = -equations.gradient[i] * scale[i];
  }
  Square l = {};
  if (!factorise(n, a, l)) return false;
  substitute(n, l, x);
  for (int i = 0; i < n; ++i) x[i] *= scale[i];
  return true;
}

}  // namespace qx
