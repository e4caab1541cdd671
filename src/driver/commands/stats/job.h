// quorix stats: what a set of observations is worth.
#pragma once

#include "driver/commands/fcalc/job.h"
#include "driver/commands/reflection_file.h"

#include <quorix/wilson.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct StatsOptions {
  std::string data, space_group, amplitudes, plot;
  std::vector<std::string> labels;
  double dmin = 0.0, dmax = 0.0;  // Angstrom; 0: no limit
  double low = 4.0;               // where the Wilson line begins, Angstrom
  int shells = 20;
  bool print_sections = false, force = false, json = false, quiet = false, verbose = false;
};

void add_stats_options(CLI::App& command, StatsOptions& options);
// Throws CommandError for values that no section is to see.
void check_options(const StatsOptions& options);

struct StatsJob {
  const StatsOptions& options;
  const ReflectionFile& file;
  ObservedColumns columns;
};

// Reflections between two limits; means are over those that were measured.
struct StatsShell {
  double low = 0.0, high = 0.0;  // Angstrom
  std::size_t possible = 0, measured = 0, with_error = 0;
  double sum = 0.0, over_error = 0.0;

  [[nodiscard]] double completeness() const;
  [[nodiscard]] double mean() const;
  [[nodiscard]] double mean_over_error() const;
};

struct StatsCounts {
  std::size_t rows = 0;           // of the file, between the limits
  std::size_t missing = 0;        // without a value
  std::size_t without_error = 0;  // with one, but no error above 0
  std::size_t not_positive = 0;   // measured, zero or below
  std::size_t repeated = 0;       // rows of a reflection that stands there already
  std::size_t extinct = 0;        // measured although the group extinguishes them
  std::size_t centric = 0, acentric = 0;
  StatsShell all;
  std::vector<StatsShell> shells;
};

// By the unique reflections of the file's group; without a group or a cell that is one, no
// reflection is possible.
StatsCounts count_observations(const StatsJob& job, const gemmi::SpaceGroup* group);

// Where the Wilson line begins (Angstrom); 0 for too few reflections for any.
double line_begins(const StatsOptions& options, const StatsCounts& counts);

SectionText crystal_section(const StatsJob& job, const std::string& input);
SectionText wilson_section(const StatsJob& job, const StatsCounts& counts);
// The last section: the engine is gone after it.
SectionText amplitudes_section(const StatsJob& job, const std::string& output);

// The Wilson plot as SVG: its bins and the line through them.
std::string wilson_plot_svg(const std::string& title, const qx_wilson_view& view,
                            const std::vector<qx_wilson_bin>& bins);

}  // namespace qx
