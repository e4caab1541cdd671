// An MTZ object for writing, made from the data set, the cell and the space group.
#include "core/require.h"
#include "core/say.h"
#include "core/timer.h"
#include "crystal/cell.h"
#include "crystal/columns.h"
#include "crystal/spacegroup.h"
#include "reflio/mtz.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr std::int32_t most_history = 30;  // lines that the format allows
constexpr std::int32_t base_id = 0;        // of the data set that holds the indices
constexpr std::int32_t data_id = 1;

const char* or_else(const char* name, const char* other) { return name && *name ? name : other; }

Status add_dataset(qxmtz& mtz, std::int32_t id, const char* project, const char* crystal,
                   const char* name, double wavelength) {
  qx::MtzDataset* set = qx::append(mtz.datasets, "pm_set");
  if (!set) return failed;
  set->id = id;
  qx::copy_text(set->project, project);
  qx::copy_text(set->crystal, crystal);
  qx::copy_text(set->name, name);
  std::copy_n(mtz.cell, 6, set->cell);
  set->wavelength = wavelength;
  return ok;
}

// The wavelength of the file's data set that the names came from.
double wavelength_of(const qxrefdata& refdata) {
  const qxmtz* old = refdata.mtz;
  if (!old || !refdata.dataset_name) return 0.0;
  for (const qx::MtzDataset& set : old->datasets) {
    if (std::strcmp(set.name, refdata.dataset_name) == 0) return set.wavelength;
  }
  return 0.0;
}

Status add_datasets(qxmtz& mtz, const qxrefdata& refdata) {
  QX_TRY(add_dataset(mtz, base_id, "HKL_base", "HKL_base", "HKL_base", 0.0));
  return add_dataset(mtz, data_id, or_else(refdata.project_name, "Quorix"),
                     or_else(refdata.crystal_name, "Quorix"),
                     or_else(refdata.dataset_name, "Quorix"), wavelength_of(refdata));
}

Status add_cell(qxmtz& mtz) {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require("qx_make_mtz_obj():", qx_get_qxcell, cell,
                     "qxcell object has not been created yet "));
  const double values[6] = {cell->a, cell->b, cell->c, cell->alpha, cell->beta, cell->gamma};
  std::copy_n(values, 6, mtz.cell);
  mtz.has_cell = true;
  return ok;
}

Status add_symmetry(qxmtz& mtz) {
  const qxspg* spg = nullptr;
  QX_TRY(qx::require("qx_make_mtz_obj():", qx_get_qxspg, spg,
                     " qxspg object has not been created yet "));
  mtz.nprimitive = spg->primitive.count;
  mtz.spacegroup_number = spg->spg_id;
  const char* name = or_else(spg->full_name, or_else(spg->short_name, ""));
  mtz.lattice = *name ? *name : 'P';
  qx::copy_text(mtz.spacegroup_name, name);
  std::snprintf(mtz.point_group, sizeof mtz.point_group, "PG%s",
                or_else(spg->point_group_name, ""));
  for (std::int32_t i = 0; i < spg->nops; ++i) {
    qx::MtzLine* line = qx::append(mtz.symops, "pm_symm");
    if (!line) return failed;
    char text[256] = {};
    QX_TRY(qx_get_string_oper_by_matrix(spg->ops[i], text));
    qx::copy_text(line->text, text);
  }
  return ok;
}

// 1/d^2, smallest and largest.
void add_resolution(qxmtz& mtz, const qxrefdata& refdata) {
  if (!refdata.s_length || refdata.nreflections < 1) return;
  const auto [least, most] =
      std::minmax_element(refdata.s_length, refdata.s_length + refdata.nreflections);
  mtz.resolution[0] = *least * *least;
  mtz.resolution[1] = *most * *most;
}

float stored(const qxrefdata& refdata, const qx::Column& column, std::int32_t i) {
  if (column.indices) return static_cast<float>((refdata.*column.indices)[i]);
  if (column.values) return (refdata.*column.values)[i];
  const std::int16_t flag = (refdata.*column.flags)[i];
  return flag == qx::missing_flag ? std::numeric_limits<float>::quiet_NaN()
                                  : static_cast<float>(flag);
}

// The column of the file that the data set's column was read from; null if it was not.
Status find_source(const qxrefdata& refdata, const qx::Column& column,
                   const qx::MtzColumn*& source) {
  source = nullptr;
  const char* name = refdata.selected[column.number];
  if (!name || !refdata.mtz) return ok;
  std::int32_t position = -1;
  QX_TRY(qx::locate_column(*refdata.mtz, name, position));
  if (position >= 0) source = &refdata.mtz->columns[position];
  return ok;
}

