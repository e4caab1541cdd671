// K. Stages of the self-sorting (Stockham) transform over split arrays.
//
// With L the product of the radices done, P the radix of the stage and m = n / (L P), a stage reads
// point s + L (r + m j), j = 0 .. P - 1, transforms these P points, multiplies result q by
// exp(2 pi i L r q / n) and writes it to point s + L (q + P r), for all s < L and r < m. After the
// last stage, where m = 1 and nothing is multiplied, the frequencies stand in order.
//
// Vector registers are filled in three ways:
//   columns     lanes are neighbouring columns; the first stage reads the caller's rows, the last
//               one writes them; scratch in between holds W real and W imaginary parts per point.
//   flat_stage  lanes are consecutive s of one row: runs of L numbers are contiguous, and what is
//               left of a run is covered by a vector that overlaps the one before.
//   row_first   the first stage of a row, where L = 1: lanes are consecutive r, and the results are
//               transposed in registers so that they are stored contiguously.
#pragma once

#include "fft/radix.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qx::QX_FFT_ISA {

template <class V>
QX_INLINE V load(const double* from) {
  V v;
  __builtin_memcpy(&v, from, sizeof v);
  return v;
}
template <class V>
QX_INLINE void store(double* to, V v) {
  __builtin_memcpy(to, &v, sizeof v);
}
// To an address that is aligned to V, without fetching what stands there.
template <class V>
QX_INLINE void stream(double* to, V v) {
#if defined(__AVX512F__)
  if constexpr (sizeof(V) == 64) return _mm512_stream_pd(to, __m512d(v));
#endif
#if defined(__AVX__)
  if constexpr (sizeof(V) == 32) return _mm256_stream_pd(to, __m256d(v));
#endif
#if defined(__x86_64__)
  if constexpr (sizeof(V) == 16) return _mm_stream_pd(to, __m128d(v));
#endif
  store(to, v);
}
template <class V>
QX_INLINE V splat(double x) {
  return V{} + x;
}

// The first `count` lanes; the others are zero, or left alone in memory.
template <int W>
QX_INLINE Vector<W> load_part(const double* from, Index count) {
#if defined(__AVX512F__)
  if constexpr (W == 8) {
    return Vector<8>(_mm512_maskz_loadu_pd(static_cast<__mmask8>((1U << count) - 1), from));
  }
#endif
  Vector<W> v{};
  __builtin_memcpy(&v, from, static_cast<std::size_t>(count) * sizeof(double));
  return v;
}
template <int W>
QX_INLINE void store_part(double* to, Vector<W> v, Index count) {
#if defined(__AVX512F__)
  if constexpr (W == 8) {
    _mm512_mask_storeu_pd(to, static_cast<__mmask8>((1U << count) - 1), __m512d(v));
    return;
  }
#endif
  __builtin_memcpy(to, &v, static_cast<std::size_t>(count) * sizeof(double));
}

// Where twiddle q of point r stands is the same for every stage.
template <int Q, class V>
QX_INLINE Complex<V> twist(Complex<V> x, const double* cosine, const double* sine, Index m,
                           Index r) {
  if constexpr (Q == 0) return x;
  return turn(x, splat<V>(cosine[(Q - 1) * m + r]), splat<V>(sine[(Q - 1) * m + r]));
}

// ---- columns

// A block of up to W columns in the caller's rows.
struct ColumnBlock {
  double* const* re;
  double* const* im;
  Index first;
  Index count;  // of W, when Partial
};

template <int W, bool Partial>
QX_INLINE Complex<Vector<W>> read(const ColumnBlock& block, Index point) {
  const double* re = block.re[point] + block.first;
  const double* im = block.im[point] + block.first;
  if constexpr (Partial) return {load_part<W>(re, block.count), load_part<W>(im, block.count)};
  return {load<Vector<W>>(re), load<Vector<W>>(im)};
}
template <int W, bool Partial>
QX_INLINE void write(const ColumnBlock& block, Index point, Complex<Vector<W>> x) {
  double* re = block.re[point] + block.first;
  double* im = block.im[point] + block.first;
  if constexpr (Partial) {
    store_part<W>(re, x.re, block.count);
    store_part<W>(im, x.im, block.count);
  } else {
    store(re, x.re);
    store(im, x.im);
  }
}

