// Half a spectrum from a real density, in place: the way back of transform_half.cpp. Plane by plane
// the x rows, two at a time, and the y columns of the h that are asked for; then their z columns.
// Planes, and columns of a k, are parts that several threads take.
#include "core/parallel.h"
#include "core/report.h"
#include "core/tagged.h"
#include "fft/fft.h"
#include "fft/simd.h"
#include "fft/transform_half.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace qx {
namespace {

class ForwardHalf {
 public:
  ForwardHalf(const HalfLayout& box, const std::int32_t* columns, double* block)
      : box_(box),
        columns_(columns),
        block_(block),
        terms_(box.terms()),
        padded_(in_lines(terms_)) {}

  Status prepare();
  void run() const;

 private:
  // What a worker writes to beside the block.
  struct Scratch {
    double** pointers;  // four lists: columns in, columns out, real and imaginary parts each
    double* plane;      // [iy][real parts, imaginary parts] of the plane in work
    double* line;       // transform of a pair of rows, and a row of zeros
    double* unwanted;   // takes the rows of k that nobody asks for
    FftScratch fft;
  };

  static std::ptrdiff_t in_lines(std::ptrdiff_t n) { return (n + 7) / 8 * 8; }
  [[nodiscard]] std::ptrdiff_t plane_size() const { return 2 * padded_ * box_.ny; }
  [[nodiscard]] std::ptrdiff_t line_size() const { return in_lines(3 * std::ptrdiff_t{box_.nx}); }
  [[nodiscard]] std::ptrdiff_t lists_size() const {
    return in_lines(4 * static_cast<std::ptrdiff_t>(std::max(box_.ny, box_.nz)));
  }
  [[nodiscard]] Scratch scratch(std::int32_t worker) const {
    return {pointers_.get() + worker * lists_size(), plane_.get() + worker * plane_size(),
            line_.get() + worker * line_size(), unwanted_.get() + worker * 2 * padded_,
            scratch_.get(worker)};
  }
  [[nodiscard]] double* row(std::int32_t iz, std::int32_t iy) const {
    return block_ + box_.row(iz, iy);
  }
  [[nodiscard]] double* plane_row(const Scratch& at, std::int32_t iy) const {
    return at.plane + 2 * padded_ * iy;
  }
  [[nodiscard]] bool transform_x(const Scratch& at, std::int32_t iz, std::int32_t iy) const;
  void transform_plane(const Scratch& at, std::int32_t iz) const;
  void transform_z(const Scratch& at, std::int32_t iy) const;

