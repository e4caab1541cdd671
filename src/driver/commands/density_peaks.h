// Peaks of a density as people look at them: one of each orbit, by the model, the nearest atom
// told.
#pragma once

#include "driver/commands/surroundings.h"

#include <quorix/density_box.h>

#include <vector>

namespace qx {

struct DensityPeakSite : DensitySite {
  double value = 0.0;   // in the map's unit
  double in_rms = 0.0;  // of the map that the caller means
};

// Peaks of at least `level` (holes of at most it, if it is below 0; in the map's unit), the highest
// (deepest) first; by the model, if there is one. `rms` is what heights are told in besides.
std::vector<DensityPeakSite> find_density_peaks(const qx_density_box& box,
                                                const DensityCrystal& crystal, double level,
                                                double rms, const Coordinates* model);

}  // namespace qx
