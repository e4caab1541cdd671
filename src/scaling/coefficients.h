// Map coefficients that weigh observation and model by the likelihood.
#pragma once

#include "scaling/observed.h"

namespace qx {

enum class CoefficientKind {
  sigmaa,    // a m Fo - b D F, phases of the model
  combined,  // the same with m and phase of the product of the model's and the data's probability
  expected,  // m Fo
};

struct CoefficientChoice {
  CoefficientKind kind = CoefficientKind::sigmaa;
  double u = 2.0, v = 1.0;
  bool fill_free = false;    // reflections of the free set count as not observed
  bool fill_missing = true;  // what was not observed is D F in a map of full density, else 0
};

// Coefficients on the scale of Fo, one complex number per reflection of the data set; what was not
// observed is D F in a map of full density and 0 in a difference map. `f`: scaled structure factors
// of the model. Reports under `heading` what is missing.
Status weighted_coefficients(const char* heading, const CoefficientChoice& choice,
                             const qxrefdata& data, const ComplexF& f, ComplexF& out);

// The same with likelihood values that are there already.
struct LikelihoodValues;
Status weighted_coefficients(const char* heading, const CoefficientChoice& choice,
                             const qxrefdata& data, const ComplexF& f,
                             const LikelihoodValues& values, ComplexF& out);

// Marks the reflections of the free set of this data set, 1 each.
Status mark_free_set(const qxrefdata& data, Tagged<std::uint8_t>& is_free);

}  // namespace qx
