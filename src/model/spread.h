// K. Spreading an atom's density on the grid.
//
// A Gaussian is separable: where the axes of the grid are at right angles, its values are products
// of values along x, y and z, each found once for an atom; a point costs one multiplication and
// addition per Gaussian. Where rows are shifted against each other, or the atom is anisotropic, the
// values of a layer are found row by row: along y the ratio of neighbours changes by a constant.
// Layers are independent: a plane gets the same numbers whatever other planes are asked for. Only
// points within the radius are touched.
#pragma once

#include "model/gaussians.h"

#include <cstddef>
#include <cstdint>

namespace qx {

// The box that density is spread on: all of x and y, and the planes z_first, z_first + z_step, ...
// of the cell. The orthogonalisation has a along x and b in the x-y plane; bx .. cz are its
// elements divided by the grid counts, Angstrom per grid step.
struct SpreadGrid {
  std::int32_t nx, ny, nz;  // points of the whole cell
  std::int32_t z_first, z_step, nplanes;
  double ax, bx, by, cx, cy, cz;
  double* data;  // [nplanes][ny][nx]

  [[nodiscard]] double* row(std::int32_t plane, std::int32_t iy) const noexcept {
    return data + (static_cast<std::ptrdiff_t>(plane) * ny + iy) * nx;
  }
};

// Number of doubles of scratch that spreading wants for the given radius.
std::size_t spread_scratch_size(const SpreadGrid& grid, double radius) noexcept;

// Adds sum A_i exp(-E_i r^2) at every point with r <= radius of an atom centred at the fractional
// position (u, v, w), clipped to the box: lattice copies are the caller's.
void spread_iso(const SpreadGrid& grid, const Gaussians& atom, const double centre[3],
                double radius, double* scratch) noexcept;

// One Gaussian exp(-r^T P r / 2) of an anisotropic atom: P = M^-1 in the order 11 22 33 12 13 23.
struct AnisoGaussians {
  std::int32_t n = 0;
  double amplitude[most_gaussians];
  double precision[most_gaussians][6];
};

void spread_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                  double radius, double* scratch) noexcept;

// Sums over the same points of map x (the i-th Gaussian's value, times 1, x, y, z, xx, yy, zz, xy,
// xz, yz of the offset from the centre, Angstrom), added to moments[i].
void moments_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                   double radius, double (*moments)[10]) noexcept;

}  // namespace qx
