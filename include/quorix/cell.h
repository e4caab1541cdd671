// The unit cell, its reciprocal and the matrix helpers.
#pragma once

#include <quorix/api.h>

struct qxcell;
struct qxrecicell;

extern "C" {

QX_API qx::Status qx_new_qxcell();
QX_API qx::Status qx_delete_qxcell();
QX_API qxcell* qx_get_qxcell();
QX_API qx::Status qx_set_qxcell(qxcell* object);

QX_API qx::Status qx_new_qxrecicell();
QX_API qx::Status qx_delete_qxrecicell();
QX_API qxrecicell* qx_get_qxrecicell();
QX_API qx::Status qx_set_qxrecicell(qxrecicell* object);

}  // extern "C"
