// Shells of equal volume in reciprocal space.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qx {

struct ShellLimits {
  double low, high;  // Angstrom
  int count;

  // 1/d^3 where shell n begins.
  [[nodiscard]] double cube(int n) const {
    const double inner = std::pow(low, -3);
    return inner + n * (std::pow(high, -3) - inner) / count;
  }
  [[nodiscard]] double bound(int n) const { return std::cbrt(1.0 / cube(n)); }
  [[nodiscard]] std::size_t of(double d) const {
    const double place = (std::pow(d, -3) - cube(0)) / (cube(count) - cube(0)) * count;
    return static_cast<std::size_t>(std::clamp(place, 0.0, count - 1.0));
  }
};

}  // namespace qx
