// K. Density between the grid points of a box.
#pragma once

#include <quorix/density_box.h>

#include <cstdint>

namespace qx {

// Place of grid index `i` of an axis in the box; -1 if it has none, also not by a period.
std::int32_t place_in_box(const qx_density_box& box, int axis, std::int64_t i) noexcept;

// At one point in fractional coordinates, as qx_interpolate_density says.
double interpolate(const qx_density_box& box, int order, const double (&point)[3]) noexcept;

}  // namespace qx
