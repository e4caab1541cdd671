#include "driver/commands/coordinates.h"

#include "driver/commands/command_error.h"
#include "driver/commands/coordinate_text.h"
#include "driver/commands/readable_file.h"

#include <quorix/engine.h>
#include <quorix/model.h>

// gemmi's selections print numbers; the printf that it would bundle is not in Debian's package.
#define USE_STD_SNPRINTF

#include <algorithm>
#include <gemmi/assembly.hpp>  // for shorten_chain_names
#include <gemmi/mmread.hpp>    // for coor_format_from_content
#include <gemmi/select.hpp>    // for Selection
#include <sstream>
#include <unordered_set>

namespace qx {

namespace {

// Radii for the bulk solvent's mask, Angstrom: those of atoms with their hydrogens (united atoms),
// which are not marked themselves.
double solvent_radius(const gemmi::Element& element) {
  switch (element.elem) {
    case gemmi::El::C:
      return 1.775;
    case gemmi::El::N:
      return 1.5;
    case gemmi::El::O:
      return 1.45;
    case gemmi::El::S:
      return 1.8;
    case gemmi::El::P:
      return 1.9;
    default:
      return element.vdw_r();
  }
}

// The model's arrays, atom by atom.
struct Arrays {
  std::vector<double> x, y, z, b_iso, occupancy, vdw_radius, u_aniso;
  std::vector<std::int32_t> atomic_number, charge, further, bu_index, ion;

  void add(const gemmi::Atom& atom, double share, bool deuterium) {
    x.push_back(atom.pos.x);
    y.push_back(atom.pos.y);
    z.push_back(atom.pos.z);
    atomic_number.push_back(atom.element.atomic_number());
    charge.push_back(atom.charge);
    further.push_back(deuterium ? 2 : 0);
    ion.push_back(atom.charge != 0 ? 1 : 0);
    occupancy.push_back(atom.occ * share);
    vdw_radius.push_back(solvent_radius(atom.element));
    if (atom.aniso.nonzero()) {
      bu_index.push_back(~static_cast<std::int32_t>(u_aniso.size() / 6));
      for (const float u : {atom.aniso.u11, atom.aniso.u22, atom.aniso.u33, atom.aniso.u12,
                            atom.aniso.u13, atom.aniso.u23}) {
        u_aniso.push_back(static_cast<double>(u));
      }
    } else {
      bu_index.push_back(static_cast<std::int32_t>(b_iso.size()));
      b_iso.push_back(atom.b_iso);
    }
  }
};

using Fractions = std::unordered_map<int, double>;

// Sites that hydrogen and deuterium share, where a refinement wrote one row with a fraction for
// both.
Fractions deuterium_fractions(gemmi::cif::Document& document) {
  Fractions fractions;
  for (gemmi::cif::Block& block : document.blocks) {
    for (const auto& row : block.find("_atom_site.", {"id", "ccp4_deuterium_fraction"})) {
      const double fraction = gemmi::cif::as_number(row[1]);
      if (fraction > 0.0) {
        fractions[gemmi::string_to_int(row[0], false)] = std::min(fraction, 1.0);
      }
    }
  }
  return fractions;
}

template <class Work>
void for_each_place(const gemmi::Structure& structure, Work work) {
  for (const gemmi::Chain& chain : structure.models.front().chains) {
    for (const gemmi::Residue& residue : chain.residues) {
      for (const gemmi::Atom& atom : residue.atoms) work(chain, residue, atom);
    }
  }
}

template <class Work>
void for_each_atom(const gemmi::Structure& structure, Work work) {
  for_each_place(structure, [&](const auto&, const auto&, const auto& atom) { work(atom); });
}

// Calls work(atom, share of its occupancy, whether as deuterium) for each atom of the engine's
// model.
template <class Work>
void for_each_entry(const gemmi::Structure& structure, const Fractions& fractions, Work work) {
  for_each_atom(structure, [&](const gemmi::Atom& atom) {
    const auto found = atom.element == gemmi::El::H ? fractions.find(atom.serial) : fractions.end();
    const double deuterium = found == fractions.end() ? 0.0 : found->second;
    if (deuterium < 1.0) work(atom, 1.0 - deuterium, atom.element == gemmi::El::D);
    if (deuterium > 0.0) work(atom, deuterium, true);
  });
}

std::string name_of(const gemmi::Chain& chain, const gemmi::Residue& residue,
                    const gemmi::Atom& atom) {
  std::string text = chain.name + "/" + residue.name + " " + residue.seqid.str() + "/" + atom.name;
  if (atom.altloc) text += std::string(".") + atom.altloc;
  return text + format(" (serial %d)", atom.serial);
}

std::string name_of(const gemmi::Structure& structure, const gemmi::Atom& wanted) {
  std::string name;
  for_each_place(structure, [&](const auto& chain, const auto& residue, const auto& atom) {
    if (&atom == &wanted) name = name_of(chain, residue, atom);
  });
  return name;
}

template <class Test>
std::size_t count_atoms(const gemmi::Structure& structure, Test test) {
  std::size_t n = 0;
  for_each_atom(structure, [&](const gemmi::Atom& atom) { n += test(atom) ? 1 : 0; });
  return n;
}

Crystal crystal_of(const gemmi::Structure& structure) {
  Crystal crystal;
  const gemmi::SpaceGroup* group = structure.find_spacegroup();
  crystal.space_group = group ? group->xhm() : structure.spacegroup_hm;
  const gemmi::UnitCell& cell = structure.cell;
  if (!cell.is_crystal()) return crystal;
  const double values[6] = {cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma};
  std::copy_n(values, 6, crystal.cell);
  crystal.own_matrix = cell.explicit_matrices;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) crystal.orth2frac[4 * i + j] = cell.frac.mat[i][j];
    crystal.orth2frac[4 * i + 3] = cell.frac.vec.at(i);
  }
  return crystal;
}

