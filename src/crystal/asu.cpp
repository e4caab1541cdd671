// The asymmetric unit of the space group: the object, its limits in the cell, its box.
#include "crystal/asu.h"

#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/crystal.h"

#include <algorithm>
#include <utility>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* no_asu = "qxasu object has not been created yet ";

Status set_check(const char* heading, std::int16_t on) {
  qxasu* asu = qx_get_qxasu();
  if (!asu) return fail(heading, "%s", no_asu);
  asu->check = on;
  return ok;
}

}  // namespace

Status qx::drop_mask(qxasu& asu) {
  if (char*** mask = std::exchange(asu.mask, nullptr)) QX_TRY(xfree_3d_char(mask));
  if (auto*** counts = std::exchange(asu.counts, nullptr)) QX_TRY(xfree_3d_short(counts));
  asu.nops = 0;
  QX_TRY(qx::release(asu.rotations));
  return qx::release(asu.translations);
}

Status qx_new_qxasu() { return qx::create_in(qx_delete_qxasu, qx_set_qxasu, "pnrp_asu"); }

Status qx_delete_qxasu() {
  qxasu* asu = qx_get_qxasu();
  if (!asu) return ok;
  QX_TRY(qx::drop_mask(*asu));
  return qx::remove_from(asu, qx_set_qxasu);
}

qxasu* qx_get_qxasu() { return qx::slot(qx_get_qxxcry(), &qxxcry::asu); }

Status qx_set_qxasu(qxasu* object) { return qx::install(qx_get_qxxcry(), &qxxcry::asu, object); }

Status qx_set_asu_check_flag_on() { return set_check("qx_set_asu_check_flag_on():", 1); }

Status qx_set_asu_check_flag_off() { return set_check("qx_set_asu_check_flag_off():", 0); }

// Kept: the unit starts at the origin; a database limit such as 1/4<=x gives 0 all the same.
Status qx_set_qxasu_limit(float /*xlo*/, float xhi, float /*ylo*/, float yhi, float /*zlo*/,
                          float zhi) {
  qxasu* asu = qx_get_qxasu();
  if (!asu) return fail("qx_set_qxasu_limit():", "%s", no_asu);
  const float high[3] = {xhi, yhi, zhi};
  std::fill_n(asu->low, 3, 0.0);
  std::copy_n(high, 3, asu->high);
  return ok;
}

Status qx_calc_box_with_asu(double* xlo, double* xhi, double* ylo, double* yhi, double* zlo,
                            double* zhi, double cushion) {
  constexpr const char* here = "qx_calc_box_with_asu():";
  const qxasu* asu = qx_get_qxasu();
  if (!asu) return fail(here, "%s", no_asu);
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const double dx = cushion / (cell->a * cell->delta);
  const double dy = cushion / (cell->b * cell->omega);
  const double dz = cushion / (cell->c * cell->theta);
  *xlo = -dx;
  *xhi = asu->high[0] + dx;
  *ylo = -dy;
  *yhi = asu->high[1] + dy;
  *zlo = -dz;
  *zhi = asu->high[2] + dz;
  return ok;
}
