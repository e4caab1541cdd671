#include "grid/sub_box.h"

#include "grid/grid_size.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

// Double arrays of the grid that the budget has to hold.
constexpr double arrays = 6.0;

int exponent_of(std::int32_t n, std::int32_t prime) noexcept {
  int exponent = 0;
  for (; n % prime == 0; n /= prime) ++exponent;
  return exponent;
}

// The smallest divisor of nz from `least` on.
std::int32_t divisor_from(std::int32_t nz, std::int32_t least) noexcept {
  std::int32_t boxes = std::max(least, 1);
  while (boxes < nz && nz % boxes != 0) ++boxes;
  return std::min(boxes, nz);
}

// The fewest boxes of which one holds at most `room` of `whole`.
std::int32_t fewest_boxes(std::int32_t nz, double whole, double room) noexcept {
  if (!(room > 0.0) || whole / room > nz) return nz;
  return divisor_from(nz, static_cast<std::int32_t>(std::ceil(whole / room)));
}

}  // namespace

std::int32_t boxes_under_budget(std::int32_t nx, std::int32_t ny, std::int32_t nz, double budget,
                                double held) noexcept {
  constexpr std::int32_t cheap = 4;
  const double whole = 8e-6 * nx * ny * nz;
  const std::int32_t alone = fewest_boxes(nz, whole, budget);
  const std::int32_t with_all = fewest_boxes(nz, whole, budget - held);
  return std::max(alone, std::min(with_all, divisor_from(nz, cheap)));
}

BoxSplit split_grid(std::int32_t nx, std::int32_t ny, std::int32_t nz, double megabytes,
                    std::int32_t& boxes, std::int32_t& planes) noexcept {
  // Kept: the byte count is a 32-bit product, so very large grids may count as small ones.
  const std::uint32_t bytes = static_cast<std::uint32_t>(nx) * static_cast<std::uint32_t>(ny) *
                              static_cast<std::uint32_t>(nz) * 8U;
  if (megabytes > bytes * 1e-6 * arrays) return BoxSplit::whole;
  if (!is_transformable(nz)) return BoxSplit::bad_grid;
  if (nz == 1) return BoxSplit::no_factor;

  constexpr std::int32_t primes[3] = {2, 3, 5};
  int exponents[3];
  double minimum = 0;
  for (int i = 0; i < 3; ++i) {
    exponents[i] = exponent_of(nz, primes[i]);
    if (exponents[i] > 0) minimum = primes[i];
  }
  const double affordable = std::trunc((megabytes / arrays) / (nx * 8e-6 * ny));
  if (!(affordable >= minimum)) {
    boxes = nz;
    planes = 1;
    return BoxSplit::split;
  }
  boxes = 1;
  for (int i = 0; i < 3; ++i) {
    for (int taken = 0; taken < exponents[i]; ++taken) {
      boxes *= primes[i];
      planes = nz / boxes;
      if (planes < affordable) return BoxSplit::split;
    }
  }
  return BoxSplit::split;
}

}  // namespace qx
