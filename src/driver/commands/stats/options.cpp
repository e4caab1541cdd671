// The command line of quorix stats.
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
  command.add_option("DATA", o.data, "Reflections: MTZ or structure-factor mmCIF, also gzipped")
      ->required()
      ->check(names_files("mtz mtz.gz cif cif.gz ent ent.gz"));
  command
      .add_option("--labels", o.labels,
                  "Columns of the data, intensities or amplitudes (default: the usual names)")
      ->type_name("I,SIGI,FREE")
      ->delimiter(',')
      ->allow_extra_args(false);
  command.add_option("--dmin", o.dmin, "High-resolution limit in A")
      ->type_name("A")
      ->check(CLI::PositiveNumber);
  command.add_option("--dmax", o.dmax, "Low-resolution limit in A")
      ->type_name("A")
      ->check(CLI::PositiveNumber);
  command.add_option("--spacegroup", o.space_group, "Space group (default: the file's)")
      ->type_name("NAME");
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
  command.add_flag("--force", o.force,
                   "Write over a file that holds something else; never over an input");
  command.add_flag("--json", o.json, "Tell what was found as JSON, warnings included");
  command.add_flag("-q,--quiet", o.quiet, "Warnings and errors only");
  command.add_flag("-v,--verbose", o.verbose, "Show everything the engine prints");
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
