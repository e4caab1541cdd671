// Two- and three-dimensional transforms. A plane's rows and columns are done while it is in cache,
// then the planes are transformed against each other: two sweeps over a three-dimensional array.
// Columns go several at a time through vector registers, without being gathered first.
#include "core/tagged.h"
#include "fft/fft.h"
#include "fft/simd.h"

#include <algorithm>

using qx::FftColumns;
using qx::FftKernels;
using qx::FftScratch;
using qx::ok;
using qx::Status;
using qx::Tagged;

namespace {

// The inverse is the forward transform with real and imaginary parts exchanged.
struct Arrays2 {
  double** re;
  double** im;
};
struct Arrays3 {
  double*** re;
  double*** im;
};

// The plans of a plane or of all planes, and scratch enough for each.
struct Plans {
  const qxfftplan* deep = nullptr;  // along the slowest index of three
  const qxfftplan* down = nullptr;
  const qxfftplan* across = nullptr;
  FftScratch scratch = {};
};

Status fetch_plans(std::int32_t n0, std::int32_t n1, Plans& plans) {
  qxfft* fft = qx::fft_object();
  if (!fft) return qx::failed;
  if (!(plans.down = qx::complex_plan(*fft, n0))) return qx::failed;
  if (!(plans.across = qx::complex_plan(*fft, n1))) return qx::failed;
  plans.scratch = qx::engine_scratch(*fft);
  return ok;
}

Status fetch_plans(std::int32_t n0, std::int32_t n1, std::int32_t n2, Plans& plans) {
  if (!(plans.deep = get_qxfftcache(n0))) return qx::failed;
  return fetch_plans(n1, n2, plans);
}

void transform_columns(const qxfftplan* plan, FftColumns rows, std::int64_t count,
                       FftScratch scratch) {
  qx::fft_kernels().columns(plan->column.program, rows, rows, 0, count, scratch);
}

void transform_plane(const Plans& plans, Arrays2 in, Arrays2 out) {
  const FftKernels& kernels = qx::fft_kernels();
  for (std::int32_t i = 0; i < plans.down->factors.n; ++i) {
    kernels.row(plans.across->row.program, in.re[i], in.im[i], out.re[i], out.im[i], plans.scratch);
  }
  transform_columns(plans.down, {out.re, out.im}, plans.across->factors.n, plans.scratch);
}

// The first `count` points of every row, transformed along the slowest index.
Status transform_planes(const Plans& plans, std::int32_t rows, std::int64_t count, Arrays3 x) {
  const auto n = static_cast<std::size_t>(plans.deep->factors.n);
  Tagged<double*> re(n, "pfc3_tir");
  if (!re) return qx::failed;
  Tagged<double*> im(n, "pfc3_tii");
  if (!im) return qx::failed;
  for (std::int32_t j = 0; j < rows; ++j) {
    for (std::size_t i = 0; i < n; ++i) {
      re[i] = x.re[i][j];
      im[i] = x.im[i][j];
    }
    transform_columns(plans.deep, {re.get(), im.get()}, count, plans.scratch);
  }
  return ok;
}

Status complex_2d(std::int32_t n0, std::int32_t n1, Arrays2 in, Arrays2 out) {
  Plans plans;
  QX_TRY(fetch_plans(n0, n1, plans));
  transform_plane(plans, in, out);
  return ok;
}

Status complex_3d(std::int32_t n0, std::int32_t n1, std::int32_t n2, Arrays3 in, Arrays3 out) {
  Plans plans;
  QX_TRY(fetch_plans(n0, n1, n2, plans));
  for (std::int32_t i = 0; i < n0; ++i) {
    transform_plane(plans, {in.re[i], in.im[i]}, {out.re[i], out.im[i]});
  }
  return transform_planes(plans, n1, n2, out);
}

enum class Direction { forward, inverse };

// Rows of a real plane two at a time, as far as the middle of the spectrum, then columns.
class RealPlane {
 public:
  RealPlane(const Plans& plans, Direction direction)
      : down_(plans.down),
        across_(plans.across),
        scratch_(plans.scratch),
        direction_(direction),
        work_(4 * static_cast<std::size_t>(across_->factors.n), "pfc3_xi") {}
  explicit operator bool() const { return static_cast<bool>(work_); }
  [[nodiscard]] std::int64_t half() const { return across_->factors.n / 2 + 1; }

  void transform(double* const* in, Arrays2 out) const {
    const std::int32_t n = down_->factors.n;
    for (std::int32_t i = 0; i + 1 < n; i += 2) {
      transform_pair(in[i], in[i + 1], {out.re + i, out.im + i}, true);
    }
    if (n % 2 != 0) transform_pair(in[n - 1], spare(), {out.re + n - 1, out.im + n - 1}, false);
    transform_columns(
        down_,
        direction_ == Direction::forward ? FftColumns{out.re, out.im} : FftColumns{out.im, out.re},
        half(), scratch_);
  }

