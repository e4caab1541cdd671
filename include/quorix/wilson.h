// Wilson statistics of the observations: scale and B, moments, twinning, amplitudes from
// intensities. Intensities are IOBS, else IMEAN, else the squares of FOBS.
#pragma once

#include <quorix/api.h>

// Results of the routines below; counts are 0 for what has not been calculated.
typedef struct qx_wilson_view {
  int32_t nbins;       // of the plot's line
  double k, b;         // F = k F(absolute); Angstrom^2
  double correlation;  // of the line
  int32_t nacentric, ncentric;
  double z2_acentric, z2_centric;  // <Z^2>: 2 and 3 untwinned
  double e_acentric, e_centric;    // <E>: 0.886 and 0.798
  int32_t npairs;
  double mean_l, mean_l2;  // <|L|> 0.5, <L^2> 0.333 untwinned; 0.375, 0.2 perfectly twinned
  int32_t namplitudes, nleft_out;
  int32_t has_anisotropy;  // 1 when the next two are there
  // 11 22 33 12 13 23 without the mean, Angstrom^2; a along x, b in the x-y plane
  double b_cart[6];
  double b_spread;  // largest minus smallest principal value
} qx_wilson_view;

// A bin of the Wilson plot.
typedef struct qx_wilson_bin {
  int32_t n;
  double s2;         // 1/Angstrom^2, mean
  double log_ratio;  // ln(<F^2 / epsilon> / sum f^2)
} qx_wilson_bin;

QX_C_BEGIN

// Number of bins (1 to 200) and the resolution range of the line, Angstrom (high 0: the data's).
QX_API qx_status qx_set_qxwilson_nbin(int32_t nbin);
QX_API qx_status qx_set_qxwilson_range(double high, double low);

// The line through ln(<F^2 / epsilon> / sum f^2) over s^2 / 2 (Wilson, Nature 150, 152, 1942). The
// sum runs over the model's atoms, or over an average protein in half the cell when there is none
// (then k means little). Reports fewer than two bins with intensities.
QX_API qx_status qx_calc_wilson_plot(void);
// Moments of intensities normalised in bins, acentric and centric (Wilson, Acta Cryst. 2, 318,
// 1949).
QX_API qx_status qx_calc_wilson_moments(void);
// The L test over neighbours two steps apart on each axis (Padilla & Yeates, Acta Cryst. D59, 1124,
// 2003).
QX_API qx_status qx_calc_wilson_twin(void);
// The B by which intensities fall faster in some directions than in others, without its mean; zero
// in cubic groups.
QX_API qx_status qx_calc_wilson_anisotropy(void);
// Amplitudes and their errors from the intensities (French & Wilson, Acta Cryst. A34, 517, 1978)
// into FOBS and SIGF, replacing them; missing where an intensity or its error is, or the error 0.
// Reports a data set without intensities or their errors.
QX_API qx_status qx_calc_wilson_amplitudes(void);
QX_API qx_status qx_get_wilson_view(qx_wilson_view* view);
// 1 and bin i of the plot, or 0 (and no report) when there is none.
QX_API int32_t qx_get_wilson_bin(int32_t i, qx_wilson_bin* bin);
QX_API qx_status qx_print_wilson(void);

QX_C_END
