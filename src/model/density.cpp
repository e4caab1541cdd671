// Atoms onto the grid: the whole cell or one sub-box, added or taken off again.
#include "core/object.h"
#include "core/report.h"
#include "grid/grid.h"
#include "model/density_boxes.h"
#include "model/density_job.h"
#include "model/density_slabs.h"

#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cstring>

using qx::Box;
using qx::DensityJob;
using qx::fail;
using qx::ok;
using qx::PlacedAtom;
using qx::PlacedAtoms;
using qx::Status;

namespace qx {

namespace {

// A key that orders atoms by small boxes of the grid.
struct Key {
  std::int64_t box;
  std::int32_t atom;
};

std::int64_t box_of(const DensityJob& job, const double (&at)[3]) {
  constexpr std::int32_t edge = 8;  // grid points
  const auto iz = static_cast<std::int64_t>(at[2] * job.grid.nz / edge);
  const auto iy = static_cast<std::int64_t>(at[1] * job.grid.ny / edge);
  return iz * job.grid.ny + iy;
}

// All atoms but those that are left out.
AtomChoice all_atoms(const DensityJob& job) {
  return {0, job.atoms.system->natom, job.atoms.system->info.excluded, 0};
}

Status sort_atoms(const DensityJob& job, const AtomChoice& choice, PlacedAtoms& placed) {
  placed.n = 0;
  if (choice.last <= choice.first) return ok;
  const auto size = static_cast<std::size_t>(choice.last - choice.first);
  Tagged<Key> keys(size, "pce_order");
  if (!keys) return failed;
  placed.atoms = Tagged<PlacedAtom>(size, "pce_placed");
  if (!placed.atoms) return failed;
  double at[3];
  std::int32_t n = 0;
  for (std::int32_t i = choice.first; i < choice.last; ++i) {
    if (!choice.has(i)) continue;
    QX_TRY(position(job, i, at));
    keys[static_cast<std::size_t>(n++)] = {box_of(job, at), i};
  }
  std::sort(keys.get(), keys.get() + n, [](const Key& a, const Key& b) {
    return a.box != b.box ? a.box < b.box : a.atom < b.atom;
  });
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    placed.atoms[i].atom = keys[i].atom;
    QX_TRY(position(job, keys[i].atom, placed.atoms[i].at));
  }
  placed.n = n;
  return ok;
}

// Every atom onto the cleared box.
Status fill(const DensityJob& job, const PlacedAtoms& placed) {
  const std::int32_t threads = threads_for_atoms(job, placed.n);
  if (threads > 1) return fill_slabs(job, placed, threads);
  const auto points = static_cast<std::size_t>(job.grid.nx) *
                      static_cast<std::size_t>(job.grid.ny) *
                      static_cast<std::size_t>(job.grid.nplanes);
  std::memset(job.grid.data, 0, points * sizeof(double));
  Tagged<double> scratch;
  QX_TRY(open_scratch(job, scratch));
  for (std::int32_t i = 0; i < placed.n; ++i) {
    const PlacedAtom& atom = placed.atoms[static_cast<std::size_t>(i)];
    QX_TRY(spread_atom(job, atom.atom, atom.at, scratch.get()));
  }
  return ok;
}

constexpr const char* map_heading = "qx_calc_elec_den_map():";

Box box_in_use() {
  const qxsubgrid* subgrid = qx_get_qxsubgrid();
  return subgrid && !subgrid->one_box ? Box::sub : Box::full;
}

}  // namespace

Status place_atoms(double*** density, const AtomChoice& choice, PlacedAtoms& placed) {
  const Box box = box_in_use();
  if (!qx_exist_quorix()) return failed;
  DensityJob job;
  QX_TRY(prepare_job(job, map_heading, box, 0, density));
  return sort_atoms(job, choice, placed);
}

Status fill_box(const PlacedAtoms& placed, std::int32_t shift, double*** density) {
  const Box box = box_in_use();
  if (!qx_exist_quorix()) return failed;
  DensityJob job;
  QX_TRY(prepare_job(job, map_heading, box, shift, density));
  return fill(job, placed);
}

}  // namespace qx

