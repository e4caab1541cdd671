// Residues as places to look at.
#include "driver/commands/coordinates.h"

#include <algorithm>
#include <gemmi/model.hpp>
#include <gemmi/resinfo.hpp>  // for find_tabulated_residue

namespace qx {

namespace {

const gemmi::Atom* atom_called(const gemmi::Residue& residue, const char* name) {
  const auto found = std::find_if(residue.atoms.begin(), residue.atoms.end(),
                                  [&](const gemmi::Atom& atom) { return atom.name == name; });
  return found == residue.atoms.end() ? nullptr : &*found;
}

bool are_linked(const gemmi::Residue& first, const gemmi::Residue& second) {
  constexpr double longest = 2.0;  // Angstrom
  for (const auto& [end, begin] : {std::pair("C", "N"), std::pair("O3'", "P")}) {
    const gemmi::Atom* a = atom_called(first, end);
    const gemmi::Atom* b = atom_called(second, begin);
    if (a && b && a->pos.dist(b->pos) < longest) return true;
  }
  return false;
}

// A modified residue is a part of its chain as well.
char kind_of(const std::vector<gemmi::Residue>& residues, std::size_t i) {
  const gemmi::Residue& residue = residues[i];
  if (residue.is_water()) return 'w';
  const gemmi::ResidueInfo info = gemmi::find_tabulated_residue(residue.name);
  if (info.is_amino_acid() || info.is_nucleic_acid()) return 'p';
  const bool of_chain = (i > 0 && are_linked(residues[i - 1], residue)) ||
                        (i + 1 < residues.size() && are_linked(residue, residues[i + 1]));
  return of_chain ? 'p' : 'l';
}

}  // namespace

std::vector<Coordinates::Place> Coordinates::places() const {
  std::vector<Place> list;
  for (const gemmi::Chain& chain : structure_->models.front().chains) {
    const std::size_t first = list.size();
    for (const gemmi::Residue& residue : chain.residues) {
      Place& place = list.emplace_back();
      place.chain = chain.name;
      place.name = residue.name;
      place.number = residue.seqid.str();
      place.kind = kind_of(chain.residues, list.size() - first - 1);
      const bool all_hydrogens =
          std::all_of(residue.atoms.begin(), residue.atoms.end(),
                      [](const gemmi::Atom& atom) { return atom.is_hydrogen(); });
      for (const gemmi::Atom& atom : residue.atoms) {
        if (!atom.is_hydrogen() || all_hydrogens) {
          place.atoms.push_back({atom.pos.x, atom.pos.y, atom.pos.z});
        }
      }
      for (std::size_t a = 0; a < 3; ++a) {
        for (const auto& atom : place.atoms) place.centre[a] += atom[a];
        place.centre[a] /= static_cast<double>(std::max<std::size_t>(place.atoms.size(), 1));
      }
    }
  }
  return list;
}

}  // namespace qx
