// K. Connected regions of density beyond a level, by runs along x that a forest joins.
#pragma once

#include "solvent/mask.h"

#include <quorix/density_box.h>

#include <cstdint>

namespace qx {

// Steps of the box's grid in a cell of Angstrom and degrees.
MaskGrid mask_grid(const qx_density_box& box, const double* cell) noexcept;
// Marks the points of the box within `radius` Angstrom of a fractional place.
void mask_place(const qx_density_box& box, const MaskGrid& grid, const double (&place)[3],
                double radius, std::uint8_t* mask) noexcept;

// As the routines of quorix/density_box.h; a run's blob is its own number until runs are joined.
std::int64_t count_runs(const qx_density_box& box, double level, const std::uint8_t* mask) noexcept;
void collect_runs(const qx_density_box& box, double level, const std::uint8_t* mask,
                  std::int64_t* rows, qx_density_run* runs) noexcept;
std::int64_t join_runs(const qx_density_box& box, const std::int64_t* rows,
                       qx_density_run* runs) noexcept;
void measure_blobs(const qx_density_box& box, std::int64_t nruns, const qx_density_run* runs,
                   std::int64_t nblobs, qx_density_blob* blobs) noexcept;

}  // namespace qx
