// The molecular side of the root: keeps what sections tell it until the model is built.
#include "core/object.h"

#include <quorix/engine.h>
#include <quorix/model.h>

struct xmolsys {
  double b0 = 20.0;  // Angstrom^2
};

using qx::Status;

Status qx_new_xmolsys() { return qx::create_in(qx_delete_xmolsys, qx_set_xmolsys, "pnp_xmolsys"); }
Status qx_delete_xmolsys() { return qx::remove_from(qx_get_xmolsys(), qx_set_xmolsys); }

Status qx_set_qxatomb_B0(double b0) {
  xmolsys* system = qx_get_xmolsys();
  if (!system) return qx::failed;
  system->b0 = b0;
  return qx::ok;
}
