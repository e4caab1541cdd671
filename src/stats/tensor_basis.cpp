#include "stats/tensor_basis.h"

#include <cmath>

namespace qx {

namespace {

constexpr int rows[6] = {0, 1, 2, 0, 0, 1};
constexpr int columns[6] = {0, 1, 2, 1, 2, 2};

// Off-diagonal elements count twice in the norm: this makes the six components a Euclidean vector.
double weight(int i) noexcept { return i < 3 ? 1.0 : std::sqrt(2.0); }

// R E_j R^T of the j-th unit tensor, added to column j of the projector.
void add_image(const double (&r)[9], int j, double (&projector)[6][6]) noexcept {
  const int p = rows[j];
  const int q = columns[j];
  for (int i = 0; i < 6; ++i) {
    const int a = rows[i];
    const int b = columns[i];
    double value = r[3 * a + p] * r[3 * b + q];
    if (p != q) value = (value + r[3 * a + q] * r[3 * b + p]) / weight(j);
    projector[i][j] += value * weight(i);
  }
}

void average_over(std::int32_t count, const double (*rotations)[9],
                  double (&projector)[6][6]) noexcept {
  for (std::int32_t op = 0; op < count; ++op) {
    for (int j = 0; j < 6; ++j) add_image(rotations[op], j, projector);
  }
  for (auto& row : projector) {
    for (double& value : row) value /= count;
  }
}

// The longest column and its squared length.
int longest_column(const double (&matrix)[6][6], double& length) noexcept {
  int longest = 0;
  length = 0.0;
  for (int j = 0; j < 6; ++j) {
    double norm = 0.0;
    for (const auto& row : matrix) norm += row[j] * row[j];
    // Equal ones in their order, whatever the rounding.
    if (norm > length * (1.0 + 1e-9)) {
      length = norm;
      longest = j;
    }
  }
  return longest;
}

void take_out(const double (&unit)[6], double (&matrix)[6][6]) noexcept {
  for (int j = 0; j < 6; ++j) {
    double dot = 0.0;
    for (int i = 0; i < 6; ++i) dot += unit[i] * matrix[i][j];
    for (int i = 0; i < 6; ++i) matrix[i][j] -= dot * unit[i];
  }
}

}  // namespace

// The unit tensor first: every group leaves it alone. Of the rest of the projector the columns span
// the image: Gram-Schmidt on them, the longest first.
TensorBasis invariant_tensors(std::int32_t count, const double (*rotations)[9],
                              bool isotropic_only) noexcept {
  // What rounding leaves of a column, or a cell that only nearly fits the group, is no direction.
  constexpr double least_length = 0.01;
  const double third = 1.0 / std::sqrt(3.0);
  TensorBasis basis = {1, {{third, third, third, 0.0, 0.0, 0.0}}};
  if (isotropic_only || count < 1) return basis;
  double projector[6][6] = {};
  average_over(count, rotations, projector);
  take_out(basis.tensors[0], projector);
  while (basis.n < 6) {
    double length = 0.0;
    const int column = longest_column(projector, length);
    if (length < least_length) break;
    double unit[6];
    for (int i = 0; i < 6; ++i) unit[i] = projector[i][column] / std::sqrt(length);
    take_out(unit, projector);
    for (int i = 0; i < 6; ++i) basis.tensors[basis.n][i] = unit[i] / weight(i);
    ++basis.n;
  }
  return basis;
}

}  // namespace qx
