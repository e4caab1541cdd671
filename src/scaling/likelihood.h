// What the likelihood says about every reflection.
#pragma once

#include "scaling/observed.h"

namespace qx {

// One element per reflection of the data set, on the scale of Fo.
struct LikelihoodValues {
  Tagged<double> fom;       // m; 0 where Fo was not observed
  Tagged<double> d;         // D
  Tagged<double> variance;  // v: epsilon S, and the error of Fo where that counts
};

// For the scaled structure factors `f` of a model that need not be the one of the fit. Reports
// under `heading` when the likelihood has not been estimated for this data set.
Status likelihood_values(const char* heading, const qxrefdata& data, const ComplexF& f,
                         LikelihoodValues& out);

}  // namespace qx
