// The model: entries of atoms as callers supply them.
#include "core/object.h"
#include "core/report.h"
#include "model/atom_arrays.h"
#include "model/molsys.h"

#include <quorix/engine.h>

#include <algorithm>

using qx::AtomArrays;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::release;
using qx::Status;

namespace qx {

Status open_atoms(AtomArrays& atoms, std::int32_t natom, std::int32_t niso, std::int32_t naniso) {
  constexpr const char* tag = "pcx_atoms";
  atoms = {};
  atoms.natom = natom;
  atoms.niso = niso;
  atoms.naniso = naniso;
  QX_TRY(open_list(atoms.x, natom, tag));
  QX_TRY(open_list(atoms.y, natom, tag));
  QX_TRY(open_list(atoms.z, natom, tag));
  QX_TRY(open_list(atoms.charge, natom, tag));
  QX_TRY(open_list(atoms.atomic_number, natom, tag));
  QX_TRY(open_list(atoms.further, natom, tag));
  QX_TRY(open_list(atoms.bu_index, natom, tag));
  QX_TRY(open_list(atoms.b_iso, niso, tag));
  QX_TRY(open_list(atoms.u_aniso, naniso, tag));
  QX_TRY(open_list(atoms.occupancy, natom, tag));
  QX_TRY(open_list(atoms.ion, natom, tag));
  return open_list(atoms.vdw_radius, natom, tag);
}

Status release_atoms(AtomArrays& atoms) {
  QX_TRY(release(atoms.x));
  QX_TRY(release(atoms.y));
  QX_TRY(release(atoms.z));
  QX_TRY(release(atoms.charge));
  QX_TRY(release(atoms.atomic_number));
  QX_TRY(release(atoms.further));
  QX_TRY(release(atoms.bu_index));
  QX_TRY(release(atoms.b_iso));
  QX_TRY(release(atoms.u_aniso));
  QX_TRY(release(atoms.occupancy));
  QX_TRY(release(atoms.ion));
  return release(atoms.vdw_radius);
}

}  // namespace qx

namespace {

// The model, reported under `heading` when absent.
qxmodel* present_model(const char* heading) {
  qxmodel* model = qx_get_qxmodel();
  if (!model && qx_exist_quorix()) {
    (void)fail(heading, "xmodel object has not been created yet.");
  }
  return model;
}

// Room for one more entry.
Status reserve_entry(qxmodel* model) {
  if (model->nentries < model->capacity) return ok;
  const auto old = static_cast<std::size_t>(model->capacity);
  const std::size_t grown = old * 2 + 4;
  auto* entries = static_cast<AtomArrays*>(xrealloc(model->entries, old * sizeof(AtomArrays),
                                                    grown * sizeof(AtomArrays), "pax_entries"));
  if (!entries) return failed;
  model->entries = entries;
  model->capacity = static_cast<std::int32_t>(grown);
  return ok;
}

bool indices_fit(const AtomArrays& atoms) {
  return std::all_of(atoms.bu_index, atoms.bu_index + atoms.natom, [&](std::int32_t index) {
    return index >= 0 ? index < atoms.niso : ~index < atoms.naniso;
  });
}

template <class T>
void copy(const T* from, std::int32_t n, T* to) {
  if (n > 0) std::copy_n(from, n, to);
}

void copy_tensors(const double (*from)[6], std::int32_t n, double (*to)[6]) {
  for (std::int32_t i = 0; i < n; ++i) std::copy_n(from[i], 6, to[i]);
}

}  // namespace

Status qx_set_xmodel_default() {
  qxmodel* model = present_model("qx_set_xmodel_default():");
  if (!model) return failed;
  while (model->nentries > 0) QX_TRY(qx::release_atoms(model->entries[--model->nentries]));
  model->capacity = 0;
  return release(model->entries);
}

