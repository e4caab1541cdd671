#include "core/harvest.h"

#include "core/object.h"

#include <quorix/engine.h>

using qx::ok;
using qx::Status;

namespace {

template <class T>
Status keep(T qxharvest::*field, T value) {
  qxharvest* record = qx_get_qxharvest();
  if (!record) return qx_exist_quorix() ? ok : qx::failed;
  record->*field = value;
  return ok;
}

}  // namespace

Status qx_new_qxharvest() {
  return qx::create_in(qx_delete_qxharvest, qx_set_qxharvest, "pnp_harvest");
}
Status qx_delete_qxharvest() { return qx::remove_from(qx_get_qxharvest(), qx_set_qxharvest); }

Status qx_set_hv_high_res(double d) { return keep(&qxharvest::high_resolution, d); }
Status qx_set_hv_low_res(double d) { return keep(&qxharvest::low_resolution, d); }
Status qx_set_hv_data_reject_sigma(double cut) { return keep(&qxharvest::reject_sigma, cut); }
Status qx_set_hv_data_reject_rms(double cut) { return keep(&qxharvest::reject_rms, cut); }
Status qx_set_hv_data_reject_amplitude(double cut) {
  return keep(&qxharvest::reject_amplitude, cut);
}
Status qx_set_hv_rfree_nrefl(std::int32_t count) { return keep(&qxharvest::free_count, count); }
Status qx_set_hv_rfree_percent(double fraction) {
  return keep(&qxharvest::free_fraction, fraction);
}
Status qx_set_hv_r_work(double r) { return keep(&qxharvest::r_work, r); }
Status qx_set_hv_r_free(double r) { return keep(&qxharvest::r_free, r); }
Status qx_set_hv_k_sol(double k) { return keep(&qxharvest::k_sol, k); }
Status qx_set_hv_b_sol(double b) { return keep(&qxharvest::b_sol, b); }
Status qx_set_hv_wilson_b(double b) { return keep(&qxharvest::wilson_b, b); }
Status qx_set_hv_fom(double fom) { return keep(&qxharvest::fom, fom); }
