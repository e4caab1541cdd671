#include "stats/free_flags.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

// Room for a value in its place; null when there is none.
FlagCount* place_of(FlagTally& tally, int value) noexcept {
  FlagCount* end = tally.values + tally.n;
  FlagCount* at = std::lower_bound(tally.values, end, value,
                                   [](const FlagCount& f, int v) { return f.value < v; });
  if (at != end && at->value == value) return at;
  if (tally.n == FlagTally::most) return nullptr;
  std::move_backward(at, end, end + 1);
  ++tally.n;
  *at = {value, 0};
  return at;
}

const FlagCount* most_frequent(const FlagTally& tally, const FlagCount* apart) noexcept {
  const FlagCount* best = nullptr;
  for (const FlagCount* at = tally.values; at != tally.values + tally.n; ++at) {
    if (at != apart && (!best || at->count > best->count)) best = at;
  }
  return best;
}

}  // namespace

std::size_t FlagTally::count_of(int value) const noexcept {
  const auto* at = std::find_if(values, values + n,
                                [value](const FlagCount& flag) { return flag.value == value; });
  return at == values + n ? 0 : at->count;
}

FlagTally tally_flags(std::span<const float> column) noexcept {
  constexpr float largest = 32767.0F;  // what a data set keeps of a flag
  FlagTally tally;
  for (const float flag : column) {
    if (std::isnan(flag)) {
      ++tally.missing;
      continue;
    }
    const bool whole = std::fabs(flag) <= largest && flag == std::nearbyint(flag);
    FlagCount* at = whole ? place_of(tally, static_cast<int>(flag)) : nullptr;
    if (!at) {
      tally.usable = false;
      return tally;
    }
    ++at->count;
    ++tally.flags;
  }
  return tally;
}

bool is_one_free_label(std::string_view label) noexcept {
  for (const std::string_view part : {"free-flag", "free_flag", "FREE-FLAG", "FREE_FLAG"}) {
    if (label.find(part) != std::string_view::npos) return true;
  }
  return label == "TEST" || label == "test";
}

std::optional<int> free_value(const FlagTally& tally, bool one_is_free) noexcept {
  constexpr double about_half = 0.4;
  if (!tally.usable || tally.n < 2) return {};
  const auto total = static_cast<double>(tally.flags);
  const FlagCount* first = most_frequent(tally, nullptr);
  const FlagCount* second = most_frequent(tally, first);
  const int usual = one_is_free ? 1 : 0;
  if (tally.n == 2) {
    const bool clear = static_cast<double>(second->count) < about_half * total;
    return clear ? second->value : one_is_free ? tally.values[1].value : tally.values[0].value;
  }
  if (static_cast<double>(first->count) <= 0.5 * total) return tally.values[0].value;
  return first->value != usual && tally.count_of(usual) > 0 ? usual : second->value;
}

}  // namespace qx
