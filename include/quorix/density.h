// Electron density of the model's atoms on the grid. Density arrays are [z][y][x] doubles, x
// fastest, electrons per cubic Angstrom (fm per cubic Angstrom with neutrons); radii in Angstrom.
#pragma once

#include <quorix/api.h>

typedef struct qxexptab qxexptab;
typedef struct qxradcut qxradcut;
typedef struct qxelecden qxelecden;

QX_C_BEGIN

// Objects; getters give null without a report when absent.
QX_API qx_status qx_new_qxexptab(void);
QX_API qx_status qx_delete_qxexptab(void);
QX_API qxexptab* qx_get_qxexptab(void);
QX_API qx_status qx_set_qxexptab(qxexptab* object);
QX_API qx_status qx_new_qxradcut(void);
QX_API qx_status qx_delete_qxradcut(void);
QX_API qxradcut* qx_get_qxradcut(void);
QX_API qx_status qx_set_qxradcut(qxradcut* object);
// The density box: the full grid, or one sub-box of the sub-grid.
QX_API qx_status qx_new_qxelecden(void);
QX_API qx_status qx_delete_qxelecden(void);
QX_API qxelecden* qx_get_qxelecden(void);
QX_API qx_status qx_set_qxelecden(qxelecden* object);
// Its array, opened when absent; null after a report.
QX_API double*** qx_open_qxelecden_box(void);

// Table of exp(-k h), k = 0 .. n-1. Replaces an earlier one.
QX_API qx_status qx_init_qxexptab(int32_t n, double h);
// Relative density at which an atom is cut off, and the largest radius.
QX_API qx_status qx_set_elec_den_rad_cutoff(double ecut);
QX_API qx_status qx_set_elec_den_rad_uplimit(double limit);
// Cut-off radius of every atom, to 0.2 Angstrom, and the grid boundary that follows from the
// largest.
QX_API qx_status qx_update_qxradcut(void);

// Adds the atoms listed (indices of the molecular system; null: all of that kind) to a full grid or
// to the planes shift, shift + n, ... of a sub-box, n the number of sub-boxes. The isotropic
// routines report an anisotropic atom and the other way round.
QX_API qx_status qx_calc_eden_atom_iso(int32_t n, const int32_t* atoms, double*** density);
QX_API qx_status qx_calc_subg_eden_atom_iso(int32_t n, const int32_t* atoms, int32_t shift,
                                            double*** density);
QX_API qx_status qx_calc_eden_atom_aniso(int32_t n, const int32_t* atoms, double*** density);
QX_API qx_status qx_calc_subg_eden_atom_aniso(int32_t n, const int32_t* atoms, int32_t shift,
                                              double*** density);
// Clears the map and adds all atoms; `shift` is 0 unless the sub-grid is in use.
QX_API qx_status qx_calc_elec_den_map(int32_t shift, double*** density);
// Takes one atom's density off again.
QX_API qx_status qx_remove_eden_atom(int32_t atom, double*** density);
QX_API qx_status qx_remove_subg_eden_atom(int32_t atom, int32_t shift, double*** density);
// Takes off the atoms whose centre, brought into the cell, lies in a fractional box (x lo hi, y,
// z).
QX_API qx_status qx_remove_elec_den_from_omit_region(const double box[6], double*** density);

// Derivatives of sum over the grid of map x (density of one anisotropic atom) by x, y, z
// (Angstrom), U11 U22 U33 U12 U13 U23 and the occupancy.
QX_API qx_status qx_calc_geden_atom_aniso(int32_t atom, double*** map, double gradient[10]);
// The same of an isotropic atom: by x, y, z (Angstrom), B (Angstrom^2) and the occupancy.
QX_API qx_status qx_calc_geden_atom_iso(int32_t atom, double*** map, double gradient[5]);
QX_API qx_status qx_calc_subg_geden_atom_aniso(int32_t atom, int32_t shift, double*** map,
                                               double gradient[10]);

// Symmetric tensors U11 U22 U33 U12 U13 U23.
QX_API double qx_get_determinant_u(const double u[6]);
// 0, or 1 and the output untouched when singular.
QX_API int32_t qx_get_inverse_u(const double u[6], double inverse[6]);
// Eigenvalues in ascending order; 0, or 1 if an element is no number.
QX_API int32_t qx_calc_U_eigen_value(const double u[6], double values[3]);
// The i-th Gaussian of an anisotropic atom: M = U + (b + B0)/(8 pi^2) I, its inverse, and the
// amplitude occ a (2 pi)^(-3/2) det(M)^(-1/2). 1 when M is not positive definite.
QX_API int32_t qx_calc_aniso_unk(const double u[6], double a, double b_total, double* amplitude,
                                 double inverse[6]);
// U of the atom's mate under the symmetry operator `op` (0-based), both in the orthogonal frame.
QX_API qx_status qx_transform_aniso_u_to_oper(int32_t op, const double u[6], double out[6]);

QX_C_END
