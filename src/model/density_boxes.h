// A density in boxes: what is the same for all of them is done once.
#pragma once

#include "core/tagged.h"

#include <quorix/density.h>

namespace qx {

struct PlacedAtom {
  double at[3];  // fractional, in the cell
  std::int32_t atom;
};

// The atoms in the order in which they are spread: neighbours in space touch the same lines of
// cache. Good as long as model, cell and grid stay.
struct PlacedAtoms {
  Tagged<PlacedAtom> atoms;
  std::int32_t n = 0;
};

Status place_atoms(double*** density, PlacedAtoms& placed);
// The density of all atoms in the box `shift` in place of what it held.
Status fill_box(const PlacedAtoms& placed, std::int32_t shift, double*** density);

}  // namespace qx
