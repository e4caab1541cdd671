// Which reflections of the resolution range a data set has, and rows for those that it lacks.
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/columns.h"
#include "crystal/spacegroup.h"
#include "crystal/unique_indices.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>
#include <limits>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

namespace {

// All orbits of the data's own resolution range, and those that the data set has, sorted.
struct Inventory {
  Tagged<std::uint64_t> possible, present, observed;
  std::size_t npossible = 0, npresent = 0, nobserved = 0;
};

Status index_operations(const char* heading, const qxspg& group, Tagged<qx::IndexOperations>& out) {
  if (group.nops > qx::IndexOperations::most) {
    return fail(heading, "The group has too many operators: %d", group.nops);
  }
  out = Tagged<qx::IndexOperations>(1, "prf_ops");
  if (!out) return failed;
  qx::IndexOperations& operations = out[0];
  operations.n = group.nops;
  for (std::int32_t op = 0; op < group.nops; ++op) {
    const double(&m)[16] = group.ops[op];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        operations.rotation[op][3 * i + j] = static_cast<std::int32_t>(std::lrint(m[4 * i + j]));
      }
      operations.shift[op][i] = static_cast<std::int32_t>(std::lrint(24.0 * m[4 * i + 3]));
    }
  }
  return ok;
}

Status index_range(const char* heading, const qxrefdata& data, qx::IndexSearch& range) {
  const qxcell* cell = nullptr;
  const qxrecicell* reciprocal = nullptr;
  QX_TRY(qx::require_of_engine(
      heading, qx::need(qx_get_qxcell, cell, "qxcell object has not been created yet "),
      qx::need(qx_get_qxrecicell, reciprocal, " qxrecicell object has not been created yet ")));
  constexpr double edge = 1e-6;  // relative: rounding must not drop the outermost reflection itself
  constexpr double most = 4e8;   // indices to search
  const double s = data.s_max * (1.0 + edge);
  const double counts[3] = {s * cell->a, s * cell->b, s * cell->c};
  if (!(4.0 * (counts[0] + 1.0) * (counts[1] + 1.0) * (counts[2] + 1.0) < most) ||
      *std::max_element(counts, counts + 3) > 1e5) {
    return fail(heading, "There are too many indices to %.3f A in this cell.", 1.0 / data.s_max);
  }
  range.hmax = static_cast<std::int32_t>(counts[0]);
  range.kmax = static_cast<std::int32_t>(counts[1]);
  range.lmax = static_cast<std::int32_t>(counts[2]);
  range.low = std::pow(data.s_min * (1.0 - edge), 2);
  range.high = s * s;
  std::copy_n(reciprocal->resolution, 6, range.form);
  return ok;
}

std::size_t sort_and_unite(std::uint64_t* list, std::size_t n) {
  std::sort(list, list + n);
  return static_cast<std::size_t>(std::unique(list, list + n) - list);
}

Status list_present(const qxrefdata& data, const qx::IndexOperations& group, Inventory& found) {
  const auto n = static_cast<std::size_t>(data.nreflections);
  found.present = Tagged<std::uint64_t>(n, "prf_present");
  if (!found.present) return failed;
  found.observed = Tagged<std::uint64_t>(n, "prf_observed");
  if (!found.observed) return failed;
  const float* values = data.fobs ? data.fobs : data.iobs;
  for (std::size_t i = 0; i < n; ++i) {
    found.present[i] = qx::orbit_of(group, data.h[i], data.k[i], data.l[i]);
    const bool observed =
        values && std::isfinite(values[i]) && (values != data.fobs || values[i] > 0.0F);
    if (observed) found.observed[found.nobserved++] = found.present[i];
  }
  found.npresent = sort_and_unite(found.present.get(), n);
  found.nobserved = sort_and_unite(found.observed.get(), found.nobserved);
  return ok;
}

