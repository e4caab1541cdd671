// Statistics that later reports take from a run.
#pragma once

#include <cstdint>

struct qxharvest {
  double high_resolution = 0.0;  // Angstrom
  double low_resolution = 0.0;
  double reject_sigma = 0.0;
  double reject_rms = 0.0;
  double reject_amplitude = 0.0;
  std::int32_t free_count = 0;
  double free_fraction = 0.0;  // Kept: a fraction under a name that says percent
  double r_work = 0.0;
  double r_free = 0.0;
  double k_sol = 0.0;  // of the bulk solvent's exponential form
  double b_sol = 0.0;  // Angstrom^2
  double wilson_b = 0.0;
  double fom = 0.0;  // mean over the observed reflections
};
