// K. Which symmetric tensors a point group leaves alone.
#pragma once

#include <cstdint>

namespace qx {

// Tensors in the order 11 22 33 12 13 23, in a Cartesian frame.
struct TensorBasis {
  int n = 0;             // 1 (cubic) .. 6 (triclinic)
  double tensors[6][6];  // of unit Frobenius norm, orthogonal; the first is isotropic, the others
                         // traceless
};

// The image of B -> average of R B R^T over the rotations R (3 x 3, row-major, Cartesian): one way
// for all crystal systems and settings. `isotropic_only` gives the unit tensor alone.
TensorBasis invariant_tensors(std::int32_t count, const double (*rotations)[9],
                              bool isotropic_only) noexcept;

// s^T T s.
inline double quadratic(const double (&t)[6], const double (&s)[3]) noexcept {
  return t[0] * s[0] * s[0] + t[1] * s[1] * s[1] + t[2] * s[2] * s[2] +
         2.0 * (t[3] * s[0] * s[1] + t[4] * s[0] * s[2] + t[5] * s[1] * s[2]);
}

}  // namespace qx
