// The command line of quorix fofo.
#include "driver/commands/common_options.h"
#include "driver/commands/fofo/job.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace qx {

namespace {

constexpr const char* closing = R"(
What is in the crystal of ON.mtz and not in that of OFF.mtz (a ligand, a state that light made) is above
zero in the map, what was lost is below: the difference is on minus off. Amplitudes of ON are put on the
scale of OFF, reflections are matched by their indices whatever asymmetric unit each file is in, and only
what both have counts. The phases are the model's (of the crystal of OFF, scaled with its solvent) or a
column of OFF.mtz.

OUT.mtz holds the amplitudes of OFF and
  DF SIGDF          the difference of the amplitudes and its error
  W                 its weight: 1/(1 + s^2/<s^2> + alpha D^2/<D^2>), or 1
  FOFOWT PHFOFOWT   the coefficients of the map: W |DF|, the phase turned where DF is below 0
A file with intensities only is turned into amplitudes first.

Examples:
  quorix fofo ligand.mtz apo.mtz --model apo.pdb -o fofo.mtz --map fofo.ccp4
      Coefficients and the map, in the amplitudes' units per A^3.
  quorix fofo light.mtz dark.mtz --phases PHIC -o fofo.mtz
      With the phases of a column of dark.mtz.
)";

void add_input(CLI::App& command, FofoOptions& o) {
  FcalcOptions& base = o.base;
  add_reflections(command, "ON", o.on,
                  "Reflections of the changed crystal: MTZ or mmCIF, also gzipped")
      .required();
  add_reflections(command, "OFF", base.hkl, "Reflections of the crystal it is compared with")
      .required();
  CLI::Option* model =
      add_model(command, "--model", base.model, "Coordinates whose phases are taken: PDB or mmCIF")
          .type_name("FILE");
  command.add_option("--phases", o.phases, "Column of OFF whose phases are taken")
      ->type_name("LABEL")
      ->excludes(model);
  add_labels(command, "--labels", base.labels, "F,SIGF,FREE",
             "Columns of both files, or of OFF alone beside --on-labels (default: the usual "
             "names)");
  add_labels(command, "--on-labels", o.on_labels, "F,SIGF", "Columns of ON");
  add_limits(command, base.dmin, base.dmax);
  add_space_group(command, base.space_group, "the model's, else that of OFF");
  add_cell(command, base.cell, "the model's, else that of OFF");
}

void add_method(CLI::App& command, FofoOptions& o) {
  add_word(command, "--scale", o.scale, "aniso iso none",
           "How ON is put on the scale of OFF: aniso, iso (both with a curve of 20 bins) or none");
  add_word(command, "--weight", o.weight, "q none", "Weights of the differences: q or none");
  command.add_option("--alpha", o.alpha, "How far large differences lose weight")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command
      .add_option("--reject", o.reject,
                  "Leave out differences of more than X rms (default: none is; a ligand's are "
                  "among the largest)")
      ->type_name("X")
      ->check(CLI::PositiveNumber);
  add_solvent_option(command, o.base);
  add_word(command, "--hydrogens", o.hydrogens, "yes no", "Whether the model's hydrogens scatter");
}

}  // namespace

void add_fofo_options(CLI::App& command, FofoOptions& o) {
  command.footer(closing);
  add_input(command, o);
  command.add_option("-o,--output", o.base.output, "MTZ file to write")
      ->type_name("FILE")
      ->check(names_files("mtz"));
  command.add_option("--map", o.base.map_fofc, "Write the map of the cell (CCP4)")
      ->type_name("FILE")
      ->check(names_files("ccp4 map mrc"));
  add_method(command, o);
  command.add_flag("--print-sections", o.print_sections,
                   "Print the text of sections that would be run, and write nothing");
  add_force(command, o.base.force);
  add_telling(command, o.base.json, o.base.quiet, o.base.verbose);
}

void check_options(FofoOptions& options) {
  FcalcOptions& base = options.base;
  base.hydrogens = options.hydrogens == "yes" ? 1 : -1;
  if (base.output.empty() && base.map_fofc.empty()) {
    throw CommandError(2, "nothing would be written: give -o FILE, --map FILE or both");
  }
  if (base.model.empty() && options.phases.empty()) {
    throw CommandError(2, "a map needs phases: give --model FILE or --phases LABEL");
  }
  if (options.on_labels.size() > 3) throw CommandError(2, "--on-labels takes F,SIGF");
  if (access(options.on.c_str(), R_OK) != 0) {
    throw CommandError(2,
                       "cannot read reflections from " + options.on + ": " + std::strerror(errno));
  }
  check_options(static_cast<const FcalcOptions&>(base));
  check_outputs({options.on}, {{base.output, FileKind::mtz}, {base.map_fofc, FileKind::map}},
                base.force);
}

}  // namespace qx
