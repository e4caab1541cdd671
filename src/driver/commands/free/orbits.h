// Reflections that one free flag stands for: those that the symmetry of the lattice relates, also
// where the crystal has less of it. Twins, and crystals of a related group, then share their free
// set.
#pragma once

#include <array>
#include <cstdint>
#include <gemmi/symmetry.hpp>
#include <gemmi/unitcell.hpp>
#include <string>
#include <vector>

namespace qx {

// The indices of an orbit's first member, in one word that sorts.
using OrbitKey = std::uint64_t;
gemmi::Miller index_of(OrbitKey key);

class Orbits {
 public:
  // Of the rotations of a group, Friedel opposites taken as one.
  explicit Orbits(const gemmi::GroupOps& group);
  [[nodiscard]] OrbitKey key(const gemmi::Miller& hkl) const;
  [[nodiscard]] std::size_t order() const { return rotations_.size(); }

 private:
  std::vector<gemmi::Op> rotations_;
};

// The symmetry of the lattice within `obliquity` degrees; the group's own where that is no part of
// it.
gemmi::GroupOps lattice_group(const gemmi::UnitCell& cell, const gemmi::SpaceGroup& group,
                              double obliquity);

struct FreeOrbit {
  std::int64_t s2;  // 1/d^2 in units in which rounding does not show
  OrbitKey key;
  auto operator<=>(const FreeOrbit&) const = default;
};

// One for each orbit of indices to `dmin` that the centring allows, by resolution. It does not
// depend on what was measured.
std::vector<FreeOrbit> all_orbits(const gemmi::UnitCell& cell, const gemmi::SpaceGroup& group,
                                  const Orbits& orbits, double dmin);
FreeOrbit orbit_of(const gemmi::UnitCell& cell, const Orbits& orbits, const gemmi::Miller& hkl);

}  // namespace qx
