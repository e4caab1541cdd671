// Kicked maps: the mean of maps whose atoms were moved at random.
#pragma once

#include "map/map.h"

namespace qx {

// Mean of the map's number of sets of coefficients (amplitude and phase in degrees per reflection),
// each from atoms displaced by normal vectors of the map's rms length (Angstrom), with a likelihood
// of its own where the map is weighted. Model, structure factors and likelihood are afterwards as
// they were. The same seed gives the same map.
Status kicked_coefficients(const qxmap& map, double* amplitude, double* phase);

}  // namespace qx
