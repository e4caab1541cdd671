// The map object: its creation, contents and removal.
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/slot.h"
#include "crystal/reflections.h"
#include "map/map.h"
#include "map/other_maps.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

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
  qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  if (!qx::has_density(*map)) return fail(here, "There is no way to get map coefficients.");
  if (std::strcmp(format, "ccp4") == 0) return qx_wr_ccp4_map();
  constexpr std::pair<const char*, qx::OtherMap> others[] = {
      {"cns", qx::OtherMap::cns_formatted},
      {"cns_unformatted", qx::OtherMap::cns_unformatted},
      {"xyz", qx::OtherMap::points}};
  for (const auto& [name, other] : others) {
    if (std::strcmp(format, name) == 0) return qx::write_other_map(here, *map, other);
  }
  return fail(here, "Feature for writing %s map has not been implemented yet.", format);
}

namespace qx {

Status drop_density(qxmap& map) {
  map.statistics_known = false;
  QX_TRY(drop_recipe(map.recipe));
  double*** density = std::exchange(map.density, nullptr);
  return density ? xfree_3d_double(density) : ok;
}

void know_statistics(qxmap& map, const Extremes& extremes) {
  map.statistics.minimum = extremes.minimum;
  map.statistics.maximum = extremes.maximum;
  map.statistics_known = true;
}

double*** map_density(qxmap& map) {
  if (map.density || !map.recipe) return map.density;
  const GridCounts n = map.recipe->n;
  double*** density = xopen_3d_double(n.nz, n.ny, n.nx, "pgm_emap");
  if (!density) return nullptr;
  Extremes extremes;
  if (make_planes(*map.recipe, 0, n.nz, density[0][0], extremes) != ok) return nullptr;
  map.density = density;
  know_statistics(map, extremes);
  return drop_recipe(map.recipe) == ok ? density : nullptr;
}

}  // namespace qx

Status qx_make_map_density() {
  constexpr auto here = "qx_make_map_density():";
  qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  if (!qx::has_density(*map)) return fail(here, "There is no way to get map coefficients.");
  double*** density = qx::map_density(*map);
  return density ? ok : qx::failed;
}

std::int32_t qx_get_map_statistics(qx_map_statistics_view* view) {
  const qxmap* map = qx_get_qxmap();
  if (!map || !qx::has_density(*map)) return 0;
  *view = {map->mean, map->rms};
  return 1;
}
