// The command line of quorix stats.
#include "driver/commands/common_options.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/stats/job.h"

#include <CLI/CLI.hpp>

namespace qx {

namespace {

constexpr const char* closing = R"(
Counts, completeness and signal by shells of equal volume; k and B of the Wilson plot, moments of the
normalised intensities, the L test and the anisotropy of the fall with resolution. Intensities are
taken where the file has them, else amplitudes and their squares.

Completeness counts the unique indices of the group between the limits: those given, else those of the
measured reflections. The Wilson line begins at 4 A, as below that the solvent bends it; k is that of an
average protein and means little.

Neither moments nor L test prove a twin: intensities that were overestimated where they are weak lower
them as well.

Examples:
  quorix stats 1ubq.mtz
      Tables on standard output.
  quorix stats data.mtz --amplitudes data_f.mtz
      Also F and SIGF from the intensities (French and Wilson), all other columns kept.
)";

void add_choice(CLI::App& command, StatsOptions& o) {
  add_reflections(
      command, "DATA", o.data,
      "Reflections: MTZ, structure-factor mmCIF, CNS, scalepack or d*TREK, also gzipped")
      .required();
  add_labels(command, "--labels", o.labels, "I,SIGI,FREE",
             "Columns of the data, intensities or amplitudes (default: the usual names)");
  add_limits(command, o.dmin, o.dmax);
  add_space_group(command, o.space_group, "the file's");
  command.add_option("--shells", o.shells, "How many shells")
      ->type_name("N")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  command.add_option("--wilson-low", o.low, "Where the Wilson line begins, in A")
      ->type_name("A")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
}

}  // namespace

void add_stats_options(CLI::App& command, StatsOptions& o) {
  command.footer(closing);
  add_choice(command, o);
  command
      .add_option("--amplitudes", o.amplitudes,
                  "Write F and SIGF made of the intensities, with all other columns of the data")
      ->type_name("FILE")
      ->check(names_files("mtz"));
  command.add_option("--plot", o.plot, "Write the Wilson plot as a drawing (SVG)")
      ->type_name("FILE")
      ->check(names_files("svg"));
  command.add_flag("--print-sections", o.print_sections,
                   "Print the sections for quorix run and do no more");
  add_force(command, o.force);
  add_telling(command, o.json, o.quiet, o.verbose);
}

void check_options(const StatsOptions& options) {
  if (options.dmax > 0.0 && options.dmax <= options.dmin) {
    throw CommandError(2, format("no reflection lies between --dmin %g and --dmax %g A",
                                 options.dmin, options.dmax));
  }
  if (options.labels.size() > 3) throw CommandError(2, "--labels takes I,SIGI,FREE");
  check_text("the space group", options.space_group);
  check_outputs({options.data},
                {{options.amplitudes, FileKind::mtz}, {options.plot, FileKind::drawing}},
                options.force);
}

}  // namespace qx
