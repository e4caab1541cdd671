// K. The asymmetric unit as grid points: one representative of each orbit under integer operators.
#pragma once

#include "core/view3.h"

#include <cstdint>

namespace qx {

// Operators on grid indices: (ix, iy, iz) -> R (ix, iy, iz) + t.
struct GridOperators {
  std::int32_t count = 0;
  const std::int32_t (*rotations)[9] = nullptr;
  const std::int32_t (*translations)[3] = nullptr;
};

// A 4 x 4 operator on a grid of n[0] x n[1] x n[2] points, translations rounded; false when it
// takes grid points beside the grid.
bool grid_operator(const double op[16], const std::int32_t n[3], std::int32_t rotation[9],
                   std::int32_t translation[3]) noexcept;

struct AsuSummary {
  std::int32_t extent[3] = {};  // one more than the largest index of a representative
  std::int64_t points = 0;      // representatives
  std::int64_t special = 0;     // those with an orbit smaller than the number of operators
};

// Marks of each orbit the point with the smallest z, then y, then x, and counts the orbit there.
// Both arrays are [z][y][x] over the whole cell.
AsuSummary mark_asymmetric_unit(const GridOperators& ops, View3<char> mask,
                                View3<std::int16_t> counts) noexcept;

// A point by an operator, each coordinate brought into [0, period).
void move_point(const GridOperators& ops, std::int32_t op, const std::int32_t period[3],
                const std::int32_t point[3], std::int32_t out[3]) noexcept;

// The point itself if it passes, else its first mate by the operators after the first that lies in
// the box and passes (any does without a mask); false if none. The mask spans the box.
bool find_mate(const GridOperators& ops, const std::int32_t box[3], const std::int32_t period[3],
               const char* const* const* mask, const std::int32_t point[3],
               std::int32_t out[3]) noexcept;

}  // namespace qx
