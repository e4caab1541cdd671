// Places of a crystal against the atoms of a model.
#pragma once

#include <array>
#include <cstdint>
#include <gemmi/symmetry.hpp>  // for Op
#include <gemmi/unitcell.hpp>
#include <limits>
#include <string>
#include <vector>

namespace qx {

class Coordinates;

// The crystal that a density belongs to.
struct DensityCrystal {
  gemmi::UnitCell cell;
  std::vector<gemmi::Op> operators;  // the identity at least
};

// The group by its name; if it is not known, by operators such as -x,y+1/2,-z. Throws
// std::exception for a text that is none.
DensityCrystal density_crystal(const double* cell, const std::string& group,
                               const std::vector<std::string>& operators);

struct DensitySite {
  double fractional[3] = {}, xyz[3] = {};  // xyz: Angstrom
  std::int64_t atom = -1;  // nearest, in the order of Coordinates::positions(); -1: no model
  double distance = std::numeric_limits<double>::quiet_NaN();  // from it, Angstrom
  std::string name;  // of it: chain, residue, atom; empty without a model
};

// Finds, of all mates of a place, the one that is nearest to an atom.
class Surroundings {
 public:
  // The crystal is looked at as long as this lives. Without a model places stay where they are.
  Surroundings(const DensityCrystal& crystal, const Coordinates* model);
  // The site of a place in fractions of the cell, but for the atom's name; `moved`, if given,
  // becomes the operator that leads there, a translation of the cell left out.
  [[nodiscard]] DensitySite nearest(const double (&at)[3], const gemmi::Op** moved = nullptr) const;

 private:
  struct Best {
    std::int64_t atom = -1;
    double distance = std::numeric_limits<double>::infinity();
    gemmi::Fractional apart = {};  // from the atom
  };
  void look(const gemmi::Fractional& mate, std::size_t atom, Best& best) const;
  void look_nearby(const gemmi::Fractional& mate, Best& best) const;
  [[nodiscard]] std::array<int, 3> bin_of(const gemmi::Fractional& at) const;
  [[nodiscard]] std::size_t number_of(int x, int y, int z) const;

  const DensityCrystal& crystal_;
  std::vector<gemmi::Fractional> atoms_;          // in the model's order
  double half_width_ = 0.0;                       // of the cell where it is narrowest, Angstrom
  double reach_ = 0.0;                            // atoms within it are in neighbouring bins
  std::array<int, 3> bins_ = {1, 1, 1};           // along each axis
  std::vector<std::vector<std::size_t>> in_bin_;  // atoms
};

}  // namespace qx
