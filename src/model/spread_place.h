// K. Where an atom lies on the grid, and the arrays that spreading it uses.
#pragma once

#include "model/spread_kernels.h"
#include "model/spread_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace qx {

// How far rows shift for each Angstrom of y, and what that makes of a circle's width in points.
inline double shift_of_rows(const SpreadGrid& grid) noexcept { return grid.bx / grid.by; }
// How far from the centre's axis a sphere of radius 1 reaches along rows or columns that move by
// `slope` for each Angstrom.
inline double leaning_reach(double slope) noexcept {
  return std::sqrt(1.0 + slope * slope) * (1.0 + 1e-9);
}
inline double widening(const SpreadGrid& grid) noexcept {
  return leaning_reach(shift_of_rows(grid));
}

inline std::int32_t most_points(double half, double step, std::int32_t n) noexcept {
  const double count = 2.0 * half / step + 3.0;  // no call of ceil for each atom
  return padded(count < n ? static_cast<std::int32_t>(count) : n);
}
inline std::int32_t most_lanes(const SpreadGrid& grid, double radius) noexcept {
  const double reach = std::max(widening(grid), leaning_reach(grid.cx / grid.cz));
  return most_points(radius * reach, grid.ax, grid.nx);
}
inline std::int32_t most_rows(const SpreadGrid& grid, double radius) noexcept {
  return most_points(radius * leaning_reach(grid.cy / grid.cz), grid.by, grid.ny);
}

// An axis at right angles to another has a component of some 1e-16 left along it.
inline bool is_nothing(double component, double step) noexcept {
  return std::fabs(component) < 1e-11 * step;
}

// An atom's Gaussians in whole registers; what is beyond the last adds nothing.
struct Heights {
  alignas(64) double amplitude[spread_padding] = {};
  alignas(64) double exponent[spread_padding] = {};
};

inline Heights heights_of(const Gaussians& atom) noexcept {
  Heights out;
  std::copy_n(atom.amplitude, atom.n, out.amplitude);
  std::copy_n(atom.exponent, atom.n, out.exponent);
  return out;
}

// Where the atom lies: centre in grid steps, and the arrays that every plane of it may use.
struct Place {
  double gx, gy, gz, radius;
  IndexRange planes;
  std::int32_t lanes, rows;  // room
  double *x, *x_squared, *y, *y_squared, *offset, *more;

  Place(const SpreadGrid& grid, const double centre[3], double r, double* scratch) noexcept
      : gx(centre[0] * grid.nx),
        gy(centre[1] * grid.ny),
        gz(centre[2] * grid.nz),
        radius(r),
        planes(planes_within(grid, centre, r * (1.0 + 1e-9))),  // the rest decides
        lanes(most_lanes(grid, r)),
        rows(most_rows(grid, r)) {
    const auto address = reinterpret_cast<std::uintptr_t>(scratch);
    x = reinterpret_cast<double*>((address + 63) & ~std::uintptr_t{63});
    x_squared = x + lanes;
    y = x_squared + lanes;
    y_squared = y + rows;
    offset = y_squared + rows;
    more = offset + rows;
  }
};

inline constexpr double ones[most_gaussians] = {1.0, 1.0, 1.0, 1.0, 1.0};

// Values along z of the planes, for a few planes at a time.
class PlaneHeights {
 public:
  PlaneHeights(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept
      : grid_(grid), atom_(atom), place_(place) {}

  // Of Gaussian i, at [i heights_pitch]. Planes come in their order.
  [[nodiscard]] const double* at(std::int32_t plane) noexcept {
    if (plane >= first_ + spread_padding) find(plane);
    return values_ + (plane - first_);
  }

 private:
  void find(std::int32_t first) noexcept {
    first_ = first;
    for (std::int32_t k = 0; k < spread_padding; ++k) {
      const std::int32_t iz = grid_.z_first + (first + k) * grid_.z_step;
      z_[k] = (iz - place_.gz) * grid_.cz;
    }
    spread_kernels().comb(atom_.n, atom_.amplitude, atom_.exponent, spread_padding, z_, values_,
                          heights_pitch);
  }

  const SpreadGrid& grid_;
  const Gaussians& atom_;
  const Place& place_;
  std::int32_t first_ = -spread_padding;
  alignas(64) double z_[spread_padding];
  alignas(64) double values_[most_gaussians * heights_pitch];
};

// Coordinates first * step + offset, ... and their squares.
inline void lay_points(IndexRange range, double step, double offset, double* x,
                       double* squares) noexcept {
  const std::int32_t n = range.last - range.first + 1;
  for (std::int32_t i = 0; i < n; ++i) x[i] = (range.first + i) * step + offset;
  for (std::int32_t i = n; i < padded(n); ++i) x[i] = off_the_row;
  for (std::int32_t i = 0; i < padded(n); ++i) squares[i] = x[i] * x[i];
}

// Calls layer(plane, dz in steps, z, radius^2 - z^2) for each plane that cuts the sphere.
template <class Layer>
void for_each_plane(const SpreadGrid& grid, const Place& place, Layer layer) noexcept {
  for (std::int32_t plane = place.planes.first; plane <= place.planes.last; ++plane) {
    const double dz = grid.z_first + plane * grid.z_step - place.gz;
    const double z = dz * grid.cz;
    const double rest = place.radius * place.radius - z * z;
    if (rest >= 0.0) layer(plane, dz, z, rest);
  }
}

}  // namespace qx