Status qx_add_xmodel_entry(std::int32_t natom, const double* x, const double* y, const double* z,
                           const std::int32_t* atomic_number, const std::int32_t* charge,
                           const std::int32_t* further, const std::int32_t* bu_index,
                           std::int32_t niso, std::int32_t naniso, const double* b_iso,
                           const double (*u_aniso)[6], const double* occupancy,
                           const std::int32_t* ion, const double* vdw_radius) {
  constexpr const char* heading = "qx_add_xmodel_entry():";
  qxmodel* model = present_model(heading);
  if (!model) return failed;
  if (natom < 0 || niso < 0 || naniso < 0) {
    return fail(heading, "Invalid number of atoms: %d %d %d", natom, niso, naniso);
  }
  QX_TRY(reserve_entry(model));
  AtomArrays& entry = model->entries[model->nentries++];
  QX_TRY(qx::open_atoms(entry, natom, niso, naniso));
  copy(x, natom, entry.x);
  copy(y, natom, entry.y);
  copy(z, natom, entry.z);
  copy(charge, natom, entry.charge);
  copy(atomic_number, natom, entry.atomic_number);
  copy(further, natom, entry.further);
  copy(bu_index, natom, entry.bu_index);
  copy(b_iso, niso, entry.b_iso);
  copy_tensors(u_aniso, naniso, entry.u_aniso);
  copy(occupancy, natom, entry.occupancy);
  copy(ion, natom, entry.ion);
  copy(vdw_radius, natom, entry.vdw_radius);
  return indices_fit(entry) ? ok : fail(heading, "A B factor index of the model is out of bound");
}

Status qx_get_xmodel_natom(std::int32_t* natom) {
  const qxmodel* model = present_model("qx_get_xmodel_natom():");
  if (!model) return failed;
  *natom = 0;
  for (std::int32_t i = 0; i < model->nentries; ++i) *natom += model->entries[i].natom;
  return ok;
}

Status qx_get_xmodel_nb(std::int32_t* niso, std::int32_t* naniso) {
  const qxmodel* model = present_model("qx_get_xmodel_nb():");
  if (!model) return failed;
  *niso = *naniso = 0;
  for (std::int32_t i = 0; i < model->nentries; ++i) {
    *niso += model->entries[i].niso;
    *naniso += model->entries[i].naniso;
  }
  return ok;
}

Status qx_create_xmodel(std::int32_t natom, double* x, double* y, double* z,
                        std::int32_t* atomic_number, std::int32_t* charge, std::int32_t* further,
                        std::int32_t* bu_index, std::int32_t niso, std::int32_t naniso,
                        double* b_iso, double (*u_aniso)[6], double* occupancy, std::int32_t* ion,
                        double* vdw_radius) {
  constexpr const char* heading = "qx_create_xmodel():";
  const qxmodel* model = present_model(heading);
  if (!model) return failed;
  std::int32_t atoms = 0;
  std::int32_t isos = 0;
  std::int32_t anisos = 0;
  QX_TRY(qx_get_xmodel_natom(&atoms));
  QX_TRY(qx_get_xmodel_nb(&isos, &anisos));
  if (atoms != natom)
    return fail(heading, "Number of atoms is not consistent %d %d\n", atoms, natom);
  if (isos != niso) {
    return fail(heading, "Number of isotropic atoms is not consistent %d %d .\n", isos, niso);
  }
  if (anisos != naniso) return fail(heading, "Number of anisotropic atoms is not consistent.");
  std::int32_t at = 0;
  std::int32_t iso = 0;
  std::int32_t aniso = 0;
  for (std::int32_t i = 0; i < model->nentries; ++i) {
    const AtomArrays& entry = model->entries[i];
    copy(entry.x, entry.natom, x + at);
    copy(entry.y, entry.natom, y + at);
    copy(entry.z, entry.natom, z + at);
    copy(entry.atomic_number, entry.natom, atomic_number + at);
    copy(entry.charge, entry.natom, charge + at);
    copy(entry.further, entry.natom, further + at);
    copy(entry.occupancy, entry.natom, occupancy + at);
    copy(entry.ion, entry.natom, ion + at);
    copy(entry.vdw_radius, entry.natom, vdw_radius + at);
    copy(entry.b_iso, entry.niso, b_iso + iso);
    copy_tensors(entry.u_aniso, entry.naniso, u_aniso + aniso);
    for (std::int32_t j = 0; j < entry.natom; ++j) {
      const std::int32_t index = entry.bu_index[j];
      bu_index[at + j] = index >= 0 ? index + iso : ~(~index + aniso);
    }
    at += entry.natom;
    iso += entry.niso;
    aniso += entry.naniso;
  }
  return ok;
}
