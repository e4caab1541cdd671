#include "fft/plane_transform.h"

#include "fft/fft.h"
#include "fft/simd.h"

#include <algorithm>

namespace qx {

namespace {

constexpr std::ptrdiff_t line = DiscLayout::line;

constexpr std::size_t whole_lines(std::ptrdiff_t doubles) {
  return static_cast<std::size_t>((doubles + line - 1) / line * line);
}

struct PointerLists {
  double **in_re, **in_im, **out_re, **out_im;
};

PointerLists lists_of(double** pointers, std::ptrdiff_t n) noexcept {
  return {pointers, pointers + n, pointers + 2 * n, pointers + 3 * n};
}

}  // namespace

Status PlaneTransform::open(const DiscLayout& disc) {
  disc_ = disc;
  kernels_ = &fft_kernels();
  if (!(x_plan_ = get_qxfftcache(disc.nx))) return failed;
  if (!(y_plan_ = get_qxfftcache(disc.ny))) return failed;
  if (!(z_plan_ = get_qxfftcache(disc.nz))) return failed;
  return ok;
}

// A line more, for the alignment of the first part.
std::size_t PlaneTransform::scratch_doubles() const noexcept {
  const std::ptrdiff_t longest = std::max({disc_.nx, disc_.ny, disc_.nz});
  const std::ptrdiff_t padded = disc_.padded_terms();
  static_assert(sizeof(double*) <= sizeof(double));
  return line + whole_lines(4 * longest) + 2 * whole_lines(padded) +
         whole_lines(2 * padded * disc_.ny) + whole_lines(4 * std::ptrdiff_t{disc_.nx}) +
         static_cast<std::size_t>(std::max(
             {fft_scratch_size(disc_.nx), fft_scratch_size(disc_.ny), fft_scratch_size(disc_.nz)}));
}

PlaneScratch PlaneTransform::scratch(double* block) const noexcept {
  const std::ptrdiff_t longest = std::max({disc_.nx, disc_.ny, disc_.nz});
  const std::ptrdiff_t padded = disc_.padded_terms();
  const auto misfit = reinterpret_cast<std::uintptr_t>(block) % (line * sizeof(double));
  double* free = block + (misfit == 0 ? 0 : line - misfit / sizeof(double));
  const auto take = [&free](std::size_t doubles) {
    double* part = free;
    free += doubles;
    return part;
  };
  PlaneScratch scratch;
  scratch.zeros = take(whole_lines(padded));
  std::fill_n(scratch.zeros, padded, 0.0);
  scratch.spare = take(whole_lines(padded));
  scratch.plane = take(whole_lines(2 * padded * disc_.ny));
  scratch.line = take(whole_lines(4 * std::ptrdiff_t{disc_.nx}));
  scratch.pointers = reinterpret_cast<double**>(take(whole_lines(4 * longest)));
  scratch.fft = {free, std::max({fft_scratch_size(disc_.nx), fft_scratch_size(disc_.ny),
                                 fft_scratch_size(disc_.nz)})};
  return scratch;
}

// Exchanged real and imaginary lists make the forward kernels inverse. A block of columns is read
// whole before any of it is written: planes may take each other's places.
void PlaneTransform::transform_z(double* block, std::int32_t iy, const std::int32_t* place,
                                 const PlaneScratch& scratch) const noexcept {
  const std::int32_t nz = disc_.nz;
  const std::ptrdiff_t width = disc_.width[iy];
  if (width == 0) return;
  const PointerLists lists = lists_of(scratch.pointers, nz);
  for (std::int32_t iz = 0; iz < nz; ++iz) {
    lists.in_re[iz] = lists.in_im[iz] = scratch.zeros;
    const bool inside = iz <= disc_.lmax || nz - iz <= disc_.lmax;
    if (inside) {
      lists.in_re[iz] = block + disc_.at(0, iy, iz <= disc_.lmax ? iz : iz - nz);
      lists.in_im[iz] = lists.in_re[iz] + disc_.imaginary();
    }
    lists.out_re[iz] = lists.out_im[iz] = scratch.spare;
    if (place[iz] < 0) continue;
    lists.out_re[iz] = block + place[iz] * disc_.plane_stride() + disc_.row_start[iy];
    lists.out_im[iz] = lists.out_re[iz] + disc_.imaginary();
  }
  kernels_->columns(z_plan_->column.program, {lists.in_im, lists.in_re},
                    {lists.out_im, lists.out_re}, 0, width, scratch.fft);
}

// A cache line of columns at a time: rows of the disc end at different columns, and what lies
// behind an end is zeros for all.
void PlaneTransform::open_plane(const double* block, std::int32_t place,
                                const PlaneScratch& scratch) const noexcept {
  const std::int32_t ny = disc_.ny;
  const std::ptrdiff_t padded = disc_.padded_terms();
  const PointerLists lists = lists_of(scratch.pointers, ny);
  // The kernels take lists of what they only read as they take those of what they write.
  double* plane = const_cast<double*>(block) + place * disc_.plane_stride();
  for (std::int32_t iy = 0; iy < ny; ++iy) {
    lists.in_re[iy] = plane + disc_.row_start[iy];
    lists.in_im[iy] = lists.in_re[iy] + disc_.imaginary();
    lists.out_re[iy] = scratch.plane + 2 * padded * iy;
    lists.out_im[iy] = lists.out_re[iy] + padded;
  }
  for (std::ptrdiff_t first = 0; first < padded; first += line) {
    for (std::int32_t iy = 0; iy < ny; ++iy) {
      if (disc_.width[iy] <= first) lists.in_re[iy] = lists.in_im[iy] = scratch.zeros;
    }
    kernels_->columns(y_plan_->column.program, {lists.in_im, lists.in_re},
                      {lists.out_im, lists.out_re}, first, line, scratch.fft);
  }
}

// With Z(h) = A(h) + i B(h) for -nx/2 < h < nx/2 the real part of its transform is row a and the
// imaginary part row b.
const double* PlaneTransform::rows(std::int32_t iy_a, std::int32_t iy_b,
                                   const PlaneScratch& scratch) const noexcept {
  const std::ptrdiff_t nx = disc_.nx;
  const std::ptrdiff_t padded = disc_.padded_terms();
  const double* a = scratch.plane + 2 * padded * iy_a;
  const double* b = scratch.plane + 2 * padded * iy_b;
  const bool pair = iy_b >= 0;
  double* z_re = scratch.line;
  double* z_im = z_re + nx;
  double* rows = z_im + nx;
  kernels_->join_pair(nx, disc_.hmax + 1, a, a + padded, pair ? b : scratch.zeros,
                      pair ? b + padded : scratch.zeros, z_re, z_im);
  kernels_->row(x_plan_->row.program, z_im, z_re, rows + nx, rows, scratch.fft);
  return rows;
}

}  // namespace qx
