// Differences of two sets of observations of one crystal form, and their maps.
#pragma once

#include <quorix/api.h>

typedef struct qxfofo qxfofo;

// Results of qx_calc_fofo_differences(); the arrays stay valid until the next one.
typedef struct qx_fofo_view {
  int32_t pairs, first_only, second_only;  // observed reflections
  double k, b[6];                // of the second set: F2' = k curve(s) exp(-s^T B s / 4) F2
  int32_t nbins;                 // of the curve; 0: none
  const double *centre, *curve;  // s^2, 1/Angstrom^2; what k is multiplied by
  double correlation, r;         // of F1 and F2'; sum |F2' - F1| / sum F1
  double rms_difference, rms_error;
  double mean_weight;
  int32_t without_error;  // pairs that lack one of their errors
  int32_t negative;       // differences below 0: their phase is turned
  int32_t rejected;       // differences too large
} qx_fofo_view;

QX_C_BEGIN

// The object with its settings at their defaults; it owns the second set.
QX_API qx_status qx_new_qxfofo(void);
QX_API qx_status qx_delete_qxfofo(void);
// Null when there is none.
QX_API qxfofo* qx_get_qxfofo(void);
QX_API qx_status qx_set_qxfofo(qxfofo* object);

// Scales the second set to the crystal's and takes the differences F2' - F1 of the reflections that
// both have, whatever asymmetric unit each is in. Reports sets without amplitudes or with nothing
// in common.
QX_API qx_status qx_calc_fofo_differences(void);
// Density from the weighted differences with the phases of the model, else of PHIC; calculates what
// is not there yet. In the box of the map object.
QX_API qx_status qx_generate_fofo_map(void);
// Puts differences, their errors, weights and map coefficients into DP, SIGDP, WT, MAP_COEFF and
// MAP_PHASE; missing where a reflection is in one set only.
QX_API qx_status qx_replace_refdata_fofo(void);
QX_API qx_status qx_get_fofo_view(qx_fofo_view* view);
QX_API qx_status qx_print_fofo(void);

QX_C_END
