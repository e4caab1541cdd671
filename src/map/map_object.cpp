// The map object: its creation, contents and removal.
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/slot.h"
#include "crystal/reflections.h"
#include "map/map.h"

#include <quorix/engine.h>

#include <cstring>
#include <utility>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

// The map, or null without a report.
qxmap* map_or_null() {
  const refsys* system = qx_exist_quorix() ? qx_get_refsys() : nullptr;
  return system ? system->map : nullptr;
}

Status drop_contents(qxmap& map) {
  QX_TRY(qx::drop_density(map));
  QX_TRY(qx::release(map.path));
  QX_TRY(qx::release(map.kind));
  QX_TRY(qx::release(map.input));
  QX_TRY(qx::release(map.columns));
  qxrefdata* set = std::exchange(map.refdata, nullptr);
  return set ? qx_delete_qxrefdata_obj(set) : ok;
}

}  // namespace

Status qx_new_qxmap() { return qx::create_in(qx_delete_qxmap, qx_set_qxmap, "pnp_map"); }

Status qx_delete_qxmap() {
  qxmap* map = map_or_null();
  if (!map) return ok;
  QX_TRY(drop_contents(*map));
  return qx::remove_from(map, qx_set_qxmap);
}

qxmap* qx_get_qxmap() { return qx::slot(qx_get_refsys(), &refsys::map); }
Status qx_set_qxmap(qxmap* object) { return qx::install(qx_get_refsys(), &refsys::map, object); }

Status qx_set_map_default() {
  qxmap* map = nullptr;
  QX_TRY(qx::require("qx_set_map_default():", qx_get_qxmap, map,
                     "qxmap object has not been created yet."));
  QX_TRY(drop_contents(*map));
  *map = qxmap{};
  return ok;
}

Status qx_write_map(const char* format) {
  constexpr auto here = "qx_write_map():";
  const qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  if (!map->density) return fail(here, "There is no way to get map coefficients.");
  if (std::strcmp(format, "ccp4") == 0) return qx_wr_ccp4_map();
  return fail(here, "Feature for writing %s map has not been implemented yet.", format);
}

namespace qx {

Status drop_density(qxmap& map) {
  map.statistics_known = false;
  double*** density = std::exchange(map.density, nullptr);
  return density ? xfree_3d_double(density) : ok;
}

}  // namespace qx

std::int32_t qx_get_map_statistics(qx_map_statistics_view* view) {
  const qxmap* map = qx_get_qxmap();
  if (!map || !map->density) return 0;
  *view = {map->mean, map->rms};
  return 1;
}
