// The unique reflections of a crystal between two limits.
#pragma once

#include <algorithm>
#include <cmath>
#include <gemmi/symmetry.hpp>
#include <gemmi/unitcell.hpp>

namespace qx {

// Calls `take` for every index of the group's asymmetric unit with dmin <= d < dmax (Angstrom) that
// the group does not extinguish, in the order of h, k and l. Along l no more is looked at than the
// sphere holds; gemmi's loop of the same name goes through its whole box.
template <class Take>
void for_all_unique(const gemmi::UnitCell& cell, const gemmi::SpaceGroup* group, double dmin,
                    double dmax, Take take) {
  const gemmi::ReciprocalAsu asu(group);
  const gemmi::GroupOps operators = group->operations();
  const gemmi::Miller most = cell.get_hkl_limits(dmin);
  const double high = 1.0 / (dmin * dmin);
  const double low = dmax > 0.0 ? 1.0 / (dmax * dmax) : 0.0;
  gemmi::Miller hkl;
  for (hkl[0] = -most[0]; hkl[0] <= most[0]; ++hkl[0]) {
    for (hkl[1] = -most[1]; hkl[1] <= most[1]; ++hkl[1]) {
      // 1/d^2 = c*^2 (l + middle)^2 + rest, of which a step on either side is left for rounding.
      const double middle =
          (cell.ar * hkl[0] * cell.cos_betar + cell.br * hkl[1] * cell.cos_alphar) / cell.cr;
      const double rest = cell.calculate_1_d2_double(hkl[0], hkl[1], -middle);
      const double reach = std::sqrt(std::max(0.0, high - rest)) / cell.cr + 1.0;
      const int last = std::min(most[2], static_cast<int>(std::floor(reach - middle)));
      hkl[2] = std::max(-most[2], static_cast<int>(std::ceil(-reach - middle)));
      for (; hkl[2] <= last; ++hkl[2]) {
        if (!asu.is_in(hkl)) continue;
        const double s2 = cell.calculate_1_d2(hkl);
        if (s2 <= high && s2 > low && !operators.is_systematically_absent(hkl)) take(hkl);
      }
    }
  }
}

}  // namespace qx
