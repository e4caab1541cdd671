// Half a spectrum from a real density, in place: the way back of transform_half.cpp. Plane by plane
// the x rows, two at a time, and the y columns of the h that are asked for; then their z columns.
#include "core/report.h"
#include "core/tagged.h"
#include "fft/fft.h"
#include "fft/simd.h"
#include "fft/transform_half.h"

#include <algorithm>

namespace qx {
namespace {

class ForwardHalf {
 public:
  ForwardHalf(const HalfLayout& box, const std::int32_t* columns, double* block)
      : box_(box),
        columns_(columns),
        block_(block),
        terms_(box.terms()),
        padded_((terms_ + 7) / 8 * 8) {}

  Status prepare();
  void transform_plane(std::int32_t iz) const;
  void transform_z() const;

 private:
  [[nodiscard]] double* row(std::int32_t iz, std::int32_t iy) const {
    return block_ + box_.row(iz, iy);
  }
  [[nodiscard]] double* plane_row(std::int32_t iy) const { return plane_.get() + 2 * padded_ * iy; }
  void transform_x(std::int32_t iz, std::int32_t iy) const;

  HalfLayout box_;
  const std::int32_t* columns_;
  double* block_;
  std::ptrdiff_t terms_;   // h = 0 .. hmax
  std::ptrdiff_t padded_;  // the same in whole cache lines, for the scratch plane
  const FftKernels& kernels_ = fft_kernels();
  const qxfftplan* x_plan_ = nullptr;
  const qxfftplan* y_plan_ = nullptr;
  const qxfftplan* z_plan_ = nullptr;
  Tagged<double*> pointers_;  // four lists: columns in, columns out, real and imaginary parts each
  Tagged<double> plane_;      // [iy][real parts, imaginary parts] of the plane in work
  Tagged<double> line_;       // transform of a pair of rows, and a row of zeros
  Tagged<double> unwanted_;   // takes the rows of k that nobody asks for
  FftScratchBlock scratch_;
};

Status ForwardHalf::prepare() {
  if (!(x_plan_ = get_qxfftcache(box_.nx))) return failed;
  if (!(y_plan_ = get_qxfftcache(box_.ny))) return failed;
  if (!(z_plan_ = get_qxfftcache(box_.nz))) return failed;
  pointers_ = Tagged<double*>(4 * static_cast<std::size_t>(std::max(box_.ny, box_.nz)), "pff_p");
  if (!pointers_) return failed;
  plane_ = Tagged<double>(2 * static_cast<std::size_t>(padded_ * box_.ny), "pff_y");
  if (!plane_) return failed;
  line_ = Tagged<double>(3 * static_cast<std::size_t>(box_.nx), "pff_x");
  if (!line_) return failed;
  std::fill_n(line_.get() + 2 * std::ptrdiff_t{box_.nx}, box_.nx, 0.0);
  unwanted_ = Tagged<double>(2 * static_cast<std::size_t>(padded_), "pff_u");
  if (!unwanted_) return failed;
  return scratch_.open({box_.nx, box_.ny, box_.nz});
}

// Rows iy and iy + 1 as one complex row, or iy alone if it is the last.
void ForwardHalf::transform_x(std::int32_t iz, std::int32_t iy) const {
  const std::ptrdiff_t nx = box_.nx;
  const bool pair = iy + 1 < box_.ny;
  double* z_re = line_.get();
  double* z_im = z_re + nx;
  kernels_.row(x_plan_->row.program, row(iz, iy), pair ? row(iz, iy + 1) : z_im + nx, z_re, z_im,
               scratch_.get());
  double* a = plane_row(iy);
  double* b = pair ? plane_row(iy + 1) : unwanted_.get();
  kernels_.split_pair(nx, terms_, z_re, z_im, a, a + padded_, b, b + padded_);
}

void ForwardHalf::transform_plane(std::int32_t iz) const {
  for (std::int32_t iy = 0; iy < box_.ny; iy += 2) transform_x(iz, iy);
  const std::int32_t ny = box_.ny;
  double** in_re = pointers_.get();
  double** in_im = in_re + ny;
  double** out_re = in_im + ny;
  double** out_im = out_re + ny;
  for (std::int32_t iy = 0; iy < ny; ++iy) {
    const bool wanted = columns_[iy] > 0;
    in_re[iy] = plane_row(iy);
    in_im[iy] = in_re[iy] + padded_;
    out_re[iy] = wanted ? row(iz, iy) : unwanted_.get();
    out_im[iy] = out_re[iy] + (wanted ? terms_ : padded_);
  }
  kernels_.columns(y_plan_->column.program, {in_re, in_im}, {out_re, out_im}, 0, terms_,
                   scratch_.get());
}

void ForwardHalf::transform_z() const {
  double** re = pointers_.get();
  double** im = re + box_.nz;
  for (std::int32_t iy = 0; iy < box_.ny; ++iy) {
    if (columns_[iy] == 0) continue;
    for (std::int32_t iz = 0; iz < box_.nz; ++iz) {
      re[iz] = row(iz, iy);
      im[iz] = re[iz] + terms_;
    }
    kernels_.columns(z_plan_->column.program, {re, im}, {re, im}, 0, columns_[iy], scratch_.get());
  }
}

}  // namespace

Status forward_half_3d(const HalfLayout& half, const std::int32_t* columns, double* block) {
  if (!half.rows_fit()) {
    return fail("forward_half_3d():", "The half spectrum does not fit into the grid.");
  }
  ForwardHalf transform(half, columns, block);
  QX_TRY(transform.prepare());
  for (std::int32_t iz = 0; iz < half.nz; ++iz) transform.transform_plane(iz);
  transform.transform_z();
  return ok;
}

}  // namespace qx
