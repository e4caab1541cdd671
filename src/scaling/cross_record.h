// The cross-validation record. Indices point into the reflection data set.
#pragma once

#include <quorix/cross.h>

struct qxcross {
  std::int32_t seed = 137;
  double percent = 5.0;
  std::int32_t ntotal = 0;
  std::int32_t nwork = 0;
  std::int32_t nfree = 0;
  std::int32_t* order = nullptr;  // by |s| after a random split, as they stand after a read one
  std::int32_t* work = nullptr;
  std::int32_t* free = nullptr;
  std::int32_t nbin = 10;
  std::int32_t bins_built = 0;        // length of the bin arrays
  std::int32_t binned = 0;            // reflections in them
  double (*bin_ranges)[2] = nullptr;  // smallest and largest |s|
  std::int32_t* bin_counts = nullptr;
  std::int32_t** bin_members = nullptr;
  std::int32_t* bin_of = nullptr;  // per reflection
  double* bin_r = nullptr;
  double* bin_rfree = nullptr;
  double* bin_cc = nullptr;  // correlations, and how many observations they and R rest on
  double* bin_ccfree = nullptr;
  std::int32_t* bin_nwork = nullptr;
  std::int32_t* bin_nfree = nullptr;
};