 private:
  [[nodiscard]] double* spare() const {
    double* row = work_.get() + 2 * std::ptrdiff_t{across_->factors.n};
    std::fill_n(row, across_->factors.n, 0.0);
    return row;
  }

  void transform_pair(const double* a, const double* b, Arrays2 out, bool both) const {
    const FftKernels& kernels = qx::fft_kernels();
    const std::int32_t n = across_->factors.n;
    double* z_re = work_.get();
    double* z_im = z_re + n;
    if (direction_ == Direction::forward) {
      kernels.row(across_->row.program, a, b, z_re, z_im, scratch_);
    } else {
      kernels.row(across_->row.program, b, a, z_im, z_re, scratch_);
    }
    double* none = z_im + n;
    kernels.split_pair(n, half(), z_re, z_im, out.re[0], out.im[0], both ? out.re[1] : none,
                       both ? out.im[1] : none + n);
  }

  const qxfftplan* down_;
  const qxfftplan* across_;
  FftScratch scratch_;
  Direction direction_;
  Tagged<double> work_;
};

// The other half of a row from the row with the opposite indices.
void mirror_row(std::int32_t n, const double* re, const double* im, double* to_re, double* to_im) {
  for (std::int32_t k = n / 2 + 1; k < n; ++k) {
    to_re[k] = re[n - k];
    to_im[k] = 0.0 - im[n - k];
  }
}

Status real_2d(std::int32_t n0, std::int32_t n1, Direction direction, double** in, Arrays2 out) {
  Plans plans;
  QX_TRY(fetch_plans(n0, n1, plans));
  const RealPlane plane(plans, direction);
  if (!plane) return qx::failed;
  plane.transform(in, out);
  for (std::int32_t i = 0; i < n0; ++i) {
    const std::int32_t mirror = (n0 - i) % n0;
    mirror_row(n1, out.re[mirror], out.im[mirror], out.re[i], out.im[i]);
  }
  return ok;
}

Status real_3d(std::int32_t n0, std::int32_t n1, std::int32_t n2, Direction direction, double*** in,
               Arrays3 out) {
  Plans plans;
  QX_TRY(fetch_plans(n0, n1, n2, plans));
  const RealPlane plane(plans, direction);
  if (!plane) return qx::failed;
  for (std::int32_t i = 0; i < n0; ++i) plane.transform(in[i], {out.re[i], out.im[i]});
  QX_TRY(transform_planes(plans, n1, plane.half(),
                          direction == Direction::forward ? out : Arrays3{out.im, out.re}));
  for (std::int32_t i = 0; i < n0; ++i) {
    const std::int32_t mi = (n0 - i) % n0;
    for (std::int32_t j = 0; j < n1; ++j) {
      const std::int32_t mj = (n1 - j) % n1;
      mirror_row(n2, out.re[mi][mj], out.im[mi][mj], out.re[i][j], out.im[i][j]);
    }
  }
  return ok;
}

}  // namespace

Status qx_forward_cfft_2D(std::int32_t n0, std::int32_t n1, double** in_re, double** in_im,
                          double** out_re, double** out_im) {
  return complex_2d(n0, n1, {in_re, in_im}, {out_re, out_im});
}
Status qx_inverse_cfft_2D(std::int32_t n0, std::int32_t n1, double** in_re, double** in_im,
                          double** out_re, double** out_im) {
  return complex_2d(n0, n1, {in_im, in_re}, {out_im, out_re});
}
Status qx_forward_cfft_3D(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in_re,
                          double*** in_im, double*** out_re, double*** out_im) {
  return complex_3d(n0, n1, n2, {in_re, in_im}, {out_re, out_im});
}
Status qx_inverse_cfft_3D(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in_re,
                          double*** in_im, double*** out_re, double*** out_im) {
  return complex_3d(n0, n1, n2, {in_im, in_re}, {out_im, out_re});
}
Status qx_forward_rfft_2D(std::int32_t n0, std::int32_t n1, double** in, double** out_re,
                          double** out_im) {
  return real_2d(n0, n1, Direction::forward, in, {out_re, out_im});
}
Status qx_inverse_rfft_2D(std::int32_t n0, std::int32_t n1, double** in, double** out_re,
                          double** out_im) {
  return real_2d(n0, n1, Direction::inverse, in, {out_re, out_im});
}
Status qx_forward_rfft_3D(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in,
                          double*** out_re, double*** out_im) {
  return real_3d(n0, n1, n2, Direction::forward, in, {out_re, out_im});
}
Status qx_inverse_rfft_3D(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in,
                          double*** out_re, double*** out_im) {
  return real_3d(n0, n1, n2, Direction::inverse, in, {out_re, out_im});
}
