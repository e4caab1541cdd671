#include "core/refsys.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"

#include <quorix/engine.h>
#include <quorix/reflection_view.h>

std::int32_t qx_get_reflection_view(qx_reflection_view* view) {
  *view = {};
  const refsys* system = qx_get_refsys();
  if (!system || !system->crystal || !system->crystal->refdata) return 0;
  const qxrefdata* data = system->crystal->refdata;
  const bool complete = data->s_length != nullptr;
  *view = {complete ? data->nreflections : 0, data->s_length, data->test, data->format};
  return 1;
}
