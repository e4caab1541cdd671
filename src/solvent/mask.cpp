#include "solvent/mask.h"

#include "solvent/sphere_rows.h"

#include <cmath>
#include <cstring>

namespace qx {

namespace {

// Sets `count` bytes of a periodic row from `first` on.
void set_run(std::uint8_t* row, std::int32_t n, std::int32_t first, std::int32_t count) noexcept {
  if (count >= n) {
    std::memset(row, 1, static_cast<std::size_t>(n));
    return;
  }
  const std::int32_t start = wrapped(first, n);
  const std::int32_t here = count < n - start ? count : n - start;
  std::memset(row + start, 1, static_cast<std::size_t>(here));
  std::memset(row, 1, static_cast<std::size_t>(count - here));
}

// The runs of neighbours of a point.
template <class Run>
void for_each_neighbour_run(const MaskGrid& grid, double distance, Run run) noexcept {
  constexpr double origin[3] = {0.0, 0.0, 0.0};
  for_each_run(grid, origin, distance, run);
}

std::int32_t longest_shift(const MaskGrid& grid, double distance) noexcept {
  std::int32_t longest = 0;
  for_each_neighbour_run(grid, distance,
                         [&](std::int32_t, std::int32_t, std::int32_t first, std::int32_t last) {
                           longest = -first > longest ? -first : longest;
                           longest = last > longest ? last : longest;
                         });
  return longest;
}

// A row with `pad` points of its periodic continuation on both sides.
void pad_row(const std::uint8_t* row, std::int32_t n, std::int32_t pad,
             std::uint8_t* out) noexcept {
  for (std::int32_t i = -pad; i < 0; ++i) out[i + pad] = row[wrapped(i, n)];
  std::memcpy(out + pad, row, static_cast<std::size_t>(n));
  for (std::int32_t i = n; i < n + pad; ++i) out[i + pad] = row[wrapped(i, n)];
}

// row[i] &= padded[i + shift] for all shifts of a run. Without other names for the bytes, and with
// the count in a register, this is a vector loop.
void and_shifted(std::int32_t n, const std::uint8_t* __restrict padded, std::int32_t first,
                 std::int32_t last, std::uint8_t* __restrict row) noexcept {
  for (std::int32_t shift = first; shift <= last; ++shift) {
    const std::uint8_t* __restrict from = padded + shift;
    for (std::int32_t i = 0; i < n; ++i) row[i] = static_cast<std::uint8_t>(row[i] & from[i]);
  }
}

}  // namespace

void mark_sphere(const MaskGrid& grid, const double (&centre)[3], double radius, PlaneRange planes,
                 std::uint8_t* mask) noexcept {
  const double at[3] = {centre[0] * grid.nx, centre[1] * grid.ny, centre[2] * grid.nz};
  for_each_run(
      grid, at, radius,
      [&](std::int32_t iz) {
        const std::int32_t plane = wrapped(iz, grid.nz);
        return plane >= planes.first && plane < planes.last;
      },
      [&](std::int32_t iz, std::int32_t iy, std::int32_t first, std::int32_t last) {
        set_run(mask + grid.row(wrapped(iz, grid.nz), wrapped(iy, grid.ny)), grid.nx, first,
                last - first + 1);
      });
}

std::size_t shrink_scratch_size(const MaskGrid& grid, double distance) noexcept {
  return static_cast<std::size_t>(grid.nx) +
         2 * static_cast<std::size_t>(longest_shift(grid, distance));
}

void shrink_mask(const MaskGrid& grid, double distance, const std::uint8_t* mask, PlaneRange planes,
                 std::uint8_t* scratch, std::uint8_t* out) noexcept {
  const std::int32_t pad = longest_shift(grid, distance);
  const std::size_t begin = grid.row(planes.first, 0);
  std::memcpy(out + begin, mask + begin, grid.row(planes.last, 0) - begin);
  const auto take_run = [&](std::int32_t dz, std::int32_t dy, std::int32_t first,
                            std::int32_t last) noexcept {
    for (std::int32_t iz = planes.first; iz < planes.last; ++iz) {
      const std::int32_t z = wrapped(iz + dz, grid.nz);
      for (std::int32_t iy = 0; iy < grid.ny; ++iy) {
        pad_row(mask + grid.row(z, wrapped(iy + dy, grid.ny)), grid.nx, pad, scratch);
        and_shifted(grid.nx, scratch + pad, first, last, out + grid.row(iz, iy));
      }
    }
  };
  for_each_neighbour_run(grid, distance, take_run);
}

}  // namespace qx
