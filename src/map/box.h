// K. The box of a map: grid bounds of an extent, cutting it out of the cell, statistics and scale.
#pragma once

#include "core/view3.h"

#include <cstdint>
#include <limits>

namespace qx {

// Extremes, mean, and root mean square about zero of some density.
struct MapStatistics {
  double minimum = 0, maximum = 0, mean = 0, rms = 0;
};

inline View3<const double> as_const(View3<double> view) noexcept {
  return {view.data, view.n0, view.n1, view.n2};
}

// Inclusive grid indices along one axis.
struct AxisBounds {
  std::int32_t low, high;
};

// The asymmetric unit's side [low, high] on n points, both ends cut towards zero, one point more at
// the top, never beyond n.
AxisBounds asymmetric_bounds(double low, double high, std::int32_t n) noexcept;

// Fractional limits on n points, each rounded to the nearest point. False if one is no number or
// 2^30 points away, or if they are in the wrong order.
bool fractional_bounds(double low, double high, std::int32_t n, AxisBounds& bounds) noexcept;

// Fractional limits (low and high of x, y, z) of a Cartesian box given in the same order: the
// smallest fractional box that holds its eight corners. `orth2frac` is 4 x 4, row-major.
void fractional_limits(const double (&orth2frac)[16], const double (&cartesian)[6],
                       double (&fractional)[6]) noexcept;

// Statistics gathered row by row.
struct DensitySums {
  double sum = 0, sum_of_squares = 0;
  double minimum = std::numeric_limits<double>::infinity();
  double maximum = -std::numeric_limits<double>::infinity();

  void add(const double* row, std::ptrdiff_t n) noexcept;
  void add(const DensitySums& other) noexcept;
  [[nodiscard]] MapStatistics statistics(std::ptrdiff_t points) const noexcept;
};

// n points from `low` on of a row with period nx.
void copy_periodic(const double* row, std::ptrdiff_t nx, std::int32_t low, std::ptrdiff_t n,
                   double* target) noexcept;

// Copies points xlow .., ylow .., zlow .. of the periodic cell into `box` and gathers its
// statistics.
MapStatistics cut_box(View3<const double> cell, std::int32_t xlow, std::int32_t ylow,
                      std::int32_t zlow, View3<double> box) noexcept;

MapStatistics statistics_of(View3<const double> box) noexcept;

// Multiplies every value and, with it, the statistics.
void scale_values(View3<double> box, double factor, MapStatistics& statistics) noexcept;

}  // namespace qx
