// What of the structure factors others may look at.
#include "core/refsys.h"
#include "core/root.h"
#include "sf/structfact.h"

#include <quorix/views.h>

std::int32_t qx_get_structure_factor_count() {
  const refsys* system = quorix ? quorix->reflections : nullptr;
  return system && system->structfact ? system->structfact->nref : 0;
}
