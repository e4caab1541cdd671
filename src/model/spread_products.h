// K. Isotropic atoms onto the grid, where their values are products along two axes.
#pragma once

#include "model/spread_place.h"

namespace qx {

// An isotropic atom where values are products along x and along y: rows that do not shift within a
// plane, and rows that shift by half a step, where a row holds the sphere (halves_fit).
void spread_products(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept;
bool halves_fit(const SpreadGrid& grid, double radius) noexcept;
void spread_by_halves(const SpreadGrid& grid, const Gaussians& atom, const Place& place) noexcept;

}  // namespace qx