Status take_inventory(const char* heading, const qxrefdata& data, Inventory& found) {
  const qxspg* spg = qx_get_qxspg();
  if (!qx_exist_quorix()) return failed;
  if (!spg || spg->nops < 1) return fail(heading, " qxspg object has not been created yet ");
  Tagged<qx::IndexOperations> group;
  QX_TRY(index_operations(heading, *spg, group));
  qx::IndexSearch range;
  QX_TRY(index_range(heading, data, range));
  const std::size_t room = qx::indices_within(range);
  if (room > 0) {
    found.possible = Tagged<std::uint64_t>(room, "prf_possible");
    if (!found.possible) return failed;
    found.npossible = qx::unique_orbits(group[0], range, found.possible.get());
    std::sort(found.possible.get(), found.possible.get() + found.npossible);
  }
  return list_present(data, group[0], found);
}

// Members of one sorted list that the other has too.
std::size_t common(const Tagged<std::uint64_t>& a, std::size_t na, const Tagged<std::uint64_t>& b,
                   std::size_t nb) {
  std::size_t n = 0;
  for (std::size_t i = 0; i < na; ++i) {
    n += std::binary_search(b.get(), b.get() + nb, a[i]) ? 1 : 0;
  }
  return n;
}

template <class T>
Status lengthen(T*& column, std::int32_t n, std::int32_t more, T value) {
  if (!column) return ok;
  T* longer = nullptr;
  QX_TRY(qx::open_block(longer, static_cast<std::size_t>(n) + static_cast<std::size_t>(more),
                        "prf_col"));
  std::copy_n(column, n, longer);
  std::fill_n(longer + n, more, value);
  T* before = column;
  column = longer;
  return qx::release(before);
}

Status lengthen_all(qxrefdata& data, std::int32_t more) {
  const std::int32_t n = data.nreflections;
  constexpr float missing = std::numeric_limits<float>::quiet_NaN();
  for (const qx::Column& row : qx::columns()) {
    if (row.indices) QX_TRY(lengthen(data.*row.indices, n, more, 0));
    if (row.flags) QX_TRY(lengthen(data.*row.flags, n, more, qx::missing_flag));
    if (row.values) QX_TRY(lengthen(data.*row.values, n, more, missing));
  }
  for (std::int32_t i = 0; i < data.nderived; ++i) {
    QX_TRY(lengthen(data.derived[i].values, n, more, missing));
  }
  return lengthen(data.weight, n, more, 1.0F);
}

Status add_rows(qxrefdata& data, const Inventory& found, std::int32_t more) {
  std::int32_t at = data.nreflections;
  QX_TRY(lengthen_all(data, more));
  for (std::size_t i = 0; i < found.npossible; ++i) {
    const std::uint64_t orbit = found.possible[i];
    const std::uint64_t* present = found.present.get();
    if (std::binary_search(present, present + found.npresent, orbit)) continue;
    std::int32_t hkl[3];
    qx::representative(orbit, hkl);
    data.h[at] = hkl[0];
    data.k[at] = hkl[1];
    data.l[at] = hkl[2];
    ++at;
  }
  data.nreflections = at;
  data.nadded += more;
  QX_TRY(qx_set_centric());
  QX_TRY(qx_set_epsilon());
  QX_TRY(qx_set_hklmax());
  return qx_set_refdata_s();
}

Status fetch(const char* heading, qxrefdata*& data) {
  QX_TRY(qx::require_of_engine(heading, qx_get_qxrefdata, data,
                               "refdata object has not been created yet "));
  return data->nreflections > 0 && data->s_length
             ? ok
             : fail(heading, " There is no reflection survived. ");
}

}  // namespace

Status qx_calc_completeness(qx_completeness* out) {
  constexpr const char* heading = "qx_calc_completeness():";
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, data));
  Inventory found;
  QX_TRY(take_inventory(heading, *data, found));
  out->added = data->nadded;
  out->possible = static_cast<std::int32_t>(found.npossible);
  out->present = static_cast<std::int32_t>(
      common(found.possible, found.npossible, found.present, found.npresent));
  out->observed = static_cast<std::int32_t>(
      common(found.possible, found.npossible, found.observed, found.nobserved));
  return ok;
}

Status qx_fill_refdata(std::int32_t* added) {
  constexpr const char* heading = "qx_fill_refdata():";
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, data));
  Inventory found;
  QX_TRY(take_inventory(heading, *data, found));
  const std::size_t present =
      common(found.possible, found.npossible, found.present, found.npresent);
  *added = static_cast<std::int32_t>(found.npossible - present);
  return *added > 0 ? add_rows(*data, found, *added) : ok;
}