// The static analyser takes the counted references within the parser for memory that is gone.
#ifdef __clang_analyzer__
gemmi::cif::Document read_mmjson(const std::string& /*text*/, const std::string& /*path*/) {
  return {};
}
#else
gemmi::cif::Document read_mmjson(std::string text, const std::string& path) {
  return gemmi::cif::read_mmjson_insitu(text.data(), text.size(), path);
}
#endif

gemmi::Structure read_structure(const std::string& path, DefaultValues& defaults,
                                Fractions& fractions) {
  std::string text = whole_text(path);
  switch (gemmi::coor_format_from_content(text.data(), text.data() + text.size())) {
    case gemmi::CoorFormat::Pdb:
      defaults = check_pdb_numbers(text, path);
      return gemmi::read_pdb_from_memory(text.data(), text.size(), path);
    case gemmi::CoorFormat::Mmcif: {
      auto document = gemmi::cif::read_memory(text.data(), text.size(), path.c_str());
      defaults = check_mmcif_numbers(document, text, path);
      fractions = deuterium_fractions(document);
      return gemmi::make_structure_from_doc(document, true);
    }
    case gemmi::CoorFormat::Mmjson: {
      auto document = read_mmjson(text, path);
      defaults = check_mmcif_numbers(document, text, path);
      return gemmi::make_structure(document);
    }
    default:
      throw CommandError(2, path + " holds no atom");
  }
}

std::string pdb_record(const gemmi::Chain& chain, const gemmi::Residue& residue,
                       const gemmi::Atom& atom, int serial) {
  return format("%-6s%5d %-4.4s%c%3.3s%2.2s%4d%c   %8.3f%8.3f%8.3f%6.2f%6.2f          %2.2s\n",
                residue.het_flag == 'H' ? "HETATM" : "ATOM", serial % 100000,
                atom.padded_name().c_str(), atom.altloc ? atom.altloc : ' ', residue.name.c_str(),
                chain.name.c_str(), *residue.seqid.num % 10000, residue.seqid.icode, atom.pos.x,
                atom.pos.y, atom.pos.z, static_cast<double>(atom.occ),
                std::min(999.99, static_cast<double>(atom.b_iso)), atom.element.uname());
}

}  // namespace

