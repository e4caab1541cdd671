// Weak stand-ins for layers that have not landed yet; this file goes when they do.
#include <quorix/crystal.h>
#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/grid.h>
#include <quorix/map.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>

#define PENDING __attribute__((weak))
using qx::failed;
using qx::ok;
using qx::Status;
PENDING Status qx_delete_qxfft() { return ok; }
PENDING Status qx_delete_qxxcry() { return ok; }
PENDING Status qx_write_refdata_ctrl() { return failed; }
PENDING Status qx_xcry_ctrl() { return failed; }
PENDING Status qx_xfft_ctrl() { return failed; }
PENDING std::int32_t qx_get_reflection_view(qx_reflection_view*) { return 0; }
