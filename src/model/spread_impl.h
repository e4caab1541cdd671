// K. The kernels of one instruction set. Included once per instruction set, with QX_SPREAD_ISA
// naming the namespace, so that the linker can never give a machine without wide registers a
// function that uses them, and QX_SPREAD_LANES the doubles in a register.
#pragma once

#include "model/spread_kernels.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#define QX_FORCED __attribute__((always_inline)) inline

namespace qx::QX_SPREAD_ISA {

constexpr int W = QX_SPREAD_LANES;
using V = double __attribute__((vector_size(8 * W)));
using Bits = std::int64_t __attribute__((vector_size(8 * W)));

QX_FORCED V load(const double* from) {
  V v;
  __builtin_memcpy(&v, from, sizeof v);
  return v;
}
QX_FORCED void store(double* to, V v) { __builtin_memcpy(to, &v, sizeof v); }
QX_FORCED V splat(double x) { return V{} + x; }
QX_FORCED V at_least(V x, double limit) { return x < splat(limit) ? splat(limit) : x; }
QX_FORCED V at_most(V x, double limit) { return x > splat(limit) ? splat(limit) : x; }
QX_FORCED Bits between(V x, double low, double high) {
  return (x >= splat(low)) & (x <= splat(high));
}
// 0, 1, 2 ...
QX_FORCED V counting() {
  V v;
  for (int k = 0; k < W; ++k) v[k] = k;
  return v;
}

// Adds `value` where square <= limit. The other points are not touched: they may be another
// thread's, or nobody's.
QX_FORCED void add_within(double* to, V value, V square, V limit) {
#if QX_SPREAD_LANES == 8
  const __mmask8 mask = _mm512_cmp_pd_mask(__m512d(square), __m512d(limit), _CMP_LE_OQ);
  const __m512d sum = _mm512_add_pd(_mm512_maskz_loadu_pd(mask, to), __m512d(value));
  _mm512_mask_storeu_pd(to, mask, sum);
#elif QX_SPREAD_LANES == 4
  const __m256i mask =
      _mm256_castpd_si256(_mm256_cmp_pd(__m256d(square), __m256d(limit), _CMP_LE_OQ));
  const __m256d sum = _mm256_add_pd(_mm256_maskload_pd(to, mask), __m256d(value));
  _mm256_maskstore_pd(to, mask, sum);
#else
  for (int k = 0; k < W; ++k) {
    if (square[k] <= limit[k]) to[k] += value[k];
  }
#endif
}

// 1/11!, 1/10!, ... 1/0!
constexpr double factors[12] = {
    1.0 / 39916800.0, 1.0 / 3628800.0, 1.0 / 362880.0, 1.0 / 40320.0, 1.0 / 5040.0, 1.0 / 720.0,
    1.0 / 120.0,      1.0 / 24.0,      1.0 / 6.0,      0.5,           1.0,          1.0};

// exp(t) for |t| <= 700 to the last bits: 2^n exp(f), |f| <= ln 2 / 2.
QX_FORCED V exponential(V t) {
  constexpr double whole = 6755399441055744.0;  // 1.5 2^52: its sum with n has n in the last bits
  const V shifted = t * 1.4426950408889634 + whole;
  const V n = shifted - whole;
  const V f = (t - n * 0.693147180369123816490) - n * 1.90821492927058770002e-10;
  V p = splat(factors[0]);
  for (int k = 1; k < 12; ++k) p = p * f + factors[k];
  constexpr std::int64_t one = std::int64_t{1023} << 52;
  return p * V((Bits(shifted) << 52) + one);
}

// Three of these multiplied are still a normal number, which a denormal would cost dearly.
constexpr double least_exponent = -230.0;

QX_FORCED V gaussian(V minus_t) { return exponential(at_least(minus_t, least_exponent)); }

// What registers may read beyond the last of `count` values. It counts for nothing, but must not be
// left from something else: as a denormal number it would cost more than all the rest.
QX_FORCED void clear_beyond(std::int32_t count, double* values) {
  for (std::int32_t m = (count + W - 1) / W * W; m < padded(count); m += W) store(values + m, V{});
}

inline void comb(std::int32_t n, const double* amplitudes, const double* exponents,
                 std::int32_t count, const double* x, double* values, std::ptrdiff_t pitch) {
  for (std::int32_t m = 0; m < count; m += W) {
    const V at = load(x + m);
    const V square = at * at;
    for (std::int32_t i = 0; i < n; ++i) {
      store(values + i * pitch + m, amplitudes[i] * gaussian(square * -exponents[i]));
    }
  }
  for (std::int32_t i = 0; i < n; ++i) clear_beyond(count, values + i * pitch);
}

inline void leaning_comb(std::int32_t n, const double* exponents, std::int32_t count,
                         const LeaningPoints& points, double* values, double* ratios,
                         std::ptrdiff_t pitch) {
  const double step = points.lean;
  for (std::int32_t i = 0; i < n; ++i) {
    const double e = exponents[i];
    points.change[i] = exponential(splat(-2.0 * e * step * step))[0];
    for (std::int32_t m = 0; m < count; m += W) {
      const V at = load(points.x + m) + points.shift;
      store(values + i * pitch + m, exponential(at * at * -e));
      store(ratios + i * pitch + m, exponential((at + at + step) * (-e * step)));
    }
    clear_beyond(count, values + i * pitch);
  }
}

inline void lean(std::int32_t n, std::int32_t count, const double* change, double* values,
                 double* ratios, std::ptrdiff_t pitch) {
  for (std::int32_t i = 0; i < n; ++i, values += pitch, ratios += pitch) {
    for (std::int32_t m = 0; m < count; m += W) {
      const V ratio = load(ratios + m);
      store(values + m, load(values + m) * ratio);
      store(ratios + m, ratio * change[i]);
    }
  }
}

inline void squares(std::int32_t count, const double* x, double shift, double* out) {
  for (std::int32_t m = 0; m < padded(count); m += W) {
    const V at = load(x + m) + shift;
    store(out + m, at * at);
  }
}

inline void heights(const double* amplitudes, const double* exponents, double z, double* out) {
  for (std::int32_t i = 0; i < spread_padding; i += W) {
    store(out + i, load(amplitudes + i) * gaussian(load(exponents + i) * -(z * z)));
  }
}

// Calls f.operator()<N>() for n Gaussians.
template <class F>
QX_FORCED void with_number(std::int32_t n, const F& f) {
  switch (n) {
    case 1:
      return f.template operator()<1>();
    case 2:
      return f.template operator()<2>();
    case 3:
      return f.template operator()<3>();
    case 4:
      return f.template operator()<4>();
    default:
      return f.template operator()<5>();
  }
}

// Two registers of a row side by side fit with five Gaussians' values into 16 registers.
template <class F>
QX_FORCED void by_columns(std::int32_t lanes, const F& f) {
  std::int32_t lane = 0;
  for (; lane + W < lanes; lane += 2 * W) f.template operator()<2>(lane);
  if (lane < lanes) f.template operator()<1>(lane);
}

// What stays in registers while a column goes down the rows is held by value: a store to the map
// could change anything that a pointer leads to.
template <int N, int Columns, bool Cut>
QX_FORCED void add_comb_columns(const SpreadLayer& layer, const SpreadCombs& combs,
                                const double* heights, std::int32_t lane) {
  V g[N][Columns];
  V square[Columns];
  V number[Columns];
  for (int v = 0; v < Columns; ++v) {
    if (Cut) number[v] = counting() + (lane + v * W);
    square[v] = load(combs.x_squared + lane + v * W);
    for (int i = 0; i < N; ++i) {
      g[i][v] = load(combs.along_x + i * combs.x_pitch + lane + v * W) * heights[i * heights_pitch];
    }
  }
  const V nowhere = splat(-1.0);
  const double rest = layer.rest;
  const double* y_squared = layer.y_squared;
  const double* along_y = combs.along_y;
  const std::ptrdiff_t y_pitch = combs.y_pitch;
  const std::ptrdiff_t pitch = layer.pitch;
  const std::int32_t low_end = layer.low_end;
  const std::int32_t high_end = layer.high_end;
  const std::int32_t rows = layer.rows;
  double* row = layer.data + lane;
  for (std::int32_t j = 0; j < rows; ++j, row += pitch, ++along_y) {
    const V limit = splat(rest - y_squared[j]);
    for (int v = 0; v < Columns; ++v) {
      V sum = g[0][v] * *along_y;
      for (int i = 1; i < N; ++i) sum += g[i][v] * along_y[i * y_pitch];
      V here = limit;
      if (Cut) here = between(number[v], low_end - j, high_end - j) ? limit : nowhere;
      add_within(row + v * W, sum, square[v], here);
    }
  }
}

inline void add_combs(const SpreadLayer& layer, const SpreadCombs& combs, const double* heights) {
  with_number(combs.n, [&]<int N>() {
    by_columns(layer.lanes, [&]<int Columns>(std::int32_t lane) {
      if (layer.cut) {
        add_comb_columns<N, Columns, true>(layer, combs, heights, lane);
      } else {
        add_comb_columns<N, Columns, false>(layer, combs, heights, lane);
      }
    });
  });
}

// -r^T P r / 2
QX_FORCED V form_at(const double* p, V x, double y, double z) {
  const double steady = p[1] * y * y + p[2] * z * z + 2.0 * p[5] * y * z;
  return (x * (x * p[0] + 2.0 * (p[3] * y + p[4] * z)) + steady) * -0.5;
}

// A column of lanes down the rows. A ratio that starts from a row changes by the same factor.
template <int N>
QX_FORCED void fill_by_ratios(const SpreadSlice& slice, const SliceForm& form, std::int32_t rows,
                              std::int32_t lane) {
  const V first = load(slice.x + lane) + slice.offset[0];
  V value[N];
  V ratio[N];
  for (int i = 0; i < N; ++i) {
    const double* p = form.precision[i];
    const V here = form_at(p, first, slice.y[0], form.z);
    const V there = form_at(p, first + form.bx, slice.y[0] + form.by, form.z);
    value[i] = exponential(at_least(here, -700.0));
    ratio[i] = exponential(at_most(at_least(there - here, -700.0), 700.0));
  }
  double* out = slice.values + lane;
  for (std::int32_t j = 0; j < rows; ++j) {
    for (int i = 0; i < N; ++i, out += slice.pitch) {
      store(out, value[i]);
      value[i] *= ratio[i];
      ratio[i] *= form.change[i];
    }
  }
}

template <int N>
QX_FORCED void fill_by_exponentials(const SpreadSlice& slice, const SliceForm& form,
                                    std::int32_t rows, std::int32_t lane) {
  const V x = load(slice.x + lane);
  double* out = slice.values + lane;
  for (std::int32_t j = 0; j < rows; ++j) {
    for (int i = 0; i < N; ++i, out += slice.pitch) {
      store(out, gaussian(form_at(form.precision[i], x + slice.offset[j], slice.y[j], form.z)));
    }
  }
}

template <int N>
void fill_slice_of(const SpreadSlice& slice, const SliceForm& form, std::int32_t rows,
                   std::int32_t lanes) {
  for (std::int32_t i = 0; i < N * rows; ++i) clear_beyond(lanes, slice.values + i * slice.pitch);
  for (std::int32_t lane = 0; lane < lanes; lane += W) {
    if (form.steady) {
      fill_by_ratios<N>(slice, form, rows, lane);
    } else {
      fill_by_exponentials<N>(slice, form, rows, lane);
    }
  }
}

inline void fill_slice(const SpreadSlice& slice, const SliceForm& form, std::int32_t rows,
                       std::int32_t lanes) {
  with_number(slice.n, [&]<int N>() { fill_slice_of<N>(slice, form, rows, lanes); });
}

template <int N, int Columns>
QX_FORCED void add_slice_columns(const SpreadLayer& layer, const SpreadSlice& slice,
                                 std::int32_t first, const double* heights, std::int32_t lane) {
  V x[Columns];
  V h[N];
  for (int v = 0; v < Columns; ++v) x[v] = load(slice.x + lane + v * W);
  for (int i = 0; i < N; ++i) h[i] = splat(heights[i]);
  const double* values = slice.values + first * N * slice.pitch + lane;
  double* row = layer.data + lane;
  for (std::int32_t j = 0; j < layer.rows; ++j, row += layer.pitch, values += N * slice.pitch) {
    const V limit = splat(layer.rest - layer.y_squared[j]);
    for (int v = 0; v < Columns; ++v) {
      const V here = x[v] + slice.offset[first + j];
      V sum = h[0] * load(values + v * W);
      for (int i = 1; i < N; ++i) sum += h[i] * load(values + i * slice.pitch + v * W);
      add_within(row + v * W, sum, here * here, limit);
    }
  }
}

inline void add_slice(const SpreadLayer& layer, const SpreadSlice& slice, std::int32_t first,
                      const double* heights) {
  with_number(slice.n, [&]<int N>() {
    by_columns(layer.lanes, [&]<int Columns>(std::int32_t lane) {
      add_slice_columns<N, Columns>(layer, slice, first, heights, lane);
    });
  });
}

constexpr SpreadKernels table = {QX_SPREAD_NAME, comb,      leaning_comb, lean,     squares,
                                 heights,        add_combs, fill_slice,   add_slice};

}  // namespace qx::QX_SPREAD_ISA