Coordinates::Coordinates(const std::string& path) {
  DefaultValues defaults;
  try {
    structure_ = std::make_unique<gemmi::Structure>(read_structure(path, defaults, deuterium_));
  } catch (const CommandError&) {
    throw;
  } catch (const std::exception& error) {
    throw CommandError(2, "cannot read coordinates from " + path + ": " + error.what());
  }
  if (structure_->models.empty() || atom_count() == 0) {
    throw CommandError(2, path + " holds no atom");
  }
  crystal_ = crystal_of(*structure_);
  note_defaults(path, defaults);
}

// One line each for what was not taken as it stands in the file.
void Coordinates::note_defaults(const std::string& path, const DefaultValues& defaults) {
  if (structure_->models.size() > 1) {
    warnings_.push_back(
        path + format(" holds %zu models: only the first is used", structure_->models.size()));
  }
  if (defaults.occupancies > 0) {
    warnings_.push_back(path +
                        format(": %zu atoms have no occupancy: 1 is taken", defaults.occupancies));
  }
  if (defaults.b_factors > 0) {
    warnings_.push_back(path + format(": %zu atoms have no B factor: %g A^2 is taken",
                                      defaults.b_factors, defaults.b_factor));
  }
}

Coordinates::~Coordinates() = default;

namespace {

// Whether a range of residues from `first` on is left open at its end, as in A/68-.
bool is_left_open(const std::string& text, int first) {
  std::istringstream fields(text.substr(0, text.find(';')));
  for (std::string field; std::getline(fields, field, '/');) {
    if (field.rfind(std::to_string(first), 0) == 0 && field.back() == '-') return true;
  }
  return false;
}

gemmi::Selection parse_selection(const std::string& text, const std::string& option) {
  try {
    gemmi::Selection selection(text);
    // A/68 means the rest of the chain there, which nobody does who asks for one residue.
    const auto& first = selection.from_seqid;
    if (!first.empty() && selection.to_seqid.empty() && !is_left_open(text, first.seqnum)) {
      selection.to_seqid = first;
    }
    return selection;
  } catch (const std::exception& error) {
    throw CommandError(
        2, option + ": " + std::string(error.what()) + "; as in 'A/40-44', '(LIG)', 'B/101/CA,CB'");
  }
}

[[noreturn]] void report_empty(const std::string& selection, const std::string& path,
                               const std::string& option) {
  throw CommandError(2, "no atom of " + path + " is in " + option + " " + selection);
}

}  // namespace

void Coordinates::select(const std::string& selection, const std::string& path) {
  parse_selection(selection, "--select").remove_not_selected(structure_->models.front());
  if (atom_count() == 0) report_empty(selection, path, "--select");
}

std::vector<std::size_t> Coordinates::entries_of(const std::string& selection,
                                                 const std::string& path,
                                                 const std::string& option) const {
  const gemmi::Selection wanted = parse_selection(selection, option);
  std::unordered_set<const gemmi::Atom*> atoms;
  for (const gemmi::Chain& chain : structure_->models.front().chains) {
    if (!wanted.matches(chain)) continue;
    for (const gemmi::Residue& residue : chain.residues) {
      if (!wanted.matches(residue)) continue;
      for (const gemmi::Atom& atom : residue.atoms) {
        if (wanted.matches(atom)) atoms.insert(&atom);
      }
    }
  }
  std::vector<std::size_t> entries;
  std::size_t at = 0;
  for_each_entry(*structure_, deuterium_, [&](const gemmi::Atom& atom, double, bool) {
    if (atoms.count(&atom) > 0) entries.push_back(at);
    ++at;
  });
  if (entries.empty()) report_empty(selection, path, option);
  return entries;
}

std::size_t Coordinates::atom_count() const {
  return count_atoms(*structure_, [](const gemmi::Atom&) { return true; });
}

