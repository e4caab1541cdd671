// Real density from half a spectrum, in place, in two sweeps over the block.
//
// 1. The z columns inside the disc of non-zero (h, k), several h at a time: a sixth of all columns
//    as grids are usually sampled. Rows of l outside the sphere are never read.
// 2. Plane by plane: the y columns of every h, reading only rows of k that hold something, into a
//    plane of scratch that stays in cache; from there the x rows. Two real rows are one complex
//    transform: with Z(h) = A(h) + i B(h) for -nx/2 < h < nx/2 its real part is row a and its
//    imaginary part row b. Finished rows are written past the caches, and the next plane is fetched
//    meanwhile.
#include "fft/transform_half.h"

#include "core/report.h"
#include "core/tagged.h"
#include "fft/fft.h"
#include "fft/simd.h"

#include <algorithm>

namespace qx {
namespace {

constexpr std::int64_t streaming_points = 3 << 20;  // 24 MiB: more than a share of a common cache

class HalfTransform {
 public:
  HalfTransform(const HalfSpectrum& half, double* block)
      : half_(half),
        block_(block),
        terms_(half.terms()),
        padded_((terms_ + 7) / 8 * 8),
        streaming_(half.size() > streaming_points) {}

  Status prepare();
  void transform_z() const;
  void transform_plane(std::int32_t iz, DensityMoments& moments) const;

 private:
  [[nodiscard]] double* row(std::int32_t iz, std::int32_t iy) const {
    return block_ + half_.row(iz, iy);
  }
  void transform_y(std::int32_t iz) const;
  void transform_x(std::int32_t iz, std::int32_t iy, DensityMoments& moments) const;
  void fetch(std::int32_t iz, std::int32_t iy) const;

