// K. What the transforms ask of the processor: a table of pure functions over split arrays, one
// table per instruction set. All use the sign exp(+2 pi i jk / n) and no factor 1/n; exchanging the
// real and imaginary arguments, of input and of output, gives the other sign.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

// One stage of a self-sorting sequence: `before` is the product of the radices of earlier stages,
// `after` what remains of n behind this one. The twiddle of output q (from 1 on) at point r is
// entry (q - 1) after + r.
struct FftStep {
  std::ptrdiff_t radix, before, after;
  const double* cosine;
  const double* sine;
};

// A length below 2^31 has at most 30 prime factors.
struct FftProgram {
  std::ptrdiff_t n;
  std::int32_t count;
  FftStep steps[30];
};

// Columns side by side: point p of column c is re[p][c], im[p][c].
struct FftColumns {
  double* const* re;
  double* const* im;
};

// What a kernel may write into meanwhile: the caller's, at least fft_scratch_size(n) doubles.
struct FftScratch {
  double* data;
  std::ptrdiff_t size;
};

struct RowMoments {
  double sum, sum_of_squares, minimum, maximum;
};

struct FftKernels {
  const char* name;

  // One transform of contiguous points; `out` may be `in`. Program in row order.
  void (*row)(const FftProgram& program, const double* re, const double* im, double* out_re,
              double* out_im, FftScratch scratch);

  // Columns first .. first + count - 1, each of program.n points; `out` may be `in`. Program in
  // column order.
  void (*columns)(const FftProgram& program, FftColumns in, FftColumns out, std::ptrdiff_t first,
                  std::ptrdiff_t count, FftScratch scratch);

  // z = a + i b continued to n points, for spectra a and b of real rows whose first `count` terms
  // are given (2 count <= n + 1). The imaginary parts of their terms 0 are ignored.
  void (*join_pair)(std::ptrdiff_t n, std::ptrdiff_t count, const double* a_re, const double* a_im,
                    const double* b_re, const double* b_im, double* z_re, double* z_im);

  // Terms 0 .. count - 1 of the spectra of two real rows from the transform z of row a + i row b.
  void (*split_pair)(std::ptrdiff_t n, std::ptrdiff_t count, const double* z_re, const double* z_im,
                     double* a_re, double* a_im, double* b_re, double* b_im);

  // Copies n numbers and gives their moments. `streaming` writes past the caches, for arrays that
  // they cannot hold.
  RowMoments (*deliver)(const double* from, std::ptrdiff_t n, double* to, bool streaming);
  // The same, rounded to single precision; the moments are those of the numbers before.
  RowMoments (*deliver_single)(const double* from, std::ptrdiff_t n, float* to);
};

// How many cache lines (of eight columns) `columns` takes together, so that long strides are paid
// once for all of them, as far as half a megabyte of scratch goes.
constexpr std::ptrdiff_t fft_column_group(std::ptrdiff_t n) {
  return n <= 512 ? 8 : (n < 4096 ? 4096 / n : 1);
}

// Doubles of scratch that `row` and `columns` need. Shorter lengths may need more.
constexpr std::ptrdiff_t fft_scratch_size(std::ptrdiff_t n) {
  return 16 * (fft_column_group(n) + 1) * n + 64;
}

// Null where the compiler or the target has no such instructions.
const FftKernels* fft_kernels_base() noexcept;
const FftKernels* fft_kernels_avx2() noexcept;
const FftKernels* fft_kernels_avx512() noexcept;

}  // namespace qx
