// K. Which counts of grid points the transforms and the symmetry allow.
#pragma once

#include <cstdint>
#include <span>

namespace qx {

// True when n >= 1 has no prime factor but 2, 3 and 5.
bool is_transformable(std::int64_t n) noexcept;

// Takes the least common multiple of `multiple` and each divisor. False, with the offending divisor
// in `culprit`, if one is below 1 or has a prime factor above 5: no transformable count is its
// multiple.
bool combine_divisors(std::span<const std::int32_t> divisors, std::int64_t& multiple,
                      std::int32_t& culprit) noexcept;

// The smallest transformable count >= n (n at least 1) that `multiple`, itself transformable,
// divides; 0 if there is none within 32 bits.
std::int32_t closest_count(std::int32_t n, std::int64_t multiple) noexcept;

}  // namespace qx
