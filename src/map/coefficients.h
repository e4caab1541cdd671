// Map coefficients: an amplitude and a phase per reflection.
#pragma once

#include "map/map.h"

namespace qx {

// Fills amplitude and phase (degrees) of every reflection from the sources that the map names.
Status map_coefficients(const qxmap& map, double* amplitude, double* phase);

}  // namespace qx
