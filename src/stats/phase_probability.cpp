#include "stats/phase_probability.h"

#include "stats/bessel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qx {

namespace {

double exponent(const HendricksonLattman& p, double phase) noexcept {
  return p.a * std::cos(phase) + p.b * std::sin(phase) + p.c * std::cos(2.0 * phase) +
         p.d * std::sin(2.0 * phase);
}

// x of I1(x)/I0(x) = m: Best & Fisher's start (Comm. Stat. B10, 493, 1981), Newton's steps.
double inverse_ratio(double m) noexcept {
  double x = m * (2.0 - m * m) / (1.0 - m * m);
  for (int step = 0; step < 20 && x > 0.0; ++step) {
    const double ratio = bessel_ratio(x);
    const double slope = 1.0 - ratio * (ratio + 1.0 / x);
    const double change = (ratio - m) / slope;
    x = std::max(x - change, 0.5 * x);
    if (std::fabs(change) < 1e-10 * x) break;
  }
  return x;
}

}  // namespace

HendricksonLattman unimodal_with(double phase, double x) noexcept {
  return {x * std::cos(phase), x * std::sin(phase), 0.0, 0.0};
}

HendricksonLattman unimodal(double phase, double m, bool centric) noexcept {
  constexpr double most = 0.9999;
  const double held = std::clamp(m, 0.0, most);
  return unimodal_with(phase, centric ? std::atanh(held) : inverse_ratio(held));
}

PhaseCentroid centroid(const HendricksonLattman& p) noexcept {
  constexpr int steps = 72;
  double values[steps];
  double largest = -1e300;
  for (int i = 0; i < steps; ++i) {
    values[i] = exponent(p, 2.0 * std::numbers::pi * i / steps);
    largest = std::max(largest, values[i]);
  }
  double sum = 0.0, re = 0.0, im = 0.0;
  for (int i = 0; i < steps; ++i) {
    const double phase = 2.0 * std::numbers::pi * i / steps;
    const double weight = std::exp(values[i] - largest);
    sum += weight;
    re += weight * std::cos(phase);
    im += weight * std::sin(phase);
  }
  return {re / sum, im / sum};
}

PhaseCentroid centric_centroid(const HendricksonLattman& p, double phase) noexcept {
  const double difference = exponent(p, phase) - exponent(p, phase + std::numbers::pi);
  const double m = std::tanh(0.5 * difference);
  return {m * std::cos(phase), m * std::sin(phase)};
}

}  // namespace qx
