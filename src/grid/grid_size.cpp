#include "grid/grid_size.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace qx {

namespace {

constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();

// The smallest 2^a 3^b 5^c not below n; beyond `most` when n is.
std::int64_t smallest_transformable(std::int64_t n) noexcept {
  std::int64_t best = 2 * most;
  for (std::int64_t fives = 1; fives < best; fives *= 5) {
    for (std::int64_t threes = fives; threes < best; threes *= 3) {
      std::int64_t count = threes;
      while (count < n) count *= 2;
      best = std::min(best, count);
    }
  }
  return best;
}

}  // namespace

bool is_transformable(std::int64_t n) noexcept {
  if (n < 1) return false;
  for (const std::int64_t prime : {2, 3, 5}) {
    while (n % prime == 0) n /= prime;
  }
  return n == 1;
}

bool combine_divisors(std::span<const std::int32_t> divisors, std::int64_t& multiple,
                      std::int32_t& culprit) noexcept {
  for (const std::int32_t divisor : divisors) {
    culprit = divisor;
    if (!is_transformable(divisor)) return false;
    multiple = std::lcm(multiple, static_cast<std::int64_t>(divisor));
    if (multiple > most) return false;
  }
  return true;
}

std::int32_t closest_count(std::int32_t n, std::int64_t multiple) noexcept {
  const std::int64_t steps = (std::max<std::int64_t>(n, 1) + multiple - 1) / multiple;
  // A product of two transformable numbers is one, and nothing else is a transformable multiple.
  const std::int64_t count = smallest_transformable(steps) * multiple;
  return count <= most ? static_cast<std::int32_t>(count) : 0;
}

}  // namespace qx
