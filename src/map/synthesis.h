// K. From reflections to a spectrum on the grid: every reflection once per index that is distinct
// in its orbit and, unless opposites are listed themselves, among the orbit's opposites.
// rho(x) = sum over indices of F(h) exp(-2 pi i h.x), F = amplitude exp(i phase).
#pragma once

#include "core/view3.h"
#include "crystal/mates.h"
#include "fft/disc_spectrum.h"
#include "fft/half_spectrum.h"

#include <cstdint>

namespace qx {

struct CoefficientList {
  std::int32_t n;
  const std::int32_t *h, *k, *l;
  const double* amplitude;  // what is not finite counts as 0
  const double* phase_deg;

  [[nodiscard]] Index3 index(std::int32_t i) const noexcept { return {h[i], k[i], l[i]}; }
};

// A list, its symmetry and the rows that count. Rows that the symmetry extinguishes and further
// rows of an orbit (the first wins) do not.
struct Expansion {
  CoefficientList list;
  const Symmetry* symmetry;
  bool add_opposites;    // each reflection stands for its opposite as well
  std::uint8_t* counts;  // per row of the list, as measure() leaves it
  Index3* mates;         // scratch, one per rotation
  IndexSet* seen;        // for measure(): over indices with h >= 0 if add_opposites, else over all
};

// Some rows of the list and scratch of one mate per rotation, for one thread of several.
struct RowRange {
  std::int32_t first, end;
  Index3* mates;
};

struct SpectrumExtent {
  Index3 largest = {0, 0, 0};  // magnitudes over all indices that count
  double power = 0;            // sum of |F|^2 over the whole spectrum, opposites included
  double f000 = 0;
  bool alternates = true;  // h + k is even in all of them
};

// Largest magnitudes of the list's own indices; false if one reaches index_limit.
bool largest_indices(const CoefficientList& list, Index3& largest) noexcept;

// Decides which rows count. columns[kmax + k], kmax = bounds.k, takes the number of h from 0 on
// that have a term at k. Power and f000 need add_opposites; otherwise they stay 0.
SpectrumExtent measure(const Expansion& expansion, Index3 bounds, std::int32_t* columns) noexcept;

// Adds `scale` times every term to half a spectrum; call measure() first.
void expand_to_half(const Expansion& expansion, double scale, const HalfLayout& half,
                    double* block) noexcept;
// The same of some rows; no two rows add to one place.
void expand_to_disc(const Expansion& expansion, const RowRange& rows, double scale,
                    const DiscLayout& disc, double* block) noexcept;

// The whole spectrum on full arrays, indices wrapped by the extents of the arrays: terms that fall
// on one point are summed.
void expand_to_full(const Expansion& expansion, double scale, View3<double> real,
                    View3<double> imaginary) noexcept;

}  // namespace qx
