// Transforms.
#pragma once

#include <quorix/api.h>

struct qxfft;

extern "C" {

QX_API qx::Status qx_new_qxfft();
QX_API qx::Status qx_delete_qxfft();
QX_API qxfft* qx_get_qxfft();
QX_API qx::Status qx_set_qxfft(qxfft* object);

}  // extern "C"
