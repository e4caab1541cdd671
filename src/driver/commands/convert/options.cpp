// The command line of quorix convert.
#include "driver/commands/command_error.h"
#include "driver/commands/common_options.h"
#include "driver/commands/convert/job.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"

#include <CLI/CLI.hpp>

namespace qx {

namespace {

constexpr const char* closing = R"(
Formats: mtz, cif (structure factors in mmCIF), cns, hkl (h, k, l, value, error, flag), sca (merged
scalepack) and dtr (d*TREK). That of the input is told by its content, that of the output by its name:
.mtz, .cif .mmcif .ent, .cns .cv .fobs, .hkl, .sca, .ref; --from and --to say otherwise. MTZ files and all
inputs may be gzipped.

Columns, cell, space group, wavelength and history are kept as far as the format can hold them; what it
cannot is told. Free flags are written in the convention of each format: TEST 1 (cns), status f (cif),
-1 (hkl).

--merge makes one row of all observations of a reflection: weighted means, with multiplicity, R merge,
R meas, R pim and CC1/2 by shell. The observations should be scaled.

Examples:
  quorix convert 1ubq.mtz 1ubq.cif
      Structure factors for deposition.
  quorix convert data.sca data.mtz --wavelength 0.979
      A scalepack file for everything else.
  quorix convert scaled_unmerged.mtz merged.mtz --merge --anomalous
      Mean intensities and those of Friedel mates, and how well the observations agree.
)";

void add_crystal(CLI::App& command, ConvertOptions& o) {
  add_cell(command, o.cell, "the file's");
  add_space_group(command, o.space_group, "the file's");
  command.add_option("--wavelength", o.wavelength, "Wavelength in A (default: the file's)")
      ->type_name("A")
      ->check(CLI::PositiveNumber);
}

void add_merging(CLI::App& command, ConvertOptions& o) {
  command.add_flag("--merge", o.merge, "Merge unmerged observations");
  command.add_flag("--anomalous", o.anomalous, "Also intensities of Friedel mates, with --merge");
  command.add_option("--shells", o.shells, "How many shells, with --merge")
      ->type_name("N")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
}

}  // namespace

void add_convert_options(CLI::App& command, ConvertOptions& o) {
  command.footer(closing);
  command.add_option("IN", o.input, "Reflections in any of the formats")
      ->required()
      ->check(names_files("mtz mtz.gz cif cif.gz ent ent.gz cns cv fobs hkl sca ref"));
  command.add_option("OUT", o.output, "File to be written")
      ->required()
      ->check(names_files("mtz mtz.gz cif cns hkl sca ref"));
  constexpr const char* words = "mtz cif cns hkl sca dtr";
  command.add_option("--from", o.from, "Format of IN (default: told by its content)")
      ->type_name("FORMAT")
      ->check(proposes(words));
  command.add_option("--to", o.to, "Format of OUT (default: told by its name)")
      ->type_name("FORMAT")
      ->check(proposes(words));
  add_labels(command, "--labels", o.labels, "LABEL,...", "Columns to be written (default: all)");
  command.add_flag("--amplitudes", o.amplitudes, "An HKL file holds amplitudes, not intensities");
  add_crystal(command, o);
  add_merging(command, o);
  add_force(command, o.force);
  add_telling(command, o.json, o.quiet, o.verbose);
}

void check_options(const ConvertOptions& options) {
  const TableFormat& to =
      options.to.empty() ? format_of_name(options.output) : format_of_word(options.to);
  if (!options.from.empty()) (void)format_of_word(options.from);
  if (!options.merge && options.anomalous) {
    throw CommandError(2, "--anomalous goes with --merge");
  }
  const std::string word = to.word;
  const FileKind kind = word == "MTZ"   ? FileKind::mtz
                        : word == "CIF" ? FileKind::reflections
                                        : FileKind::table;
  check_outputs({options.input}, {{options.output, kind}}, options.force);
}

}  // namespace qx