bool has_label(const qxmtz& mtz, const char* label) {
  return std::any_of(mtz.columns.begin(), mtz.columns.end(), [&](const qx::MtzColumn& column) {
    return std::strcmp(column.label, label) == 0;
  });
}

// Without a wish a column keeps the label that it had in its file, if that is still free: one
// column may have been read as two.
void choose_label(const qxmtz& mtz, const char* own, const char* word, qx::MtzText& label) {
  qx::copy_text(label, own && !has_label(mtz, own) ? own : word);
  for (int n = 2; has_label(mtz, label); ++n) {
    std::snprintf(label, sizeof label, "%s_%d", word, n);
  }
}

Status add_column(qxmtz& mtz, const qxrefdata& refdata, const qx::Column& from, const char* wish) {
  const qx::MtzColumn* source = nullptr;
  QX_TRY(find_source(refdata, from, source));
  qx::MtzText label;
  if (wish && *wish) {
    qx::copy_text(label, wish);
  } else {
    const bool own = source && refdata.format == qx::mtz_format;  // labels that MTZ files may have
    choose_label(mtz, own ? source->label : nullptr, from.word, label);
  }
  qx::MtzColumn* column = qx::append(mtz.columns, "pm_col");
  if (!column) return failed;
  qx::copy_text(column->label, label);
  column->type = source ? source->type : from.mtz_type;
  column->dataset_id = from.indices ? base_id : data_id;
  return ok;
}

// Number of the index column that the file calls `label`, 0 for any other column.
std::int32_t index_number(const qxrefdata& refdata, const char* label) {
  for (std::int32_t number = qx::coid_h; number <= qx::coid_l; ++number) {
    const char* chosen = or_else(refdata.selected[number], qx::columns()[number - 1].word);
    if (std::strcmp(chosen, label) == 0) return number;
  }
  return 0;
}

// Whether the file's column was read as one of the data set's that are written.
Status is_written(const qxrefdata& refdata, const qx::MtzColumn& column, const char* const* labels,
                  bool& written) {
  written = index_number(refdata, column.label) != 0;
  for (const qx::Column& row : qx::columns()) {
    if (written) return ok;
    if (labels && !labels[row.number]) continue;
    const qx::MtzColumn* source = nullptr;
    QX_TRY(find_source(refdata, row, source));
    written = source == &column;
  }
  return ok;
}

// The columns of the file that are not, in its order: their places there.
Status add_others(qxmtz& mtz, const qxrefdata& refdata, const char* const* labels,
                  qx::Tagged<std::int32_t>& places) {
  const qxmtz* old = refdata.mtz;
  if (!old || old->columns.count < 1) return ok;
  places = qx::Tagged<std::int32_t>(static_cast<std::size_t>(old->columns.count), "pm_place");
  if (!places) return failed;
  std::size_t n = 0;
  for (std::int32_t c = 0; c < old->columns.count; ++c) {
    const qx::MtzColumn& from = old->columns[c];
    bool written = false;
    QX_TRY(is_written(refdata, from, labels, written));
    if (written || has_label(mtz, from.label)) continue;
    qx::MtzColumn* column = qx::append(mtz.columns, "pm_col");
    if (!column) return failed;
    qx::copy_text(column->label, from.label);
    column->type = from.type;
    column->dataset_id = data_id;
    places[n++] = c;
  }
  return ok;
}

// Values of a column of the file at the reflections that were kept.
void copy_kept(const qxrefdata& refdata, const qx::MtzColumn& from, float missing, float* to) {
  std::fill_n(to, refdata.nreflections, std::numeric_limits<float>::quiet_NaN());
  for (std::int32_t i = 0, row = 0; row < refdata.ninput && i < refdata.nreflections; ++row) {
    if (refdata.rejected[row] != 0) continue;
    const float value = from.values[row];
    to[i++] = value == missing ? std::numeric_limits<float>::quiet_NaN() : value;
  }
}

Status add_derived(qxmtz& mtz, const qxrefdata& refdata) {
  for (std::int32_t i = 0; i < refdata.nderived; ++i) {
    const qx::DerivedColumn& from = refdata.derived[i];
    if (!from.wanted) continue;
    qx::MtzColumn* column = qx::append(mtz.columns, "pm_col");
    if (!column) return failed;
    qx::copy_text(column->label, from.label);
    column->type = from.type;
    column->dataset_id = data_id;
  }
  return ok;
}

