// quorix convert: what was asked for, formats by content and name, merging.
#pragma once

#include "driver/commands/convert/formats.h"
#include "driver/commands/engine_run.h"

#include <gemmi/mtz.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

class TemporaryFile;
struct ShellLimits;

struct ConvertOptions {
  std::string input, output, from, to, space_group;
  std::vector<std::string> labels;
  std::vector<double> cell;
  std::optional<double> wavelength;
  int shells = 10;
  bool merge = false, anomalous = false, amplitudes = false;
  bool force = false, json = false, quiet = false, verbose = false;
};

void add_convert_options(CLI::App& command, ConvertOptions& options);
// Throws CommandError.
void check_options(const ConvertOptions& options);

struct MergingShell {
  double low = 0, high = 0;  // Angstrom
  std::size_t observations = 0, unique = 0, possible = 0;
  double mean_over_sigma = 0;
  std::optional<double> r_merge, r_meas, r_pim, cc_half;

  [[nodiscard]] double multiplicity() const {
    return unique > 0 ? static_cast<double>(observations) / static_cast<double>(unique) : 0.0;
  }
};
struct Merging {
  std::vector<MergingShell> shells;
  MergingShell overall;
  std::size_t left_out = 0;  // observations without a value or an error
};

// How many unique reflections each of the shells holds; empty if they are too many to be gone
// through.
std::vector<std::size_t> possible_by_shell(const gemmi::UnitCell& cell,
                                           const gemmi::SpaceGroup* group,
                                           const ShellLimits& limits);

// Merged intensities of an unmerged file in its place; throws CommandError.
Merging merge(gemmi::Mtz& mtz, const ConvertOptions& options);

}  // namespace qx
