// K. Formulas of the unit cell: edges in Angstrom, angles as cosines and sines.
#pragma once

namespace qx {

struct CellAngles {
  double cos_alpha, cos_beta, cos_gamma;
  double sin_alpha, sin_beta, sin_gamma;
};

CellAngles cell_angles(double alpha_deg, double beta_deg, double gamma_deg) noexcept;
// (V / abc)^2; negative when three such angles do not meet in a corner.
double relative_volume_squared(const CellAngles& angles) noexcept;
// True for finite positive edges and angles that enclose a volume.
bool possible_cell(const double edges[3], const double angles_deg[3]) noexcept;
// sqrt(1 - x^2), exactly 0 when 1 - x^2 is below 1e-15.
double complement(double x) noexcept;

// a along x, b in the x-y plane, c* along z; `height` is c* to c: V / (ab sin gamma).
void standard_frac2orth(const double edges[3], const CellAngles& angles, double height,
                        double out[9]) noexcept;
// The inverse of x -> R x + t; false if R is singular.
bool invert_affine(const double affine[16], double out[16]) noexcept;

// G of edges and the cosines of the angles between them.
void metric_tensor(const double edges[3], const double cosines[3], double out[9]) noexcept;
// How far a rotation on fractional coordinates is from leaving lengths and angles alone: the
// largest element of R^T G R - G, relative to the edges it belongs to.
double metric_misfit(const double metric[9], const double rotation[9]) noexcept;

struct ReciprocalCell {
  double edges[3];    // 1/Angstrom
  double cosines[3];  // of alpha*, beta*, gamma*
};
ReciprocalCell reciprocal_cell(const double edges[3], const CellAngles& angles,
                               double volume) noexcept;
// 1/d^2 = h^2 c0 + k^2 c1 + l^2 c2 + hk c3 + hl c4 + kl c5
void resolution_coefficients(const ReciprocalCell& cell, double out[6]) noexcept;
inline double inverse_d2(const double (&c)[6], double h, double k, double l) noexcept {
  return h * h * c[0] + k * k * c[1] + l * l * c[2] + h * k * c[3] + h * l * c[4] + k * l * c[5];
}

}  // namespace qx
