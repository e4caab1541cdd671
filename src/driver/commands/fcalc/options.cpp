// The command line of quorix fcalc.
#include "driver/commands/common_options.h"
#include "driver/commands/fcalc/job.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace qx {

namespace {

void check_free(const std::vector<std::string>& free) {
  if (free.empty()) return;
  if (free.size() > 2) throw CommandError(2, "--free takes PERCENT[,SEED]");
  std::size_t used = 0;
  try {
    const double percent = std::stod(free[0], &used);
    bool fine = used == free[0].size() && percent > 0.0 && percent < 100.0;
    if (fine && free.size() > 1) fine = std::stoi(free[1], &used) > 0 && used == free[1].size();
    if (fine) return;
  } catch (const std::exception&) {
    // not a number, or one that is too large
  }
  throw CommandError(2, "--free takes a percentage between 0 and 100 and a seed above 0");
}

constexpr const char* closing = R"(
Structure factors are calculated by FFT of the atoms' density and written as FC and PHIC, phases in
degrees: at the reflections of the given file in their order, with F, SIGF and the free flag passed on,
or at the unique set to --dmin. They are the atoms' alone, in electrons.

With observations the model is put on their scale with flat bulk solvent and an anisotropic B, fitted
to the working set; FC_ALL and PHIC_ALL are written too. Scale, R factor and correlation are printed,
overall and in resolution bins, of the working and the free set, and maps are made with them: of the
whole cell, scaled by their rms. With --solvent none the atoms alone are scaled, by k and one B.

The free reflections are those of the rarer of two flags, or of the lowest of many that are about as
frequent (0 in most files, 1 in those of some programs); a line says which. --free-value decides.

With --neutron hydrogens take part and deuterium scatters with its own length, also where both share
a site (two atoms, or a row with ccp4_deuterium_fraction).

Examples:
  quorix fcalc 1ubq.pdb --hkl 1ubq.mtz -o fc.mtz --map-2fofc 2fofc.ccp4
      Structure factors at the observed reflections, agreement, and a map.
  quorix fcalc 1ubq.pdb --dmin 2 -o fc.mtz
      The unique set to 2 A.
)";

}  // namespace

void add_solvent_option(CLI::App& command, FcalcOptions& o) {
  command
      .add_option("--solvent", o.solvent,
                  "Form of the bulk solvent's scale: bins, exp, smooth or none (default: bins from "
                  "2000 working reflections on, else exp)")
      ->check(CLI::IsMember({"bins", "exp", "smooth", "none"}))
      ->check(proposes("bins exp smooth none"));
}

namespace {

void add_input_options(CLI::App& command, FcalcOptions& o) {
  add_model(command, "MODEL", o.model, "Coordinates: PDB or mmCIF, also gzipped").required();
  add_reflections(
      command, "--hkl", o.hkl,
      "MTZ, mmCIF, CNS, scalepack or d*TREK, also gzipped, whose reflections are calculated, "
      "in its order")
      .type_name("FILE");
  add_labels(command, "--labels", o.labels, "F,SIGF,FREE",
             "Its columns (default: the usual names)");
  add_limits(command, o.dmin, o.dmax, "High-resolution limit in A; without --hkl: the unique set");
  add_space_group(command, o.space_group, "the model's");
  add_cell(command, o.cell, "the model's");
}

void add_method_options(CLI::App& command, FcalcOptions& o) {
  command
      .add_option("--b0", o.b0,
                  "Blurring of the density on the grid, A^2; taken off again (default: 6 d^2, at "
                  "least 2)")
      ->check(CLI::NonNegativeNumber);
  command.add_option("--ecut", o.ecut, "Density, relative to an atom's peak, that is cut off")
      ->check(CLI::Range(1e-9, 0.5))
      ->capture_default_str();
  command.add_option("--frac", o.fraction, "Grid spacing as a fraction of the resolution")
      ->check(CLI::Range(0.05, 0.5))
      ->capture_default_str();
  command
      .add_option(
          "--memory", o.memory,
          "Memory budget in MB; a grid that does not fit in with atoms and reflections is worked "
          "on in up to four parts, or as many as fit by themselves")
      ->type_name("MB")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  command.add_flag("--hydrogens,!--no-hydrogens", o.hydrogens,
                   "Take hydrogen atoms into account or leave them out (default: with neutrons)");
  command.add_flag("--neutron", o.neutron, "Neutron scattering lengths, deuterium's included");
  command
      .add_option(
          "--gaussians", o.gaussians,
          "Gaussians of C, N, O and S: 5, or 2, which is a little faster and wrong beyond 1.5 "
          "A; all other atoms have 5")
      ->check(proposes("2 5"))
      ->capture_default_str();
  add_solvent_option(command, o);
}

void add_output_options(CLI::App& command, FcalcOptions& o) {
  command.add_option("-o,--output", o.output, "MTZ file to write")
      ->type_name("FILE")
      ->required()
      ->check(names_files("mtz"));
  command
      .add_option("--free", o.free,
                  "Draw a free set and write it: 0 for its members, 1 for the rest")
      ->type_name("PERCENT[,SEED]")
      ->delimiter(',')
      ->allow_extra_args(false);
  add_free_value(command, o.free_value).excludes("--free");
  command.add_option("--map-2fofc", o.map_2fofc, "Write a 2Fo-Fc map (CCP4)")
      ->type_name("FILE")
      ->check(names_files("ccp4 map mrc"));
  command.add_option("--map-fofc", o.map_fofc, "Write an Fo-Fc map (CCP4)")
      ->type_name("FILE")
      ->check(names_files("ccp4 map mrc"));
  command.add_flag("--scale", o.scale, "Put FC on the scale of the observations");
  add_force(command, o.force);
  add_telling(command, o.json, o.quiet, o.verbose);
}

}  // namespace

void add_fcalc_options(CLI::App& command, FcalcOptions& options) {
  command.footer(closing);
  add_input_options(command, options);
  add_method_options(command, options);
  add_output_options(command, options);
}

void check_options(const FcalcOptions& options) {
  if (options.hkl.empty() && !(options.dmin > 0.0)) {
    throw CommandError(2, "give the reflections: --hkl FILE or --dmin D");
  }
  if (options.dmax > 0.0 && options.dmax <= options.dmin) {
    throw CommandError(2, format("no reflection lies between --dmin %g and --dmax %g A",
                                 options.dmin, options.dmax));
  }
  if (options.gaussians != 2 && options.gaussians != 5) {
    throw CommandError(2, "--gaussians takes 2 or 5");
  }
  if (!options.cell.empty() && options.cell.size() != 6) {
    throw CommandError(2, "--cell takes six numbers: a b c alpha beta gamma");
  }
  if (options.labels.size() > 3) throw CommandError(2, "--labels takes F,SIGF,FREE");
  check_text("the space group", options.space_group);
  check_free(options.free);
  if (!options.hkl.empty() && access(options.hkl.c_str(), R_OK) != 0) {
    throw CommandError(2,
                       "cannot read reflections from " + options.hkl + ": " + std::strerror(errno));
  }
  check_outputs({options.model, options.hkl},
                {{options.output, FileKind::mtz},
                 {options.map_2fofc, FileKind::map},
                 {options.map_fofc, FileKind::map}},
                options.force);
}

}  // namespace qx
