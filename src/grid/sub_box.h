// K. Splitting a grid into boxes of z planes under a memory budget.
#pragma once

#include <cstdint>

namespace qx {

enum class BoxSplit { whole, split, bad_grid, no_factor };

// Splits nx * ny * nz points when six double arrays of them exceed `megabytes`. On `split` the grid
// is `boxes` boxes of `planes` z planes each; on `whole` both stay untouched.
BoxSplit split_grid(std::int32_t nx, std::int32_t ny, std::int32_t nz, double megabytes,
                    std::int32_t& boxes, std::int32_t& planes) noexcept;

// Boxes of equally many planes, for work that holds one array of a box beside `held` megabytes: as
// many as one must be within the budget by itself, and up to four for all that is held to be, since
// a few boxes cost next to nothing. Not more than planes.
std::int32_t boxes_under_budget(std::int32_t nx, std::int32_t ny, std::int32_t nz, double budget,
                                double held) noexcept;

}  // namespace qx
