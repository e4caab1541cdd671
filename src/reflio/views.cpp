// What of a reflection file others may look at.
#include "crystal/views.h"

#include "crystal/reflections.h"
#include "reflio/mtz.h"

namespace {

const qxmtz* file_of(const qxrefdata* refdata) {
  const qxrefdata* set = refdata ? refdata : qx::shown_refdata();
  return set ? set->mtz : nullptr;
}

template <class T>
const T* element(const qx::MtzList<T> qxmtz::*list, const qxrefdata* refdata, std::int32_t i) {
  const qxmtz* mtz = file_of(refdata);
  return mtz && i >= 0 && i < (mtz->*list).count ? (mtz->*list).items + i : nullptr;
}

}  // namespace

std::int32_t qx_get_mtz_view(const qxrefdata* refdata, qx_mtz_view* view) {
  const qxmtz* mtz = file_of(refdata);
  if (!mtz) return 0;
  *view = {mtz->title,
           mtz->spacegroup_name,
           mtz->spacegroup_number,
           mtz->nreflections,
           mtz->columns.count,
           mtz->datasets.count,
           mtz->symops.count,
           mtz->history.count,
           mtz->batches.count,
           {},
           mtz->missing};
  for (int i = 0; i < 6; ++i) view->cell[i] = mtz->cell[i];
  return 1;
}

std::int32_t qx_get_mtz_column_view(const qxrefdata* refdata, std::int32_t i,
                                    qx_mtz_column_view* view) {
  const qx::MtzColumn* column = element(&qxmtz::columns, refdata, i);
  if (!column) return 0;
  *view = {column->label, column->type, column->dataset_id, column->values};
  return 1;
}

std::int32_t qx_get_mtz_dataset_view(const qxrefdata* refdata, std::int32_t i,
                                     qx_mtz_dataset_view* view) {
  const qx::MtzDataset* set = element(&qxmtz::datasets, refdata, i);
  if (!set) return 0;
  *view = {set->id, set->project, set->crystal, set->name, set->wavelength};
  return 1;
}

const char* qx_get_mtz_operator(const qxrefdata* refdata, std::int32_t i) {
  const qx::MtzLine* line = element(&qxmtz::symops, refdata, i);
  return line ? line->text : nullptr;
}

const char* qx_get_mtz_history(const qxrefdata* refdata, std::int32_t i) {
  const qx::MtzLine* line = element(&qxmtz::history, refdata, i);
  return line ? line->text : nullptr;
}
