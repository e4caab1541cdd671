// The unique reflections of a crystal between two limits.
#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstddef>
#include <gemmi/symmetry.hpp>
#include <gemmi/unitcell.hpp>

namespace qx {

// Which reflections a group extinguishes. Few operators leave any l of one h and k where it is,
// mostly none: they are kept for the next of the same h and k.
class Absences {
 public:
  explicit Absences(const gemmi::GroupOps& group) : group_(group) {}
  Absences(const Absences&) = delete;
  Absences& operator=(const Absences&) = delete;

  [[nodiscard]] bool has(const gemmi::Miller& hkl) {
    for (const gemmi::Op::Tran& centring : group_.cen_ops) {
      if (gemmi::GroupOps::has_phase_shift(centring, hkl)) return true;
    }
    if (hkl[0] != h_ || hkl[1] != k_) begin_row(hkl[0], hkl[1]);
    return std::any_of(row_.begin(), row_.begin() + n_, [&](const gemmi::Op* op) {
      return fixes(op->rot, hkl) && gemmi::GroupOps::has_phase_shift(op->tran, hkl);
    });
  }

 private:
  void begin_row(int h, int k) {
    h_ = h;
    k_ = k;
    n_ = 0;
    for (std::size_t i = 1; i < group_.sym_ops.size(); ++i) {
      const gemmi::Op& op = group_.sym_ops[i];
      if (may_fix(op.rot, h, k)) row_[static_cast<std::size_t>(n_++)] = &op;
    }
  }

  static bool may_fix(const gemmi::Op::Rot& r, int h, int k) {
    for (std::size_t a = 0; a < 3; ++a) {
      const int own = a == 0 ? h : a == 1 ? k : 0;
      const bool any_l = r[2][a] != (a == 2 ? gemmi::Op::DEN : 0);
      if (!any_l && r[0][a] * h + r[1][a] * k != gemmi::Op::DEN * own) return false;
    }
    return true;
  }

  static bool fixes(const gemmi::Op::Rot& r, const gemmi::Miller& hkl) {
    for (std::size_t a = 0; a < 3; ++a) {
      const int image = r[0][a] * hkl[0] + r[1][a] * hkl[1] + r[2][a] * hkl[2];
      if (image != gemmi::Op::DEN * hkl[a]) return false;
    }
    return true;
  }

  gemmi::GroupOps group_;
  int h_ = INT_MAX, k_ = INT_MAX;
  std::array<const gemmi::Op*, 48> row_ = {};
  std::ptrdiff_t n_ = 0;
};

// False if no index of this h and k is in the asymmetric unit: in the reference settings, if
// neither a large l nor l = h is.
inline bool may_hold(const gemmi::ReciprocalAsu& asu, int h, int k) {
  constexpr int large = 1 << 20;
  return !asu.is_ref || asu.is_in({h, k, large}) || asu.is_in({h, k, h});
}

// Calls `take` for every index of the group's asymmetric unit with dmin <= d < dmax (Angstrom) that
// the group does not extinguish, in the order of h, k and l. Along l no more is looked at than the
// sphere holds; gemmi's loop of the same name goes through its whole box.
template <class Take>
void for_all_unique(const gemmi::UnitCell& cell, const gemmi::SpaceGroup* group, double dmin,
                    double dmax, Take take) {
  const gemmi::ReciprocalAsu asu(group);
  Absences absences(group->operations());
  const gemmi::Miller most = cell.get_hkl_limits(dmin);
  const double high = 1.0 / (dmin * dmin);
  const double low = dmax > 0.0 ? 1.0 / (dmax * dmax) : 0.0;
  gemmi::Miller hkl;
  for (hkl[0] = -most[0]; hkl[0] <= most[0]; ++hkl[0]) {
    for (hkl[1] = -most[1]; hkl[1] <= most[1]; ++hkl[1]) {
      if (!may_hold(asu, hkl[0], hkl[1])) continue;
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
        if (s2 <= high && s2 > low && !absences.has(hkl)) take(hkl);
      }
    }
  }
}

}  // namespace qx
