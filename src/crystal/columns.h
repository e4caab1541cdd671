// The 40 columns that a reflection data set can hold: one table that parser, look-up, builder and
// printer read.
#pragma once

#include "crystal/reflections.h"

namespace qx {

// Exactly one of the three members is set.
struct Column {
  const char* word;
  std::int32_t* qxrefdata::*indices;
  float* qxrefdata::*values;
  std::int16_t* qxrefdata::*flags;
  std::int32_t number;  // Kept: FM stands before SIGFP and IM before SIGIP, unlike the storage
  char mtz_type;
};

enum Coid : std::int32_t {
  coid_h = 1,
  coid_k = 2,
  coid_l = 3,
  coid_fobs = 4,
  coid_sigf = 5,
  coid_iobs = 6,
  coid_sigi = 7,
  coid_fom = 28,
  coid_test = 29,
  coid_map_fom = 33,
  coid_map_phase = 34,
  coid_map_coeff = 36,
  coid_map_coeffa = 37,
  coid_map_coeffp = 38,
};

inline constexpr std::int16_t missing_flag = -1;

// All rows, by number: columns()[0] is H.
const Column (&columns() noexcept)[coid_count];

// The column of a whole word of `length` characters (any case); null if there is none.
const Column* find_column(const char* word, std::size_t length) noexcept;

// True if the data set holds the column.
bool has_column(const qxrefdata& refdata, const Column& column) noexcept;

// The derived column of this name; null if there is none.
DerivedColumn* find_derived(qxrefdata& refdata, const char* label, std::size_t length) noexcept;
// Its array, made when there is none.
Status open_derived(qxrefdata& refdata, const char* label, char type, float*& values);

// Releases every column's array.
Status release_columns(qxrefdata& refdata);

}  // namespace qx
