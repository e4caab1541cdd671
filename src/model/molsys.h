// Records of the molecular side: the model as supplied, the molecular system computed with, and the
// values of each atom. Coordinates are orthogonal, in Angstrom; B in Angstrom^2; tensors in the
// order U11 U22 U33 U12 U13 U23, Angstrom^2.
#pragma once

#include <quorix/model.h>

namespace qx {

// Atoms in arrays, as a caller supplies them or as the full system holds them. bu_index: k >= 0 is
// the k-th isotropic B, a negative v the ~v-th anisotropic tensor.
struct AtomArrays {
  std::int32_t natom = 0;
  std::int32_t niso = 0;
  std::int32_t naniso = 0;
  double* x = nullptr;
  double* y = nullptr;
  double* z = nullptr;
  std::int32_t* charge = nullptr;
  std::int32_t* atomic_number = nullptr;
  std::int32_t* further = nullptr;  // mass number of deuterium; else carried, not interpreted
  std::int32_t* bu_index = nullptr;
  double* b_iso = nullptr;
  double (*u_aniso)[6] = nullptr;
  double* occupancy = nullptr;
  std::int32_t* ion = nullptr;
  double* vdw_radius = nullptr;
};

// Per computed atom.
struct AtomInfo {
  std::int32_t* charge = nullptr;
  std::int32_t* atomic_number = nullptr;
  char (*type)[6] = nullptr;  // "C", "Fe+2"
  std::int32_t* ion = nullptr;
  double* vdw_radius = nullptr;
  std::int16_t* neither_n_nor_o = nullptr;  // exactly one of the two flags is 1
  std::int16_t* n_or_o = nullptr;
  // Per water atom (behind the fixed ones).
  char (*water_name)[4] = nullptr;
  char (*water_residue)[5] = nullptr;
  char* water_chain = nullptr;
  std::int16_t* water_keep = nullptr;
  std::int32_t* excluded = nullptr;  // 1: left out of density and F; null: none is
};

}  // namespace qx

struct qxmodel {
  std::int32_t nentries = 0;
  std::int32_t capacity = 0;
  qx::AtomArrays* entries = nullptr;
};

struct fullmolsys {
  qx::AtomArrays atoms;
  std::int32_t* coordinate_flag = nullptr;
  std::int32_t* b_flag = nullptr;
  std::int32_t* occupancy_flag = nullptr;
  // Where each entry of the model ends among the atoms.
  std::int32_t nentries = 0;
  std::int32_t* entry_ends = nullptr;
};

struct molsys {
  std::int32_t natom = 0;
  std::int32_t nfixed = 0;              // atoms that are not picked waters
  std::int32_t* to_full = nullptr;      // per computed atom
  std::int32_t* to_computed = nullptr;  // per atom of the full system, -1 when left out
  double* x = nullptr;
  double* y = nullptr;
  double* z = nullptr;
  qx::AtomInfo info;
  std::int32_t* frozen = nullptr;
  fullmolsys full;
};

struct qxatomb {
  double b0 = 20.0;  // blurring added to every atom in the density and taken off again
  std::int32_t reserved = 0;
  std::int32_t niso = 0;
  std::int32_t naniso = 0;
  double* b_iso = nullptr;
  double (*u_aniso)[6] = nullptr;
  std::int32_t* index = nullptr;  // per computed atom, as AtomArrays::bu_index
  std::int16_t* fixed = nullptr;
  std::int32_t* further = nullptr;
};

struct qxatomocc {
  double* occupancy = nullptr;
  std::int16_t* fixed = nullptr;
};

namespace qx {
// How a part of the system counts: scale exp(-b s^2 / 4) F, b in Angstrom^2.
struct PartScale {
  double scale = 1.0;
  double b = 0.0;
};
}  // namespace qx

// The parts of the system: the atoms, as one part or by entries of the model, then what the data
// bring of their own; the solvent comes last and has its scale from elsewhere.
struct qxsyspart {
  bool by_entry = false;
  std::int32_t nscales = 0;  // parts beyond have the default
  qx::PartScale* scales = nullptr;
  // FPART and PHIP as they were read: the columns may take the solvent's part later.
  std::int32_t npartial = 0;
  double* partial_re = nullptr;
  double* partial_im = nullptr;
};

struct xmolformfact;
struct qxradcut;
struct qxexptab;
struct qxsolvent;

struct xmolsys {
  qxmodel* model = nullptr;
  ::molsys* system = nullptr;
  qxatomb* atomb = nullptr;
  qxatomocc* atomocc = nullptr;
  qxsyspart* syspart = nullptr;
  ::xmolformfact* formfact = nullptr;
  qxradcut* radcut = nullptr;
  qxexptab* exptab = nullptr;
  qxsolvent* solvent = nullptr;
};
