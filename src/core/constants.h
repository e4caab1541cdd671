// K. Every numeric constant of the engine, once. The truncated and single-precision values are part
// of its results; a single-precision constant is never mixed with its double twin.
#pragma once

namespace qx {

inline constexpr double pi = 3.14159265358979;               // cell angles, phases
inline constexpr double two_pi = 6.28318530717958;           // transform tables
inline constexpr double two_pi_single = 6.28318548202515;    // phase shifts of symmetry mates
inline constexpr double four_pi_single = 12.56637096405029;  // atom density amplitudes
inline constexpr double four_pi_squared_single = 39.47842025756836;  // atom density exponents

inline constexpr double unset = -99999.0;   // a real setting that nobody gave
inline constexpr int unset_count = -99999;  // an integer setting that nobody gave

}  // namespace qx
