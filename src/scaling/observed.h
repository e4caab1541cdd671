// Which reflections were observed, and the arrays that every fit over them wants.
#pragma once

#include "core/tagged.h"
#include "stats/tensor_basis.h"

struct qxcell;
struct qxrefdata;
struct qxspg;

namespace qx {

// Indices of observed reflections (Fo a number above 0), as the cross-validation splits them; all
// of them are working ones when no split of this data set exists.
struct Observed {
  Tagged<std::int32_t> work, free;
  std::int32_t nwork = 0, nfree = 0;
  bool split = false;
};
// Reports under `heading` when the data set has no amplitudes or none was observed.
Status select_observed(const char* heading, const qxrefdata& data, Observed& observed);

bool is_observed(const qxrefdata& data, std::int32_t i);

// Structure factors, one per reflection of the data set.
struct ComplexF {
  Tagged<double> re, im;
  [[nodiscard]] double amplitude(std::int32_t i) const;
};
Status open_f(std::int32_t n, ComplexF& f);
// Amplitudes, and phases in degrees in [0, 360); the phase of 0 is 0.
void put_polar(const ComplexF& f, std::int32_t n, float* amplitude, float* phase);

// Cartesian scattering vectors of all reflections, 1/Angstrom, a along x and b in the x-y plane.
Status scattering_vectors(const char* heading, const qxrefdata& data, Tagged<double[3]>& s);

// The tensors in this frame that the group's rotations leave alone.
Status group_tensors(const qxspg& group, const qxcell& cell, bool isotropic_only,
                     TensorBasis& basis);

}  // namespace qx
