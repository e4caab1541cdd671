// The one guard of routines that work on objects: an object is fetched and tested in one step, so
// that no second getter is called before the first one's object is known to be there.
//   const qxcell* cell = nullptr;
//   QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
#pragma once

#include "core/report.h"

#include <quorix/engine.h>

namespace qx {

// `missing` is reported under `here` also when the getter has ended the engine with a report of its
// own.
template <class Got, class Object>
Status require(const char* here, Got* (*getter)(), Object*& object, const char* missing) {
  object = getter();
  return object ? ok : fail(here, "%s", missing);
}

// The same for routines that add nothing to the getter's report.
template <class Got, class Object>
Status require_of_engine(const char* here, Got* (*getter)(), Object*& object, const char* missing) {
  object = getter();
  if (object) return ok;
  return qx_exist_quorix() ? fail(here, "%s", missing) : failed;
}

}  // namespace qx
