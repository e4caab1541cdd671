// K. Half the spectrum of a real density, and how it lies in the block that is or becomes that
// density: row (l mod nz, k mod ny) holds the real parts of h = 0 .. hmax, then the imaginary ones.
// Whoever writes, reads or transforms such a block asks here where a term is.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

struct HalfLayout {
  std::int32_t nx = 0, ny = 0, nz = 0;  // points of the grid
  std::int32_t hmax = 0;

  // Doubles from a real part to its imaginary part, from k to k + 1, from l to l + 1.
  [[nodiscard]] std::ptrdiff_t terms() const noexcept { return std::ptrdiff_t{hmax} + 1; }
  [[nodiscard]] std::ptrdiff_t row_stride() const noexcept { return nx; }
  [[nodiscard]] std::ptrdiff_t plane_stride() const noexcept { return ny * row_stride(); }
  [[nodiscard]] std::ptrdiff_t size() const noexcept { return nz * plane_stride(); }

  // Where a row begins, by its place and by -ny < k < ny, -nz < l < nz.
  [[nodiscard]] std::ptrdiff_t row(std::int32_t iz, std::int32_t iy) const noexcept {
    return iz * plane_stride() + iy * row_stride();
  }
  [[nodiscard]] std::ptrdiff_t row_of(std::int32_t k, std::int32_t l) const noexcept {
    return row(l < 0 ? l + nz : l, k < 0 ? k + ny : k);
  }
  // Where the real part of a term is, 0 <= h <= hmax.
  [[nodiscard]] std::ptrdiff_t at(std::int32_t h, std::int32_t k, std::int32_t l) const noexcept {
    return row_of(k, l) + h;
  }

  // True when a row of the block has room for its terms.
  [[nodiscard]] bool rows_fit() const noexcept { return hmax >= 0 && 2 * terms() <= row_stride(); }
};

// Which part of a spectrum can be other than 0: 0 <= h <= hmax, |k| <= kmax, |l| <= lmax.
// columns[iy], iy in [0, ny): how many h from 0 on have such a term in any row of that k (k = iy or
// iy - ny); 0 for k outside kmax.
struct HalfSpectrum : HalfLayout {
  std::int32_t kmax = 0, lmax = 0;
  const std::int32_t* columns = nullptr;

  [[nodiscard]] bool holds_plane(std::int32_t iz) const noexcept {
    return iz <= lmax || nz - iz <= lmax;
  }
  // True when it fits into the density's block without wrapping. Otherwise only the general
  // transforms will do.
  [[nodiscard]] bool fits() const noexcept {
    return rows_fit() && kmax >= 0 && lmax >= 0 && 2 * std::int64_t{kmax} < ny &&
           2 * std::int64_t{lmax} < nz;
  }
};

}  // namespace qx
