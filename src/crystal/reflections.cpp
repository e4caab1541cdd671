#include "crystal/reflections.h"

#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/root.h"
#include "core/slot.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/cell_geometry.h"
#include "crystal/columns.h"
#include "crystal/crystal.h"
#include "crystal/reflection_filter.h"
#include "crystal/reflection_zones.h"
#include "crystal/spacegroup.h"

#include <quorix/reflection_view.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace qx {

Status replace_text(char*& field, const char* text, const char* tag) {
  char* copy = duplicate_text(text, tag);
  if (!copy) return failed;
  QX_TRY(release(field));
  field = copy;
  return ok;
}

Status clear_reflections(qxrefdata& refdata) {
  QX_TRY(release_columns(refdata));
  QX_TRY(release(refdata.weight));
  QX_TRY(release(refdata.rejected));
  QX_TRY(release(refdata.centric));
  QX_TRY(release(refdata.epsilon));
  QX_TRY(release(refdata.s));
  QX_TRY(release(refdata.s_length));
  refdata.nreflections = 0;
  refdata.ninput = 0;
  refdata.nadded = 0;
  refdata.left_out = {};
  return ok;
}

namespace {

// The data set, reported as missing in the words of the caller.
qxrefdata* required(const char* heading, const char* text) {
  qxrefdata* refdata = qx_get_qxrefdata();
  if (!refdata) (void)fail(heading, "%s", text);
  return refdata;
}

Status set_name(const char* heading, char* qxrefdata::*field, bool qxrefdata::*from_file,
                const char* name) {
  qxrefdata* refdata = required(heading, "refdata object has not been created yet ");
  if (!refdata) return failed;
  refdata->*from_file = false;
  return replace_text(refdata->*field, name, "psrn_name");
}

template <class T>
Status set_reader(T* qxrefdata::*field, T* reader) {
  qxrefdata* refdata =
      required("qx_set_refdata_reader():", "refdata object has not been created yet ");
  return refdata ? install(refdata, field, reader) : failed;
}

// A fresh array in place of the field's old one; a set without reflections has none.
template <class T>
Status renew(T*& field, std::int32_t n, const char* tag) {
  QX_TRY(release(field));
  if (n <= 0) return ok;
  return open_block(field, static_cast<std::size_t>(n), tag);
}

}  // namespace
}  // namespace qx

qxrefdata* qx_new_qxrefdata_obj() { return qx::new_object<qxrefdata>("pnrp_rd"); }

Status qx_new_qxrefdata() {
  QX_TRY(qx_delete_qxrefdata());
  qxrefdata* refdata = qx_new_qxrefdata_obj();
  return refdata ? qx_set_qxrefdata(refdata) : failed;
}

Status qx_delete_qxrefdata_obj(qxrefdata* refdata) {
  QX_TRY(qx::forget_file(*refdata));
  QX_TRY(qx::clear_reflections(*refdata));
  QX_TRY(qx::release(refdata->crystal_name));
  QX_TRY(qx::release(refdata->project_name));
  QX_TRY(qx::release(refdata->dataset_name));
  return xfree(refdata);
}

Status qx_delete_qxrefdata() {
  qxrefdata* refdata = qx_get_qxrefdata();
  if (!refdata) return qx_exist_quorix() ? ok : failed;
  QX_TRY(qx_set_qxrefdata(nullptr));
  return qx_delete_qxrefdata_obj(refdata);
}

qxrefdata* qx_get_qxrefdata() { return qx::slot(qx_get_qxxcry(), &qxxcry::refdata); }
Status qx_set_qxrefdata(qxrefdata* object) {
  return qx::install(qx_get_qxxcry(), &qxxcry::refdata, object);
}

qxmtz* qx_get_refdata_mtz() { return qx::slot(qx_get_qxrefdata(), &qxrefdata::mtz); }
void* qx_get_refdata_hkl() { return qx::slot(qx_get_qxrefdata(), &qxrefdata::hkl); }
void* qx_get_refdata_dtrek() { return qx::slot(qx_get_qxrefdata(), &qxrefdata::dtrek); }
void* qx_get_refdata_scalepack() { return qx::slot(qx_get_qxrefdata(), &qxrefdata::scalepack); }
void* qx_get_refdata_mmcif() { return qx::slot(qx_get_qxrefdata(), &qxrefdata::mmcif); }
void* qx_get_refdata_cns() { return qx::slot(qx_get_qxrefdata(), &qxrefdata::cns); }
Status qx_set_refdata_mtz(qxmtz* reader) { return qx::set_reader(&qxrefdata::mtz, reader); }
Status qx_set_refdata_hkl(void* reader) { return qx::set_reader(&qxrefdata::hkl, reader); }
Status qx_set_refdata_dtrek(void* reader) { return qx::set_reader(&qxrefdata::dtrek, reader); }
Status qx_set_refdata_scalepack(void* reader) {
  return qx::set_reader(&qxrefdata::scalepack, reader);
}
Status qx_set_refdata_mmcif(void* reader) { return qx::set_reader(&qxrefdata::mmcif, reader); }
Status qx_set_refdata_cns(void* reader) { return qx::set_reader(&qxrefdata::cns, reader); }