std::string Coordinates::unknown_atoms() const {
  const auto unknown = [](const gemmi::Atom& atom) { return atom.element.atomic_number() == 0; };
  const gemmi::Atom* first = nullptr;
  for_each_atom(*structure_, [&](const gemmi::Atom& atom) {
    if (!first && unknown(atom)) first = &atom;
  });
  if (!first) return {};
  return format("%zu atoms of unknown element take no part, the first of them ",
                count_atoms(*structure_, unknown)) +
         name_of(*structure_, *first);
}

std::string Coordinates::name_of_entry(std::size_t entry) const {
  std::size_t at = 0;
  const gemmi::Atom* found = nullptr;
  for_each_entry(*structure_, deuterium_, [&](const gemmi::Atom& atom, double, bool) {
    if (at++ == entry) found = &atom;
  });
  return found ? name_of(*structure_, *found) : std::string();
}

std::vector<std::string> Coordinates::names_of_atoms(const std::vector<std::size_t>& atoms) const {
  std::vector<std::string> all;
  for_each_place(*structure_, [&](const auto& chain, const auto& residue, const auto& atom) {
    all.push_back(name_of(chain, residue, atom));
  });
  std::vector<std::string> names;
  names.reserve(atoms.size());
  for (const std::size_t atom : atoms) names.push_back(all.at(atom));
  return names;
}

Coordinates::Residues Coordinates::residues() const {
  Residues residues;
  std::unordered_map<const gemmi::Atom*, std::int32_t> of_atom;
  for (const gemmi::Chain& chain : structure_->models.front().chains) {
    for (const gemmi::Residue& residue : chain.residues) {
      const auto number = static_cast<std::int32_t>(residues.names.size());
      residues.names.push_back(chain.name + "/" + residue.name + " " + residue.seqid.str());
      for (const gemmi::Atom& atom : residue.atoms) of_atom[&atom] = number;
    }
  }
  for_each_entry(*structure_, deuterium_, [&](const gemmi::Atom& atom, double, bool) {
    residues.of_entry.push_back(of_atom.at(&atom));
  });
  return residues;
}

// gemmi's own writer of this format needs sources that its Debian package leaves out.
std::string Coordinates::pdb_text() const {
  gemmi::Structure copy = *structure_;
  gemmi::shorten_chain_names(copy);
  const gemmi::UnitCell& c = copy.cell;
  std::string text = format("CRYST1%9.3f%9.3f%9.3f%7.2f%7.2f%7.2f %-11.11s   1\n", c.a, c.b, c.c,
                            c.alpha, c.beta, c.gamma, crystal_.space_group.c_str());
  int serial = 0;
  for (const gemmi::Chain& chain : copy.models.front().chains) {
    for (const gemmi::Residue& residue : chain.residues) {
      for (const gemmi::Atom& atom : residue.atoms)
        text += pdb_record(chain, residue, atom, ++serial);
    }
    text += "TER\n";
  }
  return text;
}

std::vector<std::array<double, 3>> Coordinates::positions() const {
  std::vector<std::array<double, 3>> list;
  for_each_atom(*structure_, [&](const gemmi::Atom& atom) {
    list.push_back({atom.pos.x, atom.pos.y, atom.pos.z});
  });
  return list;
}

std::vector<bool> Coordinates::waters() const {
  std::vector<bool> list;
  for_each_place(*structure_, [&](const auto&, const auto& residue, const auto&) {
    list.push_back(residue.is_water());
  });
  return list;
}

bool Coordinates::fill_model() const {
  Arrays a;
  for_each_entry(*structure_, deuterium_,
                 [&](const gemmi::Atom& atom, double share, bool deuterium) {
                   a.add(atom, share, deuterium);
                 });
  const auto size = [](const auto& list) { return static_cast<std::int32_t>(list.size()); };
  return qx_add_xmodel_entry(size(a.x), a.x.data(), a.y.data(), a.z.data(), a.atomic_number.data(),
                             a.charge.data(), a.further.data(), a.bu_index.data(), size(a.b_iso),
                             size(a.u_aniso) / 6, a.b_iso.data(),
                             reinterpret_cast<const double(*)[6]>(a.u_aniso.data()),
                             a.occupancy.data(), a.ion.data(), a.vdw_radius.data()) == ok;
}

}  // namespace qx
