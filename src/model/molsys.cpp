// Building the molecular system: the full system from the model, the atoms to compute with, the
// maps between the two numberings.
#include "model/molsys.h"

#include "core/object.h"
#include "core/report.h"
#include "model/atom_arrays.h"
#include "model/atom_types.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cstring>

using qx::AtomArrays;
using qx::AtomInfo;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

Status fill_flags(fullmolsys& full) {
  const std::int32_t n = full.atoms.natom;
  for (std::int32_t** flags : {&full.coordinate_flag, &full.b_flag, &full.occupancy_flag}) {
    QX_TRY(qx::open_list(*flags, n, "pfm_flags"));
    std::fill_n(*flags, n, 1);
  }
  return ok;
}

Status note_entries(fullmolsys& full, const qxmodel& model) {
  QX_TRY(qx::open_list(full.entry_ends, model.nentries, "pfm_entry"));
  std::int32_t end = 0;
  for (std::int32_t i = 0; i < model.nentries; ++i) {
    full.entry_ends[i] = end += model.entries[i].natom;
  }
  full.nentries = model.nentries;
  return ok;
}

Status fill_full(fullmolsys& full) {
  const qxmodel* model = qx_get_qxmodel();
  if (!model) return ok;
  std::int32_t natom = 0;
  std::int32_t niso = 0;
  std::int32_t naniso = 0;
  QX_TRY(qx_get_xmodel_natom(&natom));
  QX_TRY(qx_get_xmodel_nb(&niso, &naniso));
  if (natom == 0) return ok;
  AtomArrays& atoms = full.atoms;
  QX_TRY(qx::open_atoms(atoms, natom, niso, naniso));
  QX_TRY(qx_create_xmodel(natom, atoms.x, atoms.y, atoms.z, atoms.atomic_number, atoms.charge,
                          atoms.further, atoms.bu_index, niso, naniso, atoms.b_iso, atoms.u_aniso,
                          atoms.occupancy, atoms.ion, atoms.vdw_radius));
  QX_TRY(note_entries(full, *model));
  return fill_flags(full);
}

bool computed_with(const AtomArrays& atoms, std::int32_t i, std::int32_t hydrogens) {
  return atoms.atomic_number[i] > (hydrogens ? 0 : 1);
}

Status select_atoms(molsys* system, std::int32_t hydrogens) {
  const fullmolsys* full = &system->full;
  QX_TRY(qx_get_refmolsys_natom_from_xmodel(&system->natom, &system->nfixed, hydrogens, full));
  if (system->natom != system->nfixed) {
    return fail("qx_create_molsys():",
                "xmodel treats H2O as normal atoms, and should not reach this point.");
  }
  QX_TRY(qx::open_list(system->to_full, system->natom, "pcm_omap"));
  QX_TRY(qx::open_list(system->to_computed, full->atoms.natom, "pcm_imap"));
  return qx_set_xmodel_quorix_mapper(system->natom, system->to_full, system->to_computed, hydrogens,
                                     full);
}

Status open_info(AtomInfo& info, std::int32_t n) {
  constexpr const char* tag = "pcm_info";
  QX_TRY(qx::open_list(info.charge, n, tag));
  QX_TRY(qx::open_list(info.atomic_number, n, tag));
  QX_TRY(qx::open_list(info.type, n, tag));
  QX_TRY(qx::open_list(info.ion, n, tag));
  QX_TRY(qx::open_list(info.vdw_radius, n, tag));
  QX_TRY(qx::open_list(info.neither_n_nor_o, n, tag));
  return qx::open_list(info.n_or_o, n, tag);
}

Status fill_info(AtomInfo& info, std::int32_t i, const AtomArrays& atoms, std::int32_t from) {
  const std::int32_t number = atoms.atomic_number[from];
  info.charge[i] = atoms.charge[from];
  info.atomic_number[i] = number;
  info.ion[i] = atoms.ion[from];
  info.vdw_radius[i] = atoms.vdw_radius[from];
  info.n_or_o[i] = number == 7 || number == 8 ? 1 : 0;
  info.neither_n_nor_o[i] = info.n_or_o[i] ? 0 : 1;
  if (!qx::form_type(number, atoms.further[from], atoms.charge[from], info.type[i])) {
    return fail("qx_create_molsys():", "Invalid charge %d of an atom of element %s", info.charge[i],
                qx::element_symbol(number));
  }
  return ok;
}

Status fill_computed(molsys* system) {
  const AtomArrays& atoms = system->full.atoms;
  const std::int32_t n = system->natom;
  QX_TRY(qx::open_list(system->x, n, "pcm_x"));
  QX_TRY(qx::open_list(system->y, n, "pcm_y"));
  QX_TRY(qx::open_list(system->z, n, "pcm_z"));
  QX_TRY(qx::open_list(system->frozen, n, "pcm_frozen"));
  QX_TRY(open_info(system->info, n));
  for (std::int32_t i = 0; i < n; ++i) {
    const std::int32_t from = system->to_full[i];
    system->x[i] = atoms.x[from];
    system->y[i] = atoms.y[from];
    system->z[i] = atoms.z[from];
    system->frozen[i] = system->full.coordinate_flag[from];
    QX_TRY(fill_info(system->info, i, atoms, from));
  }
  return ok;
}

}  // namespace

Status qx_get_refmolsys_natom_from_xmodel(std::int32_t* natom, std::int32_t* nfixed,
                                          std::int32_t hydrogens, const fullmolsys* full) {
  std::int32_t kept = 0;
  for (std::int32_t i = 0; i < full->atoms.natom; ++i) {
    kept += computed_with(full->atoms, i, hydrogens) ? 1 : 0;
  }
  if (kept == 0) {
    return fail("qx_get_refmolsys_natom_from_xmodel():",
                " There is no atom defined in the reflection system. ");
  }
  *natom = *nfixed = kept;
  return ok;
}

Status qx_set_xmodel_quorix_mapper(std::int32_t natom, std::int32_t* omap, std::int32_t* imap,
                                   std::int32_t hydrogens, const fullmolsys* full) {
  std::int32_t next = 0;
  for (std::int32_t i = 0; i < full->atoms.natom; ++i) {
    const bool keep = next < natom && computed_with(full->atoms, i, hydrogens);
    imap[i] = keep ? next : -1;
    if (keep) omap[next++] = i;
  }
  return ok;
}

Status qx_create_molsys(std::int32_t hydrogens) {
  QX_TRY(qx_new_molsys());
  molsys* system = qx_get_molsys();
  if (!system) return failed;
  QX_TRY(fill_full(system->full));
  QX_TRY(select_atoms(system, hydrogens));
  QX_TRY(fill_computed(system));
  QX_TRY(qx_create_atombfact());
  return qx_create_atomocc();
}

const std::int32_t* qx_get_molsys_omapper() {
  const molsys* system = qx_get_molsys();
  if (!system && qx_exist_quorix()) {
    (void)fail("qx_get_molsys_omapper():", "molsys object does not exist yet. ");
    return nullptr;
  }
  return system ? system->to_full : nullptr;
}

const std::int32_t* qx_get_molsys_imapper() {
  const molsys* system = qx_get_molsys();
  if (!system && qx_exist_quorix()) {
    (void)fail("qx_get_molsys_imapper():", "molsys object does not exist yet. ");
    return nullptr;
  }
  return system ? system->to_computed : nullptr;
}
