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

// Where the transform holds an index: a conjugate's imaginary part changes its sign.
struct Place {
  std::ptrdiff_t at;
  double sign;
};

Place place_of(const Transform& t, std::int32_t ix, std::int32_t iy, std::int32_t iz) noexcept {
  if (t.half.hmax < 0) {
    return {(static_cast<std::ptrdiff_t>(iz) * t.half.ny + iy) * t.half.nx + ix, 1.0};
  }
  // Of a real density F(-h) is the conjugate of F(h).
  const bool stored = ix <= t.half.hmax;
  if (!stored) {
    ix = t.half.nx - ix;
    iy = iy == 0 ? 0 : t.half.ny - iy;
    iz = iz == 0 ? 0 : t.half.nz - iz;
  }
  return {t.half.row(iz, iy) + ix, stored ? 1.0 : -1.0};
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

// The sums over one operator, without the factors that are 1. Neighbouring reflections lie in
// different planes: their places are found, and fetched, some time before they are needed.
template <bool translated, bool turned>
void add(const Transform& t, const IndexOperator& op, const BoxPlanes& planes,
         const SinCosTable& table, const MillerIndices& reflections, double* sum_re,
         double* sum_im) noexcept {
  constexpr std::int32_t ahead = 64;
  const double* im = t.half.hmax < 0 ? t.im : t.re + t.half.terms();
  Place places[ahead];
  const PlaneTurn* turns[ahead];
  for (std::int32_t first = 0; first < reflections.n; first += ahead) {
    const std::int32_t count = std::min(ahead, reflections.n - first);
    for (std::int32_t j = 0; j < count; ++j) {
      const std::int32_t i = first + j;
      const RotatedIndex mate = mate_of(op, reflections.h[i], reflections.k[i], reflections.l[i]);
      turns[j] = &planes.of_l[wrapped(mate.l, planes.nz)];
      places[j] =
          place_of(t, wrapped(mate.h, t.half.nx), wrapped(mate.k, t.half.ny), turns[j]->row);
      __builtin_prefetch(t.re + places[j].at);
      __builtin_prefetch(im + places[j].at);
    }
    for (std::int32_t j = 0; j < count; ++j) {
      const std::int32_t i = first + j;
      Value f = {t.re[places[j].at], places[j].sign * im[places[j].at]};
      if (turned) f = f * Value{turns[j]->cosine, turns[j]->sine};
      if (translated) {
        f = f * translation_phase(op, table, reflections.h[i], reflections.k[i], reflections.l[i]);
      }
      sum_re[i] += f.re;
      sum_im[i] += f.im;
    }
  }
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
  const auto which = op.translates   ? planes.turned ? add<true, true> : add<true, false>
                       : planes.turned ? add<false, true>
                                     : add<false, false>;
  which(transform, op, planes, table, reflections, sum_re, sum_im);
}

}  // namespace qx
