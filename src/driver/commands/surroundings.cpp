#include "driver/commands/surroundings.h"

#include "driver/commands/coordinates.h"
#include "driver/commands/group_name.h"
#include "driver/commands/info/map_symmetry.h"

#include <algorithm>
#include <cmath>

namespace qx {

DensityCrystal density_crystal(const double* c, const std::string& group,
                               const std::vector<std::string>& operators) {
  DensityCrystal crystal;
  crystal.cell = gemmi::UnitCell(c[0], c[1], c[2], c[3], c[4], c[5]);
  if (const gemmi::SpaceGroup* known = find_space_group(group)) {
    for (const gemmi::Op& op : known->operations()) crystal.operators.push_back(op);
  } else {
    for (const std::string& text : operators) {
      crystal.operators.push_back(read_operator(text));
    }
  }
  if (crystal.operators.empty()) crystal.operators.push_back(gemmi::Op::identity());
  return crystal;
}

namespace {

constexpr double wanted_reach = 4.0;  // Angstrom; few sites are farther from a model

gemmi::Fractional minus(const gemmi::Fractional& a, const gemmi::Fractional& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}

gemmi::Fractional plus(const gemmi::Fractional& a, const gemmi::Fractional& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}

}  // namespace

Surroundings::Surroundings(const DensityCrystal& crystal, const Coordinates* model)
    : crystal_(crystal) {
  if (!model) return;
  const gemmi::UnitCell& cell = crystal.cell;
  for (const auto& a : model->positions()) {
    atoms_.push_back(cell.fractionalize(gemmi::Position(a[0], a[1], a[2])));
  }
  const double widths[3] = {1.0 / cell.ar, 1.0 / cell.br, 1.0 / cell.cr};
  half_width_ = 0.5 * *std::min_element(widths, widths + 3);
  reach_ = std::min(wanted_reach, half_width_);
  for (std::size_t a = 0; a < 3; ++a) {
    bins_.at(a) = static_cast<int>(std::clamp(widths[a] / reach_, 1.0, 100.0));
  }
  in_bin_.resize(number_of(bins_[0] - 1, bins_[1] - 1, bins_[2] - 1) + 1);
  for (std::size_t i = 0; i < atoms_.size(); ++i) {
    const auto [x, y, z] = bin_of(atoms_[i]);
    in_bin_[number_of(x, y, z)].push_back(i);
  }
}

std::array<int, 3> Surroundings::bin_of(const gemmi::Fractional& at) const {
  const gemmi::Fractional inside = at.wrap_to_unit();
  const auto bin = [](double f, int n) { return std::clamp(static_cast<int>(f * n), 0, n - 1); };
  return {bin(inside.x, bins_[0]), bin(inside.y, bins_[1]), bin(inside.z, bins_[2])};
}

std::size_t Surroundings::number_of(int x, int y, int z) const {
  const auto within = [](int i, int n) { return static_cast<std::size_t>((i + n) % n); };
  return (within(z, bins_[2]) * static_cast<std::size_t>(bins_[1]) + within(y, bins_[1])) *
             static_cast<std::size_t>(bins_[0]) +
         within(x, bins_[0]);
}

// Differences that are shorter than half the cell's width are shortest when they are wrapped; of
// others the neighbours are tried as well.
void Surroundings::look(const gemmi::Fractional& mate, std::size_t atom, Best& best) const {
  const gemmi::Fractional wrapped = minus(mate, atoms_[atom]).wrap_to_zero();
  const auto take = [&](const gemmi::Fractional& apart) {
    const double distance = crystal_.cell.orthogonalize_difference(apart).length();
    if (distance < best.distance) best = {static_cast<std::int64_t>(atom), distance, apart};
    return distance;
  };
  if (take(wrapped) <= half_width_) return;
  for (const double x : {-1.0, 0.0, 1.0}) {
    for (const double y : {-1.0, 0.0, 1.0}) {
      for (const double z : {-1.0, 0.0, 1.0}) take(plus(wrapped, {x, y, z}));
    }
  }
}

void Surroundings::look_nearby(const gemmi::Fractional& mate, Best& best) const {
  const auto [x, y, z] = bin_of(mate);
  for (int n = 0; n < 27; ++n) {
    const std::size_t bin = number_of(x + n % 3 - 1, y + n / 3 % 3 - 1, z + n / 9 - 1);
    for (const std::size_t atom : in_bin_[bin]) look(mate, atom, best);
  }
}

DensitySite Surroundings::nearest(const double (&at)[3], const gemmi::Op** moved) const {
  DensitySite site;
  gemmi::Fractional place(at[0], at[1], at[2]);
  if (moved) *moved = &crystal_.operators.front();
  Best best;
  const auto search = [&](auto look_at) {
    for (const gemmi::Op& op : crystal_.operators) {
      const auto mate = op.apply_to_xyz({at[0], at[1], at[2]});
      const double before = best.distance;
      look_at(gemmi::Fractional(mate[0], mate[1], mate[2]));
      if (moved && best.distance < before) *moved = &op;
    }
  };
  if (!atoms_.empty()) {
    search([&](const gemmi::Fractional& mate) { look_nearby(mate, best); });
    if (best.distance > reach_) {
      search([&](const gemmi::Fractional& mate) {
        for (std::size_t i = 0; i < atoms_.size(); ++i) look(mate, i, best);
      });
    }
    site.atom = best.atom;
    site.distance = best.distance;
    place = plus(atoms_[static_cast<std::size_t>(best.atom)], best.apart);
  }
  const gemmi::Position xyz = crystal_.cell.orthogonalize(place);
  const double fractional[3] = {place.x, place.y, place.z};
  const double orthogonal[3] = {xyz.x, xyz.y, xyz.z};
  std::copy_n(fractional, 3, site.fractional);
  std::copy_n(orthogonal, 3, site.xyz);
  return site;
}

}  // namespace qx
