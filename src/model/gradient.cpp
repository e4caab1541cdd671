#include "model/gradient.h"

#include "core/constants.h"
#include "model/spread_rows.h"

#include <cmath>

namespace qx {

namespace {

// A Gaussian along a row by recurrence: v(m+1) = v(m) r(m), r(m+1) = r(m) exp(-2 E step^2).
void add_row(const SpreadGrid& grid, const Gaussians& atom, const double* steady,
             const SphereRow& row, double (*moments)[5]) noexcept {
  const double* map = grid.row(row.plane, row.iy);
  const double across = row.y * row.y + row.z * row.z;
  const double x0 = row.ix.first * grid.ax + row.x_offset;
  for (std::int32_t g = 0; g < atom.n; ++g) {
    const double e = atom.exponent[g];
    double value = atom.amplitude[g] * std::exp(-e * (across + x0 * x0));
    double ratio = std::exp(-e * grid.ax * (2.0 * x0 + grid.ax));
    double sum = 0.0, sum_x = 0.0, sum_xx = 0.0;
    double x = x0;
    for (std::int32_t ix = row.ix.first; ix <= row.ix.last; ++ix, x += grid.ax) {
      const double weight = map[ix] * value;
      sum += weight;
      sum_x += weight * x;
      sum_xx += weight * x * x;
      value *= ratio;
      ratio *= steady[g];
    }
    double(&m)[5] = moments[g];
    m[0] += sum;
    m[1] += sum_x;
    m[2] += sum * row.y;
    m[3] += sum * row.z;
    m[4] += sum_xx + sum * across;
  }
}

}  // namespace

void moments_iso(const SpreadGrid& grid, const Gaussians& atom, const double centre[3],
                 double radius, double (*moments)[5]) noexcept {
  double steady[most_gaussians];
  for (std::int32_t g = 0; g < atom.n; ++g) {
    steady[g] = std::exp(-2.0 * atom.exponent[g] * grid.ax * grid.ax);
  }
  for_each_row(
      grid, centre, radius, [](double, double) {},
      [&](const SphereRow& row) { add_row(grid, atom, steady, row, moments); });
}

void iso_gradient(const Gaussians& atom, const double (*moments)[5],
                  double (&gradient)[5]) noexcept {
  for (double& value : gradient) value = 0.0;
  for (std::int32_t g = 0; g < atom.n; ++g) {
    const double e = atom.exponent[g];
    const double(&m)[5] = moments[g];
    for (int i = 0; i < 3; ++i) gradient[i] += 2.0 * e * m[1 + i];
    gradient[3] += e * (e * m[4] - 1.5 * m[0]) / four_pi_squared_single;
    gradient[4] += m[0];
  }
}

}  // namespace qx
