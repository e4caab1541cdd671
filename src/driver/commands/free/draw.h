// Free flags by orbit: those kept from an older set, and those drawn.
#pragma once

#include "driver/commands/free/orbits.h"

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace qx {

// What the flags are called: the values of the groups, the free one first; or two, of the free and
// of the working set.
struct FlagValues {
  std::vector<int> values = {};  // empty: as many as a group has members, from 0 on
  bool two = false;              // values[0] is free, values[1] works
  double per_free = 20.0;        // how many orbits share one free one

  [[nodiscard]] int free_value() const { return values.empty() ? 0 : values.front(); }
};

// Draws for orbits in order of resolution: of each run of `per_free` neighbours exactly one is
// free, so that thin shells have equal shares. The same on any machine, and a longer list begins
// with the flags of a shorter one.
std::vector<int> draw_flags(std::size_t count, const FlagValues& values, std::uint64_t seed);

// The flags of an older set. Relatives by the group of the crystal have one flag; those by the
// lattice alone do only if whoever made the set saw to it.
class KeptFlags {
 public:
  KeptFlags(const Orbits& laue, const Orbits& lattice) : laue_(laue), lattice_(lattice) {}
  void add(const gemmi::Miller& hkl, int flag);
  [[nodiscard]] std::optional<int> of(const gemmi::Miller& hkl) const;
  [[nodiscard]] bool empty() const { return by_laue_.empty(); }
  // How many orbits of the lattice there are for each with this flag.
  [[nodiscard]] double orbits_for_each(int flag) const;
  // How many orbits had members of different flags.
  [[nodiscard]] std::size_t conflicts() const { return conflicts_; }
  [[nodiscard]] bool follows_lattice() const { return mixed_ == 0; }

 private:
  struct Flag {
    int value;
    bool mixed;
  };
  const Orbits& laue_;
  const Orbits& lattice_;
  std::unordered_map<OrbitKey, int> by_laue_;
  std::unordered_map<OrbitKey, Flag> by_lattice_;
  std::size_t conflicts_ = 0, mixed_ = 0;
};

}  // namespace qx
