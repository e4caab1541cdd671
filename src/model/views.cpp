// What of the atoms others may look at.
#include "core/root.h"
#include "model/molsys.h"

#include <quorix/views.h>

std::int32_t qx_get_atoms_view(qx_atoms_view* view) {
  const xmolsys* container = quorix ? quorix->molsys : nullptr;
  const molsys* system = container ? container->system : nullptr;
  if (!system || system->natom < 1) return 0;
  *view = {system->natom,
           system->x,
           system->y,
           system->z,
           system->info.atomic_number,
           container->atomocc ? container->atomocc->occupancy : nullptr,
           container->atomb ? container->atomb->b0 : 0.0};
  return 1;
}
