#include "model/atom_name.h"

#include <cstdio>

namespace {

// The caller's, not the root's: it outlives an engine that has died of what it is to name.
QX_PER_THREAD qx_atom_namer namer = nullptr;
QX_PER_THREAD void* namer_context = nullptr;

}  // namespace

void qx_set_atom_namer(qx_atom_namer name, void* context) {
  namer = name;
  namer_context = context;
}

qx::AtomName qx::name_of_atom(std::int32_t full, std::int32_t number) {
  AtomName name;
  const char* text = namer ? namer(full, namer_context) : nullptr;
  if (text) {
    std::snprintf(name.text, sizeof name.text, "%s", text);
  } else {
    std::snprintf(name.text, sizeof name.text, "%d", number);
  }
  return name;
}
