// What is omitted: the object, its settings, its atoms and points.
#include "map/omit.h"

#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/spacegroup.h"
#include "map/box.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

qxomit* qx_get_qxomit() { return qx::slot(qx_get_refsys(), &refsys::omit); }
Status qx_set_qxomit(qxomit* object) { return qx::install(qx_get_refsys(), &refsys::omit, object); }
Status qx_new_qxomit() { return qx::create_in(qx_delete_qxomit, qx_set_qxomit, "pns_omit"); }
Status qx_delete_qxomit() {
  qxomit* omit = qx_get_qxomit();
  if (!omit) return ok;
  QX_TRY(qx::release(omit->regions));
  QX_TRY(qx::release(omit->listed));
  return qx::remove_from(omit, qx_set_qxomit);
}

namespace {

constexpr double farthest = 1e4;  // Angstrom: no region, no rim is larger

Status fetch(const char* heading, qxomit*& omit) {
  return qx::require_of_engine(heading, qx_get_qxomit, omit,
                               "qxomit object has not been created yet.");
}

Status fetch_cell(const char* heading, const qxcell*& cell) {
  cell = qx_get_qxcell();
  if (!qx_exist_quorix()) return failed;
  if (!cell || !(cell->volume > 0.0)) {
    return fail(heading, "qxcell object has not been created yet ");
  }
  return ok;
}

Status add_region(const char* heading, const qx::OmitRegion& region) {
  qxomit* omit = nullptr;
  QX_TRY(fetch(heading, omit));
  if (omit->nregions == omit->capacity) {
    const std::int32_t capacity = 2 * omit->capacity + 4;
    qx::OmitRegion* wider =
        qx::allocate<qx::OmitRegion>(static_cast<std::size_t>(capacity), "pao_region");
    if (!wider) return failed;
    std::copy_n(omit->regions, omit->nregions, wider);
    QX_TRY(qx::release(omit->regions));
    omit->regions = wider;
    omit->capacity = capacity;
  }
  omit->regions[omit->nregions++] = region;
  return ok;
}

Status check_limits(const char* heading, const double* limits) {
  for (int i = 0; i < 3; ++i) {
    const double low = limits[2 * i];
    const double high = limits[2 * i + 1];
    if (!(low <= high) || std::fabs(low) > farthest || std::fabs(high) > farthest) {
      return fail(heading, "Invalid limits of the region: %f and %f ", low, high);
    }
  }
  return ok;
}

}  // namespace

Status qx_add_omit_frac(const double limits[6]) {
  constexpr const char* heading = "qx_add_omit_frac():";
  QX_TRY(check_limits(heading, limits));
  qx::OmitRegion region;
  std::copy_n(limits, 6, region.at);
  return add_region(heading, region);
}

Status qx_add_omit_box(const double limits[6]) {
  constexpr const char* heading = "qx_add_omit_box():";
  QX_TRY(check_limits(heading, limits));
  const qxcell* cell = nullptr;
  QX_TRY(fetch_cell(heading, cell));
  qx::OmitRegion region;
  double corners[6];
  std::copy_n(limits, 6, corners);
  qx::fractional_limits(cell->orth2frac, corners, region.at);
  return add_region(heading, region);
}

Status qx_add_omit_sphere(const double centre[3], double radius) {
  constexpr const char* heading = "qx_add_omit_sphere():";
  const qxcell* cell = nullptr;
  QX_TRY(fetch_cell(heading, cell));
  const bool sound =
      std::all_of(centre, centre + 3, [](double x) { return std::fabs(x) <= farthest; });
  if (!sound || !(radius >= 0.0) || radius > farthest) {
    return fail(heading, "Invalid sphere of the region: %f %f %f, radius %f ", centre[0], centre[1],
                centre[2], radius);
  }
  qx::OmitRegion region;
  region.shape = qx::OmitShape::sphere;
  double at[3];
  const double point[3] = {centre[0], centre[1], centre[2]};
  qx::image(cell->orth2frac, point, at);
  std::copy_n(at, 3, region.at);
  region.at[3] = radius;
  return add_region(heading, region);
}

Status qx_add_omit_atoms(std::int32_t n, const std::int32_t* atoms) {
  constexpr const char* heading = "qx_add_omit_atoms():";
  qxomit* omit = nullptr;
  QX_TRY(fetch(heading, omit));
  const molsys* system = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_molsys, system,
                               "molsys object has not been created yet "));
  const std::int32_t natom = system->full.atoms.natom;
  if (omit->nlisted != natom) {
    omit->nlisted = 0;
    QX_TRY(qx::release(omit->listed));
    QX_TRY(qx::open_zeroed(omit->listed, static_cast<std::size_t>(natom), "pao_atoms"));
    omit->nlisted = natom;
  }
  for (std::int32_t i = 0; i < n; ++i) {
    if (atoms[i] < 0 || atoms[i] >= natom) {
      return fail(heading, "There is no atom %d to omit: the model has %d.", atoms[i] + 1, natom);
    }
    omit->listed[atoms[i]] = 1;
  }
  return ok;
}

