// K. Sums over pairs of numbers: the line through them, and their correlation.
#pragma once

#include <cmath>

namespace qx {

struct PairSums {
  double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;

  void add(double px, double py) noexcept {
    n += 1;
    x += px;
    y += py;
    xx += px * px;
    xy += px * py;
    yy += py * py;
  }
  // About the means.
  [[nodiscard]] double vxx() const noexcept { return xx - x * x / n; }
  [[nodiscard]] double vxy() const noexcept { return xy - x * y / n; }
  [[nodiscard]] double vyy() const noexcept { return yy - y * y / n; }
  // 0 where one of the two does not vary.
  [[nodiscard]] double correlation() const noexcept {
    const double spread = vxx() * vyy();
    return spread > 0.0 ? vxy() / std::sqrt(spread) : 0.0;
  }
};

}  // namespace qx
