// The crystal container, the resolution limits and the rejection settings.
#include "crystal/crystal.h"

#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/slot.h"

#include <quorix/asu.h>
#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

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
  qxresol* resol = qx_get_qxresol();
  if (!resol) return fail("qx_set_qxresol_resol():", "qxresol object has not been created yet ");
  resol->high = high;
  resol->low = low;
  return ok;
}

Status qx_run_qxresol_checker() {
  constexpr const char* here = "qx_run_qxresol_checker():";
  const qxresol* resol = qx_get_qxresol();
  if (!resol) return fail(here, "qxresol object has not been created yet ");
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
  qxrefreject* reject = qx_get_qxrefreject();
  if (!reject) return fail(heading, "qxrefreject object has not been created yet ");
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

Status qx_run_xcry_checker() {
  QX_TRY(qx_run_qxcell_checker());
  QX_TRY(qx_run_qxresol_checker());
  QX_TRY(qx_run_qxspg_checker());
  return qx_run_qxrefdata_checker();
}