// `groups` blocks side by side, the next one's scratch `pitch` doubles on: whole cache lines of
// every row are taken together before the stage goes to rows far away.
template <int W, int P, bool Partial>
__attribute__((noinline)) void column_first(Index m, const ColumnBlock& in, Index groups,
                                            Index pitch, double* __restrict out,
                                            const double* cosine, const double* sine) {
  using V = Vector<W>;
  for (Index r = 0; r < m; ++r) {
    ColumnBlock block = in;
    for (Index g = 0; g < groups; ++g) {
      Complex<V> x[P];
      each<0, P>([&]<int J>() QX_FLAT { x[J] = read<W, Partial>(block, r + m * J); });
      Butterfly<P, 1, V>::run(x);
      double* to = out + g * pitch;
      each<0, P>([&]<int Q>() QX_FLAT {
        const Complex<V> y = twist<Q>(x[place<P>(Q)], cosine, sine, m, r);
        store(to + 2 * W * Q, y.re);
        store(to + 2 * W * Q + W, y.im);
      });
      block.first += W;
    }
    out += 2 * W * P;
  }
}

template <int W, int P>
__attribute__((noinline)) void column_middle(Index before, Index m, const double* __restrict in,
                                             double* __restrict out, const double* cosine,
                                             const double* sine) {
  using V = Vector<W>;
  const Index near = 2 * W * before;
  const Index far = near * m;
  for (Index r = 0; r < m; ++r) {
    for (Index s = 0; s < before; ++s) {
      Complex<V> x[P];
      const double* from = in;
      each<0, P>([&]<int J>() QX_FLAT {
        x[J] = {load<V>(from), load<V>(from + W)};
        from += far;
      });
      Butterfly<P, 1, V>::run(x);
      double* to = out;
      each<0, P>([&]<int Q>() QX_FLAT {
        const Complex<V> y = twist<Q>(x[place<P>(Q)], cosine, sine, m, r);
        store(to, y.re);
        store(to + W, y.im);
        to += near;
      });
      in += 2 * W;
      out += 2 * W;
    }
    out += (P - 1) * near;
  }
}

template <int W, int P, bool Partial>
__attribute__((noinline)) void column_last(Index before, const double* __restrict in, Index groups,
                                           Index pitch, const ColumnBlock& out) {
  using V = Vector<W>;
  const Index far = 2 * W * before;
  for (Index s = 0; s < before; ++s) {
    ColumnBlock block = out;
    for (Index g = 0; g < groups; ++g) {
      Complex<V> x[P];
      const double* from = in + g * pitch;
      each<0, P>([&]<int J>() QX_FLAT {
        x[J] = {load<V>(from), load<V>(from + W)};
        from += far;
      });
      Butterfly<P, 1, V>::run(x);
      each<0, P>([&]<int Q>()
                     QX_FLAT { write<W, Partial>(block, s + before * Q, x[place<P>(Q)]); });
      block.first += W;
    }
    in += 2 * W;
  }
}

// A length that is a radix itself.
template <int W, int P, bool Partial>
__attribute__((noinline)) void column_only(ColumnBlock in, ColumnBlock out, Index groups) {
  using V = Vector<W>;
  for (Index g = 0; g < groups; ++g) {
    Complex<V> x[P];
    each<0, P>([&]<int J>() QX_FLAT { x[J] = read<W, Partial>(in, J); });
    Butterfly<P, 1, V>::run(x);
    each<0, P>([&]<int Q>() QX_FLAT { write<W, Partial>(out, Q, x[place<P>(Q)]); });
    in.first += W;
    out.first += W;
  }
}

// ---- rows

template <int W, int P, bool Twisted>
__attribute__((noinline)) void flat_stage(Index run, Index m, const double* __restrict re,
                                          const double* __restrict im, double* __restrict out_re,
                                          double* __restrict out_im, const double* cosine,
                                          const double* sine) {
  using V = Vector<W>;
  if constexpr (!Twisted) m = 1;  // nothing is left behind the last stage
  if constexpr (!Twisted) m = 1;  // nothing is left behind the last stage
  const Index far = m * run;
  for (Index r = 0; r < m; ++r) {
    const auto block = [&](Index s) QX_FLAT {
      Complex<V> x[P];
      const double* from_re = re + s;
      const double* from_im = im + s;
      each<0, P>([&]<int J>() QX_FLAT {
        x[J] = {load<V>(from_re), load<V>(from_im)};
        from_re += far;
        from_im += far;
      });
      Butterfly<P, 1, V>::run(x);
      double* to_re = out_re + s;
      double* to_im = out_im + s;
      each<0, P>([&]<int Q>() QX_FLAT {
        Complex<V> y = x[place<P>(Q)];
        if constexpr (Twisted) y = twist<Q>(y, cosine, sine, m, r);
        store(to_re, y.re);
        store(to_im, y.im);
        to_re += run;
        to_im += run;
      });
    };
    Index s = 0;
    for (; s + W <= run; s += W) block(s);
    if (s < run) block(run - W);
    re += run;
    im += run;
    out_re += P * run;
    out_im += P * run;
  }
}

