// K. Butterflies: the discrete Fourier transform of P points held in registers.
//
//   x[k] <- sum over j of x[j] exp(+2 pi i j k / P)
//
// Everything is written once for a "lane" type V, which is a double or a vector of 2, 4 or 8 of
// them (GCC vector extensions): one call transforms as many independent sets of P points as V has
// lanes. The opposite sign needs no code of its own: exchanging real and imaginary parts on the way
// in and on the way out conjugates the kernel.
//
// 2, 3, 4 and 5 are written out; other P are products A B: B transforms of A points, constant
// twiddles, A transforms of B points, all in registers. The result of such a P is permuted;
// place<P>(k) tells where frequency k stands.
//
// This header is compiled several times with different instruction sets. QX_FFT_ISA names the
// namespace of the compilation, so that the linker can never give a machine without wide registers
// a function that uses them; for the same reason nothing here calls an inline function from
// elsewhere.
#pragma once

#include <cstddef>

#define QX_INLINE __attribute__((always_inline)) inline
#define QX_FLAT __attribute__((always_inline))  // for lambdas

namespace qx::QX_FFT_ISA {

using Index = std::ptrdiff_t;

template <int Lanes>
struct VectorOf;
template <>
struct VectorOf<1> {
  using Type = double;
};
template <>
struct VectorOf<2> {
  using Type = double __attribute__((vector_size(16)));
};
template <>
struct VectorOf<4> {
  using Type = double __attribute__((vector_size(32)));
};
template <>
struct VectorOf<8> {
  using Type = double __attribute__((vector_size(64)));
};
template <int Lanes>
using Vector = typename VectorOf<Lanes>::Type;

// cos and sin of 2 pi k / p to the last bit, at compile time.
struct Root {
  double cosine, sine;
};
constexpr long double sine_series(long double first, long double square, int n) {
  long double term = first;
  long double sum = first;
  for (; n < 40; n += 2) {
    term *= -square / (static_cast<long double>(n) * (n + 1));
    sum += term;
  }
  return sum;
}
constexpr Root octant_root(long double turns) {
  const long double angle = 6.283185307179586476925286766559L * turns;
  return {static_cast<double>(sine_series(1, angle * angle, 1)),
          static_cast<double>(sine_series(angle, angle * angle, 2))};
}
constexpr Root root(int k, int p) {
  k %= p;
  if (2 * k > p) {
    const Root mirror = root(p - k, p);
    return {mirror.cosine, -mirror.sine};
  }
  if (4 * k > p) {
    const Root mirror = root(p - 2 * k, 2 * p);
    return {-mirror.cosine, mirror.sine};
  }
  if (8 * k > p) {
    const Root mirror = octant_root(static_cast<long double>(p - 4 * k) / (4.0L * p));
    return {mirror.sine, mirror.cosine};
  }
  return octant_root(static_cast<long double>(k) / p);
}

template <class V>
struct Complex {
  V re, im;
};
template <class V>
QX_INLINE Complex<V> add(Complex<V> a, Complex<V> b) {
  return {a.re + b.re, a.im + b.im};
}
template <class V>
QX_INLINE Complex<V> subtract(Complex<V> a, Complex<V> b) {
  return {a.re - b.re, a.im - b.im};
}
template <class V>
QX_INLINE Complex<V> add_i(Complex<V> a, Complex<V> b) {  // a + i b
  return {a.re - b.im, a.im + b.re};
}
template <class V>
QX_INLINE Complex<V> subtract_i(Complex<V> a, Complex<V> b) {  // a - i b
  return {a.re + b.im, a.im - b.re};
}
template <class V>
QX_INLINE Complex<V> turn(Complex<V> a, V cosine, V sine) {
  return {a.re * cosine - a.im * sine, a.re * sine + a.im * cosine};
}
template <int K, int P, class V>
QX_INLINE Complex<V> turn_by(Complex<V> a) {  // a exp(2 pi i K / P)
  if constexpr (K % P == 0) {
    return a;
  } else if constexpr (4 * K == P) {
    return {-a.im, a.re};
  } else if constexpr (2 * K == P) {
    return {-a.re, -a.im};
  } else {
    constexpr Root w = root(K, P);
    return {a.re * w.cosine - a.im * w.sine, a.re * w.sine + a.im * w.cosine};
  }
}

// Calls f.operator()<Q>() for Q in [First, Last), unrolled.
template <int First, int Last, class F>
QX_INLINE void each(const F& f) {
  if constexpr (First < Last) {
    f.template operator()<First>();
    each<First + 1, Last>(f);
  }
}

// The factor A of a composite P; 1 for the butterflies that are written out.
constexpr int first_factor(int p) {
  switch (p) {
    case 6:
    case 10:
      return 2;
    case 9:
      return 3;
    case 8:
    case 12:
      return 4;
    case 15:
      return 5;
    default:
      return 1;
  }
}

template <int P>
constexpr int place(int k) {
  constexpr int a = first_factor(P);
  return a == 1 ? k : P / a * (k % a) + k / a;
}

// Points x[0], x[S], ... x[(P - 1) S].
template <int P, int S, class V>
struct Butterfly {
  static constexpr int a = first_factor(P);
  static constexpr int b = P / a;
  static_assert(a > 1);
  QX_INLINE static void run(Complex<V>* x) {
    each<0, b>([&]<int J>() QX_FLAT { Butterfly<a, b * S, V>::run(x + J * S); });
    each<0, P>([&]<int J>() QX_FLAT { x[J * S] = turn_by<(J / b) * (J % b), P>(x[J * S]); });
    each<0, a>([&]<int K>() QX_FLAT { Butterfly<b, S, V>::run(x + K * b * S); });
  }
};

template <int S, class V>
struct Butterfly<2, S, V> {
  QX_INLINE static void run(Complex<V>* x) {
    const Complex<V> a = x[0];
    const Complex<V> b = x[S];
    x[0] = add(a, b);
    x[S] = subtract(a, b);
  }
};

template <int S, class V>
struct Butterfly<3, S, V> {
  QX_INLINE static void run(Complex<V>* x) {
    constexpr double sine = root(1, 3).sine;
    const Complex<V> sum = add(x[S], x[2 * S]);
    const Complex<V> difference = subtract(x[S], x[2 * S]);
    const Complex<V> real = {x[0].re - 0.5 * sum.re, x[0].im - 0.5 * sum.im};
    const Complex<V> turned = {difference.re * sine, difference.im * sine};
    x[0] = add(x[0], sum);
    x[S] = add_i(real, turned);
    x[2 * S] = subtract_i(real, turned);
  }
};

template <int S, class V>
struct Butterfly<4, S, V> {
  QX_INLINE static void run(Complex<V>* x) {
    const Complex<V> even = add(x[0], x[2 * S]);
    const Complex<V> even_turned = subtract(x[0], x[2 * S]);
    const Complex<V> odd = add(x[S], x[3 * S]);
    const Complex<V> odd_turned = subtract(x[S], x[3 * S]);
    x[0] = add(even, odd);
    x[S] = add_i(even_turned, odd_turned);
    x[2 * S] = subtract(even, odd);
    x[3 * S] = subtract_i(even_turned, odd_turned);
  }
};

template <int S, class V>
struct Butterfly<5, S, V> {
  QX_INLINE static void run(Complex<V>* x) {
    constexpr Root w1 = root(1, 5);
    constexpr Root w2 = root(2, 5);
    const Complex<V> s1 = add(x[S], x[4 * S]);
    const Complex<V> s2 = add(x[2 * S], x[3 * S]);
    const Complex<V> d1 = subtract(x[S], x[4 * S]);
    const Complex<V> d2 = subtract(x[2 * S], x[3 * S]);
    const Complex<V> real1 = {x[0].re + w1.cosine * s1.re + w2.cosine * s2.re,
                              x[0].im + w1.cosine * s1.im + w2.cosine * s2.im};
    const Complex<V> real2 = {x[0].re + w2.cosine * s1.re + w1.cosine * s2.re,
                              x[0].im + w2.cosine * s1.im + w1.cosine * s2.im};
    const Complex<V> turned1 = {w1.sine * d1.re + w2.sine * d2.re,
                                w1.sine * d1.im + w2.sine * d2.im};
    const Complex<V> turned2 = {w2.sine * d1.re - w1.sine * d2.re,
                                w2.sine * d1.im - w1.sine * d2.im};
    x[0] = add(x[0], add(s1, s2));
    x[S] = add_i(real1, turned1);
    x[2 * S] = add_i(real2, turned2);
    x[3 * S] = subtract_i(real2, turned2);
    x[4 * S] = subtract_i(real1, turned1);
  }
};

}  // namespace qx::QX_FFT_ISA
