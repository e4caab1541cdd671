// What of crystal and reflections others may look at. Nothing here reports: a getter that does
// would end the engine of somebody who only looks.
#include "crystal/views.h"

#include "core/refsys.h"
#include "core/root.h"
#include "crystal/cell.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "crystal/symop.h"

#include <algorithm>
#include <cmath>

namespace {

const qxxcry* shown_crystal() {
  const refsys* system = quorix ? quorix->reflections : nullptr;
  return system ? system->crystal : nullptr;
}

template <class T>
const T* shown(T* qxxcry::*member) {
  const qxxcry* crystal = shown_crystal();
  return crystal ? crystal->*member : nullptr;
}

}  // namespace

std::int32_t qx_get_cell_view(qx_cell_view* view) {
  const qxcell* cell = shown(&qxxcry::cell);
  const qxrecicell* reciprocal = shown(&qxxcry::recicell);
  if (!cell || !reciprocal || !(cell->volume > 0.0)) return 0;
  *view = {
      {cell->a, cell->b, cell->c}, {cell->alpha, cell->beta, cell->gamma}, cell->volume, {}, {}};
  std::copy_n(reciprocal->resolution, 6, view->resolution);
  std::copy_n(cell->standard_frac2orth, 9, view->orthogonal);
  return 1;
}

std::int32_t qx_get_group_view(qx_group_view* view) {
  const qxspg* group = shown(&qxxcry::spg);
  if (!group || group->nops < 1) return 0;
  *view = {group->spg_id, group->short_name, group->full_name, group->nops, group->ops};
  return 1;
}

std::int32_t qx_get_limits_view(qx_limits_view* view) {
  const qxresol* limits = shown(&qxxcry::resol);
  if (!limits) return 0;
  *view = {limits->high, limits->low};
  return 1;
}

const qxrefdata* qx::shown_refdata() { return shown(&qxxcry::refdata); }

qx_reflections_view qx::view_of(const qxrefdata& set) {
  return {set.nreflections, set.h,       set.k,       set.l,           set.s_length,
          set.fobs,         set.sigf,    set.fc,      set.phic,        set.fom,
          set.test,         set.centric, set.epsilon, set.friedel_flag};
}

std::int32_t qx_get_reflections_view(qx_reflections_view* view) {
  const qxrefdata* refdata = qx::shown_refdata();
  if (!refdata || refdata->nreflections < 1) return 0;
  *view = qx::view_of(*refdata);
  return 1;
}

std::int32_t qx_get_index_mate(std::int32_t op, const std::int32_t hkl[3], std::int32_t mate[3],
                               double* cycles) {
  const qxspg* group = shown(&qxxcry::spg);
  if (!group || op < 0 || op >= group->nops) return 0;
  const double* matrix = group->ops[op];
  qx::rotate_index(hkl, matrix, mate);
  const double turns = hkl[0] * matrix[3] + hkl[1] * matrix[7] + hkl[2] * matrix[11];
  *cycles = turns - std::floor(turns);
  return 1;
}
