#include "model/gaussians.h"

#include "core/constants.h"

#include <cmath>

namespace qx {

bool atom_gaussians(std::int32_t n, const double* a, const double* b, double b_total,
                    double occupancy, Gaussians& out) noexcept {
  out.n = n;
  for (std::int32_t i = 0; i < n; ++i) {
    const double width = b[i] + b_total;
    if (!(width > 0.0)) return false;
    const double ratio = four_pi_single / width;
    out.amplitude[i] = occupancy * a[i] * ratio * std::sqrt(ratio);
    out.exponent[i] = four_pi_squared_single / width;
  }
  return true;
}

double density_at(const Gaussians& atom, const ExpTable& table, double r_squared) noexcept {
  double sum = 0.0;
  for (std::int32_t i = 0; i < atom.n; ++i) {
    sum += atom.amplitude[i] * table(atom.exponent[i] * r_squared);
  }
  return sum;
}

CutoffResult cutoff_radius(const Gaussians& atom, const ExpTable& table, double ecut,
                           double limit) noexcept {
  constexpr double negligible = 0.001;  // electrons per cubic Angstrom
  constexpr double fine_enough = 0.2;   // Angstrom
  const double centre = density_at(atom, table, 0.0);
  if (!(std::fabs(centre) >= negligible)) return {limit, false};
  const auto above = [&](double r) {
    return std::fabs(density_at(atom, table, r * r) / centre) > ecut;
  };
  if (above(limit)) return {limit, true};
  double low = 0.0;
  double high = limit;
  double middle = limit;
  while (high - low > fine_enough) {
    middle = 0.5 * (low + high);
    (above(middle) ? low : high) = middle;
  }
  return {middle, false};
}

}  // namespace qx
