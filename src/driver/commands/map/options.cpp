// The command line of quorix map.
#include "driver/commands/common_options.h"
#include "driver/commands/map/job.h"
#include "driver/commands/option_facts.h"

#include <CLI/CLI.hpp>

namespace qx {

namespace {

constexpr const char* closing = R"(
What a file is, is told by its content. Cell, group and resolution are the file's. Without labels
the first complete pair is taken among FWT/PHWT, 2FOFCWT/PH2FOFCWT and FDM/PHIDM, and for a
difference map among DELFWT/PHDELWT, FOFCWT/PHFOFCWT, FAN/PHAN and
FOFOWT/PHFOFOWT; a file with none of them, or with
a label twice, ends in a list of the amplitudes that have phases. Of --f and --phi one is enough
where names or order of the columns tell the other. Without a name for the map both are written, in the working directory, as
IN_2mFo-DFc.ccp4 and IN_mFo-DFc.ccp4 (IN_FDM.ccp4 and IN_FAN.ccp4 for those labels, IN_LABEL.ccp4
for labels given). Beside a model they cover its surroundings, unless --extent says otherwise. Six
lines tell what was found: cell, group, resolution, reflections used, grid, and the rms before
scaling.

Terms that a given grid cannot hold are left out and counted. File names stand before --extent,
which takes all words up to the next option.

Diagnostics:
  One line each on standard error, with the consequence: cell, group or limits that disagree with
  the file; a model of another crystal; rhombohedral axes under a bare R name; columns of another
  type; F(0,0,0); missing values; amplitudes all 0; reflections beyond the limits or beyond the grid;
  amplitudes of extinguished reflections; centric phases that the group forbids.

Examples:
  quorix map 1ubq.mtz
      Both maps of the file, with nothing to type but its name.
  quorix map 1ubq.mtz --difference --no-scale
      The difference map, in e/A^3.
  quorix map 1ubq.mtz 1ubq.pdb around.ccp4 --cushion 5
      The density within 5 A of the model's box.
  quorix map 1ubq.mtz 1ubq.pdb --select 40-44
      The density around five residues.
  quorix map *.mtz --prefix maps/
      The maps of many files; "quorix batch" makes them side by side.
  quorix map phased.mtz --f FP --phi PHIB --weight FOM
      From measured amplitudes and experimental phases.
  quorix map 1ubq.mtz --print-sections >job.qx
      The text that "quorix run job.qx" turns into the same maps.
)";

void add_data_options(CLI::App& command, MapOptions& o) {
  add_reflections(
      command, "IN", o.input,
      "Reflections: MTZ, structure-factor mmCIF, CNS, scalepack or d*TREK, also gzipped")
      .required();
  command
      .add_option("FILE", o.files,
                  "More reflections; a model (PDB or mmCIF); behind one file of reflections a name "
                  "for the map, - for standard output, gzipped if it ends in .gz (default: "
                  "IN_2mFo-DFc.ccp4 and "
                  "IN_mFo-DFc.ccp4, as the file has them)")
      ->expected(1, CLI::detail::expected_max_vector_size)
      ->check(names_files("ccp4 map mrc mtz mtz.gz cif cif.gz ent ent.gz pdb pdb.gz"));
  command
      .add_option("--prefix", o.prefix,
                  "Path and name in place of IN in the default names of the maps; a folder, if it "
                  "ends in /")
      ->type_name("PATH");
  add_force(command, o.force);
  command.add_option("--f", o.amplitude, "Amplitude column (default: FWT, 2FOFCWT or FDM)")
      ->type_name("LABEL");
  command.add_option("--phi", o.phase, "Phase column (default: that of the amplitude)")
      ->type_name("LABEL");
  command.add_flag("--difference", o.difference, "Only the difference map (DELFWT, FOFCWT, FAN)");
  command
      .add_option(
          "--weight", o.weight,
          "Figure of merit that multiplies a measured amplitude (--f, --phi; or the only one "
          "with a phase); refused for coefficients that are weighted already")
      ->type_name("LABEL");
  add_limits(command, o.dmin, o.dmax);
  add_space_group(command, o.space_group, "the file's");
  add_cell(command, o.cell, "the file's");
}

void add_grid_options(CLI::App& command, MapOptions& o) {
  auto* fraction =
      command.add_option("--frac", o.fraction, "Grid spacing as a fraction of the resolution")
          ->check(CLI::Range(0.05, 0.45))
          ->capture_default_str();
  auto* spacing =
      command.add_option("--spacing", o.spacing, "Grid spacing in A, instead of --frac")
          ->type_name("A")
          ->check(CLI::PositiveNumber)
          ->excludes(fraction);
  command
      .add_option("--grid", o.counts,
                  "Grid points, instead of a spacing; made larger where they must be")
      ->type_name("NX NY NZ")
      ->expected(3)
      ->check(CLI::Range(1, 100000))
      ->excludes(fraction)
      ->excludes(spacing);
  command
      .add_option(
          "--extent", o.extent,
          "What the map covers: cell, asu (an asymmetric unit), 'box X1 X2 Y1 Y2 Z1 Z2' in "
          "A, 'frac X1 X2 Y1 Y2 Z1 Z2' in fractions of the cell, or 'model [FILE]' (default: "
          "model if one is named, else cell)")
      ->type_name("KIND [VALUES]")
      ->check(proposes("cell asu box frac model"))
      ->expected(1, 7);
  command
      .add_option("--select", o.selection,
                  "Atoms of the model that the map covers, in gemmi's selection syntax: A/40-44, "
                  "(LIG), B/101/CA,CB")
      ->type_name("SEL");
  command.add_option("--cushion", o.cushion, "Margin around a model in A")
      ->type_name("A")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command.add_option("--memory", o.memory, "Memory budget of the transform in MB")
      ->type_name("MB")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
}

void add_output_options(CLI::App& command, MapOptions& o) {
  command.add_flag("--no-scale", o.no_scale,
                   "e/A^3 instead of an rms of 1 (that of the whole cell, also in a part of it)");
  command.add_flag("--symmetry-records,!--no-symmetry-records", o.symmetry,
                   "Write the group's operators behind the header (default), or leave them out");
  command.add_flag("--plain-header", o.plain_header,
                   "Neither symmetry records nor a zero origin: the bytes of quorix-map");
  command.add_flag(
      "--provenance", o.provenance,
      "Tell in labels 3-10 of the map what it was made of, how and when (label 3 of any map "
      "tells what a unit is in e/A^3)");
  command.add_flag("--check", o.check,
                   "Read the map back and compare it with a direct sum at 100 points");
  command.add_flag("--scripts", o.scripts,
                   "Also write scripts that show the maps in Coot, PyMOL and ChimeraX");
  command.add_flag("--show-grid", o.show_grid, "Tell the grid and make no map");
  command.add_flag("--print-sections", o.print_sections,
                   "Print the sections for quorix run and make no map");
  add_telling(command, o.json, o.quiet, o.verbose);
}

}  // namespace

void add_map_options(CLI::App& command, MapOptions& options) {
  command.footer(closing);
  add_data_options(command, options);
  add_grid_options(command, options);
  add_output_options(command, options);
}

}  // namespace qx
