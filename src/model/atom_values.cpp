// B factors and occupancies of the atoms computed with.
#include "core/object.h"
#include "core/report.h"
#include "model/molsys.h"

#include <quorix/engine.h>
#include <quorix/formfactors.h>

#include <algorithm>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::release;
using qx::Status;

namespace {

const molsys* present_system(const char* heading) {
  const molsys* system = qx_get_molsys();
  if (!system && qx_exist_quorix()) (void)fail(heading, "molsys object has not been created.");
  return system;
}

qxatomb* present_atomb(const char* heading) {
  qxatomb* atomb = qx_get_qxatomb();
  if (!atomb && qx_exist_quorix()) (void)fail(heading, "qxatomb object has not been created.");
  return atomb;
}

Status open_b(qxatomb* atomb, std::int32_t natom) {
  constexpr const char* tag = "pca_b";
  if (natom < 1) return ok;
  const auto n = static_cast<std::size_t>(natom);
  if (atomb->niso > 0) {
    QX_TRY(qx::open_block(atomb->b_iso, static_cast<std::size_t>(atomb->niso), tag));
  }
  if (atomb->naniso > 0) {
    QX_TRY(qx::open_block(atomb->u_aniso, static_cast<std::size_t>(atomb->naniso), tag));
  }
  QX_TRY(qx::open_block(atomb->index, n, tag));
  QX_TRY(qx::open_block(atomb->fixed, n, tag));
  return qx::open_zeroed(atomb->further, n, tag);
}

Status release_b(qxatomb* atomb) {
  atomb->niso = atomb->naniso = 0;
  QX_TRY(release(atomb->b_iso));
  QX_TRY(release(atomb->u_aniso));
  QX_TRY(release(atomb->index));
  QX_TRY(release(atomb->fixed));
  return release(atomb->further);
}

}  // namespace

Status qx_create_atombfact() {
  constexpr const char* heading = "qx_create_atombfact():";
  const molsys* system = present_system(heading);
  if (!system) return failed;
  qxatomb* atomb = present_atomb(heading);
  if (!atomb) return failed;
  QX_TRY(release_b(atomb));
  const qx::AtomArrays& atoms = system->full.atoms;
  for (std::int32_t i = 0; i < system->natom; ++i) {
    ++(atoms.bu_index[system->to_full[i]] >= 0 ? atomb->niso : atomb->naniso);
  }
  QX_TRY(open_b(atomb, system->natom));
  std::int32_t iso = 0;
  std::int32_t aniso = 0;
  for (std::int32_t i = 0; i < system->natom; ++i) {
    const std::int32_t from = system->to_full[i];
    const std::int32_t index = atoms.bu_index[from];
    if (index >= 0) {
      atomb->b_iso[iso] = atoms.b_iso[index];
      atomb->index[i] = iso++;
    } else {
      std::copy_n(atoms.u_aniso[~index], 6, atomb->u_aniso[aniso]);
      atomb->index[i] = ~aniso++;
    }
    atomb->fixed[i] = system->full.b_flag[from] ? 0 : 1;
  }
  return ok;
}

Status qx_create_atomocc() {
  const molsys* system = present_system("qx_create_atomocc():");
  if (!system) return failed;
  if (!qx_get_qxatomocc()) QX_TRY(qx_new_qxatomocc());
  qxatomocc* atomocc = qx_get_qxatomocc();
  if (!atomocc) return failed;
  QX_TRY(release(atomocc->occupancy));
  QX_TRY(release(atomocc->fixed));
  if (system->natom < 1) return ok;
  const auto n = static_cast<std::size_t>(system->natom);
  QX_TRY(qx::open_block(atomocc->occupancy, n, "pca_occ"));
  QX_TRY(qx::open_block(atomocc->fixed, n, "pca_occ"));
  for (std::int32_t i = 0; i < system->natom; ++i) {
    const std::int32_t from = system->to_full[i];
    atomocc->occupancy[i] = system->full.atoms.occupancy[from];
    atomocc->fixed[i] = system->full.occupancy_flag[from] ? 0 : 1;
  }
  return ok;
}

namespace {

qxatomocc* present_occupancies(const char* heading) {
  qxatomocc* atomocc = qx_get_qxatomocc();
  if (atomocc && atomocc->occupancy) return atomocc;
  if (qx_exist_quorix()) (void)fail(heading, "qxatomocc object has not been created yet.");
  return nullptr;
}

}  // namespace

Status qx_download_qxatomocc_q(double* values) {
  constexpr const char* heading = "qx_download_qxatomocc_q():";
  const qxatomocc* atomocc = present_occupancies(heading);
  if (!atomocc) return failed;
  const molsys* system = present_system(heading);
  if (!system) return failed;
  std::copy_n(atomocc->occupancy, system->natom, values);
  return ok;
}

Status qx_upload_qxatomocc_q(const double* values) {
  constexpr const char* heading = "qx_upload_qxatomocc_q():";
  qxatomocc* atomocc = present_occupancies(heading);
  if (!atomocc) return failed;
  const molsys* system = present_system(heading);
  if (!system) return failed;
  for (std::int32_t i = 0; i < system->natom; ++i) {
    atomocc->occupancy[i] = values[i];
    system->full.atoms.occupancy[system->to_full[i]] = values[i];
  }
  return ok;
}

Status qx_set_qxatomb_B0(double b0) {
  qxatomb* atomb = present_atomb("qx_set_qxatomb_B0():");
  if (!atomb) return failed;
  atomb->b0 = b0;
  return ok;
}
