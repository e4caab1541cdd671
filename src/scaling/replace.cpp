// Structure factors of the model into the data set's columns.
#include "core/report.h"
#include "core/require.h"
#include "crystal/reflections.h"
#include "scaling/observed.h"
#include "scaling/scale.h"
#include "sf/structfact.h"

#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/structfact.h>

#include <algorithm>

using qx::ComplexF;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

Status open_columns(std::int32_t n, float*& amplitude, float*& phase) {
  for (float** column : {&amplitude, &phase}) {
    if (!*column) QX_TRY(qx::open_block(*column, static_cast<std::size_t>(n), "prf_fc"));
  }
  return ok;
}

Status put_into(const ComplexF& f, std::int32_t n, float*& amplitude, float*& phase) {
  QX_TRY(open_columns(n, amplitude, phase));
  qx::put_polar(f, n, amplitude, phase);
  return ok;
}

Status fetch(const char* heading, qxrefdata*& data) {
  return qx::require_of_engine(heading, qx_get_qxrefdata, data,
                               "qxrefdata object has not been created yet.");
}

}  // namespace

Status qx_replace_refdata_atoms() {
  qxrefdata* data = nullptr;
  QX_TRY(fetch("qx_replace_refdata_atoms():", data));
  const std::int32_t n = data->nreflections;
  if (n < 1) return ok;
  constexpr std::int32_t most = 4096;  // a few at a time: large sets need the memory elsewhere
  ComplexF f;
  QX_TRY(qx::open_f(std::min(n, most), f));
  QX_TRY(open_columns(n, data->fc, data->phic));
  for (std::int32_t first = 0; first < n; first += most) {
    const std::int32_t count = std::min(n - first, most);
    QX_TRY(qx::model_factors("qx_replace_refdata_atoms():", first, count, f.re.get(), f.im.get()));
    qx::put_polar(f, count, data->fc + first, data->phic + first);
  }
  return ok;
}

Status qx_replace_refdata_fc() {
  qxrefdata* data = nullptr;
  QX_TRY(fetch("qx_replace_refdata_fc():", data));
  const std::int32_t n = data->nreflections;
  const qxscale* scale = qx_get_qxscale();
  if (!qx_exist_quorix()) return failed;
  if (n < 1 || !scale || !scale->fitted || scale->nref != n) return qx_replace_refdata_atoms();
  ComplexF atoms;
  QX_TRY(qx::open_f(n, atoms));
  QX_TRY(qx_calc_model_structure_factor(atoms.re.get(), atoms.im.get()));
  ComplexF total;
  QX_TRY(qx::open_f(n, total));
  QX_TRY(qx_calc_total_structure_factor(total.re.get(), total.im.get()));
  QX_TRY(put_into(total, n, data->fc, data->phic));
  qx::Tagged<double> k_tot(static_cast<std::size_t>(n), "prf_k");
  if (!k_tot) return failed;
  QX_TRY(qx_calc_total_scale(k_tot.get()));
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    total.re[i] -= k_tot[i] * atoms.re[i];
    total.im[i] -= k_tot[i] * atoms.im[i];
  }
  return put_into(total, n, data->fpart, data->phip);
}

Status qx_replace_refdata_both(std::int32_t on_scale) {
  qxrefdata* data = nullptr;
  QX_TRY(fetch("qx_replace_refdata_both():", data));
  const std::int32_t n = data->nreflections;
  if (n < 1) return ok;
  ComplexF f;
  QX_TRY(qx::open_f(n, f));
  QX_TRY(qx_calc_total_structure_factor(f.re.get(), f.im.get()));
  QX_TRY(put_into(f, n, data->map_coeff_amplitude, data->map_coeff_phase));
  QX_TRY(qx_calc_model_structure_factor(f.re.get(), f.im.get()));
  if (on_scale != 0) {
    qx::Tagged<double> k_tot(static_cast<std::size_t>(n), "prb_k");
    if (!k_tot) return failed;
    QX_TRY(qx_calc_total_scale(k_tot.get()));
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
      f.re[i] *= k_tot[i];
      f.im[i] *= k_tot[i];
    }
  }
  return put_into(f, n, data->fc, data->phic);
}
