// Scale of a model with bulk solvent to the observed amplitudes, how well they agree, and how far
// the model can be trusted. Amplitudes on the scale of the observations, resolutions d in Angstrom.
#pragma once

#include <quorix/api.h>

typedef struct qxscale qxscale;
typedef struct qxml qxml;

// How a model's amplitudes agree with the observed ones.
typedef struct qx_agreement {
  int32_t n;           // observed reflections
  double r;            // sum |Fo - F| / sum Fo; 0 without reflections
  double correlation;  // linear, of Fo and F
} qx_agreement;

// The fitted scale and, behind it, the likelihood; 0 for what has not been calculated.
typedef struct qx_scale_view {
  int32_t solvent;  // 0 none, 1 exponential, 2 bins, 3 smooth
  double k, b[6];   // Cartesian, 11 22 33 12 13 23, Angstrom^2
  double k_sol, b_sol, fraction;
  int32_t nbins;
  const double *centre, *k_mask, *k_iso;  // by bin: s^2, both scales
  int32_t likelihood_used;                // reflections that sigmaA was estimated from
  double mean_fom;                        // over the observed reflections
} qx_scale_view;

// A resolution bin of the last R factors, d in Angstrom. `n` counts what was not observed as well,
// the other two what R and correlation rest on.
typedef struct qx_rfactor_bin {
  int32_t n;
  double high, low, r_work, r_free, cc_work, cc_free;
  int32_t n_work, n_free;
} qx_rfactor_bin;

// Of the atoms alone, without their solvent: Fo = k exp(-b s^2 / 4) |Fc|.
typedef struct qx_atoms_scale_view {
  double k, b;    // b in Angstrom^2
  int32_t split;  // 1: into a working and a free set; 0: `work` is of all
  qx_agreement work, free;
} qx_atoms_scale_view;

QX_C_BEGIN

// 1 and the bin, or 0 when there is none of that number.
QX_API int32_t qx_get_rfactor_bin_count(void);
QX_API int32_t qx_get_rfactor_bin(int32_t bin, qx_rfactor_bin* out);

// 1 and the scale of the atoms alone, or 0 when none has been fitted.
QX_API int32_t qx_get_atoms_scale_view(qx_atoms_scale_view* view);
// Of the data set's last fit; reports when there is none.
QX_API qx_status qx_get_scale_view(qx_scale_view* view);

// Getters give null without a report when absent; creating replaces.
QX_API qx_status qx_new_qxscale(void);
QX_API qx_status qx_delete_qxscale(void);
QX_API qxscale* qx_get_qxscale(void);
QX_API qx_status qx_set_qxscale(qxscale* object);
QX_API qx_status qx_new_qxml(void);
QX_API qx_status qx_delete_qxml(void);
QX_API qxml* qx_get_qxml(void);
QX_API qx_status qx_set_qxml(qxml* object);

// Fits the scale to the observed reflections of the working set (all of them, with a warning, when
// there is no split): k exp(-s^T B s / 4) |Fc + k_mask F_mask|. Needs structure factors of the
// atoms; makes the solvent's when they are missing. Reports an empty set and amplitudes that are
// zero throughout. Replaces an earlier fit.
QX_API qx_status qx_fit_overall_scale(void);
// The fit as text: scale, solvent, and with `bins` 1 the bins where it has any.
QX_API qx_status qx_print_overall_scale(int32_t bins);
// F of the model on the scale of the observations, k_tot (Fc + k_mask F_mask), one element per
// reflection of the data set. Reports when no scale has been fitted to this data set.
QX_API qx_status qx_calc_total_structure_factor(double* re, double* im);
// k_tot of every reflection.
QX_API qx_status qx_calc_total_scale(double* k_tot);

// R and correlation of the scaled model within high <= d <= low (0 and 99999: all), overall and by
// bin; the bins' R go to the cross-validation object, the overall ones to the harvest record.
QX_API qx_status qx_calc_rfactor(double high, double low);
// The last result of qx_calc_rfactor: of the working set (all, without a split) and the free set.
QX_API qx_status qx_get_rfactor(qx_agreement* work, qx_agreement* free);
QX_API qx_status qx_print_rfactor(void);
// Scale, solvent and R factors, overall and by bin, as a JSON file.
QX_API qx_status qx_write_rfactor_json(const char* path);

// Fits sigmaA as a function of resolution, by maximum likelihood over the free set (the working
// set, with a warning, when fewer than 300 of its reflections are observed), and gives every
// reflection its figure of merit, D and variance. Needs a fitted scale. Replaces an earlier fit.
QX_API qx_status qx_estimate_likelihood(void);
// sigmaA, D, figure of merit by resolution as text.
QX_API qx_status qx_print_likelihood(void);
// Puts figures of merit, map coefficients (2mFo-DFc as MAP_COEFFA and MAP_COEFFP, mFo-DFc as
// MAP_COEFF and MAP_PHASE), k_tot (MAP_SCALE) and 1/v (WT) into the data set's columns, and as
// FWT_nofill, PHWT_nofill the first without what was not observed.
QX_API qx_status qx_replace_refdata_ml(void);

// Coefficients of an anomalous difference map as columns FAN, PHAN: m times F(+) - F(-) (columns FP
// and FM, else DP), the phase of the model less 90 degrees. Prints how many there are.
QX_API qx_status qx_calc_anomalous_coefficients(void);

QX_C_END
