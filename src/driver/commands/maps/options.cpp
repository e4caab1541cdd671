// The command lines of quorix maps and quorix validate.
#include "driver/commands/common_options.h"
#include "driver/commands/maps/job.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/viewer_scripts.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

namespace qx {

namespace {

constexpr const char* maps_closing = R"(
The model's structure factors are put on the scale of the observations with flat bulk solvent and an
anisotropic B, fitted to the working set; sigmaA comes from the free set. OUT.mtz holds, beside what was
read:
  FC_ALL PHIC_ALL   the scaled model with its solvent
  FWT PHWT          2mFo-DFc, where nothing was observed DFc
  DELFWT PHDELWT    mFo-DFc, of acentric reflections twice that
  FOM               m
  FWT_nofill PHWT_nofill   the first without what was not observed (--fill no: FWT itself is so)
  FAN PHAN          anomalous differences times m, with the model's phase less 90 degrees, where the
                    data hold F(+) and F(-), or DANO
A data file with intensities only is turned into amplitudes first.

Examples:
  quorix maps 1ubq.pdb 1ubq.mtz -o maps.mtz --maps 1ubq
      Coefficients, and both maps as CCP4 files.
)";

constexpr const char* validate_closing = R"(
R factors, correlations, scale, bulk solvent and figures of merit of a model against measured
amplitudes, overall and by resolution. The density of every residue is told by the correlation of a
2mFo-DFc map with a map of DFc, both of the observed reflections, at the grid points about its atoms:
the worst as a table, all of them with --json.

Examples:
  quorix validate 1ubq.pdb 1ubq.mtz
)";

}  // namespace

void add_data_options(CLI::App& command, MapsOptions& o) {
  FcalcOptions& base = o.base;
  add_model(command, "MODEL", base.model, "Coordinates: PDB or mmCIF, also gzipped").required();
  add_reflections(
      command, "DATA", base.hkl,
      "Reflections: MTZ, structure-factor mmCIF, CNS, scalepack or d*TREK, also gzipped")
      .required();
  add_labels(command, "--labels", base.labels, "F,SIGF,FREE",
             "Columns of the data (default: the usual names)");
  add_free_value(command, base.free_value);
  add_limits(command, base.dmin, base.dmax);
  add_space_group(command, base.space_group, "the model's");
  add_cell(command, base.cell, "the model's");
}

void add_method_options(CLI::App& command, MapsOptions& o) {
  add_solvent_option(command, o.base);
  add_word(command, "--mode", o.mode, "continuous binned",
           "sigmaA as a continuous curve or in bins");
  add_word(command, "--hydrogens", o.hydrogens, "yes no", "Whether the model's hydrogens scatter");
  command.add_flag("--neutron", o.base.neutron, "Neutron scattering lengths");
  add_telling(command, o.base.json, o.base.quiet, o.base.verbose);
}

void add_map_options(CLI::App& command, MapsOptions& o) {
  add_word(command, "--free", o.free_reflections, "use fill",
           "use: reflections of the free set enter the maps; fill: they count as not observed");
  add_word(command, "--fill", o.fill, "yes no",
           "yes: what was not observed within the data's limits is DFc in 2mFo-DFc, indices that "
           "the file lacks are added; no: neither");
}

void add_maps_options(CLI::App& command, MapsOptions& o) {
  command.footer(maps_closing);
  add_data_options(command, o);
  command.add_option("-o,--output", o.base.output, "MTZ file to write")
      ->type_name("FILE")
      ->required()
      ->check(names_files("mtz"));
  command
      .add_option("--maps", o.prefix,
                  "Write both maps as CCP4 files too: PREFIX_2mFo-DFc.ccp4, PREFIX_mFo-DFc.ccp4")
      ->type_name("PREFIX");
  command.add_flag("--scripts", o.scripts,
                   "With --maps: scripts for Coot, PyMOL and ChimeraX beside them");
  command.add_flag("--all", o.all, "Write KTOT, WT, FSOLV and PHISOLV too");
  add_map_options(command, o);
  command
      .add_option("--omit", o.omit,
                  "Atoms that structure factors and maps are to lack, in gemmi's selection syntax; "
                  "scale, solvent, R factors and sigmaA are those of the whole model")
      ->type_name("SEL");
  command
      .add_option(
          "--kick", o.kick,
          "CCP4 maps are the mean of N, each from atoms displaced by 0.3 A; weakens bias less "
          "than an omit map")
      ->type_name("N")
      ->check(CLI::Range(1, 1000));
  add_method_options(command, o);
  command.add_flag("--print-sections", o.print_sections,
                   "Print the text of sections that would be run, and write nothing");
  add_force(command, o.base.force);
}

void add_validate_options(CLI::App& command, MapsOptions& o) {
  command.footer(validate_closing);
  add_data_options(command, o);
  add_method_options(command, o);
  command
      .add_option("--worst", o.worst,
                  "How many residues to print, those whose density agrees least with the model's")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
}

void check_options(MapsOptions& options) {
  FcalcOptions& base = options.base;
  base.fill = options.fill == "yes" && base.command != "validate";
  base.hydrogens = options.hydrogens == "yes" ? 1 : -1;
  if (options.scripts && options.prefix.empty()) {
    throw CommandError(2, "--scripts belong to maps: give --maps PREFIX as well");
  }
  if (options.kick > 0 && options.prefix.empty()) {
    throw CommandError(2, "--kick is for CCP4 maps: give --maps PREFIX as well");
  }
  if (!options.prefix.empty()) {
    base.map_2fofc = options.prefix + "_2mFo-DFc.ccp4";
    base.map_fofc = options.prefix + "_mFo-DFc.ccp4";
  }
  check_options(static_cast<const FcalcOptions&>(base));
  if (!options.scripts) return;
  const std::filesystem::path prefix = options.prefix;
  check_outputs({base.model, base.hkl},
                script_outputs(prefix.filename().string(), prefix.parent_path().string()),
                base.force);
}

}  // namespace qx
