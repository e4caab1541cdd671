// Creation and deletion of a record that one slot owns.
#pragma once

#include "core/tagged.h"

namespace qx {

// Deletes what the slot holds, then installs a record with its defaults.
template <class T>
Status create_in(Status (*remove)(), Status (*set)(T*), const char* tag) {
  QX_TRY(remove());
  T* object = new_object<T>(tag);
  if (!object) return failed;
  return set(object);
}

// Empties the slot, then releases the record (its fields are the caller's business, first).
template <class T>
Status remove_from(T* object, Status (*set)(T*)) {
  if (!object) return ok;
  QX_TRY(set(nullptr));
  return xfree(object);
}

}  // namespace qx
