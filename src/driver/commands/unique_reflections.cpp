// The unique set of a crystal's reflections, by gemmi's asymmetric unit.
#include "driver/commands/command_error.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/group_name.h"

#include <gemmi/symmetry.hpp>
#include <gemmi/unitcell.hpp>

namespace qx {

namespace {

// Visits the indices of the sphere that gemmi's asymmetric unit holds, also those that the group
// extinguishes, in the order of h, k, l.
template <class Visit>
void for_each_unique(const gemmi::UnitCell& cell, const gemmi::SpaceGroup& group, double dmin,
                     double dmax, Visit visit) {
  const gemmi::Miller limit = cell.get_hkl_limits(dmin);
  const gemmi::ReciprocalAsu unit(&group);
  const double high = 1.0 / (dmin * dmin);
  const double low = dmax > 0.0 ? 1.0 / (dmax * dmax) : 0.0;
  // What all its conditions have in common: k >= 0 from 2/m on, h >= 0 from mmm on, l >= 0 but in
  // the trigonal groups with a threefold axis along l.
  const bool h_positive = unit.is_ref && unit.idx >= 2;
  const bool k_positive = unit.is_ref && unit.idx >= 1;
  const bool l_positive = unit.is_ref && (unit.idx < 5 || unit.idx > 7);
  for (int h = h_positive ? 0 : -limit[0]; h <= limit[0]; ++h) {
    for (int k = k_positive ? 0 : -limit[1]; k <= limit[1]; ++k) {
      for (int l = l_positive ? 0 : -limit[2]; l <= limit[2]; ++l) {
        const gemmi::Miller hkl = {{h, k, l}};
        const double s2 = cell.calculate_1_d2(hkl);
        if (s2 > low && s2 <= high && unit.is_in(hkl)) visit(hkl);
      }
    }
  }
}

}  // namespace

std::vector<std::int32_t> unique_indices(const Crystal& crystal, double dmin, double dmax) {
  const gemmi::SpaceGroup* group = find_space_group(crystal.space_group);
  if (!group) throw CommandError(2, "unknown space group '" + crystal.space_group + "'");
  const gemmi::UnitCell cell(crystal.cell[0], crystal.cell[1], crystal.cell[2], crystal.cell[3],
                             crystal.cell[4], crystal.cell[5]);
  // Volume of the sphere over that of the reciprocal cell.
  const double expected = 4.19 * cell.volume / (dmin * dmin * dmin);
  if (expected > 4e8) throw CommandError(2, "too many reflections at the resolution given");
  const gemmi::GroupOps operators = group->operations();
  // A fifth more than an orbit of the Laue group each, for the axes and planes: memory that is not
  // used costs nothing, and what is beyond it is moved.
  const double orbit =
      static_cast<double>(operators.sym_ops.size()) * (group->is_centrosymmetric() ? 1 : 2);
  std::vector<std::int32_t> flat;
  flat.reserve(3 * static_cast<std::size_t>(1.2 * expected / orbit + 1000.0));
  for_each_unique(cell, *group, dmin, dmax, [&](const gemmi::Miller& hkl) {
    if (!operators.is_systematically_absent(hkl)) flat.insert(flat.end(), hkl.begin(), hkl.end());
  });
  return flat;
}

}  // namespace qx
