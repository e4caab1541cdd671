// What of the grid others may look at.
#include "core/refsys.h"
#include "core/root.h"
#include "grid/grid.h"

#include <quorix/views.h>

std::int32_t qx_get_grid_view(qx_grid_view* view) {
  const refsys* system = quorix ? quorix->reflections : nullptr;
  const xgrid* container = system ? system->grid : nullptr;
  if (!container || !container->grid || container->grid->nx < 1) return 0;
  const qxgrid& grid = *container->grid;
  const qxsubgrid* split = container->subgrid;
  *view = {{grid.nx, grid.ny, grid.nz}, split && !split->one_box ? split->boxes[2] : 1};
  return 1;
}