namespace {

Status add_all(const DensityJob& job, bool aniso) {
  PlacedAtoms placed;
  QX_TRY(qx::sort_atoms(job, qx::all_atoms(job), placed));
  qx::Tagged<double> scratch;
  QX_TRY(qx::open_scratch(job, scratch));
  for (std::int32_t i = 0; i < placed.n; ++i) {
    const PlacedAtom& atom = placed.atoms[static_cast<std::size_t>(i)];
    if (qx::is_aniso(job.atoms, atom.atom) != aniso) continue;
    QX_TRY(qx::spread_atom(job, atom.atom, atom.at, scratch.get()));
  }
  return ok;
}

Status add_listed(const DensityJob& job, bool aniso, std::int32_t n, const std::int32_t* atoms) {
  if (!atoms) return add_all(job, aniso);
  qx::Tagged<double> scratch;
  QX_TRY(qx::open_scratch(job, scratch));
  for (std::int32_t i = 0; i < n; ++i) {
    QX_TRY(qx::check_kind(job, atoms[i], aniso));
    QX_TRY(qx::spread_atom(job, atoms[i], scratch.get()));
  }
  return ok;
}

Status remove_one(const char* heading, Box box, std::int32_t atom, std::int32_t shift,
                  double*** density) {
  DensityJob job;
  QX_TRY(qx::prepare_job(job, heading, box, shift, density));
  job.sign = -1.0;
  if (atom < 0 || atom >= job.atoms.system->natom) {
    return fail(heading, "There is no atom %d.\n", atom);
  }
  qx::Tagged<double> scratch;
  QX_TRY(qx::open_scratch(job, scratch));
  return qx::spread_atom(job, atom, scratch.get());
}

}  // namespace

Status qx_calc_eden_atom_iso(std::int32_t n, const std::int32_t* atoms, double*** density) {
  DensityJob job;
  QX_TRY(qx::prepare_job(job, "qx_calc_eden_atom_iso():", Box::full, 0, density));
  return add_listed(job, false, n, atoms);
}

Status qx_calc_subg_eden_atom_iso(std::int32_t n, const std::int32_t* atoms, std::int32_t shift,
                                  double*** density) {
  DensityJob job;
  QX_TRY(qx::prepare_job(job, "qx_calc_subg_eden_atom_iso():", Box::sub, shift, density));
  return add_listed(job, false, n, atoms);
}

Status qx_calc_eden_atom_aniso(std::int32_t n, const std::int32_t* atoms, double*** density) {
  DensityJob job;
  QX_TRY(qx::prepare_job(job, "qx_calc_eden_atom_aniso():", Box::full, 0, density));
  return add_listed(job, true, n, atoms);
}

Status qx_calc_subg_eden_atom_aniso(std::int32_t n, const std::int32_t* atoms, std::int32_t shift,
                                    double*** density) {
  DensityJob job;
  QX_TRY(qx::prepare_job(job, "qx_calc_subg_eden_atom_aniso():", Box::sub, shift, density));
  return add_listed(job, true, n, atoms);
}

Status qx_calc_elec_den_map(std::int32_t shift, double*** density) {
  const Box box = qx::box_in_use();
  if (!qx_exist_quorix()) return qx::failed;
  DensityJob job;
  QX_TRY(qx::prepare_job(job, qx::map_heading, box, shift, density));
  PlacedAtoms placed;
  QX_TRY(qx::sort_atoms(job, qx::all_atoms(job), placed));
  return qx::fill(job, placed);
}

Status qx_remove_eden_atom(std::int32_t atom, double*** density) {
  return remove_one("qx_remove_eden_atom():", Box::full, atom, 0, density);
}

Status qx_remove_subg_eden_atom(std::int32_t atom, std::int32_t shift, double*** density) {
  return remove_one("qx_remove_subg_eden_atom():", Box::sub, atom, shift, density);
}

Status qx_remove_elec_den_from_omit_region(const double box[6], double*** density) {
  DensityJob job;
  QX_TRY(qx::prepare_job(job, "qx_remove_elec_den_from_omit_region():", Box::full, 0, density));
  job.sign = -1.0;
  qx::Tagged<double> scratch;
  QX_TRY(qx::open_scratch(job, scratch));
  for (std::int32_t i = 0; i < job.atoms.system->natom; ++i) {
    double f[3];
    QX_TRY(qx::position(job, i, f));
    const bool inside = f[0] >= box[0] && f[0] <= box[1] && f[1] >= box[2] && f[1] <= box[3] &&
                        f[2] >= box[4] && f[2] <= box[5];
    if (inside) QX_TRY(qx::spread_atom(job, i, scratch.get()));
  }
  return ok;
}

double*** qx_open_qxelecden_box() {
  constexpr const char* heading = "qx_open_qxelecden_box():";
  if (!qx_get_qxelecden()) {
    if (!qx_exist_quorix() || qx_new_qxelecden() != ok) return nullptr;
  }
  qxelecden* box = qx_get_qxelecden();
  if (!box) return nullptr;
  const qxgrid* grid = qx_get_qxgrid();
  const qxsubgrid* subgrid = grid ? qx_get_qxsubgrid() : nullptr;
  if (!subgrid) {
    (void)fail(heading, "qxgrid object has not been created yet.");
    return nullptr;
  }
  const std::int32_t nz = subgrid->one_box ? grid->nz : subgrid->points[2];
  if (box->density && box->nx == grid->nx && box->ny == grid->ny && box->nz == nz) {
    return box->density;
  }
  double*** old = box->density;
  box->density = nullptr;
  if (xfree_3d_double(old) != ok) return nullptr;
  double*** density = xopen_3d_double(nz, grid->ny, grid->nx, "poe_eden");
  if (!density) return nullptr;
  *box = {grid->nx, grid->ny, nz, density};
  return density;
}
