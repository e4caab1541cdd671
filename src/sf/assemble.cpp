#include "sf/assemble.h"

#include "core/constants.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qx {

namespace {

constexpr std::int32_t parts = 24;

struct Value {
  double re, im;
};

Value operator*(const Value& a, const Value& b) noexcept {
  return {a.re * b.re - a.im * b.im, a.im * b.re + a.re * b.im};
}

// exp(2 pi i k / 24).
struct TwentyFourths {
  Value values[parts];
  TwentyFourths() noexcept {
    for (std::int32_t k = 0; k < parts; ++k) {
      const double angle = two_pi_single * k / parts;
      values[k] = {std::cos(angle), std::sin(angle)};
    }
  }
};

Value whole(const Transform& t, std::int32_t ix, std::int32_t iy, std::int32_t iz) noexcept {
  const std::ptrdiff_t at = (static_cast<std::ptrdiff_t>(iz) * t.half.ny + iy) * t.half.nx + ix;
  return {t.re[at], t.im[at]};
}

// Of a real density F(-h) is the conjugate of F(h).
Value half(const Transform& t, std::int32_t ix, std::int32_t iy, std::int32_t iz) noexcept {
  const bool stored = ix <= t.half.hmax;
  if (!stored) {
    ix = t.half.nx - ix;
    iy = iy == 0 ? 0 : t.half.ny - iy;
    iz = iz == 0 ? 0 : t.half.nz - iz;
  }
  const double* row = t.re + t.half.row(iz, iy);
  const double im = row[t.half.terms() + ix];
  return {row[ix], stored ? im : -im};
}

Value translation_phase(const IndexOperator& op, const SinCosTable& table, std::int64_t h,
                        std::int64_t k, std::int64_t l) noexcept {
  static const TwentyFourths exact;
  if (op.in_24ths) {
    return exact.values[wrapped(h * op.t24[0] + k * op.t24[1] + l * op.t24[2], parts)];
  }
  const double cycles = static_cast<double>(h) * op.t[0] + static_cast<double>(k) * op.t[1] +
                        static_cast<double>(l) * op.t[2];
  const double whole = std::nearbyint(cycles * parts);
  if (std::fabs(cycles * parts - whole) < 1e-6) {
    return exact.values[wrapped(static_cast<std::int64_t>(whole), parts)];
  }
  const std::int32_t at = table.index(cycles);
  return {table.cosine[at], table.sine[at]};
}

// The sums over one operator, without the factors that are 1.
template <bool translated, bool turned, class Sample>
void add(const Transform& t, const IndexOperator& op, const BoxPlanes& planes,
         const SinCosTable& table, const MillerIndices& reflections, double* sum_re, double* sum_im,
         Sample sample) noexcept {
  for (std::int32_t i = 0; i < reflections.n; ++i) {
    const std::int64_t h = reflections.h[i];
    const std::int64_t k = reflections.k[i];
    const std::int64_t l = reflections.l[i];
    const RotatedIndex mate = mate_of(op, h, k, l);
    const PlaneTurn& turn = planes.of_l[wrapped(mate.l, planes.nz)];
    Value f = sample(t, wrapped(mate.h, t.half.nx), wrapped(mate.k, t.half.ny), turn.row);
    if (turned) f = f * Value{turn.cosine, turn.sine};
    if (translated) f = f * translation_phase(op, table, h, k, l);
    sum_re[i] += f.re;
    sum_im[i] += f.im;
  }
}

template <class Sample>
void add(const Transform& t, const IndexOperator& op, const BoxPlanes& planes,
         const SinCosTable& table, const MillerIndices& reflections, double* sum_re, double* sum_im,
         Sample sample) noexcept {
  const auto which = op.translates
                         ? planes.turned ? add<true, true, Sample> : add<true, false, Sample>
                     : planes.turned ? add<false, true, Sample>
                                     : add<false, false, Sample>;
  which(t, op, planes, table, reflections, sum_re, sum_im, sample);
}

}  // namespace

IndexOperator index_operator(const double (&op)[16]) noexcept {
  IndexOperator out = {};
  out.in_24ths = true;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      out.r[i][j] = static_cast<std::int32_t>(std::lrint(op[4 * i + j]));
    }
    out.t[i] = op[4 * i + 3];
    out.translates = out.translates || out.t[i] != 0.0;
    const double twenty_fourths = out.t[i] * parts;
    out.t24[i] = static_cast<std::int32_t>(std::lrint(twenty_fourths));
    out.in_24ths = out.in_24ths && std::fabs(twenty_fourths - out.t24[i]) < 1e-6;
  }
  return out;
}

void add_mates(const Transform& transform, const IndexOperator& op, const BoxPlanes& planes,
               const SinCosTable& table, const MillerIndices& reflections, double* sum_re,
               double* sum_im) noexcept {
  if (transform.half.hmax < 0) {
    add(transform, op, planes, table, reflections, sum_re, sum_im, whole);
  } else {
    add(transform, op, planes, table, reflections, sum_re, sum_im, half);
  }
}

}  // namespace qx
