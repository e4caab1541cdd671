// Map generation and map files.
#pragma once

#include <quorix/api.h>

struct qxmap;

extern "C" {

QX_API qx::Status qx_new_qxmap();
QX_API qx::Status qx_delete_qxmap();
QX_API qxmap* qx_get_qxmap();
QX_API qx::Status qx_set_qxmap(qxmap* object);

}  // extern "C"
