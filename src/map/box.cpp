#include "map/box.h"

#include "core/wrapped.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

constexpr double index_limit = 1 << 30;

}  // namespace

// Four chains of additions keep the units busy without reordering any of them.
void DensitySums::add(const double* row, std::ptrdiff_t n) noexcept {
  constexpr std::ptrdiff_t chains = 4;
  double s[chains] = {}, q[chains] = {};
  double low[chains], high[chains];
  std::fill_n(low, chains, minimum);
  std::fill_n(high, chains, maximum);
  std::ptrdiff_t i = 0;
  for (; i + chains <= n; i += chains) {
    for (std::ptrdiff_t c = 0; c < chains; ++c) {
      const double value = row[i + c];
      s[c] += value;
      q[c] += value * value;
      low[c] = value < low[c] ? value : low[c];
      high[c] = value > high[c] ? value : high[c];
    }
  }
  for (; i < n; ++i) {
    s[0] += row[i];
    q[0] += row[i] * row[i];
    low[0] = std::min(low[0], row[i]);
    high[0] = std::max(high[0], row[i]);
  }
  sum += (s[0] + s[1]) + (s[2] + s[3]);
  sum_of_squares += (q[0] + q[1]) + (q[2] + q[3]);
  minimum = *std::min_element(low, low + chains);
  maximum = *std::max_element(high, high + chains);
}

void DensitySums::add(const DensitySums& other) noexcept {
  sum += other.sum;
  sum_of_squares += other.sum_of_squares;
  minimum = std::min(minimum, other.minimum);
  maximum = std::max(maximum, other.maximum);
}

MapStatistics DensitySums::statistics(std::ptrdiff_t points) const noexcept {
  const auto n = static_cast<double>(points);
  return {minimum, maximum, sum / n, std::sqrt(sum_of_squares / n)};
}

void copy_periodic(const double* row, std::ptrdiff_t nx, std::int32_t low, std::ptrdiff_t n,
                   double* target) noexcept {
  std::ptrdiff_t from = wrapped(low, nx);
  for (std::ptrdiff_t i = 0; i < n;) {
    const std::ptrdiff_t run = std::min(n - i, nx - from);
    std::copy_n(row + from, run, target + i);
    i += run;
    from = 0;
  }
}

AxisBounds asymmetric_bounds(double low, double high, std::int32_t n) noexcept {
  const auto first = static_cast<std::int32_t>(std::clamp(low * n, -index_limit, index_limit));
  const auto last = static_cast<std::int32_t>(std::clamp(high * n, -index_limit, index_limit));
  return {first, std::min(last + 1, n)};
}

bool fractional_bounds(double low, double high, std::int32_t n, AxisBounds& bounds) noexcept {
  const double first = std::nearbyint(low * n);
  const double last = std::nearbyint(high * n);
  if (!(std::abs(first) < index_limit) || !(std::abs(last) < index_limit)) return false;
  bounds = {static_cast<std::int32_t>(first), static_cast<std::int32_t>(last)};
  return bounds.low <= bounds.high;
}

void fractional_limits(const double (&orth2frac)[16], const double (&cartesian)[6],
                       double (&fractional)[6]) noexcept {
  for (int axis = 0; axis < 3; ++axis) {
    const double* row = orth2frac + 4 * axis;
    double low = row[3];
    double high = row[3];
    for (int j = 0; j < 3; ++j) {
      const double a = row[j] * cartesian[2 * j];
      const double b = row[j] * cartesian[2 * j + 1];
      low += std::min(a, b);
      high += std::max(a, b);
    }
    fractional[2 * axis] = low;
    fractional[2 * axis + 1] = high;
  }
}

MapStatistics cut_box(View3<const double> cell, std::int32_t xlow, std::int32_t ylow,
                      std::int32_t zlow, View3<double> box) noexcept {
  DensitySums sums;
  for (std::ptrdiff_t iz = 0; iz < box.n0; ++iz) {
    for (std::ptrdiff_t iy = 0; iy < box.n1; ++iy) {
      const double* source = cell.row(wrapped(zlow + iz, cell.n0), wrapped(ylow + iy, cell.n1));
      double* target = box.row(iz, iy);
      copy_periodic(source, cell.n2, xlow, box.n2, target);
      sums.add(target, box.n2);
    }
  }
  return sums.statistics(box.size());
}

MapStatistics statistics_of(View3<const double> box) noexcept {
  DensitySums sums;
  for (std::ptrdiff_t iz = 0; iz < box.n0; ++iz) {
    for (std::ptrdiff_t iy = 0; iy < box.n1; ++iy) sums.add(box.row(iz, iy), box.n2);
  }
  return sums.statistics(box.size());
}

void scale_values(View3<double> box, double factor, MapStatistics& statistics) noexcept {
  double* const data = box.data;
  const std::ptrdiff_t n = box.size();
  for (std::ptrdiff_t i = 0; i < n; ++i) data[i] *= factor;
  statistics.minimum *= factor;
  statistics.maximum *= factor;
  statistics.mean *= factor;
  statistics.rms *= factor;
}

}  // namespace qx
