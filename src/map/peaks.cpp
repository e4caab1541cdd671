#include "map/peaks.h"

#include "map/interpolate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qx {

namespace {

// Points of one axis before, at and behind a point; the outer ones -1 where the box has none.
struct Neighbours {
  std::int32_t at[3];
  [[nodiscard]] bool whole() const { return at[0] >= 0 && at[2] >= 0; }
};

Neighbours neighbours(const qx_density_box& box, int axis, std::int32_t i) noexcept {
  const std::int64_t index = std::int64_t{box.starts[axis]} + i;
  return {{place_in_box(box, axis, index - 1), i, place_in_box(box, axis, index + 1)}};
}

std::ptrdiff_t offset(const qx_density_box& box, std::int32_t x, std::int32_t y,
                      std::int32_t z) noexcept {
  return (std::ptrdiff_t{z} * box.counts[1] + y) * box.counts[0] + x;
}

// Above all 26 neighbours, of equal ones the first.
bool is_highest(const qx_density_box& box, double sign, const Neighbours (&n)[3]) noexcept {
  const std::ptrdiff_t own = offset(box, n[0].at[1], n[1].at[1], n[2].at[1]);
  const double value = sign * box.density[own];
  for (const std::int32_t z : n[2].at) {
    for (const std::int32_t y : n[1].at) {
      for (const std::int32_t x : n[0].at) {
        const std::ptrdiff_t other = offset(box, x, y, z);
        const double theirs = sign * box.density[other];
        if (theirs > value || (theirs == value && other < own)) return false;
      }
    }
  }
  return true;
}

// The top of the parabola through three points a step apart.
double top_of_parabola(double before, double at, double behind, double& height) noexcept {
  const double bend = before - 2.0 * at + behind;
  if (!(std::fabs(bend) > 0.0)) return 0.0;
  const double shift = std::clamp(0.5 * (before - behind) / bend, -0.5, 0.5);
  height += 0.5 * (behind - before) * shift + 0.5 * bend * shift * shift;
  return shift;
}

qx_density_peak peak_at(const qx_density_box& box, const Neighbours (&n)[3]) noexcept {
  qx_density_peak peak = {};
  std::int32_t at[3] = {n[0].at[1], n[1].at[1], n[2].at[1]};
  const double value = box.density[offset(box, at[0], at[1], at[2])];
  peak.height = value;
  for (int axis = 0; axis < 3; ++axis) {
    std::int32_t before[3] = {at[0], at[1], at[2]};
    std::int32_t behind[3] = {at[0], at[1], at[2]};
    before[axis] = n[axis].at[0];
    behind[axis] = n[axis].at[2];
    const double shift =
        top_of_parabola(box.density[offset(box, before[0], before[1], before[2])], value,
                        box.density[offset(box, behind[0], behind[1], behind[2])], peak.height);
    peak.indices[axis] = box.starts[axis] + at[axis];
    peak.fractional[axis] = (peak.indices[axis] + shift) / box.intervals[axis];
  }
  return peak;
}

}  // namespace

std::int64_t find_peaks(const qx_density_box& box, double level, std::int64_t capacity,
                        qx_density_peak* peaks) noexcept {
  const double sign = level < 0.0 ? -1.0 : 1.0;
  std::int64_t found = 0;
  for (std::int32_t z = 0; z < box.counts[2]; ++z) {
    for (std::int32_t y = 0; y < box.counts[1]; ++y) {
      const double* row = box.density + offset(box, 0, y, z);
      for (std::int32_t x = 0; x < box.counts[0]; ++x) {
        if (!(sign * row[x] >= sign * level)) continue;
        const Neighbours n[3] = {neighbours(box, 0, x), neighbours(box, 1, y),
                                 neighbours(box, 2, z)};
        if (!n[0].whole() || !n[1].whole() || !n[2].whole() || !is_highest(box, sign, n)) continue;
        if (found < capacity) peaks[found] = peak_at(box, n);
        ++found;
      }
    }
  }
  return found;
}

}  // namespace qx
