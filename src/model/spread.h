// K. Spreading an atom's density on the grid.
//
// A Gaussian is separable: along a row only the offset from the atom's centre changes, so its
// values at equal steps are exp(-E (x0 + m s)^2) = exp(-E x0^2) q^m T[m] with q = exp(-2 E s x0)
// and T[m] = exp(-E s^2 m^2). A comb holds these values for one offset x0; rows, layers and, in
// cells with right angles, whole atoms share combs, and a point costs one multiplication and
// addition per Gaussian. Only points within the radius are touched.
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

// Number of doubles of scratch that spread_iso wants for the given radius.
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
                  double radius) noexcept;

// Sums over the same points of map x (the i-th Gaussian's value, times 1, x, y, z, xx, yy, zz, xy,
// xz, yz of the offset from the centre, Angstrom), added to moments[i].
void moments_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                   double radius, double (*moments)[10]) noexcept;

}  // namespace qx
