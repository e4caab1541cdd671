// The unique set of a crystal's reflections, by gemmi's asymmetric unit.
#include "driver/commands/unique_reflections.h"

#include "driver/commands/command_error.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/group_name.h"

#include <gemmi/symmetry.hpp>
#include <gemmi/unitcell.hpp>

namespace qx {

std::vector<std::int32_t> unique_indices(const Crystal& crystal, double dmin, double dmax) {
  const gemmi::SpaceGroup* group = find_space_group(crystal.space_group);
  if (!group) throw CommandError(2, "unknown space group '" + crystal.space_group + "'");
  const gemmi::UnitCell cell(crystal.cell[0], crystal.cell[1], crystal.cell[2], crystal.cell[3],
                             crystal.cell[4], crystal.cell[5]);
  // Volume of the sphere over that of the reciprocal cell.
  const double expected = 4.19 * cell.volume / (dmin * dmin * dmin);
  if (expected > 4e8) throw CommandError(2, "too many reflections at the resolution given");
  UniqueReflections unique(cell, group, dmin, dmax);
  std::vector<std::int32_t> flat;
  flat.reserve(3 * unique.count());
  unique.for_each(
      [&](const gemmi::Miller& hkl) { flat.insert(flat.end(), hkl.begin(), hkl.end()); });
  return flat;
}

}  // namespace qx
