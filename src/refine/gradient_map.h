// The adjoint of the road from density to structure factors.
#pragma once

#include <quorix/api.h>

struct qxrefdata;

namespace qx {

// Fills `block`, [nz][ny][nx] of the whole cell, with the derivatives of the target by the blurred
// density at every point, given the derivatives by the real and imaginary parts of the atoms'
// structure factors, one of each per reflection.
Status gradient_map(const char* heading, const qxrefdata& data, const double* by_re,
                    const double* by_im, double* block);

}  // namespace qx
