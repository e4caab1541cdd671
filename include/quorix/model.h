// The molecular system: the model as supplied, the atoms computed with, their B factors and
// occupancies. Coordinates orthogonal in Angstrom, B in Angstrom^2, tensors U11 U22 U33 U12 U13
// U23.
#pragma once

#include <quorix/api.h>

typedef struct xmolsys xmolsys;
typedef struct qxmodel qxmodel;
typedef struct molsys molsys;
typedef struct fullmolsys fullmolsys;
typedef struct qxatomb qxatomb;
typedef struct qxatomocc qxatomocc;
typedef struct qxsyspart qxsyspart;

QX_C_BEGIN

// Objects of the container that the root owns. Getters give null without a report when the object
// is absent; deletes of an absent object do nothing.
QX_API qx_status qx_new_qxmodel(void);
QX_API qx_status qx_delete_qxmodel(void);
QX_API qxmodel* qx_get_qxmodel(void);
QX_API qx_status qx_set_qxmodel(qxmodel* object);
QX_API qx_status qx_new_molsys(void);
QX_API qx_status qx_delete_molsys(void);
QX_API molsys* qx_get_molsys(void);
QX_API qx_status qx_set_molsys(molsys* object);
QX_API qx_status qx_new_qxatomb(void);
QX_API qx_status qx_delete_qxatomb(void);
QX_API qxatomb* qx_get_qxatomb(void);
QX_API qx_status qx_set_qxatomb(qxatomb* object);
QX_API qx_status qx_new_qxatomocc(void);
QX_API qx_status qx_delete_qxatomocc(void);
QX_API qxatomocc* qx_get_qxatomocc(void);
QX_API qx_status qx_set_qxatomocc(qxatomocc* object);
QX_API qx_status qx_new_qxsyspart(void);
QX_API qx_status qx_delete_qxsyspart(void);
QX_API qxsyspart* qx_get_qxsyspart(void);
QX_API qx_status qx_set_qxsyspart(qxsyspart* object);

// Frees every entry of the model and leaves it empty.
QX_API qx_status qx_set_xmodel_default(void);
// Appends one entry of atoms to the model; everything is copied. bu_index: k >= 0 the k-th of
// b_iso, negative v the ~v-th of u_aniso; an index out of range is reported. Lists may be null when
// their count is 0. further: 2 for a hydrogen that is deuterium; else of no meaning, and carried.
QX_API qx_status qx_add_xmodel_entry(int32_t natom, const double* x, const double* y,
                                     const double* z, const int32_t* atomic_number,
                                     const int32_t* charge, const int32_t* further,
                                     const int32_t* bu_index, int32_t niso, int32_t naniso,
                                     const double* b_iso, const double (*u_aniso)[6],
                                     const double* occupancy, const int32_t* ion,
                                     const double* vdw_radius);
QX_API qx_status qx_get_xmodel_natom(int32_t* natom);
QX_API qx_status qx_get_xmodel_nb(int32_t* niso, int32_t* naniso);
// Copies all entries, in order, into flat arrays whose sizes are given; bu_index is renumbered
// across the entries.
QX_API qx_status qx_create_xmodel(int32_t natom, double* x, double* y, double* z,
                                  int32_t* atomic_number, int32_t* charge, int32_t* further,
                                  int32_t* bu_index, int32_t niso, int32_t naniso, double* b_iso,
                                  double (*u_aniso)[6], double* occupancy, int32_t* ion,
                                  double* vdw_radius);

// Builds the molecular system from the model, hydrogens included when `hydrogens` is 1, then the
// per-atom objects. Replaces all of them but B0.
QX_API qx_status qx_create_molsys(int32_t hydrogens);
// Atoms of the full system that are computed with: atomic number above 1, or above 0 with
// hydrogens.
QX_API qx_status qx_get_refmolsys_natom_from_xmodel(int32_t* natom, int32_t* nfixed,
                                                    int32_t hydrogens, const fullmolsys* full);
QX_API qx_status qx_set_xmodel_quorix_mapper(int32_t natom, int32_t* omap, int32_t* imap,
                                             int32_t hydrogens, const fullmolsys* full);
// Index of each computed atom in the full system, and the reverse (-1 where left out).
QX_API const int32_t* qx_get_molsys_omapper(void);
QX_API const int32_t* qx_get_molsys_imapper(void);
QX_API qx_status qx_create_atombfact(void);
QX_API qx_status qx_create_atomocc(void);
// Occupancies of the computed atoms; an upload reaches the full system as well.
QX_API qx_status qx_download_qxatomocc_q(double* values);
QX_API qx_status qx_upload_qxatomocc_q(const double* values);

// Blurring B in Angstrom^2 that is added to every atom's density and taken off its structure
// factors.
QX_API qx_status qx_set_qxatomb_B0(double b0);

// How reports name an atom, by its index in the full system (from 0) in place of a number. The text
// must last until the next call; null names by number again. Not the root's: it stays in force.
typedef const char* (*qx_atom_namer)(int32_t atom, void* context);
QX_API void qx_set_atom_namer(qx_atom_namer name, void* context);

// Reads nothing: models come in arrays. The commands that name files are kept for old scripts.
QX_API qx_status qx_read_xmodel(const char* format, const char* file);

QX_C_END
