// The command line of quorix map.
#include "driver/commands/map_job.h"

#include <CLI/CLI.hpp>

namespace qx {

namespace {

void add_data_options(CLI::App& command, MapOptions& o) {
  command.add_option("IN", o.input, "Reflections: MTZ or structure-factor mmCIF, also gzipped")
      ->required();
  command.add_option("OUT", o.output,
                     "CCP4 map; - for standard output (default: IN_2mFo-DFc.ccp4 and "
                     "IN_mFo-DFc.ccp4, as the file has them)");
  command.add_option("--f", o.amplitude, "Amplitude column (default: FWT, 2FOFCWT or FDM)");
  command.add_option("--phi", o.phase, "Phase column (default: that of the amplitude)");
  command.add_flag("--difference", o.difference, "Only the difference map (DELFWT, FOFCWT, FAN)");
  command.add_option("--weight", o.weight, "Refused, with the reason");
  command.add_option("--dmin", o.dmin, "High-resolution limit in A")->check(CLI::PositiveNumber);
  command.add_option("--dmax", o.dmax, "Low-resolution limit in A")->check(CLI::PositiveNumber);
  command.add_option("--spacegroup", o.space_group, "Space group (default: the file's)");
  command.add_option("--cell", o.cell, "Unit cell a b c alpha beta gamma (default: the file's)")
      ->expected(6);
}

void add_grid_options(CLI::App& command, MapOptions& o) {
  auto* fraction =
      command.add_option("--frac", o.fraction, "Grid spacing as a fraction of the resolution")
          ->check(CLI::Range(0.05, 0.45))
          ->capture_default_str();
  auto* spacing = command.add_option("--spacing", o.spacing, "Grid spacing in A")
                      ->check(CLI::PositiveNumber)
                      ->excludes(fraction);
  command.add_option("--grid", o.counts, "Grid points NX NY NZ, made larger where they must be")
      ->expected(3)
      ->check(CLI::Range(1, 100000))
      ->excludes(fraction)
      ->excludes(spacing);
  command
      .add_option("--extent", o.extent,
                  "cell, asu, 'box X1 X2 Y1 Y2 Z1 Z2' in A, 'frac X1 X2 Y1 Y2 Z1 Z2', or "
                  "'model FILE' (default: cell)")
      ->expected(1, 7);
  command.add_option("--cushion", o.cushion, "Margin around a model in A")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command.add_option("--memory", o.memory, "Memory budget of the transform in MB")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
}

void add_output_options(CLI::App& command, MapOptions& o) {
  command.add_flag("--no-scale", o.no_scale, "e/A^3 instead of an rms of 1");
  command.add_flag("--no-symmetry-records", o.no_symmetry, "Leave them out of the file");
  command.add_flag("--plain-header", o.plain_header,
                   "Neither symmetry records nor a zero origin: the bytes of quorix-map");
  command.add_flag("--provenance", o.provenance,
                   "Tell in labels 3-10 of the map what it was made of, how and when");
  command.add_flag("--check", o.check,
                   "Read the map back and compare it with a direct sum at 100 points");
  command.add_flag("--scripts", o.scripts,
                   "Also write scripts that show the maps in Coot, PyMOL and ChimeraX");
  command.add_flag("--show-grid", o.show_grid, "Tell the grid and make no map");
  command.add_flag("--print-sections", o.print_sections,
                   "Print the sections for quorix run and make no map");
  command.add_flag("--json", o.json, "Tell what was found as JSON, warnings included");
  command.add_flag("-q,--quiet", o.quiet, "Warnings and errors only");
  command.add_flag("-v,--verbose", o.verbose, "Show everything the engine prints");
}

}  // namespace

void add_map_options(CLI::App& command, MapOptions& options) {
  add_data_options(command, options);
  add_grid_options(command, options);
  add_output_options(command, options);
}

}  // namespace qx
