// The unit cell, its reciprocal and the matrix helpers. Lengths in Angstrom, angles in degrees,
// matrices row-major, tensors in the order U11 U22 U33 U12 U13 U23.
#pragma once

#include <quorix/api.h>

typedef struct qxcell qxcell;
typedef struct qxrecicell qxrecicell;

QX_C_BEGIN

// Creation replaces what is there; deleting an absent object does nothing.
QX_API qx_status qx_new_qxcell(void);
QX_API qx_status qx_delete_qxcell(void);
QX_API qxcell* qx_get_qxcell(void);
QX_API qx_status qx_set_qxcell(qxcell* object);

QX_API qx_status qx_new_qxrecicell(void);
QX_API qx_status qx_delete_qxrecicell(void);
QX_API qxrecicell* qx_get_qxrecicell(void);
QX_API qx_status qx_set_qxrecicell(qxrecicell* object);

// a, b, c, alpha, beta, gamma.
QX_API qx_status qx_set_qxcell_cell(const float cell[6]);
// A 3 x 4 orthogonal-to-fractional matrix of the user's own, row by row, translations last.
QX_API qx_status qx_set_qxcell_orth2frac(const float m[12]);
// Refuses what is no cell, then fills every derived field afresh.
QX_API qx_status qx_run_qxcell_checker(void);

// The steps of the checker, in their order; angles of a cell that is none give NaN.
QX_API qx_status qx_set_qxcell_others(void);
QX_API qx_status qx_set_qxcell_csang(void);
QX_API qx_status qx_set_qxcell_volume(void);
QX_API qx_status qx_set_qxcell_delta(void);
QX_API qx_status qx_set_qxcell_omega(void);
QX_API qx_status qx_set_qxcell_theta(void);
QX_API qx_status qx_set_qxcell_frac2orth_default(void);
QX_API qx_status qx_set_qxcell_orth2frac_default(void);
QX_API qx_status qx_set_qxcell_frac2orth(void);
QX_API qx_status qx_set_qxrecicell_from_realspace(void);
QX_API qx_status qx_set_qxcell_operation_trans(void);
QX_API qx_status qx_set_qxcell_gmetric(void);

// Entry points for model routines: the six constants; rows 1-3 of orth2frac; a point moved by one
// cell along b (orthogonal Angstrom, in place).
QX_API qx_status qx_get_cell_data_(double out[6]);
QX_API qx_status qx_get_pdb_fraction_trans_(double out[12]);
QX_API qx_status qx_shift_model_by_unit_(double xyz[3]);

// out = a x b; out = A B.
QX_API void qx_v3_x_v3(const double* a, const double* b, double* out);
QX_API void qx_mat33_x_mat33(double* out, const double* a, const double* b);
QX_API void qx_mat44_x_mat44(double* out, const double* a, const double* b);
// 0, or 1 and the output untouched when |det| < 1e-20.
QX_API int32_t qx_matrix3_inverse(const double* in, double* out);
// Always 0; a singular matrix gives the identity.
QX_API int32_t qx_matrix4_inverse(const double* in, double* out);
QX_API void qx_calc_33mat_determinant(const double* m, double* out);
// sqrt(sum v_i^2 / n).
QX_API double qx_calc_vector_rmsd(int32_t n, const double* v);
// 6 x 6 matrices of U -> R U R^T and U -> R^T U R for a 3 x 3 R.
QX_API void qx_calc_U_tran_matrix_rurt(const double* r, double* out);
QX_API void qx_calc_U_tran_matrix_rtur(const double* r, double* out);
// Prints R U R^T and R^T U R of a fixed example, each computed both ways.
QX_API void qx_calc_U_tran_matrix_tester(void);

QX_C_END
