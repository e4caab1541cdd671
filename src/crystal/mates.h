// K. Symmetry mates of reflections in integers: hR is the row vector times the rotation, and
// F(hR) = F(h) exp(-2 pi i h.t).
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

struct Index3 {
  std::int32_t h, k, l;
};

inline Index3 opposite(Index3 i) noexcept { return {-i.h, -i.k, -i.l}; }
inline bool operator==(const Index3& a, const Index3& b) noexcept {
  return a.h == b.h && a.k == b.k && a.l == b.l;
}

// True for one of each pair of opposites, the one that half a spectrum (h >= 0) holds.
inline bool in_half(Index3 i) noexcept {
  return i.h > 0 || (i.h == 0 && (i.k > 0 || (i.k == 0 && i.l >= 0)));
}

struct Phase {
  double cosine, sine;
};

struct MateOperator {
  std::int32_t r[9];  // rotation, row-major
  std::int32_t s[3];  // translation in steps of 1 / denominator
  double t[3];        // the same as fractions, for translations that no denominator expresses

  [[nodiscard]] Index3 mate(Index3 i) const noexcept {
    return {i.h * r[0] + i.k * r[3] + i.l * r[6], i.h * r[1] + i.k * r[4] + i.l * r[7],
            i.h * r[2] + i.k * r[5] + i.l * r[8]};
  }
};

inline constexpr std::int32_t most_steps = 360;
inline constexpr std::int32_t index_limit = 1 << 20;  // magnitudes of indices stay below

// What the operators say about one index.
struct Orbit {
  bool extinct;          // they contradict each other about its phase: its amplitude must be zero
  std::int32_t centric;  // operator that gives the opposite index; -1 if none does
};

// The identity and the other operators with distinct rotations, in their order, then the further
// translations that come with a rotation already listed (as differences to the listed one).
struct Symmetry {
  MateOperator* operators = nullptr;
  std::int32_t nrotations = 0;
  std::int32_t ncentrings = 0;    // kept from operators[nrotations] on
  std::int32_t denominator = 24;  // 0 when the translations have no common one
  bool closed = false;            // each product of two rotations is one of them
  Phase phases[most_steps];       // exp(-2 pi i n / denominator)

  // exp(-2 pi i h.t), h.t reduced to [0, 1) first; 2 pi in single precision.
  [[nodiscard]] Phase phase(const MateOperator& op, Index3 i) const noexcept {
    return denominator > 0 ? phases[steps(op, i)] : phase_of_fractions(op, i);
  }
  // True when h.t is no whole number.
  [[nodiscard]] bool shifts(const MateOperator& op, Index3 i) const noexcept {
    return denominator > 0 ? steps(op, i) != 0 : fractions_shift(op, i);
  }
  // Fills `mates` with the index under each rotation.
  Orbit orbit(Index3 i, Index3* mates) const noexcept {
    Orbit orbit = {false, i == opposite(i) ? 0 : -1};
    for (std::int32_t c = nrotations; c < nrotations + ncentrings; ++c) {
      orbit.extinct = orbit.extinct || shifts(operators[c], i);
    }
    mates[0] = i;
    for (std::int32_t op = 1; op < nrotations; ++op) {
      mates[op] = operators[op].mate(i);
      if (mates[op] == i && shifts(operators[op], i)) orbit.extinct = true;
      if (orbit.centric < 0 && mates[op] == opposite(i)) orbit.centric = op;
    }
    return orbit;
  }

 private:
  // h.t modulo 1 in steps. Each step is below most_steps and each index below index_limit: no
  // overflow. A division by a constant costs a quarter of one by a variable.
  [[nodiscard]] std::int32_t steps(const MateOperator& op, Index3 i) const noexcept {
    const std::int32_t sum = i.h * op.s[0] + i.k * op.s[1] + i.l * op.s[2];
    const std::int32_t rest = denominator == 24 ? sum % 24 : sum % denominator;
    return rest < 0 ? rest + denominator : rest;
  }
  [[nodiscard]] static Phase phase_of_fractions(const MateOperator& op, Index3 i) noexcept;
  [[nodiscard]] static bool fractions_shift(const MateOperator& op, Index3 i) noexcept;
};

// Fills `symmetry` from 4 x 4 operators on fractional columns; `operators` has room for count + 1.
// False if a rotation has an element that is no integer of at most 100.
bool make_symmetry(const double (*matrices)[16], std::int32_t count, MateOperator* operators,
                   Symmetry& symmetry) noexcept;

// Largest magnitudes of h, k, l that mates of indices within `largest` can have; false if one
// reaches index_limit.
bool mate_bounds(const Symmetry& symmetry, Index3 largest, Index3& bounds) noexcept;

// A set of indices within bounds: one bit each, or a table of the indices themselves where bits
// would take far more room.
class IndexSet {
 public:
  // 64-bit words for at most `members` indices; bits as long as they take no more than
  // `bit_words`.
  static std::size_t words_needed(Index3 bounds, bool half, std::size_t members,
                                  std::size_t bit_words) noexcept;
  IndexSet() = default;
  // `words` in number as given by words_needed for the same arguments. `half`: h >= 0 only.
  IndexSet(std::uint64_t* words, Index3 bounds, bool half, std::size_t members,
           std::size_t bit_words) noexcept;
  void clear() noexcept;
  // True if the index was not there yet.
  bool insert(Index3 i) noexcept {
    if (!bits_) return insert_key(i);
    const auto h = static_cast<std::size_t>(std::ptrdiff_t{i.h} + offset_.h);
    const auto k = static_cast<std::size_t>(std::ptrdiff_t{i.k} + offset_.k);
    const auto l = static_cast<std::size_t>(std::ptrdiff_t{i.l} + offset_.l);
    const std::size_t bit = (h * kspan_ + k) * lspan_ + l;
    const std::uint64_t mask = std::uint64_t{1} << (bit % 64);
    std::uint64_t& word = words_[bit / 64];
    const bool fresh = (word & mask) == 0;
    word |= mask;
    return fresh;
  }

 private:
  bool insert_key(Index3 i) noexcept;

  std::uint64_t* words_ = nullptr;
  std::size_t nwords_ = 0;
  bool bits_ = false;
  Index3 offset_ = {0, 0, 0};
  std::size_t kspan_ = 0, lspan_ = 0;
};

}  // namespace qx
