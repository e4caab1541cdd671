// K. Which value of a column of free-set flags marks the free reflections. Files disagree: 0 of 0
// and 1, 1 of 0 and 1, -1 of -1 and 1, or 0 of twenty values of equal count.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace qx {

struct FlagCount {
  int value;
  std::size_t count;
};

// How often each value occurs, in increasing order of values.
struct FlagTally {
  static constexpr int most = 256;
  FlagCount values[most];
  int n = 0;
  std::size_t flags = 0, missing = 0;  // rows with and without a value
  bool usable = true;                  // false: fractions, or too many values to be flags

  [[nodiscard]] std::size_t count_of(int value) const noexcept;
};

// NaN is missing.
FlagTally tally_flags(std::span<const float> column) noexcept;

// The label is of a kind under which 1 usually marks the free set. It decides only where the counts
// do not.
bool is_one_free_label(std::string_view label) noexcept;

// None when all flags are equal, or there are none.
//   two values: the rarer one; the label's of two that are about as frequent
//   one of more values on over half of the reflections: that is the working set; of the others 0 or
//     1 by the label if it occurs, else the most frequent
//   otherwise they are groups of equal size, of which the lowest is the free one.
std::optional<int> free_value(const FlagTally& tally, bool one_is_free) noexcept;

}  // namespace qx
