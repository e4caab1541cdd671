// The reflection system: owner of crystal, grid, transforms, map and structure factors. Its members
// come into being when their section is entered; it only knows how to let them go.
#include "core/refsys.h"

#include "core/object.h"

#include <quorix/cross.h>
#include <quorix/crystal.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/fofo.h>
#include <quorix/grid.h>
#include <quorix/map.h>
#include <quorix/omit.h>
#include <quorix/scaling.h>
#include <quorix/structfact.h>
#include <quorix/target.h>

using qx::ok;
using qx::Status;

Status qx_new_refsys() { return qx::create_in(qx_delete_refsys, qx_set_refsys, "pnp_refsys"); }

Status qx_delete_refsys() {
  refsys* system = qx_get_refsys();
  if (!system) return ok;
  if (system->omit) QX_TRY(qx_delete_qxomit());
  if (system->fofo) QX_TRY(qx_delete_qxfofo());
  if (system->target) QX_TRY(qx_delete_qxtargetfunc());
  if (system->ml) QX_TRY(qx_delete_qxml());
  if (system->scale) QX_TRY(qx_delete_qxscale());
  if (system->structfact) QX_TRY(qx_delete_qxstructfact());
  if (system->sincostab) QX_TRY(qx_delete_qxsincostab());
  if (system->density) QX_TRY(qx_delete_qxelecden());
  if (system->cross) QX_TRY(qx_delete_qxcross());
  if (system->map) QX_TRY(qx_delete_qxmap());
  if (system->fft) QX_TRY(qx_delete_qxfft());
  if (system->grid) QX_TRY(qx_delete_xgrid());
  if (system->crystal) QX_TRY(qx_delete_qxxcry());
  return qx::remove_from(system, qx_set_refsys);
}
