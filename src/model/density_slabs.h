// Atoms onto a box by several threads: each has planes of its own.
#pragma once

#include "model/density_boxes.h"
#include "model/density_job.h"

namespace qx {

// On how many threads it is worth to spread so many atoms.
std::int32_t threads_for_atoms(const DensityJob& job, std::int32_t natom);
// The box with the atoms in place of what it held. A slab of planes takes the atoms that reach it
// in their order: every point is the sum that one thread makes.
Status fill_slabs(const DensityJob& job, const PlacedAtoms& placed, std::int32_t threads);

}  // namespace qx
