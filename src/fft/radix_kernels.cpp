// The published kernels, one per radix and direction, and the plain sequence made of them.
#define QX_FFT_ISA fft_published
#include "fft/plan.h"
#include "fft/stage.h"

#include <quorix/fft.h>

#include <algorithm>

namespace {

using qx::fft_published::flat_stage;

template <int P>
void stage(std::int32_t before, std::int32_t after, const double* re, const double* im,
           double* out_re, double* out_im, const double* cosine, const double* sine) {
  if (after == 1) {
    flat_stage<1, P, false>(before, 1, re, im, out_re, out_im, cosine, sine);
  } else {
    flat_stage<1, P, true>(before, after, re, im, out_re, out_im, cosine, sine);
  }
}

struct Roots {
  const double* cosine;
  const double* sine;
};

// sum over j of x[j] exp(2 pi i j q / p), turned by the twiddle of q at r when there is one.
void general_stage(std::int64_t p, std::int64_t before, std::int64_t after, const double* re,
                   const double* im, double* out_re, double* out_im, Roots table) {
  for (std::int64_t q = 0; q < p; ++q) {
    for (std::int64_t r = 0; r < after; ++r) {
      double* to_re = out_re + before * (q + p * r);
      double* to_im = out_im + before * (q + p * r);
      std::fill_n(to_re, before, 0.0);
      std::fill_n(to_im, before, 0.0);
      for (std::int64_t j = 0; j < p; ++j) {
        double c = 1;
        double s = 0;
        if (after == 1) {
          c = table.cosine[j * q % p];
          s = table.sine[j * q % p];
        } else {
          qx::unit_root(j * q % p, p, c, s);
        }
        const double* from_re = re + before * (r + after * j);
        const double* from_im = im + before * (r + after * j);
        for (std::int64_t i = 0; i < before; ++i) {
          to_re[i] += from_re[i] * c - from_im[i] * s;
          to_im[i] += from_re[i] * s + from_im[i] * c;
        }
      }
      if (after == 1 || q == 0) continue;
      const double c = table.cosine[(q - 1) * after + r];
      const double s = table.sine[(q - 1) * after + r];
      for (std::int64_t i = 0; i < before; ++i) {
        const double x = to_re[i];
        to_re[i] = x * c - to_im[i] * s;
        to_im[i] = x * s + to_im[i] * c;
      }
    }
  }
}

void plain_stage(std::int32_t p, std::int32_t before, std::int32_t after, const double* re,
                 const double* im, double* out_re, double* out_im, Roots slice) {
  switch (p) {
    case 2:
      return stage<2>(before, after, re, im, out_re, out_im, slice.cosine, slice.sine);
    case 3:
      return stage<3>(before, after, re, im, out_re, out_im, slice.cosine, slice.sine);
    case 4:
      return stage<4>(before, after, re, im, out_re, out_im, slice.cosine, slice.sine);
    case 5:
      return stage<5>(before, after, re, im, out_re, out_im, slice.cosine, slice.sine);
    default:
      return general_stage(p, before, after, re, im, out_re, out_im, slice);
  }
}

}  // namespace

void forward_cfft_gut(const qxfftplan* plan, double* in_re, double* in_im, double* out_re,
                      double* out_im) {
  const qx::FftFactors& f = plan->factors;
  double* source[2] = {in_re, in_im};
  double* target[2] = {out_re, out_im};
  std::int64_t slice = 0;
  for (std::int32_t i = 0; i < f.count; ++i) {
    plain_stage(f.factors[i], f.before[i], f.after[i], source[0], source[1], target[0], target[1],
                {f.cosine + slice, f.sine + slice});
    slice += std::int64_t{f.factors[i] - 1} * f.after[i];
    std::swap(source, target);
  }
  if (source[0] != in_re) return;
  std::copy_n(in_re, f.n, out_re);
  std::copy_n(in_im, f.n, out_im);
}

void inverse_cfft_gut(const qxfftplan* plan, double* in_re, double* in_im, double* out_re,
                      double* out_im) {
  forward_cfft_gut(plan, in_im, in_re, out_im, out_re);
}

void qx_fft_radix2f_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<2>(*before, *after, in_re, in_im, out_re, out_im, cosine, sine);
}
void qx_fft_radix2i_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<2>(*before, *after, in_im, in_re, out_im, out_re, cosine, sine);
}
void qx_fft_radix3f_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<3>(*before, *after, in_re, in_im, out_re, out_im, cosine, sine);
}
void qx_fft_radix3i_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<3>(*before, *after, in_im, in_re, out_im, out_re, cosine, sine);
}
void qx_fft_radix4f_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<4>(*before, *after, in_re, in_im, out_re, out_im, cosine, sine);
}
void qx_fft_radix4i_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<4>(*before, *after, in_im, in_re, out_im, out_re, cosine, sine);
}
void qx_fft_radix5f_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<5>(*before, *after, in_re, in_im, out_re, out_im, cosine, sine);
}
void qx_fft_radix5i_(const std::int32_t* before, const std::int32_t* after, const double* in_re,
                     const double* in_im, double* out_re, double* out_im, const double* cosine,
                     const double* sine) {
  stage<5>(*before, *after, in_im, in_re, out_im, out_re, cosine, sine);
}
void qx_fft_radix_genf_(const std::int32_t* factor, const std::int32_t* before,
                        const std::int32_t* after, const double* in_re, const double* in_im,
                        double* out_re, double* out_im, const double* cosine, const double* sine) {
  general_stage(*factor, *before, *after, in_re, in_im, out_re, out_im, {cosine, sine});
}
void qx_fft_radix_geni_(const std::int32_t* factor, const std::int32_t* before,
                        const std::int32_t* after, const double* in_re, const double* in_im,
                        double* out_re, double* out_im, const double* cosine, const double* sine) {
  general_stage(*factor, *before, *after, in_im, in_re, out_im, out_re, {cosine, sine});
}
