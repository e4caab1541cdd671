// What quorix fcalc found, as lines and as JSON.
#pragma once

#include "driver/commands/fcalc/job.h"
#include "stats/scale_fit.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qx {

struct FcalcBin {
  std::int32_t count = 0;        // with and without an observation
  double high = 0.0, low = 0.0;  // Angstrom
  Agreement work, free;
};

struct FcalcScaling {
  OverallScale scale;
  bool split = false;    // into a working and a free set
  Agreement work, free;  // work: of all without a split
  std::vector<FcalcBin> bins;
};

struct FcalcReport {
  std::string group;
  double high = 0.0, low = 0.0;  // Angstrom
  std::int32_t reflections = 0, atoms = 0, boxes = 1;
  std::int32_t counts[3] = {};
  double b0 = 0.0;                                         // Angstrom^2
  double box_megabytes = 0.0;                              // of a box of the grid
  double engine_megabytes = 0.0, program_megabytes = 0.0;  // at their peaks
  std::optional<FcalcScaling> scaling;
  std::string lines;  // what the engine prints of the above, for the user as it is
};

// Takes the numbers from the engine, while it is there.
void note_results(FcalcReport& report);

nlohmann::ordered_json as_json(const FcalcJob& job, const FcalcReport& report);

}  // namespace qx
