#include "reflio/mtz.h"

#include "core/kept_blocks.h"
#include "core/memory_system.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/reflections.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::fail;
using qx::ok;
using qx::Status;

namespace qx {

void copy_text(MtzText& to, const char* from) noexcept { std::snprintf(to, sizeof to, "%s", from); }

Status open_values(qxmtz& mtz) {
  if (mtz.nreflections == 0 || mtz.columns.count == 0) return ok;
  // Columns begin at different places of a page, else they would compete for the same cache lines.
  constexpr std::size_t line = 16;
  const std::size_t rows = static_cast<std::size_t>(mtz.nreflections);
  const std::size_t stride = (rows + line - 1) / line * line + line;
  const std::size_t size = stride * static_cast<std::size_t>(mtz.columns.count);
  QX_TRY(open_block(mtz.values, size, "pm_val"));
  float* next = mtz.values;
  for (MtzColumn& column : mtz.columns) {
    column.values = next;
    next += stride;
  }
  return ok;
}

void set_range(MtzColumn& column, std::int32_t n) noexcept {
  bool first = true;
  for (std::int32_t i = 0; i < n; ++i) {
    const auto value = static_cast<double>(column.values[i]);
    if (!std::isfinite(value)) continue;
    column.minimum = first ? value : std::min(column.minimum, value);
    column.maximum = first ? value : std::max(column.maximum, value);
    first = false;
  }
}

std::int32_t find_dataset(const qxmtz& mtz, std::int32_t id) noexcept {
  for (std::int32_t i = 0; i < mtz.datasets.count; ++i) {
    if (mtz.datasets[i].id == id) return i;
  }
  return -1;
}

namespace {

void print_columns(const qxmtz& mtz) {
  qx::say("number of columns: %d\n", mtz.columns.count);
  for (const MtzColumn& column : mtz.columns) {
    qx::say("  %-30s %c %15.4f %15.4f %4d\n", column.label, column.type, column.minimum,
            column.maximum, column.dataset_id);
  }
}

void print_datasets(const qxmtz& mtz) {
  qx::say("number of data sets: %d\n", mtz.datasets.count);
  for (const MtzDataset& set : mtz.datasets) {
    qx::say("  %4d project: %s crystal: %s data set: %s\n", set.id, set.project, set.crystal,
            set.name);
    qx::say("       cell: %.4f %.4f %.4f %.4f %.4f %.4f wavelength: %.5f\n", set.cell[0],
            set.cell[1], set.cell[2], set.cell[3], set.cell[4], set.cell[5], set.wavelength);
  }
}

}  // namespace

void print_mtz(const qxmtz& mtz) {
  qx::say("version: %s\ntitle: %s\n", mtz.version, mtz.title);
  qx::say("number of reflections: %d\n", mtz.nreflections);
  qx::say("number of batches: %d\n", mtz.batches.count);
  if (mtz.has_cell) {
    qx::say("cell: %.4f %.4f %.4f %.4f %.4f %.4f\n", mtz.cell[0], mtz.cell[1], mtz.cell[2],
            mtz.cell[3], mtz.cell[4], mtz.cell[5]);
  }
  qx::say("sort order: %d %d %d %d %d\n", mtz.sort[0], mtz.sort[1], mtz.sort[2], mtz.sort[3],
          mtz.sort[4]);
  qx::say("space group: %d %s %s, lattice %c, %d operators, %d of them primitive\n",
          mtz.spacegroup_number, mtz.spacegroup_name, mtz.point_group, mtz.lattice,
          mtz.symops.count, mtz.nprimitive);
  for (const MtzLine& line : mtz.symops) qx::say("  %s\n", line.text);
  if (std::isnan(mtz.missing)) {
    qx::say("missing values: NAN\n");
  } else {
    qx::say("missing values: %15.4f\n", static_cast<double>(mtz.missing));
  }
  print_columns(mtz);
  print_datasets(mtz);
  for (const MtzLine& line : mtz.history) qx::say("history: %s\n", line.text);
}

}  // namespace qx

Status qx_new_refdata_mtz_obj(qxrefdata* refdata) {
  QX_TRY(qx_delete_refdata_mtz_obj(refdata));
  return qx::adopt(refdata->mtz, qx::new_object<qxmtz>("pnrm_md"));
}

Status qx_delete_refdata_mtz_obj(qxrefdata* refdata) {
  qxmtz* mtz = std::exchange(refdata->mtz, nullptr);
  return mtz && !qx::is_held(mtz) ? qx_delete_mtz_obj(mtz) : ok;
}

Status qx_delete_mtz_obj(qxmtz* mtz) {
  qx::let_go(mtz);
  QX_TRY(qx::release(mtz->values));
  for (qx::MtzBatch& batch : mtz->batches) {
    QX_TRY(qx::release(batch.integers));
    QX_TRY(qx::release(batch.reals));
  }
  QX_TRY(qx::release(mtz->path));
  QX_TRY(qx::release(mtz->symops.items));
  QX_TRY(qx::release(mtz->datasets.items));
  QX_TRY(qx::release(mtz->columns.items));
  QX_TRY(qx::release(mtz->history.items));
  QX_TRY(qx::release(mtz->batches.items));
  return xfree(mtz);
}

namespace {

// All blocks of the object, itself last.
template <class Each>
void for_each_block(qxmtz* mtz, Each each) {
  for (qx::MtzBatch& batch : mtz->batches) {
    each(batch.integers);
    each(batch.reals);
  }
  each(mtz->values);
  each(mtz->path);
  each(mtz->symops.items);
  each(mtz->datasets.items);
  each(mtz->columns.items);
  each(mtz->history.items);
  each(mtz->batches.items);
  each(mtz);
}

}  // namespace

qxmtz* qx_take_refdata_mtz(qxrefdata* refdata) {
  qxmtz* mtz = refdata ? std::exchange(refdata->mtz, nullptr) : nullptr;
  if (!mtz) return nullptr;
  qx::let_go(mtz);
  for_each_block(mtz, [](void* block) { (void)qx::take_block(block); });
  return mtz;
}

void qx_end_mtz(qxmtz* mtz) {
  if (mtz) for_each_block(mtz, qx::end_block);
}

Status qx_new_refdata_mtz() {
  qxrefdata* refdata = nullptr;
  QX_TRY(qx::require("qx_new_refdata_mtz():", qx_get_qxrefdata, refdata,
                     "refdata object has not been created yet "));
  return qx_new_refdata_mtz_obj(refdata);
}

Status qx_delete_refdata_mtz() {
  qxrefdata* refdata = nullptr;
  QX_TRY(qx::require("qx_delete_refdata_mtz():", qx_get_qxrefdata, refdata,
                     "refdata object has not been created yet "));
  return qx_delete_refdata_mtz_obj(refdata);
}

void qx_print_refdata_mtz() {
  const qxmtz* mtz = qx_get_refdata_mtz();
  if (!mtz) {
    (void)fail("qx_print_refdata_mtz():", "mtzdata object has not been created yet");
    return;
  }
  qx::print_mtz(*mtz);
}
