#include "driver/commands/free/draw.h"

#include <algorithm>
#include <numeric>

namespace qx {

namespace {

// Whole numbers only, so that every machine draws the same (the generator is SplitMix64).
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t below(std::uint64_t n) {
    state_ += 0x9e3779b97f4a7c15U;
    std::uint64_t z = state_;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9U;
    z = (z ^ z >> 27) * 0x94d049bb133111ebU;
    return (z ^ z >> 31) % n;
  }

 private:
  std::uint64_t state_;
};

std::size_t start_of(std::size_t group, double size) {
  return static_cast<std::size_t>(static_cast<double>(group) * size);
}

int flag_of(std::size_t place, const FlagValues& values) {
  if (values.two) return values.values[place == 0 ? 0 : 1];
  return values.values.empty() ? static_cast<int>(place)
                               : values.values[place % values.values.size()];
}

}  // namespace

std::vector<int> draw_flags(std::size_t count, const FlagValues& values, std::uint64_t seed) {
  std::vector<int> flags(count);
  Random random(seed);
  std::vector<std::size_t> places;
  for (std::size_t group = 0; start_of(group, values.per_free) < count; ++group) {
    const std::size_t first = start_of(group, values.per_free);
    places.resize(start_of(group + 1, values.per_free) - first);
    std::iota(places.begin(), places.end(), std::size_t{0});
    for (std::size_t i = places.size(); i > 1; --i) {
      std::swap(places[i - 1], places[static_cast<std::size_t>(random.below(i))]);
    }
    for (std::size_t i = 0; i < places.size() && first + i < count; ++i) {
      flags[first + i] = flag_of(places[i], values);
    }
  }
  return flags;
}

void KeptFlags::add(const gemmi::Miller& hkl, int flag) {
  const auto [own, is_new] = by_laue_.try_emplace(laue_.key(hkl), flag);
  conflicts_ += own->second == flag ? 0 : 1;
  const auto [orbit, first] = by_lattice_.try_emplace(lattice_.key(hkl), Flag{flag, false});
  if (orbit->second.value == flag || orbit->second.mixed) return;
  orbit->second.mixed = true;
  ++mixed_;
}

std::optional<int> KeptFlags::of(const gemmi::Miller& hkl) const {
  const auto own = by_laue_.find(laue_.key(hkl));
  if (own != by_laue_.end()) return own->second;
  const auto orbit = by_lattice_.find(lattice_.key(hkl));
  if (orbit == by_lattice_.end() || orbit->second.mixed) return {};
  return orbit->second.value;
}

double KeptFlags::orbits_for_each(int flag) const {
  const auto n = std::count_if(by_lattice_.begin(), by_lattice_.end(),
                               [flag](const auto& orbit) { return orbit.second.value == flag; });
  return static_cast<double>(by_lattice_.size()) / static_cast<double>(std::max(n, decltype(n){1}));
}

}  // namespace qx
