// Atoms in reports.
#pragma once

#include <quorix/model.h>

namespace qx {

struct AtomName {
  char text[64];
};

// As the calling program names the atom of the full system, else `number`.
AtomName name_of_atom(std::int32_t full, std::int32_t number);

}  // namespace qx
