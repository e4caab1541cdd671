// Agreement of observed and calculated amplitudes, by the bins of the cross-validation.
#pragma once

#include "stats/scale_fit.h"

#include <quorix/api.h>

struct qxcross;

namespace qx {

struct Listed {
  std::int32_t n;
  const std::int32_t* members;
};

// Bins of a data set of n reflections, made when there are none.
Status ensure_bins(std::int32_t n, qxcross*& cross);

// R, correlation and number of every bin, of both lists, into the cross-validation object. Its bins
// are those of this data set.
Status measure_bins(qxcross& cross, const Listed& work, const Listed& free, const float* fo,
                    const double* fc);

void print_agreement(const char* what, const Agreement& found);
// The bins that hold reflections.
void print_bins(const qxcross& cross, bool with_free);

}  // namespace qx
