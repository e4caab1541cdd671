// The expected intensity of atoms at rest.
#pragma once

#include "core/tagged.h"

struct qxrefdata;

namespace qx {

// sum f^2 over the atoms of the conventional cell times the number of lattice points in it, at
// every reflection: the expectation of F^2 / epsilon, epsilon counting point operators alone. The
// atoms are the model's where there is one (`from_model`), else those of an average protein that
// fills half the cell.
Status expected_intensities(const char* heading, const qxrefdata& data, Tagged<double>& sum_f2,
                            bool& from_model);

}  // namespace qx
