// A written map against the plain Fourier sum.
#pragma once

#include "driver/commands/command_error.h"
#include "driver/commands/engine_run.h"

#include <string>

namespace qx {

struct MapCheck {
  int points = 0;
  double largest = 0.0;  // deviation from the sum, in rms of the map
  [[nodiscard]] bool passed() const { return largest < 1e-4; }
};

// Reads the map at `path` back and sums the coefficients of the engine's reflections at some of its
// points, one term per index of the sphere, without a transform. The engine still has the crystal
// and the map's settings. Throws CommandError after a report.
MapCheck check_map(Engine& engine, const std::string& path);

}  // namespace qx
