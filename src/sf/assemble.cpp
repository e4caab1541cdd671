#include "sf/assemble.h"

#include "core/constants.h"

#include <cmath>
#include <cstddef>

namespace qx {

namespace {

struct Value {
  double re, im;
};

Value whole(const Transform& t, std::int32_t ix, std::int32_t iy, std::int32_t iz) noexcept {
  const std::ptrdiff_t at = (static_cast<std::ptrdiff_t>(iz) * t.ny + iy) * t.nx + ix;
  return {t.re[at], t.im[at]};
}

// Of a real density F(-h) is the conjugate of F(h).
Value half(const Transform& t, std::int32_t ix, std::int32_t iy, std::int32_t iz) noexcept {
  const bool stored = ix <= t.hmax;
  if (!stored) {
    ix = t.nx - ix;
    iy = iy == 0 ? 0 : t.ny - iy;
    iz = iz == 0 ? 0 : t.nz - iz;
  }
  const double* row = t.re + (static_cast<std::ptrdiff_t>(iz) * t.ny + iy) * t.nx;
  const double im = row[t.hmax + 1 + ix];
  return {row[ix], stored ? im : -im};
}

template <class Sample>
void add(const Transform& t, const MateIndices& mates, const double* c, const double* s,
         double* sum_re, double* sum_im, Sample sample) noexcept {
  for (std::int32_t i = 0; i < mates.nref; ++i) {
    const Value f = sample(t, mates.ix[i], mates.iy[i], mates.iz[i]);
    sum_re[i] += c[i] * f.re - s[i] * f.im;
    sum_im[i] += s[i] * f.re + c[i] * f.im;
  }
}

}  // namespace

TwentyFourths::TwentyFourths() noexcept {
  for (std::int32_t k = 0; k < n; ++k) {
    const double angle = two_pi_single * k / n;
    cosine[k] = std::cos(angle);
    sine[k] = std::sin(angle);
  }
}

void add_mates(const Transform& transform, const MateIndices& mates, const double* c,
               const double* s, double* sum_re, double* sum_im) noexcept {
  if (transform.hmax < 0) {
    add(transform, mates, c, s, sum_re, sum_im, whole);
  } else {
    add(transform, mates, c, s, sum_re, sum_im, half);
  }
}

}  // namespace qx
