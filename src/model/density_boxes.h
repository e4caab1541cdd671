// A density in boxes: what is the same for all of them is done once.
#pragma once

#include "core/tagged.h"

#include <quorix/density.h>
#include <quorix/target.h>

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

// Atoms of the system, by number: those of [first, last) whose mark is `wanted`, or all of them
// without marks (one for each atom computed with).
struct AtomChoice {
  std::int32_t first = 0, last = 0;
  const std::int32_t* marks = nullptr;
  std::int32_t wanted = 0;

  [[nodiscard]] bool has(std::int32_t atom) const { return !marks || marks[atom] == wanted; }
};

Status place_atoms(double*** density, const AtomChoice& choice, PlacedAtoms& placed);
// The density of these atoms in the box `shift` in place of what it held.
Status fill_box(const PlacedAtoms& placed, std::int32_t shift, double*** density);
// How a map of the whole cell changes by the parameters of the atoms [first, last): out[first] on.
Status density_gradients(double*** map, std::int32_t first, std::int32_t last,
                         qx_atom_gradient* out);

}  // namespace qx
