// K. The rows of grid points within a sphere.
#pragma once

#include "core/wrapped.h"
#include "solvent/mask.h"

#include <cmath>

namespace qx {

// Indices i with |i step + offset| <= half.
struct StepRange {
  std::int32_t first, last;
};
inline StepRange within(double half, double step, double offset) noexcept {
  return {static_cast<std::int32_t>(std::ceil((-half - offset) / step)),
          static_cast<std::int32_t>(std::floor((half - offset) / step))};
}

// Calls run(iz, iy, first, last) for every row of grid points within a sphere, in the planes that
// are wanted, indices unwrapped.
template <class Wanted, class Run>
void for_each_run(const MaskGrid& grid, const double (&at)[3], double radius, Wanted wanted,
                  Run run) noexcept {
  const double square = radius * radius;
  const StepRange planes = within(radius, grid.cz, -at[2] * grid.cz);
  for (std::int32_t iz = planes.first; iz <= planes.last; ++iz) {
    const double dz = iz - at[2];
    const double in_plane = square - dz * grid.cz * dz * grid.cz;
    if (in_plane < 0.0 || !wanted(iz)) continue;
    const double y0 = dz * grid.cy - at[1] * grid.by;
    const StepRange rows = within(std::sqrt(in_plane), grid.by, y0);
    for (std::int32_t iy = rows.first; iy <= rows.last; ++iy) {
      const double y = iy * grid.by + y0;
      const double in_row = in_plane - y * y;
      if (in_row < 0.0) continue;
      const double x0 = (iy - at[1]) * grid.bx + dz * grid.cx - at[0] * grid.ax;
      const StepRange x = within(std::sqrt(in_row), grid.ax, x0);
      if (x.first <= x.last) run(iz, iy, x.first, x.last);
    }
  }
}

// The same in all planes.
template <class Run>
void for_each_run(const MaskGrid& grid, const double (&at)[3], double radius, Run run) noexcept {
  for_each_run(
      grid, at, radius, [](std::int32_t) { return true; }, run);
}

}  // namespace qx
