#include "stats/cross_split.h"

#include <algorithm>
#include <numeric>

namespace qx {

void order_by_length(std::int32_t n, const double* s_length, std::int32_t* order) noexcept {
  std::iota(order, order + n, 0);
  std::sort(order, order + n, [s_length](std::int32_t i, std::int32_t j) {
    return s_length[i] != s_length[j] ? s_length[i] < s_length[j] : i < j;
  });
}

std::int32_t group_start(std::int32_t n, std::int32_t groups, std::int32_t group) noexcept {
  return group * (n / groups) + std::min(group, n % groups);
}

std::int32_t free_count(std::int32_t n, double percent) noexcept {
  if (!(percent < 100.0)) return n;
  return static_cast<std::int32_t>(n * percent / 100);
}

}  // namespace qx
