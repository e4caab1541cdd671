// One map of a file that the engine holds, and what was found on the way.
#pragma once

#include "driver/commands/map/check.h"
#include "driver/commands/map/job.h"

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qx {

// What was found, told to the user.
struct MapReport {
  std::string group, output;
  double high = 0.0, low = 0.0;
  std::int32_t used = 0, dropped = 0;
  std::size_t atoms = 0;  // that the map lies around
  std::int32_t counts[3] = {};
  // Before scaling, e/A^3: of what the scale is taken from, and of the whole cell.
  double mean = 0.0, rms = 0.0, cell_rms = 0.0;
  double rms_in_file = 0.0;
  std::optional<MapCheck> check;
  std::vector<std::string> warnings;

  [[nodiscard]] double deviation() const;  // rms about the mean
};

// One line on standard error; JSON holds the warnings itself.
void warn(const MapJob& job, MapReport& report, const std::string& line);

// Crystal and grid, in an engine as good as fresh; narrows the job's limit to what an explicit grid
// holds.
void settle_crystal(Engine& engine, MapJob& job, MapReport& report);
// The map itself, into the job's output.
void generate(Engine& engine, const MapJob& job, MapReport& report);

void tell(std::ostream& out, const MapJob& job, const MapReport& report);
nlohmann::ordered_json as_json(const MapJob& job, const MapReport& report);

}  // namespace qx
