#include "driver/commands/free/orbits.h"

#include <algorithm>
#include <cmath>
#include <gemmi/twin.hpp>  // for find_lattice_symmetry
#include <limits>

namespace qx {

namespace {

constexpr OrbitKey bias = OrbitKey{1} << 20;

OrbitKey packed(int h, int k, int l) {
  const auto part = [](int index) { return static_cast<OrbitKey>(index) + bias; };
  return part(h) << 42 | part(k) << 21 | part(l);
}

bool allowed_by_centring(const gemmi::GroupOps& group, const gemmi::Miller& hkl) {
  return std::none_of(group.cen_ops.begin(), group.cen_ops.end(), [&](const gemmi::Op::Tran& t) {
    return gemmi::GroupOps::has_phase_shift(t, hkl);
  });
}

}  // namespace

gemmi::Miller index_of(OrbitKey key) {
  const auto part = [key](int shift) {
    return static_cast<int>(key >> shift & (2 * bias - 1)) - static_cast<int>(bias);
  };
  return {part(42), part(21), part(0)};
}

Orbits::Orbits(const gemmi::GroupOps& group) : rotations_(group.sym_ops) {}

// An index that the centring forbids has relatives between the points of the lattice: not counted.
OrbitKey Orbits::key(const gemmi::Miller& hkl) const {
  OrbitKey first = std::numeric_limits<OrbitKey>::max();
  for (const gemmi::Op& op : rotations_) {
    const gemmi::Miller r = op.apply_to_hkl_without_division(hkl);
    constexpr int one = gemmi::Op::DEN;
    if (r[0] % one != 0 || r[1] % one != 0 || r[2] % one != 0) continue;
    const int h = r[0] / one, k = r[1] / one, l = r[2] / one;
    first = std::min({first, packed(h, k, l), packed(-h, -k, -l)});
  }
  return first;
}

gemmi::GroupOps lattice_group(const gemmi::UnitCell& cell, const gemmi::SpaceGroup& group,
                              double obliquity) {
  const gemmi::GroupOps own = group.operations();
  const gemmi::GroupOps lattice =
      gemmi::find_lattice_symmetry(cell, group.centring_type(), obliquity);
  const auto in_lattice = [&](const gemmi::Op& op) {
    return lattice.find_by_rotation(op.rot) || lattice.find_by_rotation(op.negated_rot());
  };
  return std::all_of(own.sym_ops.begin(), own.sym_ops.end(), in_lattice) ? lattice : own;
}

FreeOrbit orbit_of(const gemmi::UnitCell& cell, const Orbits& orbits, const gemmi::Miller& hkl) {
  constexpr double steps = 1e9;
  const OrbitKey key = orbits.key(hkl);
  const gemmi::Miller first = index_of(key);
  return {std::llround(cell.calculate_1_d2_double(first[0], first[1], first[2]) * steps), key};
}

std::vector<FreeOrbit> all_orbits(const gemmi::UnitCell& cell, const gemmi::SpaceGroup& group,
                                  const Orbits& orbits, double dmin) {
  const gemmi::GroupOps operators = group.operations();
  const gemmi::Miller most = cell.get_hkl_limits(dmin);
  const double high = 1.0 / (dmin * dmin);
  std::vector<FreeOrbit> found;
  gemmi::Miller hkl;
  // The first member of an orbit has the least indices, so none above 0 comes first.
  for (hkl[0] = -most[0]; hkl[0] <= 0; ++hkl[0]) {
    for (hkl[1] = -most[1]; hkl[1] <= most[1]; ++hkl[1]) {
      for (hkl[2] = -most[2]; hkl[2] <= most[2]; ++hkl[2]) {
        const double s2 = cell.calculate_1_d2_double(hkl[0], hkl[1], hkl[2]);
        if (!(s2 > 0.0) || s2 > high || !allowed_by_centring(operators, hkl)) continue;
        if (orbits.key(hkl) != packed(hkl[0], hkl[1], hkl[2])) continue;
        found.push_back(orbit_of(cell, orbits, hkl));
      }
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace qx
