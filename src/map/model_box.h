// The box around the model.
#pragma once

#include <quorix/api.h>

namespace qx {

// Fractional bounding box (x low, high, y, z) of the atoms computed with, enlarged by `cushion`
// Angstrom on every side; reported under `heading` when there is no molecular system.
Status model_limits(const char* heading, double cushion, double (&limits)[6]);

}  // namespace qx
