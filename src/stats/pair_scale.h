// K. One set of amplitudes put on the scale of another, and their differences.
//
// F2' = k(s) exp(-s^T B s / 4) F2: k and B first, then k as a curve of s^2, linear between the
// middles of bins; both by least squares of F1 - F2' in which large residuals count by their
// absolute value (soft-L1: 2 (sqrt(1 + r^2) - 1), r in units of a robust rms), so that what a
// ligand changed does not bend the scale. B in Angstrom^2, Cartesian, in the order 11 22 33 12 13
// 23; s^2 in 1/Angstrom^2.
#pragma once

#include "stats/tensor_basis.h"

#include <cstddef>
#include <cstdint>

namespace qx {

// Pairs of observed amplitudes; an error that is not known is 0.
struct AmplitudePairs {
  std::int32_t n = 0;
  const double *f1 = nullptr, *f2 = nullptr;
  const double *sigma1 = nullptr, *sigma2 = nullptr;
  const double* s2 = nullptr;
  const double (*s)[3] = nullptr;
};

struct PairScale {
  static constexpr int most_bins = 20;
  double k = 1.0;
  double b[6] = {};
  // The curve that multiplies k; none: 1.
  int nbins = 0;
  double centre[most_bins];
  double curve[most_bins];
  int steps = 0;
};

double pair_scale_at(const PairScale& scale, double s2, const double (&s)[3]) noexcept;

// Doubles of scratch that the fit wants for n pairs.
std::size_t pair_scale_scratch(std::int32_t n) noexcept;

// Without pairs, or with amplitudes that are zero throughout, the scale is 1.
PairScale fit_pair_scale(const AmplitudePairs& pairs, const TensorBasis& basis,
                         double* scratch) noexcept;

struct PairDifferences {
  double mean_d2 = 0.0, mean_variance = 0.0;  // <D^2>, <s^2>
  double r = 0.0;                             // sum |D| / sum F1
  double correlation = 0.0;                   // of F1 and F2'
  std::int32_t without_error = 0;             // pairs that lack one of their errors
};

// D = F2' - F1 and its error; 0 where one of the two errors is not known.
PairDifferences pair_differences(const AmplitudePairs& pairs, const PairScale& scale, double* d,
                                 double* sigma) noexcept;

// Ursby & Bourgeois, Acta Cryst. A53, 564, 1997: 1 / (1 + s^2 / <s^2> + alpha D^2 / <D^2>). An
// error that is not known counts as the mean one, errors that are all unknown do not count.
double difference_weight(const PairDifferences& means, double d, double sigma,
                         double alpha) noexcept;

}  // namespace qx
