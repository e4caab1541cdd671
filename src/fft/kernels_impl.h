// K. The kernel table of one instruction set: drives the stages. Included once per instruction set,
// with QX_FFT_ISA naming the namespace and QX_FFT_LANES the doubles in a register.
#pragma once

#include "fft/kernels.h"
#include "fft/stage.h"

#include <cassert>

namespace qx::QX_FFT_ISA {

constexpr int lanes = QX_FFT_LANES;

// Calls f.operator()<P>() with P = radix; the list of butterflies that plans may use.
template <class F>
QX_INLINE void with_radix(Index radix, const F& f) {
  switch (radix) {
    case 2:
      return f.template operator()<2>();
    case 3:
      return f.template operator()<3>();
    case 4:
      return f.template operator()<4>();
    case 5:
      return f.template operator()<5>();
    case 6:
      return f.template operator()<6>();
    case 8:
      return f.template operator()<8>();
    case 9:
      return f.template operator()<9>();
    case 10:
      return f.template operator()<10>();
    case 12:
      return f.template operator()<12>();
    case 15:
      return f.template operator()<15>();
    default:
      __builtin_unreachable();
  }
}

inline double* align(double* scratch) {
  const auto address = reinterpret_cast<std::uintptr_t>(scratch);
  return reinterpret_cast<double*>((address + 63) & ~std::uintptr_t{63});
}

// ---- rows

struct Split {
  double* re;
  double* im;
};
struct ConstSplit {
  const double* re;
  const double* im;
};

template <int W, bool Twisted>
inline void flat(const FftStep& step, ConstSplit in, Split out) {
  with_radix(step.radix, [&]<int P>() QX_FLAT {
    flat_stage<W, P, Twisted>(step.before, step.after, in.re, in.im, out.re, out.im, step.cosine,
                              step.sine);
  });
}

// Eight lanes cost what twice four do: whichever covers a run with less waste.
QX_INLINE bool suits_eight(Index run) { return run >= 8 && 2 * ((run + 7) / 8) <= (run + 3) / 4; }

template <bool Twisted>
inline void later_stage(const FftStep& step, ConstSplit in, Split out) {
  const Index run = step.before;
  if constexpr (lanes == 8) {
    if (suits_eight(run)) return flat<8, Twisted>(step, in, out);
  }
  constexpr int width = lanes < 4 ? lanes : 4;
  if (run >= width) return flat<width, Twisted>(step, in, out);
  flat<1, Twisted>(step, in, out);
}

template <int W>
inline bool transposing_stage(const FftStep& step, ConstSplit in, Split out) {
  bool done = false;
  with_radix(step.radix, [&]<int P>() QX_FLAT {
    if constexpr (P >= W && (W < 8 || P % 8 == 0)) {
      if (step.after >= W) {
        row_first<W, P>(step.after, in.re, in.im, out.re, out.im, step.cosine, step.sine);
        done = true;
      }
    }
  });
  return done;
}

inline void first_stage(const FftStep& step, ConstSplit in, Split out) {
  if constexpr (lanes == 8) {
    if (suits_eight(step.after) && transposing_stage<8>(step, in, out)) return;
  }
  constexpr int width = lanes < 4 ? lanes : 4;
  if (transposing_stage<width>(step, in, out)) return;
  flat<1, true>(step, in, out);
}

inline void copy(ConstSplit in, Split out, Index n) {
  for (Index i = 0; i < n; ++i) {
    const double re = in.re[i];
    out.im[i] = in.im[i];
    out.re[i] = re;
  }
}

inline void row(const FftProgram& program, const double* re, const double* im, double* out_re,
                double* out_im, FftScratch scratch) {
  assert(scratch.size >= fft_scratch_size(program.n));
  const Split out = {out_re, out_im};
  // A cache line apart from a power of two, so that the four scratch arrays do not share sets.
  const Index pitch = (program.n + 7) / 8 * 8 + 8;
  double* block = align(scratch.data);
  const Split work[2] = {{block, block + pitch}, {block + 2 * pitch, block + 3 * pitch}};
  ConstSplit source = {re, im};
  for (std::int32_t i = 0; i < program.count; ++i) {
    const FftStep& step = program.steps[i];
    const bool last = i + 1 == program.count;
    if (i == 0 && last) {
      const Split single = {work[0].re, work[0].im};
      flat<1, false>(step, source, single);
      source = {single.re, single.im};
      break;
    }
    const Split target = last ? out : work[i % 2];
    if (i == 0) {
      first_stage(step, source, target);
    } else if (last) {
      later_stage<false>(step, source, target);
    } else {
      later_stage<true>(step, source, target);
    }
    source = {target.re, target.im};
  }
  if (source.re != out.re) copy(source, out, program.n);
}

// ---- columns

// Middle stages of one group between two scratch regions; true if the result is in `b`.
inline bool middle_stages(const FftProgram& program, double* a, double* b) {
  for (std::int32_t i = 1; i + 1 < program.count; ++i) {
    const FftStep& step = program.steps[i];
    double* from = i % 2 != 0 ? a : b;
    double* to = i % 2 != 0 ? b : a;
    with_radix(step.radix, [&]<int P>() QX_FLAT {
      column_middle<lanes, P>(step.before, step.after, from, to, step.cosine, step.sine);
    });
  }
  return program.count % 2 != 0;
}

// Scratch has one region more than there are groups: an odd number of middle stages moves every
// group one region on, the last group first.
template <bool Partial>
inline void column_block(const FftProgram& program, const ColumnBlock& in, const ColumnBlock& out,
                         Index groups, double* scratch) {
  constexpr int W = lanes;
  const Index pitch = 2 * W * program.n;
  const FftStep& first = program.steps[0];
  const FftStep& last = program.steps[program.count - 1];
  if (program.count == 1) {
    with_radix(first.radix, [&]<int P>() QX_FLAT { column_only<W, P, Partial>(in, out, groups); });
    return;
  }
  with_radix(first.radix, [&]<int P>() QX_FLAT {
    column_first<W, P, Partial>(first.after, in, groups, pitch, scratch, first.cosine, first.sine);
  });
  double* spare = scratch + groups * pitch;
  bool moved = false;
  for (Index g = groups - 1; g >= 0; --g) {
    double* region = scratch + g * pitch;
    moved = middle_stages(program, region, spare);
    if (moved) spare = region;
  }
  with_radix(last.radix, [&]<int P>() QX_FLAT {
    column_last<W, P, Partial>(last.before, moved ? scratch + pitch : scratch, groups, pitch, out);
  });
}

inline void columns(const FftProgram& program, FftColumns in, FftColumns out, Index first,
                    Index count, FftScratch scratch) {
  assert(scratch.size >= fft_scratch_size(program.n));
  double* work = align(scratch.data);
  const Index end = first + count;
  if (program.count == 0) {
    for (Index c = first; c < end; ++c) {
      const double re = in.re[0][c];
      out.im[0][c] = in.im[0][c];
      out.re[0][c] = re;
    }
    return;
  }
  const Index most = fft_column_group(program.n) * (8 / lanes);
  Index c = first;
  while (c + lanes <= end) {
    const Index left = (end - c) / lanes;
    const Index groups = left < most ? left : most;
    column_block<false>(program, {in.re, in.im, c, lanes}, {out.re, out.im, c, lanes}, groups,
                        work);
    c += groups * lanes;
  }
  if (c < end) {
    column_block<true>(program, {in.re, in.im, c, end - c}, {out.re, out.im, c, end - c}, 1, work);
  }
}

// ---- pairs of real rows

inline void join_pair(Index n, Index count, const double* __restrict a_re,
                      const double* __restrict a_im, const double* __restrict b_re,
                      const double* __restrict b_im, double* __restrict z_re,
                      double* __restrict z_im) {
  z_re[0] = a_re[0];
  z_im[0] = b_re[0];
  for (Index h = 1; h < count; ++h) {
    z_re[h] = a_re[h] - b_im[h];
    z_im[h] = a_im[h] + b_re[h];
  }
  for (Index h = count; h <= n - count; ++h) {
    z_re[h] = 0;
    z_im[h] = 0;
  }
  for (Index h = 1; h < count; ++h) {
    z_re[n - h] = a_re[h] + b_im[h];
    z_im[n - h] = b_re[h] - a_im[h];
  }
}

inline void split_pair(Index n, Index count, const double* __restrict z_re,
                       const double* __restrict z_im, double* __restrict a_re,
                       double* __restrict a_im, double* __restrict b_re, double* __restrict b_im) {
  a_re[0] = z_re[0];
  a_im[0] = 0;
  b_re[0] = z_im[0];
  b_im[0] = 0;
  for (Index h = 1; h < count; ++h) {
    a_re[h] = 0.5 * (z_re[h] + z_re[n - h]);
    a_im[h] = 0.5 * (z_im[h] - z_im[n - h]);
    b_re[h] = 0.5 * (z_im[h] + z_im[n - h]);
    b_im[h] = 0.5 * (z_re[n - h] - z_re[h]);
  }
}

template <class V>
QX_INLINE void put(double* to, V x) {
  store(to, x);
}
template <class V>
QX_INLINE void put(float* to, V x) {
  typedef float Single __attribute__((vector_size(sizeof(V) / 2)));
  const Single rounded = __builtin_convertvector(x, Single);
  __builtin_memcpy(to, &rounded, sizeof rounded);
}

template <bool Streaming, class T>
inline RowMoments deliver_as(const double* from, Index n, T* to) {
  using V = Vector<lanes>;
  V sum{};
  V squares{};
  V low = splat<V>(from[0]);
  V high = low;
  RowMoments total = {0, 0, from[0], from[0]};
  const auto take = [&](double s, double q, double a, double b) QX_FLAT {
    total.sum += s;
    total.sum_of_squares += q;
    if (a < total.minimum) total.minimum = a;
    if (b > total.maximum) total.maximum = b;
  };
  const auto take_one = [&](Index i) QX_FLAT {
    take(from[i], from[i] * from[i], from[i], from[i]);
    to[i] = static_cast<T>(from[i]);
  };
  Index i = 0;
  if constexpr (Streaming) {
    for (; i < n && reinterpret_cast<std::uintptr_t>(to + i) % sizeof(V) != 0; ++i) take_one(i);
  }
  for (; i + lanes <= n; i += lanes) {
    const V x = load<V>(from + i);
    sum += x;
    squares += x * x;
    low = x < low ? x : low;
    high = x > high ? x : high;
    if constexpr (Streaming) {
      stream(to + i, x);
    } else {
      put(to + i, x);
    }
  }
  for (; i < n; ++i) take_one(i);
  for (int k = 0; k < lanes; ++k) take(sum[k], squares[k], low[k], high[k]);
  return total;
}

inline RowMoments deliver(const double* from, Index n, double* to, bool streaming) {
  return streaming ? deliver_as<true>(from, n, to) : deliver_as<false>(from, n, to);
}

inline RowMoments deliver_single(const double* from, Index n, float* to) {
  return deliver_as<false>(from, n, to);
}

constexpr FftKernels table = {QX_FFT_NAME, row,     columns,       join_pair,
                              split_pair,  deliver, deliver_single};

}  // namespace qx::QX_FFT_ISA
