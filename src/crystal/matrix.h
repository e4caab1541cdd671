// K. Small matrices, row-major. Outputs may be the inputs.
#pragma once

namespace qx {

void cross_product(const double a[3], const double b[3], double out[3]) noexcept;
void multiply33(const double a[9], const double b[9], double out[9]) noexcept;
void multiply44(const double a[16], const double b[16], double out[16]) noexcept;
double determinant33(const double m[9]) noexcept;

// False, and the output untouched, for |det| < 1e-20 and for anything that is not finite.
bool invert33(const double m[9], double out[9]) noexcept;
// The same; the caller decides what a singular matrix becomes.
bool invert44(const double m[16], double out[16]) noexcept;

// The rotation part of an affine matrix; the affine matrix of a rotation and no translation.
void rotation_of(const double affine[16], double rotation[9]) noexcept;
void affine_of(const double rotation[9], double affine[16]) noexcept;
// x -> rotation x + translation; rows 1-3 of the matrix count.
void apply_affine(const double affine[16], const double x[3], double out[3]) noexcept;

// 6 x 6 matrices acting on (U11, U22, U33, U12, U13, U23): U -> R U R^T, and U -> R^T U R.
void tensor_matrix_rurt(const double r[9], double out[36]) noexcept;
void tensor_matrix_rtur(const double r[9], double out[36]) noexcept;

}  // namespace qx
