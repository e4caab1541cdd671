// Filling the data set from the file that was read: choice of the format's builder, and the checker
// that completes what the builder left.
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/tagged.h"
#include "crystal/crystal.h"
#include "crystal/reflection_formats.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

Status set_weights(qxrefdata& refdata) {
  if (refdata.weight) return ok;
  const auto n = static_cast<std::size_t>(refdata.nreflections);
  QX_TRY(qx::open_block(refdata.weight, n, "prpc_rw"));
  std::fill_n(refdata.weight, n, 1.0F);
  return ok;
}

// The engine works with the limits of what was measured where the user asked for more.
Status narrow_limits(const qxrefdata& refdata, qxresol& resol) {
  resol.high = std::max(resol.high, 1.0 / refdata.s_max);
  resol.low = std::min(resol.low, 1.0 / refdata.s_min);
  QX_TRY(qx_set_hv_high_res(resol.high));
  QX_TRY(qx_set_hv_low_res(resol.low));
  qx::say("High resolution : %8.3f\n", resol.high);
  qx::say("Low resolution  : %8.3f\n", resol.low);
  return ok;
}

}  // namespace

Status qx::forget_file(qxrefdata& refdata) {
  refdata.format = no_format;
  for (const FileFormat& row : file_formats()) {
    if (row.forget) QX_TRY(row.forget(&refdata));
  }
  for (char*& label : refdata.selected) QX_TRY(release(label));
  if (refdata.crystal_from_file) QX_TRY(release(refdata.crystal_name));
  if (refdata.project_from_file) QX_TRY(release(refdata.project_name));
  if (refdata.dataset_from_file) QX_TRY(release(refdata.dataset_name));
  return ok;
}

Status qx_build_qxrefdata(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply) {
  constexpr const char* heading = "qx_build_qxrefdata():";
  if (!refdata) return fail(heading, "reflection data object has not been created yet ");
  if (!reject) return fail(heading, "qxrefreject has not been created yet");
  for (const qx::FileFormat& row : qx::file_formats()) {
    if (row.code == refdata->format) return row.build(refdata, reject, apply);
  }
  return ok;  // no file was read
}

namespace {

// What is derived from the indices, and the limits that they leave.
Status complete(qxrefdata& refdata, qxresol& resol) {
  if (refdata.nreflections < 1) return ok;
  QX_TRY(set_weights(refdata));
  QX_TRY(qx_set_centric());
  QX_TRY(qx_set_epsilon());
  QX_TRY(qx_set_hklmax());
  QX_TRY(qx_set_refdata_s());
  return narrow_limits(refdata, resol);
}

}  // namespace

Status qx_run_qxrefdata_checker() {
  // Kept: the heading names another routine.
  constexpr const char* heading = " qx_assign_qxrefdata_ptrs():";
  qxrefdata* refdata = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxrefdata, refdata,
                     "reflection data object has not been created yet "));
  qxresol* resol = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxresol, resol, "qxresol has not been created yet."));
  const qxrefreject* reject = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxrefreject, reject, "qxrefreject has not been created yet"));
  QX_TRY(qx_build_qxrefdata(refdata, reject, 1));
  return complete(*refdata, *resol);
}

Status qx_set_refdata_indices(std::int32_t n, const std::int32_t* hkl) {
  constexpr const char* heading = "qx_set_refdata_indices():";
  qxrefdata* refdata = nullptr;
  QX_TRY(
      qx::require(heading, qx_get_qxrefdata, refdata, "refdata object has not been created yet "));
  qxresol* resol = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxresol, resol, "qxresol has not been created yet."));
  if (n < 1) return fail(heading, " There is no reflection survived. ");
  QX_TRY(qx::forget_file(*refdata));
  QX_TRY(qx::clear_reflections(*refdata));
  for (std::int32_t** column : {&refdata->h, &refdata->k, &refdata->l}) {
    QX_TRY(qx::open_block(*column, static_cast<std::size_t>(n), "psri_hkl"));
  }
  for (std::int32_t i = 0; i < n; ++i) {
    refdata->h[i] = hkl[3 * i];
    refdata->k[i] = hkl[3 * i + 1];
    refdata->l[i] = hkl[3 * i + 2];
  }
  refdata->nreflections = n;
  return complete(*refdata, *resol);
}

Status qx_set_refdata_test(std::int32_t n, const std::int16_t* flags) {
  constexpr const char* heading = "qx_set_refdata_test():";
  qxrefdata* refdata = qx_get_qxrefdata();
  if (!qx_exist_quorix()) return failed;
  if (!refdata || refdata->nreflections != n || n < 1) {
    return fail(heading, "refdata object has not been created yet ");
  }
  if (!refdata->test) {
    QX_TRY(qx::open_block(refdata->test, static_cast<std::size_t>(n), "psrt_test"));
  }
  std::copy_n(flags, n, refdata->test);
  return ok;
}
