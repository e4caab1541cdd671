// The parts that the system's structure factors are the sum of.
#pragma once

#include "sf/structfact.h"

#include <quorix/partition.h>

namespace qx {

// Parts that are made of atoms.
Status count_atom_parts(std::int32_t& count);
// The range of a part among the atoms computed with.
Status atoms_of_part(std::int32_t part, std::int32_t& first, std::int32_t& last);
// A part with its scale for each that the system has.
Status open_parts(qxstructfact& sf);
// Every part's scale as the partition has it.
Status reset_scales(qxstructfact& sf);
// The last part's sums from what the data brought.
Status fill_partial(const char* heading, const qxrefdata& data, qxstructfact& sf);

// F of the marked atoms alone (1 each, one for each atom computed with), in electrons, scaled as
// their parts are: what a model without them lacks.
Status marked_factors(const std::int32_t* marks, double* re, double* im);
// Structure factors of the system as it stands now, the parts' scales as they were.
Status recalculate_factors(const char* heading);

}  // namespace qx
