// The grid container and its three objects.
#include "grid/grid.h"

#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"

#include <quorix/engine.h>

#include <algorithm>
#include <unistd.h>
#include <utility>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

// The container, or null without a report.
xgrid* container_or_null() {
  const refsys* system = qx_exist_quorix() ? qx_get_refsys() : nullptr;
  return system ? system->grid : nullptr;
}

template <class T>
Status delete_member(T* xgrid::*member) {
  xgrid* container = container_or_null();
  return container ? qx::release(container->*member) : ok;
}

}  // namespace

Status qx_new_xgrid() {
  QX_TRY(qx_delete_xgrid());
  auto* container = qx::new_object<xgrid>("pnx_xg");
  if (!container) return qx::failed;
  QX_TRY(qx_set_xgrid(container));
  QX_TRY(qx_new_qxgrid());
  QX_TRY(qx_new_qxsubgrid());
  return qx_new_qxboundary();
}

Status qx_delete_xgrid() {
  xgrid* container = container_or_null();
  if (!container) return ok;
  QX_TRY(qx_delete_qxboundary());
  QX_TRY(qx_delete_qxsubgrid());
  QX_TRY(qx_delete_qxgrid());
  QX_TRY(qx_set_xgrid(nullptr));
  return xfree(container);
}

xgrid* qx_get_xgrid() {
  const refsys* system = qx_get_refsys();
  if (!system) return nullptr;
  if (!system->grid) {
    (void)fail("qx_get_xgrid():", "xgrid object has not been created yet ");
    return nullptr;
  }
  return system->grid;
}

Status qx_set_xgrid(xgrid* object) { return qx::install(qx_get_refsys(), &refsys::grid, object); }

Status qx_new_qxgrid() { return qx::create_in(qx_delete_qxgrid, qx_set_qxgrid, "pnrp_grid"); }

Status qx_delete_qxgrid() {
  xgrid* container = container_or_null();
  if (!container || !container->grid) return ok;
  QX_TRY(qx::drop_reflection_tables(*container->grid));
  return qx::release(container->grid);
}

qxgrid* qx_get_qxgrid() { return qx::slot(qx_get_xgrid(), &xgrid::grid); }
Status qx_set_qxgrid(qxgrid* object) { return qx::install(qx_get_xgrid(), &xgrid::grid, object); }

Status qx_new_qxsubgrid() { return qx::create_in(qx_delete_qxsubgrid, qx_set_qxsubgrid, "pnrp_g"); }
Status qx_delete_qxsubgrid() { return delete_member(&xgrid::subgrid); }
qxsubgrid* qx_get_qxsubgrid() { return qx::slot(qx_get_xgrid(), &xgrid::subgrid); }
Status qx_set_qxsubgrid(qxsubgrid* object) {
  return qx::install(qx_get_xgrid(), &xgrid::subgrid, object);
}

Status qx_new_qxboundary() {
  return qx::create_in(qx_delete_qxboundary, qx_set_qxboundary, "pnrp_bound");
}
Status qx_delete_qxboundary() { return delete_member(&xgrid::boundary); }
qxboundary* qx_get_qxboundary() { return qx::slot(qx_get_xgrid(), &xgrid::boundary); }
Status qx_set_qxboundary(qxboundary* object) {
  return qx::install(qx_get_xgrid(), &xgrid::boundary, object);
}

Status qx_define_qxboundary(double ex, double ey, double ez, double mx, double my, double mz) {
  qxboundary* boundary = nullptr;
  QX_TRY(qx::require("qx_define_qxboundary():", qx_get_qxboundary, boundary,
                     "qxboundary object has not been created yet "));
  const double outer[3] = {ex, ey, ez};
  const double inner[3] = {mx, my, mz};
  for (int axis = 0; axis < 3; ++axis) {
    boundary->inner[2 * axis] = inner[axis];
    boundary->inner[2 * axis + 1] = 1.0 - inner[axis];
    boundary->outer[2 * axis] = -outer[axis];
    boundary->outer[2 * axis + 1] = 1.0 + outer[axis];
  }
  return ok;
}

Status qx_init_qxgrid_nxyz(std::int32_t nx, std::int32_t ny, std::int32_t nz) {
  qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_init_qxgrid_nxyz():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  const std::int32_t n[3] = {nx, ny, nz};
  std::copy_n(n, 3, grid->requested_n);
  return ok;
}

Status qx_init_qxgrid_sxyz(double sx, double sy, double sz) {
  qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_init_qxgrid_sxyz():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  const double spacing[3] = {sx, sy, sz};
  std::copy_n(spacing, 3, grid->requested_spacing);
  return ok;
}

Status qx_set_grid_sincosmem(std::int32_t flag) {
  qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_set_grid_sincosmem():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  grid->sincos_memory = flag;
  return ok;
}

Status qx_set_coarse_grid_flag_on() {
  qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_set_coarse_grid_flag_on():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  grid->coarse_switch = 1;
  return ok;
}

Status qx_set_coarse_grid_flag_off() {
  qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_set_coarse_grid_flag_off():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  grid->coarse_switch = 0;
  return ok;
}

Status qx_print_qxgrid() {
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_print_qxgrid():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  qx::say("grid: nx=%4d ny=%4d nz=%4d sx=%8.5f sy=%8.5f sz=%8.5f", grid->nx, grid->ny, grid->nz,
          grid->sx, grid->sy, grid->sz);
  return ok;
}

Status qx_print_qxsubgrid() {
  const qxsubgrid* box = nullptr;
  QX_TRY(qx::require("qx_print_qxsubgrid():", qx_get_qxsubgrid, box,
                     "qxsubgrid object has not been created yet."));
  qx::say(" sub-grid space info:\n");
  qx::say(" number of sub-grid space along x/y/z directions: %d  %d  %d \n", box->boxes[0],
          box->boxes[1], box->boxes[2]);
  qx::say(" number of sub-grid grid points along x/y/z directions: %d  %d  %d \n", box->points[0],
          box->points[1], box->points[2]);
  return ok;
}

Status qx_get_grid_counts(std::int32_t* nx, std::int32_t* ny, std::int32_t* nz) {
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require("qx_get_grid_counts():", qx_get_qxgrid, grid,
                     "qxgrid object has not been created yet "));
  *nx = grid->nx;
  *ny = grid->ny;
  *nz = grid->nz;
  return ok;
}

namespace qx {

Status drop_reflection_tables(qxgrid& grid) {
  for (std::int32_t*** table : {&grid.ref_ix, &grid.ref_iy, &grid.ref_iz, &grid.ref_l}) {
    if (std::int32_t** rows = std::exchange(*table, nullptr)) QX_TRY(xfree_matrix_int(rows));
  }
  if (double** rows = std::exchange(grid.ref_shift, nullptr)) QX_TRY(xfree_matrix_double(rows));
  for (double**** table : {&grid.sine, &grid.cosine}) {
    if (double*** planes = std::exchange(*table, nullptr)) QX_TRY(xfree_3d_double(planes));
  }
  return ok;
}

bool fits_in_memory(std::int64_t n0, std::int64_t n1, std::int64_t n2) {
  const double needed =
      8.0 * static_cast<double>(n0) * static_cast<double>(n1) * static_cast<double>(n2);
  const double pages = static_cast<double>(sysconf(_SC_PHYS_PAGES));
  const double page = static_cast<double>(sysconf(_SC_PAGESIZE));
  return !(pages > 0 && page > 0) || needed <= pages * page;
}

}  // namespace qx
