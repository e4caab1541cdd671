// K. How a map weighs the density of an isotropic atom and its derivatives.
#pragma once

#include "model/spread.h"

namespace qx {

// Sums over the points within the radius of map x (the i-th Gaussian's value, times 1, x, y, z, r^2
// of the offset from the centre, Angstrom), added to moments[i].
void moments_iso(const SpreadGrid& grid, const Gaussians& atom, const double centre[3],
                 double radius, double (*moments)[5]) noexcept;

// From those moments the derivatives of sum of map x density by x, y, z of the centre (Angstrom), B
// (Angstrom^2) and the factor of the amplitudes. With A ~ Bt^(-3/2) and E = 4 pi^2 / Bt: d/dx = 2 E
// rho x, d/dB = rho E (E r^2 - 3/2) / (4 pi^2).
void iso_gradient(const Gaussians& atom, const double (*moments)[5],
                  double (&gradient)[5]) noexcept;

}  // namespace qx
