// K. Which points of the cell the model occupies (Jiang & Bruenger, J. Mol. Biol. 243, 100, 1994):
// spheres of the atoms' radii and a probe, then what the probe cannot reach taken back.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

// Points of the whole cell, bytes as [nz][ny][nx]. The orthogonalisation is upper triangular (a
// along x, b in the x-y plane): ax .. cz are its elements over the grid counts, Angstrom a step.
struct MaskGrid {
  std::int32_t nx, ny, nz;
  double ax, bx, by, cx, cy, cz;

  [[nodiscard]] std::size_t points() const noexcept {
    return static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny) *
           static_cast<std::size_t>(nz);
  }
  [[nodiscard]] std::size_t row(std::int32_t iz, std::int32_t iy) const noexcept {
    return (static_cast<std::size_t>(iz) * static_cast<std::size_t>(ny) +
            static_cast<std::size_t>(iy)) *
           static_cast<std::size_t>(nx);
  }
};

// Planes first .. last - 1 of the cell, those that a call may write: several may run beside others.
struct PlaneRange {
  std::int32_t first, last;
};

// Sets every point within `radius` Angstrom of a fractional centre to 1, lattice copies included
// however many the sphere reaches.
void mark_sphere(const MaskGrid& grid, const double (&centre)[3], double radius, PlaneRange planes,
                 std::uint8_t* mask) noexcept;
inline void mark_sphere(const MaskGrid& grid, const double (&centre)[3], double radius,
                        std::uint8_t* mask) noexcept {
  mark_sphere(grid, centre, radius, {0, grid.nz}, mask);
}

// Bytes of scratch of shrink_mask.
std::size_t shrink_scratch_size(const MaskGrid& grid, double distance) noexcept;

// out: the points of `mask` all of whose neighbours within `distance` Angstrom are in it as well.
// `mask` and `out` differ.
void shrink_mask(const MaskGrid& grid, double distance, const std::uint8_t* mask, PlaneRange planes,
                 std::uint8_t* scratch, std::uint8_t* out) noexcept;

}  // namespace qx
