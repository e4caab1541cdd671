// The one guard of routines that work on objects: an object is fetched and tested in one step, so
// that no second getter is called before the first one's object is known to be there.
//   const qxcell* cell = nullptr;
//   QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
// and several, in their order, each with what is reported when it is missing:
//   QX_TRY(qx::require(here, qx::need(qx_get_qxcell, cell, no_cell),
//                      qx::need(qx_get_qxspg, group, no_group)));
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

// One of several objects.
template <class Got, class Object>
struct Need {
  Got* (*getter)();
  Object*& object;
  const char* missing;
};
template <class Got, class Object>
Need<Got, Object> need(Got* (*getter)(), Object*& object, const char* missing) {
  return {getter, object, missing};
}

template <class... Got, class... Object>
Status require(const char* here, const Need<Got, Object>&... needs) {
  const bool all = ((require(here, needs.getter, needs.object, needs.missing) == ok) && ...);
  return all ? ok : failed;
}
template <class... Got, class... Object>
Status require_of_engine(const char* here, const Need<Got, Object>&... needs) {
  const bool all =
      ((require_of_engine(here, needs.getter, needs.object, needs.missing) == ok) && ...);
  return all ? ok : failed;
}

}  // namespace qx
