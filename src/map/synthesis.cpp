#include "map/synthesis.h"

#include "core/constants.h"
#include "core/wrapped.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace qx {

namespace {

struct Coefficient {
  double re, im;
};

// What counts of a row: nothing, the terms of all operators, or those that are not there yet.
constexpr std::uint8_t no_term = 0, all_terms = 1, some_terms = 2;

RowRange all_rows(const Expansion& e) noexcept { return {0, e.list.n, e.mates}; }

Coefficient row_coefficient(const CoefficientList& list, std::int32_t row) noexcept {
  const double amplitude = list.amplitude[row];
  const double phase = list.phase_deg[row];
  if (!std::isfinite(amplitude) || !std::isfinite(phase)) return {0, 0};
  const double radians = phase * (pi / 180.0);
  return {amplitude * std::cos(radians), amplitude * std::sin(radians)};
}

// Coefficients of rows side by side, without branches: a compiler makes vectors of them.
constexpr std::int32_t together = 64;
struct RowCoefficients {
  double re[together], im[together];
};

// The nearest whole number, for magnitudes below 2^51: what is beyond it falls off the mantissa.
double nearest(double x) noexcept {
  constexpr double mantissa = 0x1.8p52;
  return (x + mantissa) - mantissa;
}

// Quarter turns are taken off in degrees, exactly; what is left is within 45 of them, where
// Taylor's series may end: their next terms, x^18 / 18! and x^19 / 19!, are below 3e-18.
Coefficient polar(double amplitude, double degrees) noexcept {
  const double quarters = nearest(degrees * (1.0 / 90.0));
  const double x = (degrees - 90.0 * quarters) * (pi / 180.0);
  const double z = x * x;
  const double odd = nearest(0.25 * quarters) * -4.0 + quarters;  // -2 .. 2
  double s = 1.0 / 355687428096000.0;
  s = s * z - 1.0 / 1307674368000.0;
  s = s * z + 1.0 / 6227020800.0;
  s = s * z - 1.0 / 39916800.0;
  s = s * z + 1.0 / 362880.0;
  s = s * z - 1.0 / 5040.0;
  s = s * z + 1.0 / 120.0;
  s = s * z - 1.0 / 6.0;
  s = x + x * z * s;
  double c = 1.0 / 20922789888000.0;
  c = c * z - 1.0 / 87178291200.0;
  c = c * z + 1.0 / 479001600.0;
  c = c * z - 1.0 / 3628800.0;
  c = c * z + 1.0 / 40320.0;
  c = c * z - 1.0 / 720.0;
  c = c * z + 1.0 / 24.0;
  c = c * z - 0.5;
  c = 1.0 + z * c;
  const bool across = std::fabs(odd) == 1.0;
  const double along = std::fabs(odd) > 1.5 ? -amplitude : amplitude;
  const double sideways = odd > 0.0 ? amplitude : -amplitude;
  return {across ? -sideways * s : along * c, across ? sideways * c : along * s};
}

void find_coefficients(const CoefficientList& list, std::int32_t first, std::int32_t n,
                       RowCoefficients& found) noexcept {
  constexpr double most_degrees = 1e9;
  const double* amplitude = list.amplitude + first;
  const double* phase = list.phase_deg + first;
  std::int32_t unusual = 0;
  for (std::int32_t i = 0; i < n; ++i) {
    const bool usual = std::fabs(amplitude[i]) <= std::numeric_limits<double>::max() &&
                       std::fabs(phase[i]) <= most_degrees;
    const Coefficient f = polar(usual ? amplitude[i] : 0.0, usual ? phase[i] : 0.0);
    found.re[i] = f.re;
    found.im[i] = f.im;
    unusual += usual ? 0 : 1;
  }
  for (std::int32_t i = 0; i < n && unusual > 0; ++i) {
    const Coefficient f = row_coefficient(list, first + i);
    found.re[i] = f.re;
    found.im[i] = f.im;
  }
}

// The coefficient as the symmetry allows it. Where an operator gives the opposite index, the terms
// of both indices are given by operators and their sum is real only along a line of phases: of a
// phase beside that line (real files have some) the component along it is left. So the map has its
// full symmetry whatever the phases.
Coefficient allowed_coefficient(const Expansion& e, std::int32_t row, const Orbit& orbit,
                                Coefficient f) noexcept {
  if (orbit.centric < 0) return f;
  const Phase p = e.symmetry->phase(e.symmetry->operators[orbit.centric], e.list.index(row));
  const double re = f.re * p.cosine - f.im * p.sine;
  const double im = f.re * p.sine + f.im * p.cosine;
  return {0.5 * (f.re + re), 0.5 * (f.im - im)};
}

// Squared modulus of the same.
double allowed_power(const Expansion& e, std::int32_t row, const Orbit& orbit) noexcept {
  if (orbit.centric >= 0) {
    const Coefficient f = allowed_coefficient(e, row, orbit, row_coefficient(e.list, row));
    return f.re * f.re + f.im * f.im;
  }
  const double amplitude = e.list.amplitude[row];
  const double square = amplitude * amplitude;
  return std::isfinite(square) && std::isfinite(e.list.phase_deg[row]) ? square : 0.0;
}

Index3 seen_as(const Expansion& e, Index3 i) noexcept {
  return e.add_opposites && !in_half(i) ? opposite(i) : i;
}

void widen(SpectrumExtent& extent, std::int32_t* columns, std::int32_t kmax, Index3 i) noexcept {
  const Index3 half = in_half(i) ? i : opposite(i);
  extent.alternates = extent.alternates && (half.h + half.k) % 2 == 0;
  extent.largest = {std::max(extent.largest.h, half.h),
                    std::max(extent.largest.k, std::abs(half.k)),
                    std::max(extent.largest.l, std::abs(half.l))};
  columns[kmax + half.k] = std::max(columns[kmax + half.k], half.h + 1);
  if (half.h == 0) columns[kmax - half.k] = std::max(columns[kmax - half.k], 1);
}

// Whether an operator before `op` gives the same index, or its opposite where that is the same
// term.
bool was_given(const Expansion& e, const Index3* mates, std::int32_t op) noexcept {
  const Index3 index = seen_as(e, mates[op]);
  return std::any_of(mates, mates + op, [&](Index3 i) { return seen_as(e, i) == index; });
}

bool precedes(Index3 a, Index3 b) noexcept {
  if (a.h != b.h) return a.h < b.h;
  return a.k != b.k ? a.k < b.k : a.l < b.l;
}

// The mates become known; gives how many they are if the orbit's first was not known yet, else 0.
int enter_mates(const Expansion& e) noexcept {
  if (!e.seen->insert(seen_as(e, e.mates[0]))) return 0;
  const auto fresh = [&](Index3 mate) { return e.seen->insert(seen_as(e, mate)); };
  return 1 + static_cast<int>(std::count_if(e.mates + 1, e.mates + e.symmetry->nrotations, fresh));
}

// The same of a group, whose orbits share all mates or none: one mate stands for all.
int enter_orbit(const Expansion& e) noexcept {
  const Index3 own = seen_as(e, e.mates[0]);
  Index3 last = own;
  int repeats = 1;
  for (std::int32_t op = 1; op < e.symmetry->nrotations; ++op) {
    const Index3 mate = seen_as(e, e.mates[op]);
    if (precedes(last, mate)) last = mate;
    repeats += mate == own ? 1 : 0;
  }
  return e.seen->insert(last) ? e.symmetry->nrotations / repeats : 0;
}

// Calls sink(index, re, im) for one index of each pair of opposites; the sink adds the conjugate at
// the opposite. The index 0 is its own opposite and carries half a weight therefore, and so does
// every index when opposites have rows of their own. No two rows give the same index.
template <class Sink>
void expand(const Expansion& e, const RowRange& rows, double scale, Sink&& sink) noexcept {
  RowCoefficients own;
  for (std::int32_t row = rows.first; row < rows.end; ++row) {
    const std::int32_t at = (row - rows.first) % together;
    if (at == 0) find_coefficients(e.list, row, std::min(together, rows.end - row), own);
    if (e.counts[row] == no_term) continue;
    const Index3 index = e.list.index(row);
    const Orbit orbit = e.symmetry->orbit(index, rows.mates);
    const Coefficient f = allowed_coefficient(e, row, orbit, {own.re[at], own.im[at]});
    const bool whole = e.add_opposites && !(index == Index3{0, 0, 0});
    const double weight = whole ? scale : 0.5 * scale;
    for (std::int32_t op = 0; op < e.symmetry->nrotations; ++op) {
      if (e.counts[row] == some_terms && was_given(e, rows.mates, op)) continue;
      const Phase p = e.symmetry->phase(e.symmetry->operators[op], index);
      sink(rows.mates[op], weight * (f.re * p.cosine - f.im * p.sine),
           weight * (f.re * p.sine + f.im * p.cosine));
    }
  }
}

// Terms on their way into the block. Neighbours in a list lie far apart there: each place is asked
// for some terms before it is needed.
class PendingTerms {
 public:
  explicit PendingTerms(std::ptrdiff_t imaginary) noexcept : imaginary_(imaginary) {}
  PendingTerms(const PendingTerms&) = delete;
  PendingTerms& operator=(const PendingTerms&) = delete;
  ~PendingTerms() {
    for (std::size_t i = 0; i < capacity; ++i) settle(terms_[(next_ + i) % capacity]);
  }

