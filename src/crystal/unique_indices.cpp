#include "crystal/unique_indices.h"

#include <algorithm>

namespace qx {

namespace {

constexpr std::int32_t offset = 1 << 20;
constexpr std::uint64_t mask = (1U << 21) - 1;

// Larger for the index that is taken of two: none negative, then l, h, k, so that most groups have
// the asymmetric unit that files have.
std::uint64_t rank(std::int32_t h, std::int32_t k, std::int32_t l) noexcept {
  const auto part = [](std::int32_t i) { return static_cast<std::uint64_t>(i + offset) & mask; };
  const std::uint64_t positive = h >= 0 && k >= 0 && l >= 0 ? 1 : 0;
  return positive << 63 | part(l) << 42 | part(h) << 21 | part(k);
}

struct Image {
  std::int32_t h, k, l;
};

Image image(const std::int32_t (&r)[9], const Image& i) noexcept {
  return {i.h * r[0] + i.k * r[3] + i.l * r[6], i.h * r[1] + i.k * r[4] + i.l * r[7],
          i.h * r[2] + i.k * r[5] + i.l * r[8]};
}

// Whether the index represents its orbit, and no operator extinguishes it.
bool is_unique(const IndexOperations& group, const Image& i, std::uint64_t own) noexcept {
  for (int op = 0; op < group.n; ++op) {
    const Image mate = image(group.rotation[op], i);
    if (std::max(rank(mate.h, mate.k, mate.l), rank(-mate.h, -mate.k, -mate.l)) > own) return false;
    if (mate.h != i.h || mate.k != i.k || mate.l != i.l) continue;
    const auto& t = group.shift[op];
    if ((i.h * t[0] + i.k * t[1] + i.l * t[2]) % 24 != 0) return false;
  }
  return true;
}

}  // namespace

std::uint64_t orbit_of(const IndexOperations& group, std::int32_t h, std::int32_t k,
                       std::int32_t l) noexcept {
  std::uint64_t best = std::max(rank(h, k, l), rank(-h, -k, -l));
  for (int op = 0; op < group.n; ++op) {
    const Image mate = image(group.rotation[op], {h, k, l});
    best = std::max({best, rank(mate.h, mate.k, mate.l), rank(-mate.h, -mate.k, -mate.l)});
  }
  return best;
}

void representative(std::uint64_t orbit, std::int32_t (&hkl)[3]) noexcept {
  const auto part = [&](int shift) {
    return static_cast<std::int32_t>(orbit >> shift & mask) - offset;
  };
  hkl[0] = part(21);
  hkl[1] = part(0);
  hkl[2] = part(42);
}

namespace {

// Of an index and its opposite a representative is the one without a negative l.
template <class Visit>
void visit(const IndexSearch& search, Visit visitor) noexcept {
  const double(&c)[6] = search.form;
  for (std::int32_t l = 0; l <= search.lmax; ++l) {
    for (std::int32_t h = -search.hmax; h <= search.hmax; ++h) {
      const double fixed = c[0] * h * h + c[2] * l * l + c[4] * h * l;
      const double by_k = c[3] * h + c[5] * l;
      for (std::int32_t k = -search.kmax; k <= search.kmax; ++k) {
        const double s2 = fixed + k * (c[1] * k + by_k);
        if (s2 < search.low || s2 > search.high || (h == 0 && k == 0 && l == 0)) continue;
        visitor(h, k, l);
      }
    }
  }
}

}  // namespace

std::size_t indices_within(const IndexSearch& search) noexcept {
  std::size_t n = 0;
  visit(search, [&](std::int32_t, std::int32_t, std::int32_t) { ++n; });
  return n;
}

std::size_t unique_orbits(const IndexOperations& group, const IndexSearch& search,
                          std::uint64_t* out) noexcept {
  std::size_t n = 0;
  visit(search, [&](std::int32_t h, std::int32_t k, std::int32_t l) {
    const std::uint64_t own = rank(h, k, l);
    if (own >= rank(-h, -k, -l) && is_unique(group, {h, k, l}, own)) out[n++] = own;
  });
  return n;
}

}  // namespace qx
