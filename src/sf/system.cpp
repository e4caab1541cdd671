// Structure factors of the whole system, box by box under the memory budget.
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "crystal/reflections.h"
#include "grid/grid.h"
#include "grid/sub_box.h"
#include "model/density_boxes.h"
#include "model/formfactors.h"
#include "model/molsys.h"
#include "sf/fft_route.h"
#include "sf/partition.h"

#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/memory.h>

#include <algorithm>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* heading = "qx_calc_system_struct_factor():";

// Form factors, radii and tables, made when they are not there yet.
Status make_ready(std::int32_t& natom) {
  const molsys* system = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_molsys, system,
                               "molsys object has not been created yet "));
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
  qxsubgrid* box = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxsubgrid, box, "qxsubgrid object has not been created yet."));
  if (!(box->memory >= 0.0)) return ok;  // no budget
  const qxgrid& grid = *route.grid;
  const double arrays = route.in_place() ? 1.0 : 3.0;
  const double held = qx_get_xmalloc_memory_size() + 1e-6 * natom * sizeof(qx::PlacedAtom);
  const std::int32_t boxes =
      qx::boxes_under_budget(grid.nx, grid.ny, grid.nz, box->memory / arrays, held / arrays);
  qx::set_boxes(*box, grid, boxes);
  return ok;
}

Status add_boxes(const qx::FftRoute& route, const qx::AtomChoice& atoms, qx::PartSums& sums) {
  double*** density = qx_open_qxelecden_box();
  if (!density) return failed;
  const qxsubgrid* box = qx_get_qxsubgrid();
  if (!box) return failed;
  const std::int32_t nboxes = box->one_box ? 1 : box->boxes[2];
  const std::int32_t planes = box->one_box ? route.grid->nz : box->points[2];
  qx::PlacedAtoms placed;
  QX_TRY(qx::place_atoms(density, atoms, placed));
  if (placed.n == 0) return ok;
  for (std::int32_t shift = 0; shift < nboxes; ++shift) {
    QX_TRY(qx::fill_box(placed, shift, density));
    QX_TRY(qx::add_box(route, planes, shift, density, sums));
  }
  return ok;
}

Status add_parts(const qx::FftRoute& route, std::int32_t natom) {
  qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return failed;
  const std::int32_t nref = route.data->nreflections;
  for (std::int32_t part = 0; part < sf->nparts; ++part) QX_TRY(qx::open_sums(sf, part, nref));
  QX_TRY(choose_boxes(route, natom));
  std::int32_t of_atoms = 0;
  QX_TRY(qx::count_atom_parts(of_atoms));
  const molsys* system = qx_get_molsys();
  if (!system) return failed;
  for (std::int32_t part = 0; part < of_atoms; ++part) {
    qx::AtomChoice atoms = {0, 0, system->info.excluded, 0};
    QX_TRY(qx::atoms_of_part(part, atoms.first, atoms.last));
    QX_TRY(add_boxes(route, atoms, sf->parts[part]));
  }
  return of_atoms < sf->nparts ? qx::fill_partial(heading, *route.data, *sf) : ok;
}

// What a part's marked atoms scatter, by way of the separate sums.
Status add_marked(const qx::FftRoute& route, qxstructfact& sf, std::int32_t part,
                  const std::int32_t* marks, double* re, double* im) {
  qx::AtomChoice atoms = {0, 0, marks, 1};
  QX_TRY(qx::atoms_of_part(part, atoms.first, atoms.last));
  const bool any = marks + atoms.last != std::find(marks + atoms.first, marks + atoms.last, 1);
  if (!any) return ok;
  const std::int32_t n = route.data->nreflections;
  QX_TRY(qx::open_sums(&sf, -1, n));
  std::fill_n(sf.separate.re, n, 0.0);
  std::fill_n(sf.separate.im, n, 0.0);
  QX_TRY(add_boxes(route, atoms, sf.separate));
  return qx::add_scaled(heading, sf, *route.data, sf.parts[part], sf.separate, re, im);
}

}  // namespace

Status qx::marked_factors(const std::int32_t* marks, double* re, double* im) {
  FftRoute route;
  QX_TRY(prepare_route(heading, route));
  std::fill_n(re, route.data->nreflections, 0.0);
  std::fill_n(im, route.data->nreflections, 0.0);
  std::int32_t of_atoms = 0;
  QX_TRY(count_atom_parts(of_atoms));
  qxstructfact* sf = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxstructfact, sf,
                               "qxstructfact object has not been created yet "));
  if (sf->nref != route.data->nreflections || sf->nparts < of_atoms) {
    return fail(heading, "The structure factors have not been calculated for these reflections.");
  }
  for (std::int32_t part = 0; part < of_atoms; ++part) {
    QX_TRY(add_marked(route, *sf, part, marks, re, im));
  }
  return qx_delete_qxelecden();
}

Status qx_calc_system_struct_factor() {
  std::int32_t natom = 0;
  QX_TRY(make_ready(natom));
  qx::FftRoute route;
  QX_TRY(qx::prepare_route(heading, route));
  if (route.data->nreflections > 0) QX_TRY(add_parts(route, natom));
  return qx_delete_qxelecden();
}
