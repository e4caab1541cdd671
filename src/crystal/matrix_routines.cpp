// The published names of the matrix kernels.
#include "core/say.h"
#include "crystal/matrix.h"

#include <quorix/cell.h>

#include <cmath>
#include <cstring>

void qx_v3_x_v3(const double* a, const double* b, double* out) { qx::cross_product(a, b, out); }

void qx_mat33_x_mat33(double* out, const double* a, const double* b) { qx::multiply33(a, b, out); }

void qx_mat44_x_mat44(double* out, const double* a, const double* b) { qx::multiply44(a, b, out); }

std::int32_t qx_matrix3_inverse(const double* in, double* out) {
  return qx::invert33(in, out) ? 0 : 1;
}

// Kept: a singular matrix gives the identity and no sign of it.
std::int32_t qx_matrix4_inverse(const double* in, double* out) {
  constexpr double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  if (!qx::invert44(in, out)) std::memcpy(out, identity, sizeof identity);
  return 0;
}

void qx_calc_33mat_determinant(const double* m, double* out) { *out = qx::determinant33(m); }

double qx_calc_vector_rmsd(std::int32_t n, const double* v) {
  double sum = 0;
  for (std::int32_t i = 0; i < n; ++i) sum += v[i] * v[i];
  return n > 0 ? std::sqrt(sum / n) : 0.0;
}

void qx_calc_U_tran_matrix_rurt(const double* r, double* out) { qx::tensor_matrix_rurt(r, out); }

void qx_calc_U_tran_matrix_rtur(const double* r, double* out) { qx::tensor_matrix_rtur(r, out); }

namespace {

void print_rows(const double* m) {
  for (int i = 0; i < 9; i += 3) qx::say("%12.5f %12.5f %12.5f \n", m[i], m[i + 1], m[i + 2]);
}

void print_transformed(const double (&matrix)[36], const double (&u)[6]) {
  double t[6] = {};
  for (int row = 0; row < 6; ++row) {
    for (int column = 0; column < 6; ++column) t[row] += matrix[6 * row + column] * u[column];
  }
  const double m[9] = {t[0], t[3], t[4], t[3], t[1], t[5], t[4], t[5], t[2]};
  print_rows(m);
}

}  // namespace

void qx_calc_U_tran_matrix_tester() {
  constexpr double r[9] = {0.6, -0.8, 0.0, 0.8, 0.6, 0.5, 0.1, 0.2, 1.0};
  constexpr double transposed[9] = {0.6, 0.8, 0.1, -0.8, 0.6, 0.2, 0.0, 0.5, 1.0};
  constexpr double u[6] = {1.0, 2.0, 3.0, 0.1, 0.2, 0.3};
  constexpr double full[9] = {1.0, 0.1, 0.2, 0.1, 2.0, 0.3, 0.2, 0.3, 3.0};
  double product[9];
  double matrix[36] = {};
  qx::multiply33(r, full, product);
  qx::multiply33(product, transposed, product);
  print_rows(product);
  qx::tensor_matrix_rurt(r, matrix);
  print_transformed(matrix, u);
  qx::multiply33(transposed, full, product);
  qx::multiply33(product, r, product);
  print_rows(product);
  qx::tensor_matrix_rtur(r, matrix);
  print_transformed(matrix, u);
}
