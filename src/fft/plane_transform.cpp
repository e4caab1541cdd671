#include "fft/plane_transform.h"

#include "core/constants.h"
#include "fft/fft.h"
#include "fft/simd.h"

#include <algorithm>
#include <cmath>

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
  const auto rows = static_cast<std::int32_t>(plane_rows());
  if (!(y_plan_ = get_qxfftcache(rows))) return failed;
  if (!(z_plan_ = get_qxfftcache(disc.nz))) return failed;
  if (!disc.alternates) return ok;
  half_turns_ = Tagged<double>(2 * static_cast<std::size_t>(rows), "pgm_turn");
  if (!half_turns_) return failed;
  for (std::int32_t iy = 0; iy < rows; ++iy) {
    const double angle = pi * iy / rows;
    half_turns_[2 * static_cast<std::size_t>(iy)] = std::cos(angle);
    half_turns_[2 * static_cast<std::size_t>(iy) + 1] = std::sin(angle);
  }
  return ok;
}

// A line more, for the alignment of the first part.
std::size_t PlaneTransform::scratch_doubles() const noexcept {
  const std::ptrdiff_t longest = std::max({disc_.nx, disc_.ny, disc_.nz});
  const std::ptrdiff_t padded = disc_.padded_terms();
  static_assert(sizeof(double*) <= sizeof(double));
  return line + whole_lines(4 * longest) + 2 * whole_lines(padded) +
         whole_lines(2 * padded * plane_rows()) + whole_lines(4 * std::ptrdiff_t{disc_.nx}) +
         (disc_.alternates ? whole_lines(4 * line * plane_rows()) : 0) +
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
  scratch.plane = take(whole_lines(2 * padded * plane_rows()));
  if (disc_.alternates) scratch.woven = take(whole_lines(4 * line * plane_rows()));
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
  if (disc_.alternates) return open_lattice_plane(plane, scratch);
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

// In a lattice where h + k is even the columns of even h have terms at even k alone, those of odd h
// at odd k: both are transforms of half the length, the second after a turn by y / ny. The other
// half of the rows repeats the first, half a cell along x further.
void PlaneTransform::open_lattice_plane(double* plane, const PlaneScratch& scratch) const noexcept {
  const std::ptrdiff_t rows = plane_rows();
  const PointerLists lists = lists_of(scratch.pointers, rows);
  const std::ptrdiff_t places = disc_.padded_terms() / 2;
  for (std::ptrdiff_t first = 0; first < places; first += line) {
    for (std::ptrdiff_t parity = 0; parity < 2; ++parity) {
      for (std::ptrdiff_t i = 0; i < rows; ++i) {
        const std::ptrdiff_t iy = 2 * i + parity;
        const bool empty = disc_.width[iy] <= first;
        double* row = plane + disc_.row_start[iy] + first;
        lists.in_re[i] = empty ? scratch.zeros : row;
        lists.in_im[i] = empty ? scratch.zeros : row + disc_.imaginary();
        lists.out_re[i] = scratch.woven + (4 * i + 2 * parity) * line;
        lists.out_im[i] = lists.out_re[i] + line;
      }
      kernels_->columns(y_plan_->column.program, {lists.in_im, lists.in_re},
                        {lists.out_im, lists.out_re}, 0, line, scratch.fft);
    }
    weave(first, scratch);
  }
}

// Terms of even and odd h take their turns in the rows.
void PlaneTransform::weave(std::ptrdiff_t first, const PlaneScratch& scratch) const noexcept {
  const std::ptrdiff_t padded = disc_.padded_terms();
  for (std::ptrdiff_t iy = 0; iy < plane_rows(); ++iy) {
    const double cosine = half_turns_[2 * static_cast<std::size_t>(iy)];
    const double sine = half_turns_[2 * static_cast<std::size_t>(iy) + 1];
    const double* even = scratch.woven + 4 * line * iy;
    const double* odd = even + 2 * line;
    double* re = scratch.plane + 2 * padded * iy + 2 * first;
    double* im = re + padded;
    for (std::ptrdiff_t i = 0; i < line; ++i) {
      re[2 * i] = even[i];
      re[2 * i + 1] = cosine * odd[i] + sine * odd[line + i];
      im[2 * i] = even[line + i];
      im[2 * i + 1] = cosine * odd[line + i] - sine * odd[i];
    }
  }
}

// With Z(h) = A(h) + i B(h) for -nx/2 < h < nx/2 the real part of its transform is row a and the
// imaginary part row b.
const double* PlaneTransform::rows(std::int32_t iy_a, std::int32_t iy_b,
                                   const PlaneScratch& scratch) const noexcept {
  const std::ptrdiff_t nx = disc_.nx;
  const std::ptrdiff_t padded = disc_.padded_terms();
  const std::ptrdiff_t kept = plane_rows();
  const double* a = scratch.plane + 2 * padded * (iy_a % kept);
  const bool pair = iy_b >= 0;
  const double* b = pair ? scratch.plane + 2 * padded * (iy_b % kept) : scratch.zeros;
  double* z_re = scratch.line;
  double* z_im = z_re + nx;
  double* rows = z_im + nx;
  kernels_->join_pair(nx, disc_.hmax + 1, a, a + padded, b, pair ? b + padded : b, z_re, z_im);
  kernels_->row(x_plan_->row.program, z_im, z_re, rows + nx, rows, scratch.fft);
  if (iy_a >= kept) std::swap_ranges(rows, rows + nx / 2, rows + nx / 2);
  if (iy_b >= kept) std::swap_ranges(rows + nx, rows + nx + nx / 2, rows + nx + nx / 2);
  return rows;
}

}  // namespace qx