  void add(double* place, double re, double im) noexcept {
    Term& term = terms_[next_++ % capacity];
    settle(term);
    __builtin_prefetch(place, 1);
    __builtin_prefetch(place + imaginary_, 1);
    term = {place, re, im};
  }

 private:
  static constexpr std::size_t capacity = 32;
  struct Term {
    double* place = nullptr;
    double re = 0, im = 0;
  };

  void settle(const Term& term) const noexcept {
    if (!term.place) return;
    term.place[0] += term.re;
    term.place[imaginary_] += term.im;
  }

  std::ptrdiff_t imaginary_;  // from the real part of a term to its imaginary part
  std::size_t next_ = 0;
  Term terms_[capacity];
};

template <class Layout>
void expand_into(const Expansion& expansion, const RowRange& rows, double scale,
                 const Layout& layout, std::ptrdiff_t imaginary, double* block) noexcept {
  PendingTerms pending(imaginary);
  const auto place = [&](Index3 i, double re, double im) {
    pending.add(block + layout.at(i.h, i.k, i.l), re, im);
  };
  expand(expansion, rows, scale, [&](Index3 i, double re, double im) {
    if (i.h >= 0) place(i, re, im);
    if (i.h <= 0) place(opposite(i), re, -im);
  });
}

}  // namespace

