#include "crystal/mates.h"

#include "core/constants.h"

#include <algorithm>
#include <bit>
#include <bitset>
#include <cmath>
#include <cstring>

namespace qx {

namespace {

constexpr double step_tolerance = 1e-4;  // of a step between two translations
constexpr double largest_element = 100.0;

bool expressible(const double (*matrices)[16], std::int32_t count, std::int32_t denominator) {
  for (std::int32_t op = 0; op < count; ++op) {
    for (int row = 0; row < 3; ++row) {
      const double steps = matrices[op][4 * row + 3] * denominator;
      if (!(std::abs(steps - std::nearbyint(steps)) < step_tolerance)) return false;
    }
  }
  return true;
}

std::int32_t common_denominator(const double (*matrices)[16], std::int32_t count) {
  if (expressible(matrices, count, 24)) return 24;
  for (std::int32_t denominator = 1; denominator <= most_steps; ++denominator) {
    if (expressible(matrices, count, denominator)) return denominator;
  }
  return 0;
}

bool convert(const double (&matrix)[16], std::int32_t denominator, MateOperator& op) {
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      const double element = matrix[4 * row + column];
      if (!(std::abs(element) <= largest_element) ||
          std::abs(element - std::nearbyint(element)) > step_tolerance) {
        return false;
      }
      op.r[3 * row + column] = static_cast<std::int32_t>(std::nearbyint(element));
    }
    const double t = matrix[4 * row + 3];
    if (!std::isfinite(t)) return false;
    op.t[row] = t - std::floor(t);
    op.s[row] = static_cast<std::int32_t>(std::nearbyint(op.t[row] * denominator));
  }
  return true;
}

// Most operators of a centred group repeat the same few translations: moves those that differ from
// zero and from each other to the front.
std::int32_t keep_distinct_shifts(MateOperator* kept, const MateOperator* begin,
                                  const MateOperator* end) {
  constexpr double zero[3] = {0, 0, 0};
  const auto same = [](const double(&a)[3], const double(&b)[3]) {
    return std::equal(a, a + 3, b, [](double x, double y) {
      return std::abs(std::remainder(x - y, 1.0)) < step_tolerance;
    });
  };
  std::int32_t n = 0;
  for (const MateOperator* source = begin; source != end; ++source) {
    const MateOperator op = *source;
    const bool known = same(op.t, zero) || std::any_of(kept, kept + n, [&](const MateOperator& o) {
                         return same(o.t, op.t);
                       });
    if (!known) kept[n++] = op;
  }
  return n;
}

constexpr std::size_t rotation_codes = 19683;  // 3^9

// A number of its own for each matrix of elements -1, 0, 1; rotation_codes for all others.
std::size_t rotation_code(const std::int32_t (&r)[9]) noexcept {
  std::size_t code = 0;
  for (const std::int32_t element : r) {
    if (std::abs(element) > 1) return rotation_codes;
    code = 3 * code + static_cast<std::size_t>(element + 1);
  }
  return code;
}

// False also where an element is not -1, 0 or 1, which no setting of the tables has.
bool are_closed(const MateOperator* operators, std::int32_t n) noexcept {
  std::bitset<rotation_codes + 1> known;
  for (const MateOperator* a = operators; a != operators + n; ++a) known.set(rotation_code(a->r));
  if (known[rotation_codes]) return false;
  for (const MateOperator* a = operators; a != operators + n; ++a) {
    for (const MateOperator* b = operators; b != operators + n; ++b) {
      std::int32_t product[9];
      for (int i = 0; i < 9; ++i) {
        const std::int32_t* row = a->r + i / 3 * 3;
        product[i] = row[0] * b->r[i % 3] + row[1] * b->r[3 + i % 3] + row[2] * b->r[6 + i % 3];
      }
      if (!known[rotation_code(product)]) return false;
    }
  }
  return true;
}

double cycles(const MateOperator& op, Index3 i) noexcept {
  const double ht = i.h * op.t[0] + i.k * op.t[1] + i.l * op.t[2];
  return ht - std::floor(ht);
}

}  // namespace

Phase Symmetry::phase_of_fractions(const MateOperator& op, Index3 i) noexcept {
  const double angle = two_pi_single * cycles(op, i);
  return {std::cos(angle), -std::sin(angle)};
}

bool Symmetry::fractions_shift(const MateOperator& op, Index3 i) noexcept {
  const double rest = cycles(op, i);
  return std::min(rest, 1.0 - rest) > step_tolerance;
}

