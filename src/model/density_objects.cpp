// Objects of the density side: exponential table, cut-off radii, the density box.
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/slot.h"
#include "model/density.h"
#include "model/molsys.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cmath>

using qx::create_in;
using qx::fail;
using qx::install;
using qx::ok;
using qx::release;
using qx::remove_from;
using qx::slot;
using qx::Status;

qxexptab* qx_get_qxexptab() { return slot(qx_get_xmolsys(), &xmolsys::exptab); }
Status qx_set_qxexptab(qxexptab* object) {
  return install(qx_get_xmolsys(), &xmolsys::exptab, object);
}
qxradcut* qx_get_qxradcut() { return slot(qx_get_xmolsys(), &xmolsys::radcut); }
Status qx_set_qxradcut(qxradcut* object) {
  return install(qx_get_xmolsys(), &xmolsys::radcut, object);
}
qxelecden* qx_get_qxelecden() { return slot(qx_get_refsys(), &refsys::density); }
Status qx_set_qxelecden(qxelecden* object) {
  return install(qx_get_refsys(), &refsys::density, object);
}

Status qx_new_qxexptab() {
  QX_TRY(create_in(qx_delete_qxexptab, qx_set_qxexptab, "pnx_exptab"));
  return qx_init_qxexptab(300000, 0.0001);
}
Status qx_new_qxradcut() { return create_in(qx_delete_qxradcut, qx_set_qxradcut, "pnx_radcut"); }
Status qx_new_qxelecden() {
  return create_in(qx_delete_qxelecden, qx_set_qxelecden, "pnx_elecden");
}

Status qx_delete_qxexptab() {
  qxexptab* table = qx_get_qxexptab();
  if (!table) return ok;
  QX_TRY(release(table->values));
  return remove_from(table, qx_set_qxexptab);
}

Status qx_delete_qxradcut() {
  qxradcut* cut = qx_get_qxradcut();
  if (!cut) return ok;
  QX_TRY(release(cut->radius));
  return remove_from(cut, qx_set_qxradcut);
}

namespace {

Status release_box(qxelecden* box) {
  double*** density = box->density;
  box->density = nullptr;
  return xfree_3d_double(density);
}

}  // namespace

Status qx_delete_qxelecden() {
  qxelecden* box = qx_get_qxelecden();
  if (!box) return ok;
  QX_TRY(release_box(box));
  return remove_from(box, qx_set_qxelecden);
}

namespace {

// exp(-k h) as the product of one value per block and one per place in it: 300 000 exponentials
// would cost more than a small model's density.
void fill_exponentials(std::int32_t n, double h, double* values) {
  constexpr std::int32_t block = 1024;
  double within[block];
  for (std::int32_t j = 0; j < block; ++j) within[j] = std::exp(-j * h);
  for (std::int64_t start = 0; start < n; start += block) {
    const double first = std::exp(-static_cast<double>(start) * h);
    const std::int64_t count = std::min<std::int64_t>(block, n - start);
    for (std::int64_t j = 0; j < count; ++j) values[start + j] = first * within[j];
  }
}

}  // namespace

Status qx_init_qxexptab(std::int32_t n, double h) {
  constexpr const char* heading = "qx_init_qxexptab():";
  qxexptab* table = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxexptab, table,
                               " qxexptab object has not been created yet "));
  if (n < 1) return fail(heading, "invalid input argument n = %d \n", n);
  if (!(h > 0.0)) return fail(heading, "invalid input argument h = %f \n", h);
  table->n = 0;
  QX_TRY(release(table->values));
  QX_TRY(qx::open_block(table->values, static_cast<std::size_t>(n), "pie_exp"));
  fill_exponentials(n, h, table->values);
  table->n = n;
  table->h = h;
  return ok;
}

namespace {

Status set_cut(const char* heading, double qxradcut::*field, double value) {
  qxradcut* cut = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxradcut, cut,
                               "qxradcut object has not been created yet."));
  cut->*field = value;
  return ok;
}

}  // namespace

Status qx_set_elec_den_rad_cutoff(double ecut) {
  constexpr const char* heading = "qx_set_elec_den_rad_cutoff():";
  // Nothing of an atom is above its peak.
  if (!(ecut < 1.0)) return fail(heading, "invalid cut-off of the density: %f ", ecut);
  return set_cut(heading, &qxradcut::ecut, ecut);
}
Status qx_set_elec_den_rad_uplimit(double limit) {
  constexpr const char* heading = "qx_set_elec_den_rad_uplimit():";
  if (!(limit > 0.0) || !std::isfinite(limit)) {
    return fail(heading, "invalid limit of the cut-off radius: %f ", limit);
  }
  return set_cut(heading, &qxradcut::limit, limit);
}
