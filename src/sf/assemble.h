// K. Structure factors from the transform of the density in P 1: the sum over operators of the
// transform at the rotated index times exp(2 pi i h.t).
#pragma once

#include "core/wrapped.h"
#include "fft/half_spectrum.h"

#include <cstdint>

namespace qx {

// The transform of a box: either all of it, re and im as [nz][ny][nx], or half the spectrum of a
// real density in `re`.
struct Transform {
  HalfLayout half;  // hmax of -1: all of it
  const double* re;
  const double* im;
};

// A look-up of sine and cosine of 2 pi x, x in cycles, cut to the entry below.
struct SinCosTable {
  std::int32_t n;
  const double* sine;
  const double* cosine;

  [[nodiscard]] std::int32_t index(double cycles) const noexcept {
    double fraction = cycles - static_cast<double>(static_cast<std::int64_t>(cycles));
    if (fraction < 0.0) fraction += 1.0;
    const auto at = static_cast<std::int32_t>(fraction * n);
    // A fraction of -5e-17 plus 1 is 1.
    return at < n ? at : 0;
  }
};

// An operator as it acts on indices: the mate of h is the row vector h r, and its phase h.t.
struct IndexOperator {
  std::int32_t r[3][3];
  double t[3];          // cycles
  std::int32_t t24[3];  // the same in 24ths
  bool in_24ths;        // true but for operators that a user made up
  bool translates;
};

// `op` in row-major order of 4, its rotation rounded.
IndexOperator index_operator(const double (&op)[16]) noexcept;

// The rotated index.
struct RotatedIndex {
  std::int64_t h, k, l;
};
inline RotatedIndex mate_of(const IndexOperator& op, std::int64_t h, std::int64_t k,
                            std::int64_t l) noexcept {
  return {h * op.r[0][0] + k * op.r[1][0] + l * op.r[2][0],
          h * op.r[0][1] + k * op.r[1][1] + l * op.r[2][1],
          h * op.r[0][2] + k * op.r[1][2] + l * op.r[2][2]};
}

// What a box of every n-th plane makes of an l (by l mod nz, the planes of the cell): the row of
// its transform, and the turn exp(2 pi i l shift / nz) when `shift` is its first plane.
struct PlaneTurn {
  double cosine, sine;
  std::int32_t row;
};
struct BoxPlanes {
  std::int32_t nz;
  bool turned;  // the shift is not 0
  const PlaneTurn* of_l;
};

struct MillerIndices {
  std::int32_t n;
  const std::int32_t *h, *k, *l;
};

// Adds what the operator's mates of all reflections have in the transform.
void add_mates(const Transform& transform, const IndexOperator& op, const BoxPlanes& planes,
               const SinCosTable& table, const MillerIndices& reflections, double* sum_re,
               double* sum_im) noexcept;

}  // namespace qx
