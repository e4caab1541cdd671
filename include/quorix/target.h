// The function that refinement lowers: how badly the model explains the amplitudes of the working
// set, and its derivatives by the atoms' parameters.
#pragma once

#include <quorix/api.h>

typedef struct qxtargetfunc qxtargetfunc;

// Derivatives of the target by one atom's parameters, per Angstrom, per Angstrom^2, per unit.
typedef struct qx_atom_gradient {
  double xyz[3];
  double b;     // of an isotropic atom
  double u[6];  // of an anisotropic one: U11 U22 U33 U12 U13 U23
  double occupancy;
} qx_atom_gradient;

QX_C_BEGIN

// The getter gives null without a report when absent; creating replaces.
QX_API qx_status qx_new_qxtargetfunc(void);
QX_API qx_status qx_delete_qxtargetfunc(void);
QX_API qxtargetfunc* qx_get_qxtargetfunc(void);
QX_API qx_status qx_set_qxtargetfunc(qxtargetfunc* object);
// 0 least squares: sum (Fo - F)^2 / sum Fo^2. 1 likelihood: mean of -log P(Fo) (Murshudov et al.,
// Acta Cryst. D53, 240, 1997). Another number is reported.
QX_API qx_status qx_set_qxtargetfunc_type(int32_t type);

// The target over the observed reflections of the working set, the scale, D and S as they were
// fitted. Needs a fitted scale, and an estimated likelihood for type 1.
QX_API qx_status qx_calc_target(double* value);
// Its gradient by every atom computed with: one transform of the derivatives by F to a map, which
// every atom's density then weighs (Agarwal, Acta Cryst. A34, 791, 1978; Lunin & Urzhumtsev, Acta
// Cryst. A41, 327, 1985). The solvent mask counts as fixed. Frozen coordinates, fixed B factors and
// occupancies have zeros. Replaces an earlier gradient.
QX_API qx_status qx_calc_target_gradient(void);
// One element per atom computed with; null and 0 before a gradient has been calculated.
QX_API const qx_atom_gradient* qx_get_target_gradient(int32_t* natom);
// The gradient as text, a line per atom.
QX_API qx_status qx_write_target_gradient(const char* path);
// Prints gradients of `natoms` atoms spread over the model beside differences of the target.
QX_API qx_status qx_check_target_gradient(int32_t natoms);

QX_C_END