Status qx_set_qxomit_boxes(std::int32_t boxes) {
  constexpr const char* heading = "qx_set_qxomit_boxes():";
  constexpr std::int32_t most = 10000;
  qxomit* omit = nullptr;
  QX_TRY(fetch(heading, omit));
  if (boxes < 1 || boxes > most) {
    return fail(heading, "The number of boxes must lie between 1 and %d: %d ", most, boxes);
  }
  omit->boxes = boxes;
  return ok;
}

Status qx_set_qxomit_rim(double rim) {
  constexpr const char* heading = "qx_set_qxomit_rim():";
  constexpr double widest = 20.0;
  qxomit* omit = nullptr;
  QX_TRY(fetch(heading, omit));
  if (!(rim >= 0.0) || rim > widest) return fail(heading, "Invalid rim of the region: %f ", rim);
  omit->rim = rim;
  return ok;
}

Status qx_set_qxomit_mask(std::int32_t clear) {
  qxomit* omit = nullptr;
  QX_TRY(fetch("qx_set_qxomit_mask():", omit));
  omit->clear_mask = clear != 0;
  return ok;
}

namespace qx {

Status OmitSetting::fetch(const char* heading) {
  qxomit* found = nullptr;
  QX_TRY(::fetch(heading, found));
  omit = found;
  QX_TRY(qx::require_of_engine(heading, qx_get_molsys, system,
                               "molsys object has not been created yet "));
  QX_TRY(fetch_cell(heading, cell));
  group = qx_get_qxspg();
  if (!qx_exist_quorix()) return failed;
  if (!group || group->nops < 1) return fail(heading, "qxspg object has not been created yet ");
  const qxrecicell* reciprocal = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxrecicell, reciprocal,
                               "qxrecicell object has not been created yet "));
  frame = {{}, {reciprocal->a, reciprocal->b, reciprocal->c}};
  std::copy_n(cell->standard_frac2orth, 9, frame.matrix);
  if (omit->listed && omit->nlisted != system->full.atoms.natom) {
    return fail(heading, "The atoms to omit are those of another model.");
  }
  for (std::int32_t i = 0; i < system->natom; ++i) {
    if (std::isfinite(system->x[i] + system->y[i] + system->z[i])) continue;
    return fail(heading, "The coordinates of atom %d are not numbers: %f %f %f ", i + 1,
                system->x[i], system->y[i], system->z[i]);
  }
  return ok;
}

void OmitSetting::fractional(std::int32_t atom, double (&out)[3]) const {
  const double at[3] = {system->x[atom], system->y[atom], system->z[atom]};
  image(cell->orth2frac, at, out);
}

namespace {

// Whether any region holds a mate of the point.
bool any_holds(const OmitSetting& setting, const OmitRegion* regions, std::int32_t n, double rim,
               const double (&point)[3]) {
  for (std::int32_t op = 0; op < setting.group->nops; ++op) {
    double mate[3];
    image(setting.group->ops[op], point, mate);
    for (std::int32_t i = 0; i < n; ++i) {
      if (region_holds(regions[i], setting.frame, rim, mate)) return true;
    }
  }
  return false;
}

}  // namespace

void mark_regions(const OmitSetting& setting, const OmitRegion* regions, std::int32_t n,
                  std::int32_t* marks) {
  for (std::int32_t i = 0; i < setting.system->natom; ++i) {
    double at[3];
    setting.fractional(i, at);
    if (any_holds(setting, regions, n, setting.omit->rim, at)) marks[i] = 1;
  }
}

void mark_listed(const OmitSetting& setting, std::int32_t* marks) {
  for (std::int32_t i = 0; i < setting.system->natom; ++i) {
    const bool listed = setting.omit->listed && setting.omit->listed[setting.system->to_full[i]];
    marks[i] = listed ? 1 : 0;
  }
}

void mark_points(const OmitSetting& setting, const OmitRegion* regions, std::int32_t n,
                 const MaskGrid& grid, std::uint8_t* mask) {
  if (n < 1) return;
  for (std::int32_t iz = 0; iz < grid.nz; ++iz) {
    for (std::int32_t iy = 0; iy < grid.ny; ++iy) {
      std::uint8_t* row = mask + grid.row(iz, iy);
      for (std::int32_t ix = 0; ix < grid.nx; ++ix) {
        const double at[3] = {static_cast<double>(ix) / grid.nx, static_cast<double>(iy) / grid.ny,
                              static_cast<double>(iz) / grid.nz};
        if (any_holds(setting, regions, n, 0.0, at)) row[ix] = 1;
      }
    }
  }
}

void mark_points_near(const OmitSetting& setting, const std::int32_t* marks, std::int32_t wanted,
                      const MaskGrid& grid, std::uint8_t* mask) {
  constexpr double reach = 3.0;  // Angstrom: an atom and what lies about it
  for (std::int32_t i = 0; i < setting.system->natom; ++i) {
    if (marks[i] != wanted) continue;
    double at[3];
    setting.fractional(i, at);
    for (std::int32_t op = 0; op < setting.group->nops; ++op) {
      double mate[3];
      image(setting.group->ops[op], at, mate);
      for (double& x : mate) x -= std::floor(x);
      mark_sphere(grid, mate, reach, mask);
    }
  }
}

}  // namespace qx
