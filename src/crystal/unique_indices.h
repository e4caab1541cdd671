// K. The unique reflections of a group: one index for each orbit, Friedel opposites included.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

// Rotations (row vectors times them) and translations in 24ths of every operator.
struct IndexOperations {
  static constexpr int most = 192;
  int n = 0;
  std::int32_t rotation[most][9];
  std::int32_t shift[most][3];
};

// One number for all indices of an orbit: of its representative, from which it can be taken back.
// Indices below a million.
std::uint64_t orbit_of(const IndexOperations& group, std::int32_t h, std::int32_t k,
                       std::int32_t l) noexcept;
void representative(std::uint64_t orbit, std::int32_t (&hkl)[3]) noexcept;

// Indices to search, and the limits of s^2 with the coefficients of its quadratic form.
struct IndexSearch {
  std::int32_t hmax = 0, kmax = 0, lmax = 0;
  double low = 0.0, high = 0.0;
  double form[6];  // h^2, k^2, l^2, hk, hl, kl
};
// How many indices are searched, of all signs of h and k; no smaller than the number of orbits.
std::size_t indices_within(const IndexSearch& search) noexcept;
// The orbits that the group does not extinguish, each once; gives how many there are.
std::size_t unique_orbits(const IndexOperations& group, const IndexSearch& search,
                          std::uint64_t* out) noexcept;

}  // namespace qx
