#include "crystal/cell_geometry.h"

#include "core/constants.h"
#include "crystal/matrix.h"

#include <algorithm>
#include <cmath>

namespace qx {

CellAngles cell_angles(double alpha_deg, double beta_deg, double gamma_deg) noexcept {
  const double alpha = alpha_deg * pi / 180.0;
  const double beta = beta_deg * pi / 180.0;
  const double gamma = gamma_deg * pi / 180.0;
  return {std::cos(alpha), std::cos(beta), std::cos(gamma),
          std::sin(alpha), std::sin(beta), std::sin(gamma)};
}

double relative_volume_squared(const CellAngles& angles) noexcept {
  const CellAngles& t = angles;
  return 1 - t.cos_alpha * t.cos_alpha - t.cos_beta * t.cos_beta - t.cos_gamma * t.cos_gamma +
         2 * t.cos_alpha * t.cos_beta * t.cos_gamma;
}

bool possible_cell(const double edges[3], const double angles_deg[3]) noexcept {
  constexpr double flat = 1e-8;  // no crystal comes near; below, the inverses lose all digits
  for (int i = 0; i < 3; ++i) {
    if (!(std::isfinite(edges[i]) && edges[i] > 0)) return false;
    if (!(angles_deg[i] > 0 && angles_deg[i] < 180)) return false;
  }
  return relative_volume_squared(cell_angles(angles_deg[0], angles_deg[1], angles_deg[2])) > flat;
}

double complement(double x) noexcept {
  const double rest = 1 - x * x;
  return rest < 1e-15 ? 0.0 : std::sqrt(rest);
}

void standard_frac2orth(const double edges[3], const CellAngles& angles, double height,
                        double out[9]) noexcept {
  const CellAngles& t = angles;
  out[0] = edges[0];
  out[1] = edges[1] * t.cos_gamma;
  out[2] = edges[2] * t.cos_beta;
  out[3] = 0;
  out[4] = edges[1] * t.sin_gamma;
  out[5] = edges[2] * (t.cos_alpha - t.cos_beta * t.cos_gamma) / t.sin_gamma;
  out[6] = 0;
  out[7] = 0;
  out[8] = height;
}

bool invert_affine(const double affine[16], double out[16]) noexcept {
  double rotation[9];
  rotation_of(affine, rotation);
  if (!invert33(rotation, rotation)) return false;
  const double shift[3] = {affine[3], affine[7], affine[11]};
  affine_of(rotation, out);
  for (int i = 0; i < 3; ++i) {
    const double* row = rotation + 3 * i;
    out[4 * i + 3] = -(row[0] * shift[0] + row[1] * shift[1] + row[2] * shift[2]);
  }
  return true;
}

void metric_tensor(const double edges[3], const double cosines[3], double out[9]) noexcept {
  const double* e = edges;
  out[0] = e[0] * e[0];
  out[4] = e[1] * e[1];
  out[8] = e[2] * e[2];
  out[1] = out[3] = e[0] * e[1] * cosines[2];
  out[2] = out[6] = e[0] * e[2] * cosines[1];
  out[5] = out[7] = e[1] * e[2] * cosines[0];
}

double metric_misfit(const double metric[9], const double rotation[9]) noexcept {
  double largest = 0.0;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double moved = 0.0;
      for (int k = 0; k < 3; ++k) {
        for (int l = 0; l < 3; ++l) {
          moved += rotation[3 * k + i] * metric[3 * k + l] * rotation[3 * l + j];
        }
      }
      const double scale = std::sqrt(metric[4 * i] * metric[4 * j]);
      largest = std::max(largest, std::fabs(moved - metric[3 * i + j]) / scale);
    }
  }
  return largest;
}

ReciprocalCell reciprocal_cell(const double edges[3], const CellAngles& angles,
                               double volume) noexcept {
  const double* e = edges;
  const CellAngles& t = angles;
  return {
      {e[1] * e[2] * t.sin_alpha / volume, e[2] * e[0] * t.sin_beta / volume,
       e[0] * e[1] * t.sin_gamma / volume},
      {(t.cos_beta * t.cos_gamma - t.cos_alpha) / (t.sin_beta * t.sin_gamma),
       (t.cos_gamma * t.cos_alpha - t.cos_beta) / (t.sin_gamma * t.sin_alpha),
       (t.cos_alpha * t.cos_beta - t.cos_gamma) / (t.sin_alpha * t.sin_beta)},
  };
}

void resolution_coefficients(const ReciprocalCell& cell, double out[6]) noexcept {
  const double* e = cell.edges;
  out[0] = e[0] * e[0];
  out[1] = e[1] * e[1];
  out[2] = e[2] * e[2];
  out[3] = 2 * e[0] * e[1] * cell.cosines[2];
  out[4] = 2 * e[0] * e[2] * cell.cosines[1];
  out[5] = 2 * e[1] * e[2] * cell.cosines[0];
}

}  // namespace qx
