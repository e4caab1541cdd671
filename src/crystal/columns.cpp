#include "crystal/columns.h"

#include "core/report.h"
#include "core/tagged.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

namespace qx {

namespace {

constexpr Column indices(const char* word, std::int32_t number, std::int32_t* qxrefdata::*member) {
  return {word, member, nullptr, nullptr, number, 'H'};
}
constexpr Column values(const char* word, std::int32_t number, float* qxrefdata::*member,
                        char type) {
  return {word, nullptr, member, nullptr, number, type};
}
constexpr Column flags(const char* word, std::int32_t number, std::int16_t* qxrefdata::*member) {
  return {word, nullptr, nullptr, member, number, 'I'};
}

constexpr Column rows[coid_count] = {
    indices("H", 1, &qxrefdata::h),
    indices("K", 2, &qxrefdata::k),
    indices("L", 3, &qxrefdata::l),
    values("FOBS", 4, &qxrefdata::fobs, 'F'),
    values("SIGF", 5, &qxrefdata::sigf, 'Q'),
    values("IOBS", 6, &qxrefdata::iobs, 'J'),
    values("SIGI", 7, &qxrefdata::sigi, 'Q'),
    values("PHIB", 8, &qxrefdata::phib, 'P'),
    values("FC", 9, &qxrefdata::fc, 'F'),
    values("PHIC", 10, &qxrefdata::phic, 'P'),
    values("FPART", 11, &qxrefdata::fpart, 'F'),
    values("PHIP", 12, &qxrefdata::phip, 'P'),
    values("DP", 13, &qxrefdata::dp, 'D'),
    values("SIGDP", 14, &qxrefdata::sigdp, 'Q'),
    values("FP", 15, &qxrefdata::fp, 'G'),
    values("FM", 16, &qxrefdata::fm, 'G'),
    values("SIGFP", 17, &qxrefdata::sigfp, 'L'),
    values("SIGFM", 18, &qxrefdata::sigfm, 'L'),
    values("IP", 19, &qxrefdata::ip, 'K'),
    values("IM", 20, &qxrefdata::im, 'K'),
    values("SIGIP", 21, &qxrefdata::sigip, 'M'),
    values("SIGIM", 22, &qxrefdata::sigim, 'M'),
    values("PHIM", 23, &qxrefdata::phim, 'P'),
    values("HLA", 24, &qxrefdata::hla, 'A'),
    values("HLB", 25, &qxrefdata::hlb, 'A'),
    values("HLC", 26, &qxrefdata::hlc, 'A'),
    values("HLD", 27, &qxrefdata::hld, 'A'),
    values("FOM", 28, &qxrefdata::fom, 'W'),
    flags("TEST", 29, &qxrefdata::test),
    values("WT", 30, &qxrefdata::wt, 'W'),
    values("IMEAN", 31, &qxrefdata::imean, 'J'),
    values("SIGIMEAN", 32, &qxrefdata::sigimean, 'Q'),
    values("MAP_FOM", 33, &qxrefdata::map_fom, 'W'),
    values("MAP_PHASE", 34, &qxrefdata::map_phase, 'P'),
    values("MAP_SCALE", 35, &qxrefdata::map_scale, 'R'),
    values("MAP_COEFF", 36, &qxrefdata::map_coeff, 'F'),
    values("MAP_COEFFA", 37, &qxrefdata::map_coeff_amplitude, 'F'),
    values("MAP_COEFFP", 38, &qxrefdata::map_coeff_phase, 'P'),
    values("IC", 39, &qxrefdata::ic, 'R'),
    values("BATCH", 40, &qxrefdata::batch, 'B'),
};

constexpr bool numbered_in_order() {
  for (std::int32_t i = 0; i < coid_count; ++i) {
    if (rows[i].number != i + 1) return false;
  }
  return true;
}
static_assert(numbered_in_order());

}  // namespace

const Column (&columns() noexcept)[coid_count] { return rows; }

const Column* find_column(const char* word, std::size_t length) noexcept {
  for (const Column& row : rows) {
    if (std::strlen(row.word) == length && strncasecmp(row.word, word, length) == 0) return &row;
  }
  return nullptr;
}

bool has_column(const qxrefdata& refdata, const Column& column) noexcept {
  if (column.indices) return refdata.*column.indices != nullptr;
  if (column.flags) return refdata.*column.flags != nullptr;
  return refdata.*column.values != nullptr;
}

DerivedColumn* find_derived(qxrefdata& refdata, const char* label, std::size_t length) noexcept {
  for (std::int32_t i = 0; i < refdata.nderived; ++i) {
    DerivedColumn& column = refdata.derived[i];
    if (std::strlen(column.label) == length && strncasecmp(column.label, label, length) == 0) {
      return &column;
    }
  }
  return nullptr;
}

Status open_derived(qxrefdata& refdata, const char* label, char type, float*& values) {
  const DerivedColumn* old = find_derived(refdata, label, std::strlen(label));
  if (old) {
    values = old->values;
    return ok;
  }
  if (refdata.nderived == DerivedColumn::most) {
    return fail("open_derived():", "There are too many columns beside %s.", label);
  }
  DerivedColumn& column = refdata.derived[refdata.nderived];
  QX_TRY(open_block(column.values, static_cast<std::size_t>(refdata.nreflections), "pod_col"));
  std::snprintf(column.label, sizeof column.label, "%s", label);
  column.type = type;
  ++refdata.nderived;
  values = column.values;
  return ok;
}

Status release_columns(qxrefdata& refdata) {
  for (; refdata.nderived > 0; --refdata.nderived) {
    QX_TRY(release(refdata.derived[refdata.nderived - 1].values));
  }
  for (const Column& row : rows) {
    if (row.indices) QX_TRY(release(refdata.*row.indices));
    if (row.values) QX_TRY(release(refdata.*row.values));
    if (row.flags) QX_TRY(release(refdata.*row.flags));
  }
  return ok;
}

}  // namespace qx

using qx::Status;

Status qx_get_string_coid(const char* word, std::int32_t* number) {
  const qx::Column* column = qx::find_column(word, std::strlen(word));
  if (!column) {
    return qx::fail("qx_get_string_coid():", "Unknown string column label id \"%s\" \n", word);
  }
  *number = column->number;
  return qx::ok;
}

Status qx_get_col_based_coid(const qxrefdata* refdata, std::int32_t number, std::int32_t** indices,
                             std::int16_t** flags, float** values) {
  *indices = nullptr;
  *flags = nullptr;
  *values = nullptr;
  if (number < 1 || number > qx::coid_count) {
    return qx::fail("qx_get_col_based_coid():", "Invalid coid number: %d \nWrong array pointed",
                    number);
  }
  const qx::Column& column = qx::columns()[number - 1];
  if (column.indices) *indices = refdata->*column.indices;
  if (column.flags) *flags = refdata->*column.flags;
  if (column.values) *values = refdata->*column.values;
  return qx::ok;
}
