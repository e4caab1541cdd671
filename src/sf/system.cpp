// Structure factors of the whole system, box by box under the memory budget.
#include "core/object.h"
#include "core/report.h"
#include "crystal/reflections.h"
#include "grid/grid.h"
#include "grid/sub_box.h"
#include "model/density_boxes.h"
#include "model/formfactors.h"
#include "model/molsys.h"
#include "sf/fft_route.h"

#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/memory.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* heading = "qx_calc_system_struct_factor():";

// Form factors, radii and tables, made when they are not there yet.
Status make_ready(std::int32_t& natom) {
  const molsys* system = qx_get_molsys();
  if (!qx_exist_quorix()) return failed;
  if (!system) return fail(heading, "molsys object has not been created yet ");
  natom = system->natom;
  if (!qx_get_xmolformfact()) QX_TRY(qx_new_xmolformfact());
  QX_TRY(qx_make_molformfact());
  if (!qx_get_qxexptab()) QX_TRY(qx_new_qxexptab());
  if (!qx_get_qxradcut()) QX_TRY(qx_new_qxradcut());
  QX_TRY(qx_update_qxradcut());
  QX_TRY(qx_new_qxstructfact());
  QX_TRY(qx_delete_qxelecden());
  return qx_set_pre_factor();
}

// The sections split the grid as if six arrays of it were held. This road holds one box (three
// where the spectrum does not fit into it) beside what is there already.
Status choose_boxes(const qx::FftRoute& route, std::int32_t natom) {
  qxsubgrid* box = qx_get_qxsubgrid();
  if (!box) return fail(heading, "qxsubgrid object has not been created yet.");
  if (!(box->memory >= 0.0)) return ok;  // no budget
  const qxgrid& grid = *route.grid;
  const double arrays = route.in_place() ? 1.0 : 3.0;
  const double held = qx_get_xmalloc_memory_size() + 1e-6 * natom * sizeof(qx::PlacedAtom);
  const std::int32_t boxes =
      qx::boxes_under_budget(grid.nx, grid.ny, grid.nz, box->memory / arrays, held / arrays);
  qx::set_boxes(*box, grid, boxes);
  return ok;
}

Status add_boxes(const qx::FftRoute& route) {
  double*** density = qx_open_qxelecden_box();
  if (!density) return failed;
  const qxsubgrid* box = qx_get_qxsubgrid();
  if (!box) return failed;
  const std::int32_t nboxes = box->one_box ? 1 : box->boxes[2];
  const std::int32_t planes = box->one_box ? route.grid->nz : box->points[2];
  qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return failed;
  qx::PlacedAtoms placed;
  QX_TRY(qx::place_atoms(density, placed));
  for (std::int32_t shift = 0; shift < nboxes; ++shift) {
    QX_TRY(qx::fill_box(placed, shift, density));
    QX_TRY(qx::add_box(route, planes, shift, density, sf->parts[0]));
  }
  return ok;
}

}  // namespace

Status qx_calc_system_struct_factor() {
  std::int32_t natom = 0;
  QX_TRY(make_ready(natom));
  qx::FftRoute route;
  QX_TRY(qx::prepare_route(heading, route));
  const std::int32_t nref = route.data->nreflections;
  if (nref > 0) {
    qxstructfact* sf = qx_get_qxstructfact();
    if (!sf) return failed;
    QX_TRY(qx::open_sums(sf, 0, nref));
    QX_TRY(choose_boxes(route, natom));
    QX_TRY(add_boxes(route));
  }
  return qx_delete_qxelecden();
}
