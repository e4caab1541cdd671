// K. How the fall of intensities with resolution depends on direction.
#pragma once

#include "stats/tensor_basis.h"

namespace qx {

// The traceless B (11 22 33 12 13 23, Angstrom^2) with which the mean of normalised intensities z =
// I / (epsilon <I / epsilon>(s)) is exp(-s^T B s / 2), by the likelihood of exponentially
// distributed z; s Cartesian scattering vectors, 1/Angstrom. The basis' isotropic tensor is left
// out. Zero where the group leaves no freedom or the data tell nothing.
void fit_anisotropy(std::int32_t n, const double* z, const double (*s)[3], const TensorBasis& basis,
                    double (&b)[6]) noexcept;

// Largest minus smallest principal value.
double principal_spread(const double (&tensor)[6]) noexcept;

}  // namespace qx
