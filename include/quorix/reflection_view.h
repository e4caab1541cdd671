// A read-only view of the reflection data set, for code that must not know its record.
#pragma once

#include <quorix/api.h>

// Arrays of n elements, null where the data set has none; valid until the data set is next changed.
typedef struct qx_reflection_view {
  int32_t n;
  const double* s_length;  // |s| = 1/d, 1/Angstrom
  const int16_t* test;     // free-set flags, -1 where missing
  int32_t format;          // file format it was read from: 1 MTZ .. 6 mmCIF, 0 none
} qx_reflection_view;

QX_C_BEGIN

// 1 and the view of the crystal's data set, or 0 (and no report) when there is none.
QX_API int32_t qx_get_reflection_view(qx_reflection_view* view);

QX_C_END
