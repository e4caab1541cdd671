#include "crystal/reflection_filter.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

// A second check must not lose the extreme reflection to whose d the first narrowed the limits.
constexpr double slack = 1e-9;

// Smaller sigmas say nothing about the error.
constexpr double least_sigma = 1e-5;

double known(float value, float missing) noexcept {
  return std::isfinite(value) && value != missing ? static_cast<double>(value) : 0.0;
}

double inverse_d2(std::int32_t h, std::int32_t k, std::int32_t l, const double* m) noexcept {
  const double sx = h * m[0] + k * m[3] + l * m[6];
  const double sy = h * m[1] + k * m[4] + l * m[7];
  const double sz = h * m[2] + k * m[5] + l * m[8];
  return sx * sx + sy * sy + sz * sz;
}

// The two statistical rules for amplitudes or intensities.
struct Outliers {
  const float* values = nullptr;
  const float* sigmas = nullptr;
  double sigma_cut = 0;
  double largest = INFINITY;
  float missing = 0;

  Outliers(const Measured& column, std::size_t count, double by_sigma, double by_rms, float marker)
      : values(column.values), missing(marker) {
    if (!values) return;
    if (by_sigma > 0) {
      sigmas = column.sigmas;
      sigma_cut = by_sigma;
    }
    if (by_rms > 0) largest = by_rms * rms_of_measured(values, count, marker);
  }

  [[nodiscard]] bool reject(std::size_t i) const noexcept {
    if (!values) return false;
    const double value = known(values[i], missing);
    if (sigmas) {
      const double sigma = known(sigmas[i], missing);
      if (std::abs(sigma) > least_sigma && std::abs(value / sigma) < sigma_cut) return true;
    }
    return std::abs(value) > largest;
  }
};

// The shell between the limits. Roots and divisions are spared where the square of the scattering
// vector tells already that a reflection is well inside or outside.
class Shell {
 public:
  explicit Shell(const RejectionRules& rules) noexcept
      : matrix_(rules.orth2frac),
        high_(rules.d_high * (1 - slack)),
        low_(rules.d_low * (1 + slack)),
        most_(high_ <= 0 ? INFINITY : 1 / (high_ * high_)),
        least_(low_ <= 0 ? INFINITY : 1 / (low_ * low_)) {}

  // Squares of the scattering vectors of many, in a loop without branches.
  void measure(const std::int32_t* h, const std::int32_t* k, const std::int32_t* l, std::size_t n,
               double* s2) const noexcept {
    for (std::size_t i = 0; i < n; ++i) s2[i] = inverse_d2(h[i], k[i], l[i], matrix_);
  }
  [[nodiscard]] bool holds(double s2) const noexcept {
    constexpr double close = 1e-12;
    if (s2 > least_ * (1 + close) && s2 < most_ * (1 - close)) return true;
    if (s2 < least_ * (1 - close) || s2 > most_ * (1 + close)) return false;
    const double d = 1.0 / std::sqrt(s2);
    return d >= high_ && d <= low_;
  }

 private:
  const double* matrix_;
  double high_, low_;
  double most_, least_;  // of the square of the scattering vector
};

}  // namespace

double reflection_resolution(std::int32_t h, std::int32_t k, std::int32_t l,
                             const double* orth2frac) noexcept {
  return 1.0 / std::sqrt(inverse_d2(h, k, l, orth2frac));
}

double rms_of_measured(const float* values, std::size_t count, float missing) noexcept {
  double sum = 0;
  std::size_t n = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double value = static_cast<double>(values[i]);
    if (!std::isfinite(value) || values[i] == missing) continue;
    sum += value * value;
    ++n;
  }
  return n > 0 ? std::sqrt(sum / static_cast<double>(n)) : 0.0;
}

std::size_t select_reflections(const Candidates& input, const RejectionRules& rules,
                               std::int32_t* kept, LeftOut& left) noexcept {
  const float* minimum_of = rules.amplitude_minimum > 0 ? input.amplitude.values : nullptr;
  const Outliers amplitude(input.amplitude, input.count, rules.amplitude_sigma, rules.amplitude_rms,
                           input.missing);
  const Outliers intensity(input.intensity, input.count, rules.intensity_sigma, rules.intensity_rms,
                           input.missing);
  const Shell shell(rules);
  std::size_t nkept = 0;
  left = {};
  constexpr std::size_t together = 256;
  double s2[together];
  for (std::size_t i = 0; i < input.count; ++i) {
    if (i % together == 0) {
      const std::size_t n = std::min(together, input.count - i);
      shell.measure(input.h + i, input.k + i, input.l + i, n, s2);
    }
    const bool small = minimum_of && known(minimum_of[i], input.missing) < rules.amplitude_minimum;
    if (input.h[i] == 0 && input.k[i] == 0 && input.l[i] == 0) {
      ++left.origin;
      continue;
    }
    if (!shell.holds(s2[i % together])) {
      ++left.outside;
    } else if (small || amplitude.reject(i) || intensity.reject(i)) {
      ++left.by_cuts;
    } else {
      kept[nkept++] = static_cast<std::int32_t>(i);
    }
  }
  return nkept;
}

}  // namespace qx
