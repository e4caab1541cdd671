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

  // Whether no index of this h and k is extinguished.
  [[nodiscard]] bool none_in_row(int h, int k) {
    if (group_.cen_ops.size() > 1) return false;
    if (h != h_ || k != k_) begin_row(h, k);
    return n_ == 0;
  }

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

// The reflections of a group's asymmetric unit with dmin <= d < dmax (Angstrom) that the group does
// not extinguish. Along l no more is looked at than the sphere holds; gemmi's loop goes through its
// whole box.
class UniqueReflections {
 public:
  // dmax 0: no limit. `cell` stays the caller's.
  UniqueReflections(const gemmi::UnitCell& cell, const gemmi::SpaceGroup* group, double dmin,
                    double dmax)
      : cell_(cell),
        asu_(group),
        absences_(group->operations()),
        most_(cell.get_hkl_limits(dmin)),
        high_(1.0 / (dmin * dmin)),
        low_(dmax > 0.0 ? 1.0 / (dmax * dmax) : 0.0) {}

  // Calls `take` for each, in the order of h, k and l.
  template <class Take>
  void for_each(Take take) {
    for_each_row([&](const Row& row) {
      for (gemmi::Miller hkl = row.first; hkl[2] <= row.last; ++hkl[2]) {
        if (has(hkl) && !absences_.has(hkl)) take(hkl);
      }
    });
  }

  // A row without absences has all between its ends: sphere and asymmetric unit are convex.
  [[nodiscard]] std::size_t count() {
    std::size_t n = 0;
    for_each_row([&](Row row) {
      if (row.crosses_low || !absences_.none_in_row(row.first[0], row.first[1])) {
        for (; row.first[2] <= row.last; ++row.first[2]) {
          if (has(row.first) && !absences_.has(row.first)) ++n;
        }
        return;
      }
      while (row.first[2] <= row.last && !has(row.first)) ++row.first[2];
      while (row.first[2] <= row.last && !has({row.first[0], row.first[1], row.last})) --row.last;
      n += static_cast<std::size_t>(std::max(0, row.last + 1 - row.first[2]));
    });
    return n;
  }

 private:
  // The l of one h and k that the sphere may hold, a step on either side left for rounding.
  struct Row {
    gemmi::Miller first;
    int last;
    bool crosses_low;  // some may lie within the inner sphere
  };

  [[nodiscard]] bool has(const gemmi::Miller& hkl) const {
    if (!asu_.is_in(hkl)) return false;
    const double s2 = cell_.calculate_1_d2(hkl);
    return s2 <= high_ && s2 > low_;
  }

  template <class Take>
  void for_each_row(Take take) {
    for (int h = -most_[0]; h <= most_[0]; ++h) {
      for (int k = -most_[1]; k <= most_[1]; ++k) {
        if (may_hold(asu_, h, k)) take(row_of(h, k));
      }
    }
  }

  // 1/d^2 = c*^2 (l + middle)^2 + rest.
  [[nodiscard]] Row row_of(int h, int k) const {
    const double middle =
        (cell_.ar * h * cell_.cos_betar + cell_.br * k * cell_.cos_alphar) / cell_.cr;
    const double rest = cell_.calculate_1_d2_double(h, k, -middle);
    const double reach = std::sqrt(std::max(0.0, high_ - rest)) / cell_.cr + 1.0;
    const int first = std::max(-most_[2], static_cast<int>(std::ceil(-reach - middle)));
    const int last = std::min(most_[2], static_cast<int>(std::floor(reach - middle)));
    return {{h, k, first}, last, rest <= low_ * 1.0001};
  }

  const gemmi::UnitCell& cell_;
  gemmi::ReciprocalAsu asu_;
  Absences absences_;
  gemmi::Miller most_;
  double high_, low_;
};

template <class Take>
void for_all_unique(const gemmi::UnitCell& cell, const gemmi::SpaceGroup* group, double dmin,
                    double dmax, Take take) {
  UniqueReflections(cell, group, dmin, dmax).for_each(take);
}

}  // namespace qx
