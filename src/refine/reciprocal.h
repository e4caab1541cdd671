// The target in reciprocal space: its value and its derivatives by the amplitudes.
#pragma once

#include "refine/target.h"
#include "scaling/observed.h"

namespace qx {

// Value over the working set. With `derivatives`, dT/dF of every reflection of the data set (0 for
// those that take no part), along the phase of `f`, the scaled structure factors of the model.
Status reciprocal_target(const char* heading, TargetType type, const qxrefdata& data,
                         const ComplexF& f, double& value, double* derivatives);

}  // namespace qx
