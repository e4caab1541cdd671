// Space groups: selection, operators, zones.
#pragma once

#include <quorix/api.h>

struct qxspg;

extern "C" {

QX_API qx::Status qx_new_qxspg();
QX_API qx::Status qx_delete_qxspg();
QX_API qxspg* qx_get_qxspg();
QX_API qx::Status qx_set_qxspg(qxspg* object);

}  // extern "C"
