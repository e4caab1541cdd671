// Grids, sub-boxes and reflection-to-grid tables.
#pragma once

#include <quorix/api.h>

struct qxgrid;
struct qxsubgrid;
struct qxboundary;
struct xgrid;

extern "C" {

QX_API qx::Status qx_new_qxgrid();
QX_API qx::Status qx_delete_qxgrid();
QX_API qxgrid* qx_get_qxgrid();
QX_API qx::Status qx_set_qxgrid(qxgrid* object);

QX_API qx::Status qx_new_qxsubgrid();
QX_API qx::Status qx_delete_qxsubgrid();
QX_API qxsubgrid* qx_get_qxsubgrid();
QX_API qx::Status qx_set_qxsubgrid(qxsubgrid* object);

QX_API qx::Status qx_new_qxboundary();
QX_API qx::Status qx_delete_qxboundary();
QX_API qxboundary* qx_get_qxboundary();
QX_API qx::Status qx_set_qxboundary(qxboundary* object);

QX_API qx::Status qx_new_xgrid();
QX_API qx::Status qx_delete_xgrid();
QX_API xgrid* qx_get_xgrid();
QX_API qx::Status qx_set_xgrid(xgrid* object);

}  // extern "C"
