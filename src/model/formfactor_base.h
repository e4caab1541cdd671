// What the file reader and the objects share.
#pragma once

#include "model/formfactors.h"

namespace qx {

// Empties the base: counts 0, arrays released.
Status release_base_arrays(atfrmfactbase* base);

}  // namespace qx
