// The container of the molecular side and its members.
#include "core/object.h"
#include "core/slot.h"
#include "model/atom_arrays.h"
#include "model/molsys.h"

#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/solvent.h>

using qx::create_in;
using qx::install;
using qx::ok;
using qx::release;
using qx::remove_from;
using qx::slot;
using qx::Status;

Status qx_new_xmolsys() {
  QX_TRY(create_in(qx_delete_xmolsys, qx_set_xmolsys, "pnp_xmolsys"));
  QX_TRY(qx_new_qxmodel());
  QX_TRY(qx_new_qxatomb());
  QX_TRY(qx_new_qxsolvent());
  return qx_new_xmolformfact();
}

Status qx_delete_xmolsys() {
  xmolsys* container = qx_get_xmolsys();
  if (!container) return ok;
  QX_TRY(qx_delete_qxsolvent());
  QX_TRY(qx_delete_qxradcut());
  QX_TRY(qx_delete_qxexptab());
  QX_TRY(qx_delete_xmolformfact());
  QX_TRY(qx_delete_qxsyspart());
  QX_TRY(qx_delete_qxatomocc());
  QX_TRY(qx_delete_qxatomb());
  QX_TRY(qx_delete_molsys());
  QX_TRY(qx_delete_qxmodel());
  return remove_from(container, qx_set_xmolsys);
}

qxmodel* qx_get_qxmodel() { return slot(qx_get_xmolsys(), &xmolsys::model); }
molsys* qx_get_molsys() { return slot(qx_get_xmolsys(), &xmolsys::system); }
qxatomb* qx_get_qxatomb() { return slot(qx_get_xmolsys(), &xmolsys::atomb); }
qxatomocc* qx_get_qxatomocc() { return slot(qx_get_xmolsys(), &xmolsys::atomocc); }
qxsyspart* qx_get_qxsyspart() { return slot(qx_get_xmolsys(), &xmolsys::syspart); }

Status qx_set_qxmodel(qxmodel* object) {
  return install(qx_get_xmolsys(), &xmolsys::model, object);
}
Status qx_set_molsys(molsys* object) { return install(qx_get_xmolsys(), &xmolsys::system, object); }
Status qx_set_qxatomb(qxatomb* object) {
  return install(qx_get_xmolsys(), &xmolsys::atomb, object);
}
Status qx_set_qxatomocc(qxatomocc* object) {
  return install(qx_get_xmolsys(), &xmolsys::atomocc, object);
}
Status qx_set_qxsyspart(qxsyspart* object) {
  return install(qx_get_xmolsys(), &xmolsys::syspart, object);
}

Status qx_new_qxmodel() { return create_in(qx_delete_qxmodel, qx_set_qxmodel, "pnx_model"); }
Status qx_new_molsys() { return create_in(qx_delete_molsys, qx_set_molsys, "pnx_molsys"); }
Status qx_new_qxatomb() { return create_in(qx_delete_qxatomb, qx_set_qxatomb, "pnx_atomb"); }
Status qx_new_qxatomocc() {
  return create_in(qx_delete_qxatomocc, qx_set_qxatomocc, "pnx_atomocc");
}
Status qx_new_qxsyspart() {
  return create_in(qx_delete_qxsyspart, qx_set_qxsyspart, "pnx_syspart");
}

Status qx_delete_qxmodel() {
  qxmodel* model = qx_get_qxmodel();
  if (!model) return ok;
  QX_TRY(qx_set_xmodel_default());
  return remove_from(model, qx_set_qxmodel);
}

namespace {

Status release_info(qx::AtomInfo& info) {
  QX_TRY(release(info.charge));
  QX_TRY(release(info.atomic_number));
  QX_TRY(release(info.type));
  QX_TRY(release(info.ion));
  QX_TRY(release(info.vdw_radius));
  QX_TRY(release(info.neither_n_nor_o));
  QX_TRY(release(info.n_or_o));
  QX_TRY(release(info.water_name));
  QX_TRY(release(info.water_residue));
  QX_TRY(release(info.water_chain));
  QX_TRY(release(info.water_keep));
  return release(info.excluded);
}

}  // namespace

Status qx_delete_molsys() {
  molsys* system = qx_get_molsys();
  if (!system) return ok;
  QX_TRY(release(system->to_full));
  QX_TRY(release(system->to_computed));
  QX_TRY(release(system->x));
  QX_TRY(release(system->y));
  QX_TRY(release(system->z));
  QX_TRY(release_info(system->info));
  QX_TRY(release(system->frozen));
  QX_TRY(qx::release_atoms(system->full.atoms));
  QX_TRY(release(system->full.coordinate_flag));
  QX_TRY(release(system->full.b_flag));
  QX_TRY(release(system->full.occupancy_flag));
  QX_TRY(release(system->full.entry_ends));
  return remove_from(system, qx_set_molsys);
}

Status qx_delete_qxatomb() {
  qxatomb* atomb = qx_get_qxatomb();
  if (!atomb) return ok;
  QX_TRY(release(atomb->b_iso));
  QX_TRY(release(atomb->u_aniso));
  QX_TRY(release(atomb->index));
  QX_TRY(release(atomb->fixed));
  QX_TRY(release(atomb->further));
  return remove_from(atomb, qx_set_qxatomb);
}

Status qx_delete_qxatomocc() {
  qxatomocc* atomocc = qx_get_qxatomocc();
  if (!atomocc) return ok;
  QX_TRY(release(atomocc->occupancy));
  QX_TRY(release(atomocc->fixed));
  return remove_from(atomocc, qx_set_qxatomocc);
}

Status qx_delete_qxsyspart() {
  qxsyspart* partition = qx_get_qxsyspart();
  if (!partition) return ok;
  QX_TRY(release(partition->scales));
  QX_TRY(release(partition->partial_re));
  QX_TRY(release(partition->partial_im));
  return remove_from(partition, qx_set_qxsyspart);
}