void copy_derived(qxmtz& mtz, const qxrefdata& refdata, std::int32_t first) {
  for (std::int32_t i = 0; i < refdata.nderived; ++i) {
    if (!refdata.derived[i].wanted) continue;
    qx::MtzColumn& column = mtz.columns[first++];
    std::copy_n(refdata.derived[i].values, refdata.nreflections, column.values);
    qx::set_range(column, mtz.nreflections);
  }
}

Status add_columns(qxmtz& mtz, const qxrefdata& refdata, const char* const* labels, bool others) {
  const qx::Column* sources[qx::coid_count];
  for (const qx::Column& column : qx::columns()) {
    const char* label = labels ? labels[column.number] : nullptr;
    if (labels && !label && !column.indices) continue;
    if (qx::has_column(refdata, column)) {
      sources[mtz.columns.count] = &column;
      QX_TRY(add_column(mtz, refdata, column, label));
    } else if (label) {
      qx::say(" Warning: there are no \"%s\" data to write.\n", column.word);
    }
  }
  const std::int32_t own = mtz.columns.count;
  qx::Tagged<std::int32_t> places;
  const bool of_file =
      others && refdata.mtz && refdata.rejected && refdata.ninput == refdata.mtz->nreflections;
  if (of_file) QX_TRY(add_others(mtz, refdata, labels, places));
  const std::int32_t read = mtz.columns.count;
  QX_TRY(add_derived(mtz, refdata));
  QX_TRY(qx::open_values(mtz));
  copy_derived(mtz, refdata, read);
  for (std::int32_t c = 0; c < read; ++c) {
    float* values = mtz.columns[c].values;
    for (std::int32_t i = 0; c < own && i < mtz.nreflections; ++i) {
      values[i] = stored(refdata, *sources[c], i);
    }
    if (c >= own) {
      const std::int32_t place = places[static_cast<std::size_t>(c - own)];
      copy_kept(refdata, refdata.mtz->columns[place], refdata.mtz->missing, values);
    }
    qx::set_range(mtz.columns[c], mtz.nreflections);
  }
  return ok;
}

// The order of the file that was read still holds, as filtering keeps it, as far as it goes by
// indices.
void add_sort_order(qxmtz& mtz, const qxrefdata& refdata) {
  const qxmtz* old = refdata.mtz;
  for (std::int32_t i = 0; old && i < 5; ++i) {
    const std::int32_t position = old->sort[i];
    if (position < 1 || position > old->columns.count) return;
    mtz.sort[i] = index_number(refdata, old->columns[position - 1].label);
    if (mtz.sort[i] == 0) return;
  }
}

Status add_history(qxmtz& mtz, const qxrefdata& refdata) {
  qx::MtzLine* line = qx::append(mtz.history, "pm_hist");
  if (!line) return failed;
  const std::time_t now = qx::time_of_files();
  std::tm local = {};
  localtime_r(&now, &local);
  char date[32] = {};
  (void)std::strftime(date, sizeof date, "%d/%m/%Y %H:%M:%S", &local);
  std::snprintf(line->text, sizeof line->text, "From Quorix %s", date);
  const qxmtz* old = refdata.mtz;
  for (std::int32_t i = 0; old && i < old->history.count && i + 1 < most_history; ++i) {
    line = qx::append(mtz.history, "pm_hist");
    if (!line) return failed;
    qx::copy_text(line->text, old->history[i].text);
  }
  return ok;
}

Status make(qxmtz& mtz, const qxrefdata& refdata, const char* const* labels, bool others) {
  qx::copy_text(mtz.version, "MTZ:V1.1");
  if (refdata.mtz) qx::copy_text(mtz.title, refdata.mtz->title);
  mtz.nreflections = refdata.nreflections;
  QX_TRY(add_cell(mtz));
  QX_TRY(add_symmetry(mtz));
  QX_TRY(add_datasets(mtz, refdata));
  QX_TRY(add_columns(mtz, refdata, labels, others));
  add_sort_order(mtz, refdata);
  add_resolution(mtz, refdata);
  return add_history(mtz, refdata);
}

}  // namespace

qxmtz* qx_make_mtz_obj(const qxrefdata* refdata, const char* const* labels) {
  qxmtz* mtz = qx::new_object<qxmtz>("pnrm_md");
  if (!mtz) return nullptr;
  return make(*mtz, *refdata, labels, false) == ok ? mtz : nullptr;
}

qxmtz* qx_make_mtz_with_others_obj(const qxrefdata* refdata, const char* const* labels) {
  qxmtz* mtz = qx::new_object<qxmtz>("pnrm_md");
  if (!mtz) return nullptr;
  return make(*mtz, *refdata, labels, true) == ok ? mtz : nullptr;
}
