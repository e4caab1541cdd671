// Structure factors of the model at the reflections of the data set, by FFT of the atom density.
#pragma once

#include <quorix/api.h>

typedef struct qxstructfact qxstructfact;
typedef struct qxsincostab qxsincostab;

QX_C_BEGIN

// Sums per part of the system, and the prefactor; getters give null without a report when absent.
QX_API qx_status qx_new_qxstructfact(void);
QX_API qx_status qx_delete_qxstructfact(void);
QX_API qxstructfact* qx_get_qxstructfact(void);
QX_API qx_status qx_set_qxstructfact(qxstructfact* object);
QX_API qx_status qx_new_qxsincostab(void);
QX_API qx_status qx_delete_qxsincostab(void);
QX_API qxsincostab* qx_get_qxsincostab(void);
QX_API qx_status qx_set_qxsincostab(qxsincostab* object);
// Fills the table of sines and cosines of k 2 pi / 100000. Replaces an earlier one.
QX_API qx_status qx_init_qxsincostab(void);

// exp(B0 s^2 / 4) (a/nx) (b/ny) (c/nz) per reflection, computed once and kept.
QX_API qx_status qx_set_pre_factor(void);
// Transforms a density box (its contents are lost) and adds the symmetry sums to the arrays of a
// part
// (-1: the separate pair). `shift` is the box's first plane; `set` is 0.
QX_API qx_status qx_calc_sf_by_fft_eden(int32_t part, int32_t set, int32_t shift,
                                        double*** density);
// Sums of the whole molecular system as part 0, box by box under the memory budget. Replaces them.
QX_API qx_status qx_calc_system_struct_factor(void);
// F of the model: the parts' scales times prefactor times sums, electrons (fm with neutrons); `re`
// and `im` have one element per reflection.
QX_API qx_status qx_calc_model_structure_factor(double* re, double* im);
// Least-squares k and B between |Fo| and k exp(-B s^2 / 4) |Fc| over the working set (all
// reflections without one); they become part 0's scale.
QX_API qx_status qx_scale_model_structure_factor(void);
// Puts |F| and phase (degrees, [0, 360)) of the model into the data set's FC and PHIC columns: on
// the scale of the observations, solvent included, when an overall scale has been fitted (its
// solvent's part then goes to FPART and PHIP), else as the parts' sum.
QX_API qx_status qx_replace_refdata_fc(void);
// The same of the parts' sum alone.
QX_API qx_status qx_replace_refdata_atoms(void);
// The parts' sum to FC and PHIC, times k_tot with on_scale 1, and the scaled model with its solvent
// to MAP_COEFFA and MAP_COEFFP. Reports when no scale has been fitted.
QX_API qx_status qx_replace_refdata_both(int32_t on_scale);

QX_C_END
