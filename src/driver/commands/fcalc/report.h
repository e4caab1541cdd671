// What quorix fcalc found, as lines and as JSON.
#pragma once

#include "driver/commands/fcalc/job.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace qx {

struct FcalcReport {
  std::string group;
  double high = 0.0, low = 0.0;  // Angstrom
  std::int32_t reflections = 0, atoms = 0, boxes = 1;
  std::int32_t counts[3] = {};
  double b0 = 0.0;                                         // Angstrom^2
  double box_megabytes = 0.0;                              // of a box of the grid
  double engine_megabytes = 0.0, program_megabytes = 0.0;  // at their peaks
  nlohmann::ordered_json scaling;                          // null without observations
  std::string lines;  // what the engine prints of the above, for the user as it is
};

// Takes the numbers from the engine, while it is there.
void note_results(FcalcReport& report);

nlohmann::ordered_json as_json(const FcalcJob& job, const FcalcReport& report);

}  // namespace qx
