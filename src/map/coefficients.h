// Map coefficients: an amplitude and a phase per reflection.
#pragma once

#include "map/map.h"
#include "scaling/observed.h"

namespace qx {

// Fills amplitude and phase (degrees) of every reflection from the sources that the map names.
Status map_coefficients(const qxmap& map, double* amplitude, double* phase);

// The map and its reflections, when all is there that coefficients of a model rest on.
Status fetch_calculated(const char* here, const qxmap*& map, const qxrefdata*& set);
// Scaled structure factors of the model where a scale has been fitted, else the parts' sum.
Status calculated_factors(const qxrefdata& data, ComplexF& f);
// Coefficients of the map's kind from structure factors of a model.
Status coefficients_from(const char* here, const qxmap& map, const qxrefdata& set,
                         const ComplexF& f, double* amplitude, double* phase);

}  // namespace qx
