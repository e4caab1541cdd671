// K. Which reflections of a file are kept: the rejection rules in order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

// Amplitude or intensity with its sigma; null pointers where the file has no such column.
struct Measured {
  const float* values = nullptr;
  const float* sigmas = nullptr;
};

struct Candidates {
  std::size_t count = 0;
  const std::int32_t *h = nullptr, *k = nullptr, *l = nullptr;
  Measured amplitude;
  Measured intensity;
  float missing = 0;  // marker of values that were not measured; NaN and infinities always are
};

// Cuts are in force when above 0. Limits in Angstrom.
struct RejectionRules {
  double amplitude_minimum = 0;  // lowest F
  double amplitude_sigma = 0;    // lowest |F / sigma|
  double amplitude_rms = 0;      // highest |F| in units of the rms amplitude
  double intensity_sigma = 0;
  double intensity_rms = 0;
  double d_high = 0, d_low = 0;
  double orth2frac[9] = {};  // rotation, row-major: s_j = h m_1j + k m_2j + l m_3j
};

// d = 1/|s| of one reflection.
double reflection_resolution(std::int32_t h, std::int32_t k, std::int32_t l,
                             const double* orth2frac) noexcept;

// Root mean square over the values that were measured; 0 if none was.
double rms_of_measured(const float* values, std::size_t count, float missing) noexcept;

// What became of the others.
struct LeftOut {
  std::int32_t origin = 0;   // (0,0,0)
  std::int32_t outside = 0;  // of the resolution limits
  std::int32_t by_cuts = 0;
};

// Writes the indices of the reflections that pass every rule, in order, to `kept` (room for all)
// and gives their number. The cuts take a missing value for 0.
std::size_t select_reflections(const Candidates& input, const RejectionRules& rules,
                               std::int32_t* kept, LeftOut& left) noexcept;

}  // namespace qx
