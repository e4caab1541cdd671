// Owners without behaviour yet: each exists so that the root has its full set of members.
#include "core/object.h"

#include <quorix/engine.h>

struct qxwater {
  std::int32_t idle = 0;
};
struct qxminimizer {
  std::int32_t idle = 0;
};
struct qxminparm {
  std::int32_t idle = 0;
};

using qx::create_in;
using qx::remove_from;
using qx::Status;

Status qx_new_qxwater() { return create_in(qx_delete_qxwater, qx_set_qxwater, "pnp_water"); }
Status qx_new_qxminimizer() {
  return create_in(qx_delete_qxminimizer, qx_set_qxminimizer, "pnp_minimizer");
}
Status qx_new_qxminparm() {
  return create_in(qx_delete_qxminparm, qx_set_qxminparm, "pnp_minparm");
}
Status qx_delete_qxwater() { return remove_from(qx_get_qxwater(), qx_set_qxwater); }
Status qx_delete_qxminimizer() { return remove_from(qx_get_qxminimizer(), qx_set_qxminimizer); }
Status qx_delete_qxminparm() { return remove_from(qx_get_qxminparm(), qx_set_qxminparm); }
