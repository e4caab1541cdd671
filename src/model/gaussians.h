// K. The Gaussians of an atom's density.
//
// With f(s) = sum a_i exp(-b_i s^2 / 4) and the atom's blurring B, rho(r) = sum A_i exp(-E_i r^2),
// A_i = a_i (4 pi / Bt)^(3/2), E_i = 4 pi^2 / Bt, Bt = b_i + B.
#pragma once

#include <cstdint>

namespace qx {

inline constexpr std::int32_t most_gaussians = 5;

struct Gaussians {
  std::int32_t n = 0;
  double amplitude[most_gaussians];
  double exponent[most_gaussians];  // 1/Angstrom^2
};

// False when a Bt is not positive: the density would not be finite.
bool atom_gaussians(std::int32_t n, const double* a, const double* b, double b_total,
                    double occupancy, Gaussians& out) noexcept;

// A look-up of exp(-x), 0 from n h on.
struct ExpTable {
  std::int32_t n;
  double inverse_h;
  const double* values;

  [[nodiscard]] double operator()(double x) const noexcept {
    const double at = x * inverse_h;
    return at < n ? values[static_cast<std::int32_t>(at)] : 0.0;
  }
};

double density_at(const Gaussians& atom, const ExpTable& table, double r_squared) noexcept;

struct CutoffResult {
  double radius;
  bool capped;  // the density is still above the threshold at the limit
};

// Radius at which |rho(r)/rho(0)| falls below `ecut`, by bisection of [0, limit] to 0.2 Angstrom.
// An atom whose rho(0) is below 0.001 gets the limit.
CutoffResult cutoff_radius(const Gaussians& atom, const ExpTable& table, double ecut,
                           double limit) noexcept;

}  // namespace qx