  HalfSpectrum half_;
  double* block_;
  std::ptrdiff_t terms_;   // h = 0 .. hmax
  std::ptrdiff_t padded_;  // the same in whole cache lines, for the scratch plane
  bool streaming_;
  const FftKernels& kernels_ = fft_kernels();
  const qxfftplan* x_plan_ = nullptr;
  const qxfftplan* y_plan_ = nullptr;
  const qxfftplan* z_plan_ = nullptr;
  Tagged<double*> pointers_;  // four lists: columns in, columns out, real and imaginary parts each
  Tagged<double> zeros_;      // stands for rows outside the sphere
  Tagged<double> plane_;      // [iy][real parts, imaginary parts] of the plane in work
  Tagged<double> line_;       // Z of a pair of rows, then the rows themselves
  FftScratchBlock scratch_;
};

Status HalfTransform::prepare() {
  if (!(x_plan_ = get_qxfftcache(half_.nx))) return failed;
  if (!(y_plan_ = get_qxfftcache(half_.ny))) return failed;
  if (!(z_plan_ = get_qxfftcache(half_.nz))) return failed;
  pointers_ = Tagged<double*>(4 * static_cast<std::size_t>(std::max(half_.ny, half_.nz)), "phf_p");
  if (!pointers_) return failed;
  zeros_ = Tagged<double>(static_cast<std::size_t>(terms_), "phf_0");
  if (!zeros_) return failed;
  std::fill_n(zeros_.get(), terms_, 0.0);
  plane_ = Tagged<double>(2 * static_cast<std::size_t>(padded_ * half_.ny), "phf_y");
  if (!plane_) return failed;
  line_ = Tagged<double>(4 * static_cast<std::size_t>(half_.nx), "phf_x");
  if (!line_) return failed;
  return scratch_.open({half_.nx, half_.ny, half_.nz});
}

// Exchanged real and imaginary lists make the forward kernels inverse.
void HalfTransform::transform_z() const {
  const std::int32_t nz = half_.nz;
  double** in_re = pointers_.get();
  double** in_im = in_re + nz;
  double** out_re = in_im + nz;
  double** out_im = out_re + nz;
  for (std::int32_t iy = 0; iy < half_.ny; ++iy) {
    const std::ptrdiff_t columns = half_.columns[iy];
    if (columns == 0) continue;
    for (std::int32_t iz = 0; iz < nz; ++iz) {
      const bool inside = half_.holds_plane(iz);
      out_re[iz] = row(iz, iy);
      out_im[iz] = out_re[iz] + terms_;
      in_re[iz] = inside ? out_re[iz] : zeros_.get();
      in_im[iz] = inside ? out_im[iz] : zeros_.get();
    }
    kernels_.columns(z_plan_->column.program, {in_im, in_re}, {out_im, out_re}, 0, columns,
                     scratch_.get());
  }
}

void HalfTransform::transform_y(std::int32_t iz) const {
  const std::int32_t ny = half_.ny;
  double** in_re = pointers_.get();
  double** in_im = in_re + ny;
  double** out_re = in_im + ny;
  double** out_im = out_re + ny;
  for (std::int32_t iy = 0; iy < ny; ++iy) {
    const std::ptrdiff_t columns = half_.columns[iy];
    out_re[iy] = plane_.get() + 2 * padded_ * iy;
    out_im[iy] = out_re[iy] + padded_;
    in_re[iy] = in_im[iy] = zeros_.get();
    if (columns == 0) continue;
    in_re[iy] = row(iz, iy);
    in_im[iy] = in_re[iy] + terms_;
    std::fill(in_re[iy] + columns, in_im[iy], 0.0);
    std::fill(in_im[iy] + columns, in_im[iy] + terms_, 0.0);
  }
  kernels_.columns(y_plan_->column.program, {in_im, in_re}, {out_im, out_re}, 0, terms_,
                   scratch_.get());
}

void add(DensityMoments& total, const RowMoments& row) {
  total.sum += row.sum;
  total.sum_of_squares += row.sum_of_squares;
  total.minimum = std::min(total.minimum, row.minimum);
  total.maximum = std::max(total.maximum, row.maximum);
}

// Rows iy and iy + 1, or iy alone if it is the last.
void HalfTransform::transform_x(std::int32_t iz, std::int32_t iy, DensityMoments& moments) const {
  const std::ptrdiff_t nx = half_.nx;
  const bool pair = iy + 1 < half_.ny;
  const double* a = plane_.get() + 2 * padded_ * iy;
  const double* b = a + 2 * padded_;
  double* z_re = line_.get();
  double* z_im = z_re + nx;
  double* rows = z_im + nx;
  kernels_.join_pair(nx, terms_, a, a + padded_, pair ? b : zeros_.get(),
                     pair ? b + padded_ : zeros_.get(), z_re, z_im);
  kernels_.row(x_plan_->row.program, z_im, z_re, rows + nx, rows, scratch_.get());
  add(moments, kernels_.deliver(rows, pair ? 2 * nx : nx, row(iz, iy), streaming_));
}

// Brings what transform_y will read of a row nearer. Inlined by force: a call of a function that
// only prefetches is dropped as one without effect.
__attribute__((always_inline)) inline void HalfTransform::fetch(std::int32_t iz,
                                                                std::int32_t iy) const {
  const std::ptrdiff_t columns = half_.columns[iy];
  const double* re = row(iz, iy);
  for (std::ptrdiff_t h = 0; h < columns; h += 8) {
    __builtin_prefetch(re + h, 0, 2);
    __builtin_prefetch(re + terms_ + h, 0, 2);
  }
}

void HalfTransform::transform_plane(std::int32_t iz, DensityMoments& moments) const {
  transform_y(iz);
  for (std::int32_t iy = 0; iy < half_.ny; iy += 2) {
    if (iz + 1 < half_.nz) {
      fetch(iz + 1, iy);
      if (iy + 1 < half_.ny) fetch(iz + 1, iy + 1);
    }
    transform_x(iz, iy, moments);
  }
}

}  // namespace

Status inverse_half_3d(const HalfSpectrum& half, double* block, DensityMoments* moments) {
  if (!half.fits()) {
    return fail("inverse_half_3d():", "The half spectrum does not fit into the grid.");
  }
  HalfTransform transform(half, block);
  QX_TRY(transform.prepare());
  transform.transform_z();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  DensityMoments total = {0, 0, infinity, -infinity};
  for (std::int32_t iz = 0; iz < half.nz; ++iz) transform.transform_plane(iz, total);
  if (moments) *moments = total;
  return ok;
}

void clear_half_spectrum(const HalfSpectrum& half, double* block) noexcept {
  for (std::int32_t iz = 0; iz < half.nz; ++iz) {
    if (!half.holds_plane(iz)) continue;
    for (std::int32_t iy = 0; iy < half.ny; ++iy) {
      double* row = block + half.row(iz, iy);
      std::fill_n(row, half.columns[iy], 0.0);
      std::fill_n(row + half.terms(), half.columns[iy], 0.0);
    }
  }
}

}  // namespace qx