bool make_symmetry(const double (*matrices)[16], std::int32_t count, MateOperator* operators,
                   Symmetry& symmetry) noexcept {
  symmetry.operators = operators;
  symmetry.denominator = common_denominator(matrices, count);
  for (std::int32_t n = 0; n < symmetry.denominator; ++n) {
    const double angle = two_pi_single * (static_cast<double>(n) / symmetry.denominator);
    symmetry.phases[n] = {std::cos(angle), -std::sin(angle)};
  }
  // Listed rotations grow from the front, further translations from the back.
  std::int32_t first = 0;
  std::int32_t last = count + 1;
  operators[first++] = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}, {0, 0, 0}};
  for (std::int32_t i = 0; i < count; ++i) {
    MateOperator op = {};
    if (!convert(matrices[i], symmetry.denominator, op)) return false;
    const MateOperator* const listed = std::find_if(
        operators, operators + first,
        [&](const MateOperator& other) { return std::equal(op.r, op.r + 9, other.r); });
    if (listed == operators + first) {
      operators[first++] = op;
      continue;
    }
    for (int axis = 0; axis < 3; ++axis) {
      op.s[axis] -= listed->s[axis];
      op.t[axis] -= listed->t[axis];
    }
    operators[--last] = op;
  }
  symmetry.nrotations = first;
  symmetry.closed = are_closed(operators, first);
  symmetry.ncentrings =
      keep_distinct_shifts(operators + first, operators + last, operators + count + 1);
  return true;
}

bool mate_bounds(const Symmetry& symmetry, Index3 largest, Index3& bounds) noexcept {
  const std::int64_t most[3] = {largest.h, largest.k, largest.l};
  std::int64_t found[3] = {0, 0, 0};
  for (std::int32_t op = 0; op < symmetry.nrotations; ++op) {
    const std::int32_t* r = symmetry.operators[op].r;
    for (int j = 0; j < 3; ++j) {
      const std::int64_t reach =
          most[0] * std::abs(r[j]) + most[1] * std::abs(r[3 + j]) + most[2] * std::abs(r[6 + j]);
      found[j] = std::max(found[j], reach);
    }
  }
  if (*std::max_element(found, found + 3) >= index_limit) return false;
  bounds = {static_cast<std::int32_t>(found[0]), static_cast<std::int32_t>(found[1]),
            static_cast<std::int32_t>(found[2])};
  return true;
}

namespace {

// Below 2^63: each factor is at most 2^21.
std::size_t words_of_bits(Index3 bounds, bool half) noexcept {
  const auto h = static_cast<std::size_t>(bounds.h);
  const auto k = static_cast<std::size_t>(bounds.k);
  const auto l = static_cast<std::size_t>(bounds.l);
  return ((half ? h : 2 * h) + 1) * (2 * k + 1) * (2 * l + 1) / 64 + 1;
}

}  // namespace

std::size_t IndexSet::words_needed(Index3 bounds, bool half, std::size_t members,
                                   std::size_t bit_words) noexcept {
  const std::size_t bits = words_of_bits(bounds, half);
  return bits <= bit_words ? bits : std::bit_ceil(2 * members + 1);
}

IndexSet::IndexSet(std::uint64_t* words, Index3 bounds, bool half, std::size_t members,
                   std::size_t bit_words) noexcept
    : words_(words),
      nwords_(words_needed(bounds, half, members, bit_words)),
      bits_(words_of_bits(bounds, half) <= bit_words),
      offset_{half ? 0 : bounds.h, bounds.k, bounds.l},
      kspan_(2 * static_cast<std::size_t>(bounds.k) + 1),
      lspan_(2 * static_cast<std::size_t>(bounds.l) + 1) {
  clear();
}

void IndexSet::clear() noexcept { std::memset(words_, 0, nwords_ * sizeof(std::uint64_t)); }

// 21 bits for each index; no index gives key 0, which marks an empty place.
bool IndexSet::insert_key(Index3 i) noexcept {
  const auto part = [](std::int32_t x) {
    return static_cast<std::uint64_t>(std::int64_t{x} + index_limit);
  };
  const std::uint64_t key = part(i.h) << 42 | part(i.k) << 21 | part(i.l);
  const std::size_t mask = nwords_ - 1;
  std::size_t place = static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ULL) >> 20) & mask;
  while (words_[place] != 0) {
    if (words_[place] == key) return false;
    place = (place + 1) & mask;
  }
  words_[place] = key;
  return true;
}

}  // namespace qx
