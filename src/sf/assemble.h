// K. Structure factors from the transform of the density in P 1: the sum over operators of the
// transform at the rotated index times exp(2 pi i h.t).
#pragma once

#include <cstdint>

namespace qx {

// The transform of a box: either all of it, re and im as [nz][ny][nx], or only the columns 0 <= h
// <= hmax of a real density, in rows of nx with hmax + 1 real parts before hmax + 1 imaginary ones.
struct Transform {
  std::int32_t nx, ny, nz;
  std::int32_t hmax;  // -1: all of it
  const double* re;
  const double* im;
};

// Grid indices of one operator's rotated reflections, each in [0, n).
struct MateIndices {
  std::int32_t nref;
  const std::int32_t* ix;
  const std::int32_t* iy;
  const std::int32_t* iz;
};

// Adds (c + i s) F(mate) to the sums; c and s are the operator's phase factors per reflection.
void add_mates(const Transform& transform, const MateIndices& mates, const double* c,
               const double* s, double* sum_re, double* sum_im) noexcept;

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

// Cosines and sines of k/24 cycles.
struct TwentyFourths {
  static constexpr std::int32_t n = 24;
  double cosine[n], sine[n];
  TwentyFourths() noexcept;
};

}  // namespace qx
