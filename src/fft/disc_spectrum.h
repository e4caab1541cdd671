// K. Half the spectrum of a real density, kept where it can be other than 0: inside the disc of
// (h, k). Plane by plane: the real parts of all rows, then the imaginary ones. The row of k holds
// h = 0 .. width - 1 in whole cache lines, zeros behind its last term. Where h + k is even in every
// term (C and F lattices) a row holds the h of its parity alone: h = 2 i, or 2 i + 1, at place i.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

struct DiscLayout {
  std::int32_t nx = 0, ny = 0, nz = 0;  // points of the grid
  std::int32_t hmax = 0, lmax = 0;      // 2 hmax + 2 <= nx, 2 lmax < nz
  std::int32_t planes = 0;              // that there is room for, at least 2 lmax + 1
  bool alternates = false;              // every second h is left out; nx and ny are even
  std::ptrdiff_t plane_terms = 0;       // from a real part to its imaginary part
  const std::int32_t* width = nullptr;  // per k mod ny, a multiple of 8; 0: the row holds nothing
  const std::ptrdiff_t* row_start = nullptr;  // per k mod ny, in its plane

  static constexpr std::int32_t line = 8;  // doubles
  // How many of `terms` terms from h = 0 on a row keeps at most, in whole cache lines.
  [[nodiscard]] std::int32_t kept(std::int32_t terms) const noexcept {
    const std::int32_t places = alternates ? (terms + 1) / 2 : terms;
    return (places + line - 1) / line * line;
  }
  // Room for all h of a row.
  [[nodiscard]] std::int32_t padded_terms() const noexcept {
    return (alternates ? 2 : 1) * kept(hmax + 1);
  }
  [[nodiscard]] std::ptrdiff_t plane_stride() const noexcept { return 2 * plane_terms; }
  [[nodiscard]] std::ptrdiff_t size() const noexcept { return planes * plane_stride(); }
  [[nodiscard]] std::ptrdiff_t imaginary() const noexcept { return plane_terms; }

  // The place of plane l, -lmax <= l <= lmax, among the planes.
  [[nodiscard]] std::int32_t slot(std::int32_t l) const noexcept { return l < 0 ? l + planes : l; }
  // Where the real part of a term is that its row holds, h >= 0.
  [[nodiscard]] std::ptrdiff_t at(std::int32_t h, std::int32_t k, std::int32_t l) const noexcept {
    return slot(l) * plane_stride() + row_start[k < 0 ? k + ny : k] + (alternates ? h / 2 : h);
  }
};

}  // namespace qx
