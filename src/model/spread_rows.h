// K. The rows of the grid that lie within a sphere.
#pragma once

#include "model/spread.h"

#include <cmath>

namespace qx {

struct IndexRange {
  std::int32_t first, last;
};

// First and last index whose coordinate index * step + offset lies within +-half, in [0, n); empty
// when last < first. Rows are short, so calls of ceil and floor would cost as much as their points.
inline IndexRange indices_within(double half, double steps_per_length, double offset,
                                 std::int32_t n) noexcept {
  const double low = (-half - offset) * steps_per_length;
  const double high = (half - offset) * steps_per_length;
  if (!(high >= 0.0) || !(low <= n - 1)) return {0, -1};
  IndexRange range = {low > 0.0 ? static_cast<std::int32_t>(low) : 0,
                      high < n - 1 ? static_cast<std::int32_t>(high) : n - 1};
  if (range.first < low) ++range.first;
  return range;
}

// The same without branches for places in [0, n) that a mask looks at once more: there may be one
// too many, and none that is outside the cell.
inline IndexRange places_within(double half, double steps_per_length, double offset,
                                std::int32_t n) noexcept {
  const double low = (-half - offset) * steps_per_length;
  const double high = (half - offset) * steps_per_length;
  const double end = n;
  double first = low > 0.0 ? low : 0.0;
  first = first < end ? first : end;
  double last = high < end - 1.0 ? high : end - 1.0;
  last = last > -1.0 ? last : -1.0;
  const auto whole = static_cast<std::int32_t>(first);
  return {whole + static_cast<std::int32_t>(whole < first), static_cast<std::int32_t>(last)};
}

// The planes of the box that cut the sphere.
inline IndexRange planes_within(const SpreadGrid& grid, const double centre[3],
                                double radius) noexcept {
  const double gz = centre[2] * grid.nz;
  return indices_within(radius, 1.0 / (grid.cz * grid.z_step), (grid.z_first - gz) * grid.cz,
                        grid.nplanes);
}

// A row: coordinates relative to the centre, x = ix * ax + x_offset, in Angstrom.
struct SphereRow {
  std::int32_t plane, iz, iy;
  IndexRange ix;
  double x_offset, y, z;
};

// Calls layer(z, y_offset) for each plane that cuts the sphere, y = iy * by + y_offset, and
// row(SphereRow) for each of its rows.
template <class Layer, class Row>
void for_each_row(const SpreadGrid& grid, const double centre[3], double radius, Layer layer,
                  Row row) noexcept {
  const double gx = centre[0] * grid.nx;
  const double gy = centre[1] * grid.ny;
  const double gz = centre[2] * grid.nz;
  const double radius_squared = radius * radius;
  const double per_x = 1.0 / grid.ax;
  const double per_y = 1.0 / grid.by;
  const IndexRange planes = planes_within(grid, centre, radius);
  for (std::int32_t plane = planes.first; plane <= planes.last; ++plane) {
    const std::int32_t iz = grid.z_first + plane * grid.z_step;
    const double dz = iz - gz;
    const double z = dz * grid.cz;
    const double rest = radius_squared - z * z;
    if (rest < 0.0) continue;
    const double y_offset = dz * grid.cy - gy * grid.by;
    layer(z, y_offset);
    const IndexRange rows = indices_within(std::sqrt(rest), per_y, y_offset, grid.ny);
    for (std::int32_t iy = rows.first; iy <= rows.last; ++iy) {
      const double y = iy * grid.by + y_offset;
      const double half_squared = rest - y * y;
      if (half_squared < 0.0) continue;
      const double x_offset = (iy - gy) * grid.bx + dz * grid.cx - gx * grid.ax;
      const IndexRange ix = indices_within(std::sqrt(half_squared), per_x, x_offset, grid.nx);
      if (ix.first <= ix.last) row(SphereRow{plane, iz, iy, ix, x_offset, y, z});
    }
  }
}

}  // namespace qx
