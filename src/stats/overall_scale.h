// K. Scale between observed amplitudes and a model with flat bulk solvent.
//
// |F_model| = k(s) |Fc + k_mask(s) F_mask|, k(s) = k_iso(s) exp(-s^T B s / 4), B obeying the point
// group (Sheriff & Hendrickson, Acta Cryst. A43, 118, 1987). k_mask = k_sol exp(-B_sol s^2 / 4)
// (Fokine & Urzhumtsev, Acta Cryst. D58, 1387, 2002), or free in bins of resolution (Afonine et
// al., Acta Cryst. D69, 625, 2013), or smooth: k_sol exp(-ln 2 (s^2 / s_h^2)^n). Least squares of
// the amplitudes. Resolutions are s^2 = 1/d^2, 1/Angstrom^2; B in Angstrom^2, Cartesian (a along x,
// b in the x-y plane), in the order 11 22 33 12 13 23.
#pragma once

#include "stats/tensor_basis.h"

#include <cstddef>
#include <cstdint>

namespace qx {

enum SolventMode : std::int32_t { no_solvent, exponential_solvent, binned_solvent, smooth_solvent };

// Beyond 3 A the solvent's structure factor is taken as zero.
inline constexpr double mask_limit = 1.0 / 9.0;

// The reflections of a fit; none of their values is missing.
struct ScaleData {
  std::int32_t n = 0;
  const double* fo = nullptr;
  const double *re = nullptr, *im = nullptr;            // F of the atoms
  const double *mask_re = nullptr, *mask_im = nullptr;  // F_mask, zero beyond mask_limit
  const double* s2 = nullptr;
  const double (*s)[3] = nullptr;  // Cartesian scattering vectors
};

struct ScaleSettings {
  SolventMode mode = binned_solvent;
  TensorBasis basis;
  double k_sol = -1.0;  // given when not negative, else fitted within [0, 0.8]
  double b_sol = -1.0;  // the same, within [0, 250]
};

struct ScaleModel {
  static constexpr int most_bins = 40;
  static constexpr int terms = 7;
  SolventMode mode = no_solvent;
  double k = 1.0;  // overall; of the bins and the smooth form their mean over the reflections
  double b[6] = {};
  double k_sol = 0.0, b_sol = 0.0;  // the exponential form's, also where another mode follows
  // Binned: linear in s^2 between the bins' means.
  int nbins = 0;
  double centre[most_bins];
  double k_mask[most_bins];
  double k_iso[most_bins];
  // Smooth: half_s2 = s_h^2; k_iso is a Chebyshev series of s^2 over [low_s2, high_s2].
  double smooth_k = 0.0, half_s2 = 0.01, power = 1.0;
  double series[terms] = {};
  double low_s2 = 0.0, high_s2 = 1.0;
};

// k_mask at a resolution; 0 beyond mask_limit.
double solvent_scale(const ScaleModel& model, double s2) noexcept;
// k(s) without the solvent: k_iso(s^2) exp(-s^T B s / 4).
double total_scale(const ScaleModel& model, double s2, const double (&s)[3]) noexcept;

// Doubles of scratch that fit_model_scale wants for n reflections.
std::size_t scale_scratch_size(std::int32_t n) noexcept;

struct ScaleFit {
  ScaleModel model;
  double sum = 0.0;  // of squared differences at the end
  int steps = 0;     // of the exponential fit
  int rounds = 0;    // of what follows it
};

// Fits all that the settings leave free. With data that tell nothing (no reflection, Fc zero
// throughout) the scale is 1 and the rest 0.
ScaleFit fit_model_scale(const ScaleData& data, const ScaleSettings& settings,
                         double* scratch) noexcept;

}  // namespace qx
