#include "map/model_box.h"

#include "core/report.h"
#include "core/require.h"
#include "crystal/cell.h"
#include "model/molsys.h"

#include <quorix/engine.h>

#include <algorithm>

namespace qx {

Status model_limits(const char* heading, double cushion, double (&limits)[6]) {
  const molsys* system = qx_get_molsys();
  if (!system || system->natom < 1) return fail(heading, "molsys object has not been created yet ");
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const qxrecicell* reciprocal = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxrecicell, reciprocal,
                     "qxrecicell object has not been created yet "));
  const double stars[3] = {reciprocal->a, reciprocal->b, reciprocal->c};
  for (int axis = 0; axis < 3; ++axis) {
    const double* row = cell->orth2frac + 4 * axis;
    double low = 1e30;
    double high = -1e30;
    for (std::int32_t i = 0; i < system->natom; ++i) {
      const double f =
          row[0] * system->x[i] + row[1] * system->y[i] + row[2] * system->z[i] + row[3];
      low = std::min(low, f);
      high = std::max(high, f);
    }
    limits[2 * axis] = low - cushion * stars[axis];
    limits[2 * axis + 1] = high + cushion * stars[axis];
  }
  return ok;
}

}  // namespace qx
