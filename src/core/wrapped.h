// K. Indices brought into their period.
#pragma once

#include <type_traits>

namespace qx {

// `index` modulo n in [0, n). Most indices need no division.
template <class Index, class Count>
constexpr Count wrapped(Index index, Count n) noexcept {
  using Wide = std::common_type_t<Index, Count>;
  Wide rest = index;
  if (rest >= n || rest <= -static_cast<Wide>(n)) rest %= n;
  return static_cast<Count>(rest < 0 ? rest + n : rest);
}

}  // namespace qx
