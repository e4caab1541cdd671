// The crystal container, the resolution limits and the rejection settings.
#include "crystal/crystal.h"

#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/cell_geometry.h"
#include "crystal/matrix.h"
#include "crystal/spacegroup.h"

#include <quorix/asu.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>

using qx::fail;
using qx::ok;
using qx::Status;

Status qx_new_qxxcry() {
  QX_TRY(qx::create_in(qx_delete_qxxcry, qx_set_qxxcry, "pnp_xcry"));
  QX_TRY(qx_new_qxrefdata());
  QX_TRY(qx_new_qxcell());
  QX_TRY(qx_new_qxrecicell());
  QX_TRY(qx_new_qxspg());
  QX_TRY(qx_new_qxresol());
  QX_TRY(qx_new_qxrefreject());
  return qx_new_qxasu();
}

Status qx_delete_qxxcry() {
  const refsys* system = qx_get_refsys();
  qxxcry* crystal = system ? system->crystal : nullptr;
  if (!crystal) return ok;
  if (crystal->asu) QX_TRY(qx_delete_qxasu());
  if (crystal->refreject) QX_TRY(qx_delete_qxrefreject());
  if (crystal->resol) QX_TRY(qx_delete_qxresol());
  if (crystal->spg) QX_TRY(qx_delete_qxspg());
  if (crystal->recicell) QX_TRY(qx_delete_qxrecicell());
  if (crystal->cell) QX_TRY(qx_delete_qxcell());
  if (crystal->refdata) QX_TRY(qx_delete_qxrefdata());
  return qx::remove_from(crystal, qx_set_qxxcry);
}

qxxcry* qx_get_qxxcry() {
  qxxcry* crystal = qx::slot(qx_get_refsys(), &refsys::crystal);
  if (!crystal) (void)fail("qx_get_qxxcry():", " qxxcry object has not been created yet");
  return crystal;
}

Status qx_set_qxxcry(qxxcry* object) {
  return qx::install(qx_get_refsys(), &refsys::crystal, object);
}

Status qx_new_qxresol() { return qx::create_in(qx_delete_qxresol, qx_set_qxresol, "pnrp_resol"); }

Status qx_delete_qxresol() { return qx::remove_from(qx_get_qxresol(), qx_set_qxresol); }

qxresol* qx_get_qxresol() { return qx::slot(qx_get_qxxcry(), &qxxcry::resol); }

Status qx_set_qxresol(qxresol* object) {
  return qx::install(qx_get_qxxcry(), &qxxcry::resol, object);
}

Status qx_set_qxresol_resol(float high, float low) {
  qxresol* resol = nullptr;
  QX_TRY(qx::require("qx_set_qxresol_resol():", qx_get_qxresol, resol,
                     "qxresol object has not been created yet "));
  resol->high = high;
  resol->low = low;
  return ok;
}

Status qx_run_qxresol_checker() {
  constexpr const char* here = "qx_run_qxresol_checker():";
  const qxresol* resol = nullptr;
  QX_TRY(qx::require(here, qx_get_qxresol, resol, "qxresol object has not been created yet "));
  if (!(resol->high >= 0 && resol->high <= resol->low && std::isfinite(resol->low))) {
    return fail(here,
                " Failed to set up resolution limits. \n %g to %g Angstrom is no resolution range ",
                resol->high, resol->low);
  }
  return ok;
}

Status qx_new_qxrefreject() {
  return qx::create_in(qx_delete_qxrefreject, qx_set_qxrefreject, "pnrp_rej");
}

Status qx_delete_qxrefreject() { return qx::remove_from(qx_get_qxrefreject(), qx_set_qxrefreject); }

qxrefreject* qx_get_qxrefreject() { return qx::slot(qx_get_qxxcry(), &qxxcry::refreject); }

Status qx_set_qxrefreject(qxrefreject* object) {
  return qx::install(qx_get_qxxcry(), &qxxcry::refreject, object);
}

namespace {

Status set_cut(const char* heading, double qxrefreject::*field, double cut) {
  qxrefreject* reject = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxrefreject, reject,
                     "qxrefreject object has not been created yet "));
  reject->*field = cut;
  return ok;
}

}  // namespace

Status qx_set_qxrefreject_Fsig(double cut) {
  return set_cut("qx_set_qxrefreject_Fsig():", &qxrefreject::f_sigma, cut);
}

Status qx_set_qxrefreject_Frms(double cut) {
  return set_cut("qx_set_qxrefreject_Frms():", &qxrefreject::f_rms, cut);
}

Status qx_set_qxrefreject_Fo_min(double cut) {
  return set_cut("qx_set_qxrefreject_Fo_min():", &qxrefreject::f_minimum, cut);
}

Status qx_set_qxrefreject_Isig(double cut) {
  return set_cut("qx_set_qxrefreject_Isig():", &qxrefreject::i_sigma, cut);
}

Status qx_set_qxrefreject_Irms(double cut) {
  return set_cut("qx_set_qxrefreject_Irms():", &qxrefreject::i_rms, cut);
}

namespace {

// Cells are given to some decimals: 0.2 per cent of an edge, or a tenth of a degree.
constexpr double metric_slack = 2e-3;

// Mates about axes that the cell does not have make maps that look like others and are wrong.
Status warn_of_metric() {
  const qxcell* cell = qx_get_qxcell();
  const qxspg* spg = cell ? qx_get_qxspg() : nullptr;
  if (!spg) return qx::failed;
  double worst = 0.0;
  for (std::int32_t i = 0; i < spg->nops; ++i) {
    double rotation[9];
    qx::rotation_of(spg->ops[i], rotation);
    worst = std::max(worst, qx::metric_misfit(cell->metric, rotation));
  }
  if (worst <= metric_slack) return ok;
  qx::say(
      "WARNING: the cell %g %g %g %g %g %g does not have the symmetry of the space group %s: what "
      "follows is wrong \n",
      cell->a, cell->b, cell->c, cell->alpha, cell->beta, cell->gamma,
      spg->full_name ? spg->full_name : "by its operators");
  return ok;
}

}  // namespace

Status qx_run_xcry_checker() {
  QX_TRY(qx_run_qxcell_checker());
  QX_TRY(qx_run_qxresol_checker());
  QX_TRY(qx_run_qxspg_checker());
  QX_TRY(warn_of_metric());
  return qx_run_qxrefdata_checker();
}
