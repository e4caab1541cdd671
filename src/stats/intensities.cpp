#include "stats/intensities.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <tuple>

namespace qx {

Moments moments(std::int32_t n, const double* z) noexcept {
  Moments sum;
  double mean = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    mean += z[i];
    sum.z2 += z[i] * z[i];
    sum.e += std::sqrt(std::max(z[i], 0.0));
  }
  sum.n = n;
  if (n < 1 || !(mean > 0.0)) return {n, 0.0, 0.0};
  mean /= n;
  sum.z2 /= n * mean * mean;
  sum.e /= n * std::sqrt(mean);
  return sum;
}

namespace {

bool before(const LReflection& a, const LReflection& b) noexcept {
  return std::tie(a.h, a.k, a.l) < std::tie(b.h, b.k, b.l);
}

}  // namespace

LTest l_test(std::int32_t n, LReflection* reflections) noexcept {
  constexpr int steps[4][3] = {{2, 2, 2}, {2, 2, -2}, {2, -2, 2}, {2, -2, -2}};
  LReflection* end = reflections + n;
  std::sort(reflections, end, before);
  LTest test;
  for (const LReflection* r = reflections; r != end; ++r) {
    for (const auto& step : steps) {
      const LReflection wanted = {r->h + step[0], r->k + step[1], r->l + step[2], 0.0};
      const LReflection* other =
          std::lower_bound(r, static_cast<const LReflection*>(end), wanted, before);
      if (other == end || before(wanted, *other)) continue;
      const double l = (r->intensity - other->intensity) / (r->intensity + other->intensity);
      ++test.n;
      test.mean_l += std::fabs(l);
      test.mean_l2 += l * l;
    }
  }
  if (test.n > 0) {
    test.mean_l /= test.n;
    test.mean_l2 /= test.n;
  }
  return test;
}

namespace {

// Gauss & Legendre's nodes and weights on [-1, 1], by Newton's steps on the polynomial.
struct Quadrature {
  static constexpr int n = 64;
  double x[n], w[n];

  Quadrature() noexcept {
    for (int i = 0; i < n; ++i) {
      double at = std::cos(std::numbers::pi * (i + 0.75) / (n + 0.5));
      double slope = 1.0;
      for (int step = 0; step < 20; ++step) {
        double p = 1.0, previous = 0.0;
        for (int j = 0; j < n; ++j) {
          const double next = ((2.0 * j + 1.0) * at * p - j * previous) / (j + 1.0);
          previous = p;
          p = next;
        }
        slope = n * (at * p - previous) / (at * at - 1.0);
        at -= p / slope;
      }
      x[i] = at;
      w[i] = 2.0 / ((1.0 - at * at) * slope * slope);
    }
  }
};

}  // namespace

// In units of sigma the intensity's posterior is exp(-(x - h)^2 / 2), x >= 0, times x^(-1/2) if
// centric, h = I / sigma - sigma / mean (half of that if centric). The integrals run over f =
// sqrt(x), where they are smooth.
Amplitude french_wilson(double intensity, double sigma, double mean, bool centric) noexcept {
  static const Quadrature rule;
  constexpr double reach = 9.0;  // exp(-9^2 / 2) is 3e-18
  const double h = intensity / sigma - (centric ? 0.5 : 1.0) * sigma / mean;
  const double low = std::sqrt(std::max(0.0, h - reach));
  const double high =
      std::sqrt(h > 0.0 ? h + reach : reach * reach / (std::sqrt(h * h + reach * reach) - h));
  const double peak = std::max(h, 0.0);
  const double most = -0.5 * (peak - h) * (peak - h);
  double norm = 0.0, first = 0.0, second = 0.0;
  for (int i = 0; i < Quadrature::n; ++i) {
    const double f = low + 0.5 * (high - low) * (rule.x[i] + 1.0);
    const double d = f * f - h;
    const double weight = rule.w[i] * std::exp(-0.5 * d * d - most) * (centric ? 1.0 : f);
    norm += weight;
    first += weight * f;
    second += weight * f * f;
  }
  const double scale = std::sqrt(sigma);
  const double f = first / norm;
  return {scale * f, scale * std::sqrt(std::max(second / norm - f * f, 0.0))};
}

}  // namespace qx
