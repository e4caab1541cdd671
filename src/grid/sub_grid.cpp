// The split of the grid in hand.
#include "core/report.h"
#include "core/require.h"
#include "grid/grid.h"
#include "grid/sub_box.h"

void qx::set_boxes(qxsubgrid& box, const qxgrid& grid, std::int32_t boxes) noexcept {
  box.boxes[0] = 1;
  box.boxes[1] = 1;
  box.boxes[2] = boxes;
  box.points[0] = grid.nx;
  box.points[1] = grid.ny;
  box.points[2] = grid.nz / boxes;
  box.one_box = boxes == 1 ? 1 : 0;
}

using qx::fail;
using qx::ok;
using qx::Status;

Status qx_run_qxsubgrid_checker() {
  constexpr auto here = "qx_run_qxsubgrid_checker():";
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  qxsubgrid* box = nullptr;
  QX_TRY(qx::require(here, qx_get_qxsubgrid, box, "qxsubgrid object has not been created yet."));
  std::int32_t boxes = 1;
  std::int32_t planes = grid->nz;
  switch (qx::split_grid(grid->nx, grid->ny, grid->nz, box->memory, boxes, planes)) {
    case qx::BoxSplit::bad_grid:
      return fail(here, " The grid for FFT has not been set up properly ");
    case qx::BoxSplit::no_factor:
      return fail(here, " nlast should not be zero ");
    case qx::BoxSplit::whole:
    case qx::BoxSplit::split:
      break;
  }
  qx::set_boxes(*box, *grid, boxes);
  return ok;
}
