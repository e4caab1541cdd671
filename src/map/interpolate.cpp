#include "map/interpolate.h"

#include <cmath>
#include <cstddef>
#include <limits>

namespace qx {

namespace {

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

// Grid points along one axis that a point takes part of, and how much.
struct Stencil {
  int n = 0;
  std::ptrdiff_t at[4] = {};
  double weight[4] = {};
};

// The cubic through the two neighbours whose slopes there are those of the chords about them.
void cubic_weights(double t, double (&w)[4]) noexcept {
  w[0] = ((-0.5 * t + 1.0) * t - 0.5) * t;
  w[1] = (1.5 * t - 2.5) * t * t + 1.0;
  w[2] = ((-1.5 * t + 2.0) * t + 0.5) * t;
  w[3] = (0.5 * t - 0.5) * t * t;
}

// False if the box lacks a point. A point on the grid needs no neighbours.
bool set_stencil(const qx_density_box& box, int order, int axis, double x, Stencil& s) noexcept {
  const double u = x * box.intervals[axis];
  if (!(std::fabs(u) < 1e9)) return false;
  const double floor = order == 0 ? std::nearbyint(u) : std::floor(u);
  const double t = u - floor;
  const auto first = static_cast<std::int64_t>(floor);
  if (order == 0 || t == 0.0) {
    s = {1, {place_in_box(box, axis, first)}, {1.0}};
  } else if (order == 1) {
    s = {2, {place_in_box(box, axis, first), place_in_box(box, axis, first + 1)}, {1.0 - t, t}};
  } else {
    s.n = 4;
    cubic_weights(t, s.weight);
    for (int i = 0; i < 4; ++i) s.at[i] = place_in_box(box, axis, first + i - 1);
  }
  for (int i = 0; i < s.n; ++i) {
    if (s.at[i] < 0) return false;
  }
  return true;
}

}  // namespace

std::int32_t place_in_box(const qx_density_box& box, int axis, std::int64_t i) noexcept {
  const std::int64_t n = box.intervals[axis];
  std::int64_t place = (i - box.starts[axis]) % n;
  if (place < 0) place += n;
  return place < box.counts[axis] ? static_cast<std::int32_t>(place) : -1;
}

double interpolate(const qx_density_box& box, int order, const double (&point)[3]) noexcept {
  Stencil s[3];
  for (int axis = 0; axis < 3; ++axis) {
    if (!set_stencil(box, order, axis, point[axis], s[axis])) return nothing;
  }
  double sum = 0.0;
  for (int iz = 0; iz < s[2].n; ++iz) {
    for (int iy = 0; iy < s[1].n; ++iy) {
      const double* row = box.density + (s[2].at[iz] * box.counts[1] + s[1].at[iy]) * box.counts[0];
      double along = 0.0;
      for (int ix = 0; ix < s[0].n; ++ix) along += s[0].weight[ix] * row[s[0].at[ix]];
      sum += s[2].weight[iz] * s[1].weight[iy] * along;
    }
  }
  return sum;
}

}  // namespace qx
