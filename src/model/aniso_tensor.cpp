// Symmetric tensors of anisotropic atoms.
#include "core/constants.h"
#include "core/report.h"
#include "core/require.h"
#include "crystal/cell.h"
#include "crystal/spacegroup.h"

#include <quorix/cell.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>

double qx_get_determinant_u(const double u[6]) {
  return u[0] * u[1] * u[2] + 2.0 * u[3] * u[4] * u[5] - u[0] * u[5] * u[5] - u[1] * u[4] * u[4] -
         u[2] * u[3] * u[3];
}

std::int32_t qx_get_inverse_u(const double u[6], double inverse[6]) {
  const double determinant = qx_get_determinant_u(u);
  if (!(std::fabs(determinant) > 1e-30)) return 1;
  const double cofactors[6] = {u[1] * u[2] - u[5] * u[5], u[0] * u[2] - u[4] * u[4],
                               u[0] * u[1] - u[3] * u[3], u[4] * u[5] - u[3] * u[2],
                               u[3] * u[5] - u[4] * u[1], u[3] * u[4] - u[0] * u[5]};
  for (int i = 0; i < 6; ++i) inverse[i] = cofactors[i] / determinant;
  return 0;
}

namespace {

// One rotation of Jacobi's method makes m[p][q] zero; r is the third index.
void rotate(double (&m)[3][3], int p, int q) {
  if (m[p][q] == 0.0) return;
  const int r = 3 - p - q;
  const double theta = (m[q][q] - m[p][p]) / (2.0 * m[p][q]);
  const double t = std::copysign(1.0, theta) / (std::fabs(theta) + std::hypot(theta, 1.0));
  const double c = 1.0 / std::hypot(t, 1.0);
  const double s = t * c;
  m[p][p] -= t * m[p][q];
  m[q][q] += t * m[p][q];
  m[p][q] = m[q][p] = 0.0;
  const double rp = m[r][p];
  const double rq = m[r][q];
  m[r][p] = m[p][r] = c * rp - s * rq;
  m[r][q] = m[q][r] = s * rp + c * rq;
}

}  // namespace

// By Jacobi's rotations (Golub & Van Loan, Matrix Computations, 8.5): each sweep squares what is
// left beside the diagonal.
std::int32_t qx_calc_U_eigen_value(const double u[6], double values[3]) {
  if (!std::all_of(u, u + 6, [](double value) { return std::isfinite(value); })) return 1;
  double largest = 0.0;
  for (int i = 0; i < 6; ++i) largest = std::max(largest, std::fabs(u[i]));
  const double unit = largest > 0.0 ? largest : 1.0;  // products stay numbers
  double m[3][3] = {{u[0] / unit, u[3] / unit, u[4] / unit},
                    {u[3] / unit, u[1] / unit, u[5] / unit},
                    {u[4] / unit, u[5] / unit, u[2] / unit}};
  constexpr int sweeps = 8;
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    rotate(m, 0, 1);
    rotate(m, 0, 2);
    rotate(m, 1, 2);
  }
  for (int i = 0; i < 3; ++i) values[i] = unit * m[i][i];
  std::sort(values, values + 3);
  return 0;
}

std::int32_t qx_calc_aniso_unk(const double u[6], double a, double b_total, double* amplitude,
                               double inverse[6]) {
  const double blur = b_total / (8.0 * qx::pi * qx::pi);
  const double m[6] = {u[0] + blur, u[1] + blur, u[2] + blur, u[3], u[4], u[5]};
  // Sylvester: all leading minors are positive.
  const double determinant = qx_get_determinant_u(m);
  if (!(m[0] > 0.0) || !(m[0] * m[1] - m[3] * m[3] > 0.0) || !(determinant > 0.0)) return 1;
  if (qx_get_inverse_u(m, inverse) != 0) return 1;
  constexpr double two_pi_cubed = qx::two_pi * qx::two_pi * qx::two_pi;
  *amplitude = a / std::sqrt(two_pi_cubed * determinant);
  return 0;
}

namespace {

void apply(const double (&matrix)[36], const double u[6], double out[6]) {
  for (int i = 0; i < 6; ++i) {
    out[i] = 0.0;
    for (int j = 0; j < 6; ++j) out[i] += matrix[6 * i + j] * u[j];
  }
}

}  // namespace

qx::Status qx_transform_aniso_u_to_oper(std::int32_t op, const double u[6], double out[6]) {
  constexpr const char* heading = "qx_transform_aniso_u_to_oper():";
  const qxcell* cell = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxcell, cell,
                               "qxcell object has not been created yet "));
  const qxspg* group = qx_get_qxspg();
  if (!group || op < 0 || op >= group->nops) {
    return qx_exist_quorix() ? qx::fail(heading, "qxspg object has not been created yet.")
                             : qx::failed;
  }
  double fractional[6];
  double moved[6];
  apply(cell->orth2frac_tensor, u, fractional);
  apply(group->op_tensors[op], fractional, moved);
  apply(cell->frac2orth_tensor, moved, out);
  return qx::ok;
}
