// quorix map: the options, and the sections that they come to.
#pragma once

#include "driver/commands/engine_run.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/section_text.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct MapOptions {
  std::string input;               // the first on the line, then one at a time
  std::vector<std::string> files;  // what follows it there
  std::string output, model;       // what that holds
  std::string prefix, amplitude, phase, weight, space_group, selection;
  std::vector<double> cell;
  std::vector<int> counts;           // of the grid
  std::vector<std::string> extent;   // empty: the model if there is one, else the cell
  std::optional<double> dmin, dmax;  // Angstrom
  double fraction = 0.33;            // spacing as a fraction of the resolution
  double spacing = 0.0;              // Angstrom; 0: by the fraction
  double cushion = 4.0;              // Angstrom, around a model
  double memory = 400.0;             // MB
  bool difference = false, no_scale = false, symmetry = true, plain_header = false;
  bool provenance = false, check = false, scripts = false, force = false;
  bool show_grid = false, print_sections = false, json = false, quiet = false, verbose = false;
};

void add_map_options(CLI::App& command, MapOptions& options);

struct MapJob {
  const MapOptions& options;
  const ReflectionFile& file;
  MapLabels labels;
  std::string input, output;   // as the sections name them
  std::optional<double> dmin;  // as asked for, or what the grid holds
};

// Group and cell of the map: as given, else the file's.
std::string map_group(const MapJob& job);
const gemmi::SpaceGroup* known_group(const MapJob& job);  // null: not known by name
const double* map_cell(const MapJob& job);

// Reflections of the engine's crystal.
std::int32_t reflections_used();
// Crystal and grid in an engine as good as fresh. Terms beyond an explicit grid would be folded
// into others: the job's limit is narrowed, everything begins again, and `dropped` reflections take
// no part.
void start_map(Engine& engine, MapJob& job, std::int32_t& dropped);
// Of what came of that, a line each.
std::vector<std::string> grid_warnings(const MapJob& job, std::int32_t dropped);

SectionText crystal_section(const MapJob& job);
SectionText grid_section(const MapOptions& options);
SectionText fft_section(const MapOptions& options);
SectionText map_section(const MapJob& job);  // writes nothing without an output
SectionText end_section();

// What label 2 says of the map; readers of a part cannot tell its scale from its values.
std::string kind_text(const MapJob& job);

// Warnings, one line each with its consequence: what was given by hand against what the file says,
// and what the coefficients hold.
std::vector<std::string> map_warnings(const MapJob& job);

}  // namespace qx
