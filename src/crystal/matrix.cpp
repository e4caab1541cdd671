#include "crystal/matrix.h"

#include <cmath>
#include <cstring>

namespace qx {

namespace {

constexpr double singular = 1e-20;

bool usable(double determinant) noexcept {
  return std::isfinite(determinant) && std::fabs(determinant) >= singular;
}

// Determinant of what is left of a 4 x 4 matrix without one row and one column.
double minor44(const double m[16], int row, int column) noexcept {
  double rest[9];
  int n = 0;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      if (i != row && j != column) rest[n++] = m[4 * i + j];
    }
  }
  return determinant33(rest);
}

template <int n>
void multiply(const double* a, const double* b, double* out) noexcept {
  double product[n * n];
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      double sum = 0;
      for (int k = 0; k < n; ++k) sum += a[n * i + k] * b[n * k + j];
      product[n * i + j] = sum;
    }
  }
  std::memcpy(out, product, sizeof product);
}

}  // namespace

void cross_product(const double a[3], const double b[3], double out[3]) noexcept {
  const double c[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                       a[0] * b[1] - a[1] * b[0]};
  std::memcpy(out, c, sizeof c);
}

void multiply33(const double a[9], const double b[9], double out[9]) noexcept {
  multiply<3>(a, b, out);
}

void multiply44(const double a[16], const double b[16], double out[16]) noexcept {
  multiply<4>(a, b, out);
}

double determinant33(const double m[9]) noexcept {
  return m[0] * m[4] * m[8] + m[1] * m[5] * m[6] + m[2] * m[3] * m[7] - m[2] * m[4] * m[6] -
         m[0] * m[5] * m[7] - m[1] * m[3] * m[8];
}

bool invert33(const double m[9], double out[9]) noexcept {
  double columns[3][3];
  cross_product(m + 3, m + 6, columns[0]);
  cross_product(m + 6, m, columns[1]);
  cross_product(m, m + 3, columns[2]);
  const double det = m[0] * columns[0][0] + m[1] * columns[0][1] + m[2] * columns[0][2];
  if (!usable(det)) return false;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) out[3 * i + j] = columns[j][i] / det;
  }
  return true;
}

bool invert44(const double m[16], double out[16]) noexcept {
  double cofactors[16];
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) cofactors[4 * i + j] = ((i + j) % 2 ? -1 : 1) * minor44(m, i, j);
  }
  const double det =
      m[0] * cofactors[0] + m[4] * cofactors[4] + m[8] * cofactors[8] + m[12] * cofactors[12];
  if (!usable(det)) return false;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) out[4 * i + j] = cofactors[4 * j + i] / det;
  }
  return true;
}

void rotation_of(const double affine[16], double rotation[9]) noexcept {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) rotation[3 * i + j] = affine[4 * i + j];
  }
}

void affine_of(const double rotation[9], double affine[16]) noexcept {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) affine[4 * i + j] = rotation[3 * i + j];
    affine[4 * i + 3] = 0;
    affine[12 + i] = 0;
  }
  affine[15] = 1;
}

void apply_affine(const double affine[16], const double x[3], double out[3]) noexcept {
  double moved[3];
  for (int i = 0; i < 3; ++i) {
    const double* row = affine + 4 * i;
    moved[i] = row[0] * x[0] + row[1] * x[1] + row[2] * x[2] + row[3];
  }
  std::memcpy(out, moved, sizeof moved);
}

void tensor_matrix_rurt(const double r[9], double out[36]) noexcept {
  constexpr int pairs[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
  for (int row = 0; row < 6; ++row) {
    const double* ri = r + 3 * pairs[row][0];
    const double* rj = r + 3 * pairs[row][1];
    for (int column = 0; column < 6; ++column) {
      const int k = pairs[column][0];
      const int l = pairs[column][1];
      out[6 * row + column] = k == l ? ri[k] * rj[k] : ri[k] * rj[l] + ri[l] * rj[k];
    }
  }
}

void tensor_matrix_rtur(const double r[9], double out[36]) noexcept {
  const double transposed[9] = {r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]};
  tensor_matrix_rurt(transposed, out);
}

}  // namespace qx