template <int W>
QX_INLINE void transpose(Vector<W>* x) {
  using V = Vector<W>;
  if constexpr (W == 2) {
    const V a = __builtin_shufflevector(x[0], x[1], 0, 2);
    x[1] = __builtin_shufflevector(x[0], x[1], 1, 3);
    x[0] = a;
  } else if constexpr (W == 4) {
    const V a = __builtin_shufflevector(x[0], x[1], 0, 4, 2, 6);
    const V b = __builtin_shufflevector(x[0], x[1], 1, 5, 3, 7);
    const V c = __builtin_shufflevector(x[2], x[3], 0, 4, 2, 6);
    const V d = __builtin_shufflevector(x[2], x[3], 1, 5, 3, 7);
    x[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5);
    x[1] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
    x[2] = __builtin_shufflevector(a, c, 2, 3, 6, 7);
    x[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
  } else {
    V t[8];
    V u[8];
    each<0, 4>([&]<int I>() QX_FLAT {
      const V a = x[2 * I];
      const V b = x[2 * I + 1];
      t[2 * I] = __builtin_shufflevector(a, b, 0, 8, 2, 10, 4, 12, 6, 14);
      t[2 * I + 1] = __builtin_shufflevector(a, b, 1, 9, 3, 11, 5, 13, 7, 15);
    });
    each<0, 4>([&]<int I>() QX_FLAT {
      constexpr int k = 4 * (I / 2) + I % 2;
      u[k] = __builtin_shufflevector(t[k], t[k + 2], 0, 1, 8, 9, 4, 5, 12, 13);
      u[k + 2] = __builtin_shufflevector(t[k], t[k + 2], 2, 3, 10, 11, 6, 7, 14, 15);
    });
    each<0, 4>([&]<int I>() QX_FLAT {
      x[I] = __builtin_shufflevector(u[I], u[I + 4], 0, 1, 2, 3, 8, 9, 10, 11);
      x[I + 4] = __builtin_shufflevector(u[I], u[I + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    });
  }
}

// W rows of x, of which row I stands at x[place(first + I)], become W runs of W numbers.
template <int W, int P>
QX_INLINE void store_transposed(const Vector<W>* x, double* to) {
  each<0, (P + W - 1) / W>([&]<int Block>() QX_FLAT {
    constexpr int q = Block * W + W <= P ? Block * W : P - W;
    Vector<W> rows[W];
    each<0, W>([&]<int I>() QX_FLAT { rows[I] = x[q + I]; });
    transpose<W>(rows);
    each<0, W>([&]<int I>() QX_FLAT { store(to + q + I * P, rows[I]); });
  });
}

// Needs m >= W and P >= W.
template <int W, int P>
__attribute__((noinline)) void row_first(Index m, const double* __restrict re,
                                         const double* __restrict im, double* __restrict out_re,
                                         double* __restrict out_im, const double* cosine,
                                         const double* sine) {
  using V = Vector<W>;
  const auto block = [&](Index r) QX_FLAT {
    Complex<V> x[P];
    const double* from_re = re + r;
    const double* from_im = im + r;
    each<0, P>([&]<int J>() QX_FLAT {
      x[J] = {load<V>(from_re), load<V>(from_im)};
      from_re += m;
      from_im += m;
    });
    Butterfly<P, 1, V>::run(x);
    V y_re[P];
    V y_im[P];
    const double* c = cosine + r;
    const double* s = sine + r;
    each<0, P>([&]<int Q>() QX_FLAT {
      Complex<V> y = x[place<P>(Q)];
      if constexpr (Q > 0) {
        y = turn(y, load<V>(c), load<V>(s));
        c += m;
        s += m;
      }
      y_re[Q] = y.re;
      y_im[Q] = y.im;
    });
    store_transposed<W, P>(y_re, out_re + P * r);
    store_transposed<W, P>(y_im, out_im + P * r);
  };
  Index r = 0;
  for (; r + W <= m; r += W) block(r);
  if (r < m) block(m - W);
}

}  // namespace qx::QX_FFT_ISA
