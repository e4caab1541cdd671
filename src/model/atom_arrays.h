// Opening and releasing the arrays of a set of atoms.
#pragma once

#include "model/molsys.h"

namespace qx {

// Arrays for the given counts, unfilled; a count of 0 leaves its arrays null.
Status open_atoms(AtomArrays& atoms, std::int32_t natom, std::int32_t niso, std::int32_t naniso);
Status release_atoms(AtomArrays& atoms);

}  // namespace qx
