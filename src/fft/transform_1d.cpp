// One-dimensional transforms: complex, real, two real ones at once.
#include "fft/fft.h"
#include "fft/simd.h"

#include <algorithm>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

Status run_row(std::int32_t n, const double* re, const double* im, double* out_re, double* out_im) {
  qxfft* fft = qx::fft_object();
  if (!fft) return failed;
  const qxfftplan* plan = qx::complex_plan(*fft, n);
  if (!plan) return failed;
  qx::fft_kernels().row(plan->row.program, re, im, out_re, out_im, qx::engine_scratch(*fft));
  return ok;
}

// Even and odd values of a real row, and what their transforms become; each begins a cache line.
struct Halves {
  double *xr, *xi, *yr, *yi;
};
Halves halves_at(double* work, std::int32_t n) {
  const std::ptrdiff_t pitch = qx::real_rows_size(n) / 4;
  return {work, work + pitch, work + 2 * pitch, work + 3 * pitch};
}

// X[k] = E[k] + exp(2 pi i k / n) O[k] with E and O the spectra of the even and the odd values.
void combine_halves(const qxfftrealplan& plan, const Halves& halves, double* out_re,
                    double* out_im) {
  const std::int32_t m = plan.n / 2;
  const double* e_re = halves.xr;
  const double* e_im = halves.xi;
  const double* o_re = halves.yr;
  const double* o_im = halves.yi;
  out_re[0] = e_re[0] + o_re[0];
  out_re[m] = e_re[0] - o_re[0];
  out_im[0] = 0;
  out_im[m] = 0;
  for (std::int32_t k = 1; k < m; ++k) {
    const double re = e_re[k] + plan.cosine[k] * o_re[k] - plan.sine[k] * o_im[k];
    const double im = e_im[k] + plan.cosine[k] * o_im[k] + plan.sine[k] * o_re[k];
    out_re[k] = re;
    out_im[k] = im;
    out_re[plan.n - k] = re;
    out_im[plan.n - k] = -im;
  }
}

}  // namespace

Status qx_forward_cfft(std::int32_t n, double* in_re, double* in_im, double* out_re,
                       double* out_im) {
  return run_row(n, in_re, in_im, out_re, out_im);
}

Status qx_inverse_cfft(std::int32_t n, double* in_re, double* in_im, double* out_re,
                       double* out_im) {
  return qx_forward_cfft(n, in_im, in_re, out_im, out_re);
}

Status qx_forward_rfft(std::int32_t n, const double* in, double* work, double* out_re,
                       double* out_im) {
  if (n % 2 != 0) {
    std::fill_n(work, n, 0.0);
    return run_row(n, in, work, out_re, out_im);
  }
  qxfft* fft = qx::fft_object();
  if (!fft) return failed;
  const qxfftrealplan* real = qx::real_plan(*fft, n);
  if (!real) return failed;
  const qxfftplan* plan = qx::complex_plan(*fft, n / 2);
  if (!plan) return failed;
  const qx::FftScratch scratch = qx::engine_scratch(*fft);
  const Halves half = halves_at(scratch.data, n);
  const std::ptrdiff_t taken = qx::real_rows_size(n);
  const qx::FftScratch rest = {scratch.data + taken, scratch.size - taken};
  qx::split_even_odd(n, in, half.xr, half.xi);
  qx::fft_kernels().row(plan->row.program, half.xr, half.xi, half.yr, half.yi, rest);
  assemble_two_rfft(n / 2, half.yr, half.yi, half.xr, half.xi, half.yr, half.yi);
  combine_halves(*real, half, out_re, out_im);
  return ok;
}

// Of real values the two transforms are conjugates of each other.
Status qx_inverse_rfft(std::int32_t n, const double* in, double* work, double* out_re,
                       double* out_im) {
  QX_TRY(qx_forward_rfft(n, in, work, out_re, out_im));
  std::transform(out_im, out_im + n, out_im, [](double x) { return 0.0 - x; });
  return ok;
}

void assemble_two_rfft(std::int32_t n, const double* z_re, const double* z_im, double* a_re,
                       double* a_im, double* b_re, double* b_im) {
  const double zero_re = z_re[0];
  const double zero_im = z_im[0];
  a_re[0] = zero_re;
  a_im[0] = 0;
  b_re[0] = zero_im;
  b_im[0] = 0;
  // Both ends of a pair are read before either is written: the outputs may be the input.
  for (std::int32_t k = 1; k <= n - k; ++k) {
    const std::int32_t mirror = n - k;
    const double sum_re = 0.5 * (z_re[k] + z_re[mirror]);
    const double sum_im = 0.5 * (z_im[k] + z_im[mirror]);
    const double difference_re = 0.5 * (z_re[k] - z_re[mirror]);
    const double difference_im = 0.5 * (z_im[k] - z_im[mirror]);
    a_re[k] = a_re[mirror] = sum_re;
    a_im[k] = difference_im;
    a_im[mirror] = 0.0 - difference_im;
    b_re[k] = b_re[mirror] = sum_im;
    b_im[k] = 0.0 - difference_re;
    b_im[mirror] = difference_re;
  }
}

Status qx_forward_two_rfft(std::int32_t n, const double* in_a, const double* in_b, double* a_re,
                           double* a_im, double* b_re, double* b_im) {
  QX_TRY(run_row(n, in_a, in_b, a_re, a_im));
  assemble_two_rfft(n, a_re, a_im, a_re, a_im, b_re, b_im);
  return ok;
}

Status qx_inverse_two_rfft(std::int32_t n, const double* in_a, const double* in_b, double* a_re,
                           double* a_im, double* b_re, double* b_im) {
  QX_TRY(run_row(n, in_b, in_a, a_im, a_re));
  assemble_two_rfft(n, a_re, a_im, a_re, a_im, b_re, b_im);
  return ok;
}
