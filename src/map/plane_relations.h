// K. Which planes of z, and which rows of a plane, the symmetry makes of others: rho(x) = rho(g x)
// for every operator g of the group. Used are operators that take planes of z to planes of z, and
// grid points to grid points.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

// Point (ix, iy, iz) of the grid goes to m (ix, iy, iz) + t, in steps of the grid, modulo its
// counts; 0 <= t < counts.
struct GridOperator {
  std::int32_t m[9];  // row-major
  std::int32_t t[3];
};

// From a 4 x 4 matrix on fractional columns; false if it leaves the grid or turns planes of z.
bool grid_operator(const double (&matrix)[16], const std::int32_t (&counts)[3],
                   GridOperator& op) noexcept;

// Everything by index of plane or row; arrays are the caller's.
struct PlaneRelations {
  std::int32_t counts[3] = {};
  std::int32_t noperators = 0;
  const GridOperator* operators = nullptr;
  std::int32_t* plane_source = nullptr;  // nz: the plane it is made of, itself if it is calculated
  std::int32_t* plane_operator = nullptr;
  std::int32_t* row_source = nullptr;  // ny, within any plane
  std::int32_t* row_operator = nullptr;
  std::int32_t* planes = nullptr;       // those that are calculated, ascending
  std::int32_t* rows = nullptr;         // the same of rows
  std::int32_t* first_image = nullptr;  // nplanes + 1, into images
  std::int32_t* images = nullptr;       // planes by what they are made of, itself first
  std::int32_t nplanes = 0, nrows = 0;

  // Integers that the arrays take, all of them.
  static std::size_t size(const std::int32_t (&counts)[3]) noexcept {
    return 5 * static_cast<std::size_t>(counts[2]) + 3 * static_cast<std::size_t>(counts[1]) + 1;
  }
};

// Lays the arrays out in `block` and fills them.
void relate(PlaneRelations& relations, std::int32_t* block) noexcept;

// Copies what was calculated of a plane to the rows that are images.
template <class T>
void fill_rows(const PlaneRelations& relations, T* plane) noexcept;

// Plane iz of its source.
template <class T>
void make_image(const PlaneRelations& relations, std::int32_t iz, const T* source,
                T* plane) noexcept;

}  // namespace qx
