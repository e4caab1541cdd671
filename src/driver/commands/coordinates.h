// Coordinate files, read with gemmi, and the engine's model filled from them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace gemmi {
struct Structure;
}

namespace qx {

struct DefaultValues;

struct Crystal {
  std::string space_group;  // empty when the file names none
  double cell[6] = {};      // Angstrom, degrees; zero when the file has none
  bool own_matrix = false;  // the file's fractionalisation is not the standard one
  double orth2frac[12] = {};
};

// The first model of a PDB or mmCIF file, plain or gzipped.
class Coordinates {
 public:
  // Throws CommandError for a file that cannot be read, or not all of it, or holds no atom.
  explicit Coordinates(const std::string& path);
  ~Coordinates();
  [[nodiscard]] const Crystal& crystal() const { return crystal_; }
  // What was not taken as it stands in the file, a line each.
  [[nodiscard]] const std::vector<std::string>& warnings() const { return warnings_; }
  // Leaves the atoms that are selected in gemmi's language; throws CommandError for a text that is
  // none in it, or that selects no atom.
  void select(const std::string& selection, const std::string& path);
  // Places of the selected atoms in the model that is filled, from 0; throws the same, naming the
  // option that the selection was given with.
  [[nodiscard]] std::vector<std::size_t> entries_of(const std::string& selection,
                                                    const std::string& path,
                                                    const std::string& option) const;
  [[nodiscard]] std::size_t atom_count() const;
  // How many atoms of unknown element take no part, and which is the first; empty for none.
  [[nodiscard]] std::string unknown_atoms() const;
  // Chain, residue, name and serial as the file has them, of an atom by its place in the model that
  // was filled.
  [[nodiscard]] std::string name_of_entry(std::size_t entry) const;
  // The same of an atom by its place in the file, as positions() has them.
  [[nodiscard]] std::vector<std::string> names_of_atoms(
      const std::vector<std::size_t>& atoms) const;
  // Residues by chain, name and number, and of every atom of the model that is filled its residue.
  struct Residues {
    std::vector<std::string> names;
    std::vector<std::int32_t> of_entry;
  };
  [[nodiscard]] Residues residues() const;
  // The same residues, in that order, as places to look at.
  struct Place {
    std::string chain, name, number;
    char kind = 'p';  // p: of a polymer, l: a ligand, w: water
    std::array<double, 3> centre = {};
    std::vector<std::array<double, 3>> atoms;  // but for hydrogens, if it has others
  };
  [[nodiscard]] std::vector<Place> places() const;
  // As PDB records that a viewer reads, chain names cut short where that format asks for it.
  [[nodiscard]] std::string pdb_text() const;
  [[nodiscard]] std::vector<std::array<double, 3>> positions() const;  // Angstrom
  [[nodiscard]] std::vector<bool> waters() const;                      // which atoms are of water
  // Appends the atoms to the engine's model as one entry; false after a report. A hydrogen with a
  // fraction of deuterium becomes two.
  [[nodiscard]] bool fill_model() const;

 private:
  void note_defaults(const std::string& path, const DefaultValues& defaults);

  std::unique_ptr<gemmi::Structure> structure_;
  Crystal crystal_;
  std::unordered_map<int, double> deuterium_;  // fractions by serial number, where a file has them
  std::vector<std::string> warnings_;
};

// Miller indices of the unique set from dmin to dmax (0: without a limit), in the standard
// asymmetric unit; throws CommandError when the space group is not known.
std::vector<std::int32_t> unique_indices(const Crystal& crystal, double dmin, double dmax);

}  // namespace qx
