// The asymmetric unit.
#pragma once

#include <quorix/api.h>

struct qxasu;

extern "C" {

QX_API qx::Status qx_new_qxasu();
QX_API qx::Status qx_delete_qxasu();
QX_API qxasu* qx_get_qxasu();
QX_API qx::Status qx_set_qxasu(qxasu* object);

}  // extern "C"