Status qx_set_refdata_crystalname(const char* name) {
  return qx::set_name("qx_set_refdata_crystalname():", &qxrefdata::crystal_name,
                      &qxrefdata::crystal_from_file, name);
}

Status qx_set_refdata_projectname(const char* name) {
  return qx::set_name("qx_set_refdata_projectname():", &qxrefdata::project_name,
                      &qxrefdata::project_from_file, name);
}

Status qx_set_refdata_datasetname(const char* name) {
  return qx::set_name("qx_set_refdata_datasetname():", &qxrefdata::dataset_name,
                      &qxrefdata::dataset_from_file, name);
}

double qx_calc_ref_res(std::int32_t h, std::int32_t k, std::int32_t l, const double m[9]) {
  return qx::reflection_resolution(h, k, l, m);
}

Status qx_set_refdata_s() {
  constexpr const char* heading = "qx_set_refdata_s():";
  qxrefdata* refdata = qx::required(heading, " refdata object has not been created yet");
  if (!refdata) return failed;
  const qxrecicell* cell = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxrecicell, cell,
                     " qxrecicell object has not been created yet "));
  QX_TRY(qx::renew(refdata->s, refdata->nreflections, "psrrs_s"));
  QX_TRY(qx::renew(refdata->s_length, refdata->nreflections, "psrrs_sm"));
  refdata->s_max = -1e10;
  refdata->s_min = 1e10;
  for (std::int32_t i = 0; i < refdata->nreflections; ++i) {
    const double h = refdata->h[i];
    const double k = refdata->k[i];
    const double l = refdata->l[i];
    refdata->s[i][0] = h * cell->a;
    refdata->s[i][1] = k * cell->b;
    refdata->s[i][2] = l * cell->c;
    const double length = std::sqrt(qx::inverse_d2(cell->resolution, h, k, l));
    refdata->s_length[i] = length;
    refdata->s_max = std::max(refdata->s_max, length);
    refdata->s_min = std::min(refdata->s_min, length);
  }
  return ok;
}

Status qx_release_refdata_s() {
  qxrefdata* refdata =
      qx::required("qx_release_refdata_s():", " refdata object has not been created yet");
  return refdata ? qx::release(refdata->s) : failed;
}

namespace {

constexpr const char* no_group = " The qxspg object has not been created yet ";

}  // namespace

Status qx_set_centric() {
  qxrefdata* refdata =
      qx::required("qx_set_centric():", " The reflection data object has not been created yet ");
  if (!refdata) return failed;
  QX_TRY(qx::renew(refdata->centric, refdata->nreflections, "psrc_c"));
  const std::int32_t n = refdata->nreflections;
  if (n < 1) return ok;
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_calc_centric_ref():", qx_get_qxspg, spg, no_group));
  qx::mark_centric(spg->centric_zones, n, refdata->h, refdata->k, refdata->l, refdata->centric);
  return ok;
}

Status qx_set_epsilon() {
  qxrefdata* refdata =
      qx::required("qx_set_epsilon():", " The reflection data object has not been created yet ");
  if (!refdata) return failed;
  QX_TRY(qx::renew(refdata->epsilon, refdata->nreflections, "psre_e"));
  const std::int32_t n = refdata->nreflections;
  if (n < 1) return ok;
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_calc_epsilon_ref():", qx_get_qxspg, spg, no_group));
  qx::mark_epsilon(spg->epsilon_zones, n, refdata->h, refdata->k, refdata->l, refdata->epsilon);
  return ok;
}

Status qx_set_hklmax() {
  qxrefdata* refdata =
      qx::required("qx_set_hklmax():", " The reflection data object has not been created yet ");
  if (!refdata) return failed;
  refdata->hmax = refdata->kmax = refdata->lmax = 0;
  for (std::int32_t i = 0; i < refdata->nreflections; ++i) {
    refdata->hmax = std::max(refdata->hmax, std::abs(refdata->h[i]));
    refdata->kmax = std::max(refdata->kmax, std::abs(refdata->k[i]));
    refdata->lmax = std::max(refdata->lmax, std::abs(refdata->l[i]));
  }
  return ok;
}

Status qx_set_refl_reject_info(std::int32_t n, std::int32_t nrejected, const std::int32_t* indices,
                               qxrefdata* refdata) {
  if (!refdata) {
    return fail("qx_set_refl_reject_info():", "refdata object has not been created yet. ");
  }
  QX_TRY(qx::renew(refdata->rejected, n, "psrri_rj"));
  refdata->ninput = n;
  std::fill_n(refdata->rejected, n, std::int16_t{0});
  for (std::int32_t i = 0; i < nrejected; ++i) refdata->rejected[indices[i]] = 1;
  return ok;
}

std::int32_t qx_get_reflection_view(qx_reflection_view* view) {
  const refsys* system = quorix ? quorix->reflections : nullptr;
  const qxrefdata* refdata = system && system->crystal ? system->crystal->refdata : nullptr;
  if (!refdata) return 0;
  *view = {refdata->nreflections, refdata->s_length, refdata->test, refdata->format};
  return 1;
}
