// The command line of quorix free.
#include "driver/commands/command_error.h"
#include "driver/commands/common_options.h"
#include "driver/commands/free/job.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"

#include <CLI/CLI.hpp>

namespace qx {

namespace {

constexpr const char* closing = R"(
Of each run of neighbours in resolution one is free, so that thin shells have equal shares. Reflections
that the symmetry of the lattice relates have one flag, also where the crystal has less: twins and
crystals of a related group share the free set. The flags follow from cell, lattice and seed alone, not
from what was measured, and are the same on any machine.

A second crystal keeps the set of the first: --like names the older file, and --extend draws flags of
the same kind for what that lacks, such as a higher resolution. --extend alone fills up the file's own
flags. --values groups numbers the groups from 0, of which 0 is free; --values binary gives 1 to the free
reflections and 0 to the others. What an older file has stays in its own terms.

All other columns, data sets, batches and the history are kept.

Examples:
  quorix free 1ubq.mtz -o flagged.mtz --replace
      New flags, 0 to 19, in the place of the old ones; 0 marks the free reflections.
  quorix free second.mtz -o second_free.mtz --like first.mtz --extend
      The free set of the first crystal for the second one, extended to its resolution.
)";

void add_source(CLI::App& command, FreeOptions& o) {
  CLI::Option& like = add_reflections(command, "--like", o.like,
                                      "Keep the flags of this file, of a crystal of the same form");
  command
      .add_option("--like-label", o.like_label,
                  "Column of the flags that are kept (default: the usual names)")
      ->type_name("LABEL");
  add_free_value(command, o.free_value);
  command.add_flag("--extend", o.extend,
                   "Draw flags for reflections that the kept set lacks (without --like: the file's "
                   "own set)");
  command.add_option("--percent", o.percent, "Share of the free set, above 0 and at most 50")
      ->type_name("P")
      ->excludes(&like)
      ->capture_default_str();
  add_word(command, "--values", o.values, "groups binary",
           "groups: 0 to 19 of which 0 is free; binary: 1 is free, 0 works");
}

}  // namespace

void add_free_options(CLI::App& command, FreeOptions& o) {
  command.footer(closing);
  add_reflections(command, "FILE", o.input,
                  "Merged reflections: MTZ or structure-factor mmCIF, also gzipped")
      .required();
  command.add_option("-o,--output", o.output, "MTZ file to be written, gzipped if it ends in .gz")
      ->type_name("FILE")
      ->required()
      ->check(names_files("mtz mtz.gz"));
  add_source(command, o);
  command.add_option("--seed", o.seed, "Another seed draws another set")
      ->type_name("N")
      ->capture_default_str();
  command
      .add_option("--obliquity", o.obliquity,
                  "How far, in degrees, the lattice may be from the symmetry that it is given")
      ->type_name("DEG")
      ->check(CLI::Range(0.0, 10.0))
      ->capture_default_str();
  command.add_flag("--complete", o.complete,
                   "Also rows for indices that the file lacks, with nothing but flags");
  command
      .add_option("--label", o.label, "Label of the flags (default: FreeR_flag, or the kept set's)")
      ->type_name("LABEL");
  command.add_flag("--replace", o.replace, "Put the flags in the place of those of the file");
  add_force(command, o.force);
  add_telling(command, o.json, o.quiet, o.verbose);
}

void check_options(const FreeOptions& options) {
  if (!(options.percent > 0.0 && options.percent <= 50.0)) {
    throw CommandError(
        2, format("--percent %g: a free set is above 0 and at most 50 %%", options.percent));
  }
  if (options.label.size() > 30 || options.label.find_first_of("/ '") != std::string::npos) {
    throw CommandError(2, "--label takes up to 30 characters, no blanks, quotes or slashes");
  }
  check_outputs({options.input, options.like}, {{options.output, FileKind::mtz}}, options.force);
}

}  // namespace qx
