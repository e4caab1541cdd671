// The command line of quorix omit, and the section that it comes to.
#include "driver/commands/common_options.h"
#include "driver/commands/maps/omitted.h"
#include "driver/commands/omit/job.h"
#include "driver/commands/option_facts.h"

#include <CLI/CLI.hpp>

namespace qx {

namespace {

constexpr const char* closing = R"(
The map shows what the data say where the model is not asked: atoms are left out of the model's structure
factors, while scale, bulk solvent and sigmaA stay those of the whole model.
  --select     leaves the atoms selected out of one map of the whole cell
  --composite  halves the atoms along their longest axis until there are --boxes groups, and takes each
               point from the map without the group that it is nearest to: no atom is in the model at its
               own place
Maps are in e/A^3, of the whole unit cell.

Examples:
  quorix omit 1ubq.pdb 1ubq.mtz --composite -o omit.ccp4
  quorix omit 5orl.pdb 5orl.mtz --select '(A8H)' -o ligand.ccp4 --difference ligand-diff.ccp4
      Both maps without the ligand.
)";

void add_region(CLI::App& command, OmitOptions& o) {
  auto* selection = command.add_option(
      "--select", o.selection,
      "Atoms to leave out, in gemmi's selection syntax: A/40-44, (LIG), B/101/CA,CB");
  selection->type_name("SEL");
  auto* composite = command.add_flag("--composite", o.composite,
                                     "All atoms, group by group: a composite omit map");
  composite->excludes(selection);
  command.add_option("--boxes", o.boxes, "Groups of a composite map; each costs a map")
      ->type_name("N")
      ->check(CLI::Range(1, 10000))
      ->needs(composite)
      ->capture_default_str();
  command
      .add_option("--rim", o.rim, "Within how many A of a group's atoms its map lacks others too")
      ->type_name("A")
      ->needs(composite)
      ->check(CLI::Range(0.0, 20.0))
      ->capture_default_str();
  command
      .add_option(
          "--mask", o.mask,
          "keep: the solvent's mask stays; clear: within 3 A of what is left out there is no "
          "solvent either, which shows weak ligands that it would fill")
      ->check(CLI::IsMember({"keep", "clear"}))
      ->check(proposes("keep clear"))
      ->capture_default_str();
}

}  // namespace

void add_omit_options(CLI::App& command, OmitOptions& o) {
  command.footer(closing);
  add_data_options(command, o.maps);
  FcalcOptions& base = o.maps.base;
  command.add_option("-o,--output", base.map_2fofc, "CCP4 map 2mFo-DFc to write")
      ->type_name("FILE")
      ->required()
      ->check(names_files("ccp4 map ccp4.gz map.gz"));
  command.add_option("--difference", base.map_fofc, "CCP4 map mFo-DFc to write too")
      ->type_name("FILE")
      ->check(names_files("ccp4 map ccp4.gz map.gz"));
  add_region(command, o);
  add_map_options(command, o.maps);
  add_method_options(command, o.maps);
  command.add_flag("--print-sections", o.print_sections,
                   "Print the text of sections that would be run, and write nothing");
  add_force(command, base.force);
}

void check_options(OmitOptions& options) {
  if (options.selection.empty() && !options.composite) {
    throw CommandError(2, "what to leave out is missing: give --select SEL or --composite");
  }
  check_options(options.maps);
}

SectionText omit_map_section(const FcalcJob& job, const OmitOptions& options,
                             const std::string& path, bool difference) {
  SectionText text("xomit");
  if (options.composite) {
    text.line(format("composite boxes %d", options.boxes));
  } else {
    text.line(omitted_atoms_line(job, options.selection, "--select"));
  }
  const char* kind = difference ? "mFo-DFc" : "2mFo-DFc";
  return text.line(format("param rim %g mask ", options.rim) + options.mask)
      .line(format("param type sigmaa u %d v 1 scale no", difference ? 1 : 2))
      .line("extent unit")
      .line("generate")
      .line("write ccp4 file " + quoted_name(path) + " symm yes origin zero density yes kind \"" +
            kind + (options.composite ? " composite omit\"" : " omit\""));
}

}  // namespace qx
