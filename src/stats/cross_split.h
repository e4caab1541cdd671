// K. Splitting reflections into working and free sets and into bins of equal count.
#pragma once

#include <cstdint>

namespace qx {

// Indices 0 .. n-1 by increasing |s|; equal lengths keep the order of the data set.
void order_by_length(std::int32_t n, const double* s_length, std::int32_t* order) noexcept;

// First member of group `group` when n things are dealt out to `groups` consecutive groups, the
// first n % groups of them one larger.
std::int32_t group_start(std::int32_t n, std::int32_t groups, std::int32_t group) noexcept;

// Size of the free set; percent of all n, cut to a whole number. n when percent is 100 or more.
std::int32_t free_count(std::int32_t n, double percent) noexcept;

}  // namespace qx