  HalfLayout box_;
  const std::int32_t* columns_;
  double* block_;
  std::ptrdiff_t terms_;   // h = 0 .. hmax
  std::ptrdiff_t padded_;  // the same in whole cache lines, for the scratch plane
  const FftKernels& kernels_ = fft_kernels();
  const qxfftplan* x_plan_ = nullptr;
  const qxfftplan* y_plan_ = nullptr;
  const qxfftplan* z_plan_ = nullptr;
  std::int32_t threads_ = 1;
  Tagged<double*> pointers_;
  Tagged<double> plane_, line_, unwanted_;
  FftScratchBlock scratch_;
};

Status ForwardHalf::prepare() {
  if (!(x_plan_ = get_qxfftcache(box_.nx))) return failed;
  if (!(y_plan_ = get_qxfftcache(box_.ny))) return failed;
  if (!(z_plan_ = get_qxfftcache(box_.nz))) return failed;
  constexpr double operations_a_point = 20.0;
  threads_ = threads_worth(operations_a_point * box_.nx * box_.ny * box_.nz);
  const auto of_all = [this](std::ptrdiff_t size) {
    return static_cast<std::size_t>(size * threads_);
  };
  pointers_ = Tagged<double*>(of_all(lists_size()), "pff_p");
  if (!pointers_) return failed;
  plane_ = Tagged<double>(of_all(plane_size()), "pff_y");
  if (!plane_) return failed;
  line_ = Tagged<double>(of_all(line_size()), "pff_x");
  if (!line_) return failed;
  std::fill_n(line_.get(), line_size() * threads_, 0.0);
  unwanted_ = Tagged<double>(of_all(2 * padded_), "pff_u");
  if (!unwanted_) return failed;
  return scratch_.open({box_.nx, box_.ny, box_.nz}, threads_);
}

// A block at a time: a loop that looks at every number cannot be a vector loop.
bool all_zero(const double* row, std::ptrdiff_t n) {
  constexpr std::ptrdiff_t block = 64;
  for (std::ptrdiff_t first = 0; first < n; first += block) {
    const std::ptrdiff_t last = std::min(first + block, n);
    std::uint64_t bits = 0;
    for (std::ptrdiff_t i = first; i < last; ++i) bits |= std::bit_cast<std::uint64_t>(row[i]);
    if (bits != 0) return false;
  }
  return true;
}

// Rows iy and iy + 1 as one complex row, or iy alone if it is the last. False when they hold
// nothing: the atoms of an asymmetric unit leave most rows of a cell empty.
bool ForwardHalf::transform_x(const Scratch& at, std::int32_t iz, std::int32_t iy) const {
  const std::ptrdiff_t nx = box_.nx;
  const bool pair = iy + 1 < box_.ny;
  if (all_zero(row(iz, iy), nx) && (!pair || all_zero(row(iz, iy + 1), nx))) {
    std::fill_n(plane_row(at, iy), 2 * padded_ * (pair ? 2 : 1), 0.0);
    return false;
  }
  double* z_re = at.line;
  double* z_im = z_re + nx;
  kernels_.row(x_plan_->row.program, row(iz, iy), pair ? row(iz, iy + 1) : z_im + nx, z_re, z_im,
               at.fft);
  double* a = plane_row(at, iy);
  double* b = pair ? plane_row(at, iy + 1) : at.unwanted;
  kernels_.split_pair(nx, terms_, z_re, z_im, a, a + padded_, b, b + padded_);
  return true;
}

void ForwardHalf::transform_plane(const Scratch& at, std::int32_t iz) const {
  bool any = false;
  for (std::int32_t iy = 0; iy < box_.ny; iy += 2) any = transform_x(at, iz, iy) || any;
  if (!any) return;  // of zeros, as it stands
  const std::int32_t ny = box_.ny;
  double** in_re = at.pointers;
  double** in_im = in_re + ny;
  double** out_re = in_im + ny;
  double** out_im = out_re + ny;
  for (std::int32_t iy = 0; iy < ny; ++iy) {
    const bool wanted = columns_[iy] > 0;
    in_re[iy] = plane_row(at, iy);
    in_im[iy] = in_re[iy] + padded_;
    out_re[iy] = wanted ? row(iz, iy) : at.unwanted;
    out_im[iy] = out_re[iy] + (wanted ? terms_ : padded_);
  }
  kernels_.columns(y_plan_->column.program, {in_re, in_im}, {out_re, out_im}, 0, terms_, at.fft);
}

void ForwardHalf::transform_z(const Scratch& at, std::int32_t iy) const {
  if (columns_[iy] == 0) return;
  double** re = at.pointers;
  double** im = re + box_.nz;
  for (std::int32_t iz = 0; iz < box_.nz; ++iz) {
    re[iz] = row(iz, iy);
    im[iz] = re[iz] + terms_;
  }
  kernels_.columns(z_plan_->column.program, {re, im}, {re, im}, 0, columns_[iy], at.fft);
}

void ForwardHalf::run() const {
  parallel(box_.nz, threads_,
           [this](std::int32_t iz, std::int32_t worker) { transform_plane(scratch(worker), iz); });
  parallel(box_.ny, threads_,
           [this](std::int32_t iy, std::int32_t worker) { transform_z(scratch(worker), iy); });
}

}  // namespace

Status forward_half_3d(const HalfLayout& half, const std::int32_t* columns, double* block) {
  if (!half.rows_fit()) {
    return fail("forward_half_3d():", "The half spectrum does not fit into the grid.");
  }
  ForwardHalf transform(half, columns, block);
  QX_TRY(transform.prepare());
  transform.run();
  return ok;
}

}  // namespace qx
