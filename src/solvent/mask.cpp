#include "solvent/mask.h"

#include <cmath>
#include <cstring>

namespace qx {

namespace {

std::int32_t wrapped(std::int32_t i, std::int32_t n) noexcept {
  const std::int32_t rest = i % n;
  return rest < 0 ? rest + n : rest;
}

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

struct Range {
  std::int32_t first, last;
};

// Indices i with |i step + offset| <= half.
Range within(double half, double step, double offset) noexcept {
  return {static_cast<std::int32_t>(std::ceil((-half - offset) / step)),
          static_cast<std::int32_t>(std::floor((half - offset) / step))};
}

// Calls run(iz, iy, first, last) for every row of grid points within a sphere, indices unwrapped.
template <class Run>
void for_each_run(const MaskGrid& grid, const double (&at)[3], double radius, Run run) noexcept {
  const double square = radius * radius;
  const Range planes = within(radius, grid.cz, -at[2] * grid.cz);
  for (std::int32_t iz = planes.first; iz <= planes.last; ++iz) {
    const double dz = iz - at[2];
    const double in_plane = square - dz * grid.cz * dz * grid.cz;
    if (in_plane < 0.0) continue;
    const double y0 = dz * grid.cy - at[1] * grid.by;
    const Range rows = within(std::sqrt(in_plane), grid.by, y0);
    for (std::int32_t iy = rows.first; iy <= rows.last; ++iy) {
      const double y = iy * grid.by + y0;
      const double in_row = in_plane - y * y;
      if (in_row < 0.0) continue;
      const double x0 = (iy - at[1]) * grid.bx + dz * grid.cx - at[0] * grid.ax;
      const Range x = within(std::sqrt(in_row), grid.ax, x0);
      if (x.first <= x.last) run(iz, iy, x.first, x.last);
    }
  }
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

}  // namespace

void mark_sphere(const MaskGrid& grid, const double (&centre)[3], double radius,
                 std::uint8_t* mask) noexcept {
  const double at[3] = {centre[0] * grid.nx, centre[1] * grid.ny, centre[2] * grid.nz};
  for_each_run(grid, at, radius,
               [&](std::int32_t iz, std::int32_t iy, std::int32_t first, std::int32_t last) {
                 set_run(mask + grid.row(wrapped(iz, grid.nz), wrapped(iy, grid.ny)), grid.nx,
                         first, last - first + 1);
               });
}

std::size_t shrink_scratch_size(const MaskGrid& grid, double distance) noexcept {
  return static_cast<std::size_t>(grid.nx) +
         2 * static_cast<std::size_t>(longest_shift(grid, distance));
}

void shrink_mask(const MaskGrid& grid, double distance, const std::uint8_t* mask,
                 std::uint8_t* scratch, std::uint8_t* out) noexcept {
  const std::int32_t pad = longest_shift(grid, distance);
  std::memcpy(out, mask, grid.points());
  for (std::int32_t iz = 0; iz < grid.nz; ++iz) {
    for (std::int32_t iy = 0; iy < grid.ny; ++iy) {
      std::uint8_t* target = out + grid.row(iz, iy);
      for_each_neighbour_run(
          grid, distance,
          [&](std::int32_t dz, std::int32_t dy, std::int32_t first, std::int32_t last) {
            const std::uint8_t* row =
                mask + grid.row(wrapped(iz + dz, grid.nz), wrapped(iy + dy, grid.ny));
            pad_row(row, grid.nx, pad, scratch);
            for (std::int32_t shift = first; shift <= last; ++shift) {
              const std::uint8_t* from = scratch + pad + shift;
              for (std::int32_t i = 0; i < grid.nx; ++i) target[i] &= from[i];
            }
          });
    }
  }
}

}  // namespace qx