bool largest_indices(const CoefficientList& list, Index3& largest) noexcept {
  const auto most = [&](const std::int32_t* index) {
    std::int64_t magnitude = 0;
    for (std::int32_t i = 0; i < list.n; ++i) {
      magnitude = std::max(magnitude, std::abs(std::int64_t{index[i]}));
    }
    return magnitude;
  };
  const std::int64_t h = most(list.h);
  const std::int64_t k = most(list.k);
  const std::int64_t l = most(list.l);
  if (std::max({h, k, l}) >= index_limit) return false;
  largest = {static_cast<std::int32_t>(h), static_cast<std::int32_t>(k),
             static_cast<std::int32_t>(l)};
  return true;
}

SpectrumExtent measure(const Expansion& e, Index3 bounds, std::int32_t* columns) noexcept {
  SpectrumExtent extent;
  std::fill_n(columns, 2 * bounds.k + 1, 0);
  e.seen->clear();
  for (std::int32_t row = 0; row < e.list.n; ++row) {
    const Orbit orbit = e.symmetry->orbit(e.list.index(row), e.mates);
    e.counts[row] = no_term;
    if (orbit.extinct) continue;
    const int distinct = e.symmetry->closed ? enter_orbit(e) : enter_mates(e);
    if (distinct == 0) continue;
    for (std::int32_t op = 0; op < e.symmetry->nrotations; ++op) {
      widen(extent, columns, bounds.k, e.mates[op]);
    }
    e.counts[row] = distinct == e.symmetry->nrotations ? all_terms : some_terms;
    if (!e.add_opposites) continue;
    const bool origin = e.mates[0] == Index3{0, 0, 0};
    extent.power += (origin ? 1.0 : 2.0 * distinct) * allowed_power(e, row, orbit);
    if (origin) extent.f000 = row_coefficient(e.list, row).re;
  }
  return extent;
}

void expand_to_half(const Expansion& expansion, double scale, const HalfLayout& half,
                    double* block) noexcept {
  expand_into(expansion, all_rows(expansion), scale, half, half.terms(), block);
}

void expand_to_disc(const Expansion& expansion, const RowRange& rows, double scale,
                    const DiscLayout& disc, double* block) noexcept {
  expand_into(expansion, rows, scale, disc, disc.imaginary(), block);
}

void expand_to_full(const Expansion& expansion, double scale, View3<double> real,
                    View3<double> imaginary) noexcept {
  const auto place = [&](Index3 i, double re, double im) {
    const std::ptrdiff_t iz = wrapped(i.l, real.n0);
    const std::ptrdiff_t iy = wrapped(i.k, real.n1);
    const std::ptrdiff_t ix = wrapped(i.h, real.n2);
    real(iz, iy, ix) += re;
    imaginary(iz, iy, ix) += im;
  };
  expand(expansion, all_rows(expansion), scale, [&](Index3 i, double re, double im) {
    place(i, re, im);
    place(opposite(i), re, -im);
  });
}

}  // namespace qx
