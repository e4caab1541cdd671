// The reflection data set: columns, filtering, derived values.
#pragma once

#include <quorix/api.h>

struct qxrefdata;

extern "C" {

QX_API qx::Status qx_new_qxrefdata();
QX_API qx::Status qx_delete_qxrefdata();
QX_API qxrefdata* qx_get_qxrefdata();
QX_API qx::Status qx_set_qxrefdata(qxrefdata* object);

// Handles `write refl`: format word, file, optional coid list.
QX_API qx::Status qx_write_refdata_ctrl();

}  // extern "C"
