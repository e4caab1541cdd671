// Atoms onto the grid: the whole cell or one sub-box, added or taken off again.
#include "core/object.h"
#include "core/report.h"
#include "crystal/cell.h"
#include "grid/grid.h"
#include "model/atom_name.h"
#include "model/atom_terms.h"
#include "model/gradient.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using qx::AtomSources;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::SpreadGrid;
using qx::Status;

namespace {

enum class Box { full, sub };

// What spreading needs, and where it goes.
struct Job {
  const char* heading = nullptr;
  AtomSources atoms;
  const qxradcut* cut = nullptr;
  const qxcell* cell = nullptr;
  const qxrecicell* reciprocal = nullptr;
  SpreadGrid grid = {};
  double sign = 1.0;  // -1 takes density off
};

// The cell by the standard orthogonalisation, whatever frame the coordinates are in: distances are
// the same.
Status lay_out(Job& job, Box box, std::int32_t shift, double*** density) {
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid || grid->nx < 1) return fail(job.heading, "qxgrid object has not been created yet.");
  const qxsubgrid* subgrid = qx_get_qxsubgrid();
  if (!subgrid) return fail(job.heading, "qxsubgrid object has not been created yet.");
  const double(&f)[9] = job.cell->standard_frac2orth;
  SpreadGrid& out = job.grid;
  out = {grid->nx,
         grid->ny,
         grid->nz,
         0,
         1,
         grid->nz,
         f[0] / grid->nx,
         f[1] / grid->ny,
         f[4] / grid->ny,
         f[2] / grid->nz,
         f[5] / grid->nz,
         f[8] / grid->nz,
         nullptr};
  if (box == Box::sub) {
    out.z_first = shift;
    out.z_step = subgrid->boxes[2];
    out.nplanes = subgrid->points[2];
    if (shift < 0 || shift >= out.z_step) return fail(job.heading, "Invalid sub-box %d ", shift);
  }
  if (!density || !density[0])
    return fail(job.heading, "qxelecden object has not been created yet.");
  out.data = density[0][0];
  return ok;
}

// A cell a hundred times smaller than an atom is no cell; its lattice copies would never end.
Status check_reach(const Job& job) {
  constexpr double most_cells = 100.0;
  const qxrecicell& r = *job.reciprocal;
  const double cells = job.cut->largest * std::max({r.a, r.b, r.c});
  if (cells <= most_cells) return ok;
  return fail(job.heading, "The cut-off radius %f reaches over %g unit cells ", job.cut->largest,
              cells);
}

Status prepare(Job& job, const char* heading, Box box, std::int32_t shift, double*** density) {
  job.heading = heading;
  QX_TRY(qx::fetch_sources(heading, job.atoms));
  const qxexptab* table = qx_get_qxexptab();
  if (!table) return fail(heading, "qxexptab object has not been created yet.");
  job.cut = qx_get_qxradcut();
  if (!job.cut || job.cut->natom != job.atoms.system->natom || job.cut->natom < 1) {
    return fail(heading, "qxradcut object has not been created yet.");
  }
  job.cell = qx_get_qxcell();
  if (!job.cell || !(job.cell->volume > 0.0)) {
    return fail(heading, " qxcell object has not been created yet ");
  }
  job.reciprocal = qx_get_qxrecicell();
  if (!job.reciprocal) return fail(heading, " qxrecicell object has not been created yet ");
  QX_TRY(check_reach(job));
  return lay_out(job, box, shift, density);
}

// Fractional position of an atom, brought into the cell.
Status position(const Job& job, std::int32_t atom, double (&out)[3]) {
  const double(&m)[16] = job.cell->orth2frac;
  const double x = job.atoms.system->x[atom];
  const double y = job.atoms.system->y[atom];
  const double z = job.atoms.system->z[atom];
  for (int i = 0; i < 3; ++i) {
    const double f = m[4 * i] * x + m[4 * i + 1] * y + m[4 * i + 2] * z + m[4 * i + 3];
    out[i] = f - std::floor(f);
    if (!std::isfinite(f)) {
      return fail(job.heading, "The coordinates of atom %s are not numbers: %f %f %f ",
                  qx::name_of_atom(job.atoms.system->to_full[atom], atom + 1).text, x, y, z);
    }
  }
  return ok;
}

// Every lattice copy of a centre whose sphere can reach the cell; the box itself does not wrap.
template <class Spread>
void for_each_copy(const Job& job, const double (&centre)[3], double radius, Spread spread) {
  const double margin[3] = {radius * job.reciprocal->a, radius * job.reciprocal->b,
                            radius * job.reciprocal->c};
  int low[3];
  int high[3];
  for (int i = 0; i < 3; ++i) {
    low[i] = static_cast<int>(std::ceil(-margin[i] - centre[i]));
    high[i] = static_cast<int>(std::floor(1.0 + margin[i] - centre[i]));
  }
  for (int k = low[2]; k <= high[2]; ++k) {
    for (int j = low[1]; j <= high[1]; ++j) {
      for (int i = low[0]; i <= high[0]; ++i) {
        const double copy[3] = {centre[0] + i, centre[1] + j, centre[2] + k};
        spread(copy);
      }
    }
  }
}

// Tensor of an atom in the standard frame: Q U Q^T, Q the turn from the frame of the coordinates.
void standard_tensor(const Job& job, std::int32_t atom, double (&out)[6]) {
  const auto& u = qx::tensor_of(job.atoms, atom);
  for (int i = 0; i < 6; ++i) {
    out[i] = 0.0;
    for (int j = 0; j < 6; ++j) out[i] += job.cell->q_inverse_tensor[6 * i + j] * u[j];
  }
}

Status add_iso(const Job& job, std::int32_t atom, double* scratch) {
  double centre[3];
  QX_TRY(position(job, atom, centre));
  qx::Gaussians terms;
  QX_TRY(qx::iso_terms(job.heading, job.atoms, atom,
                       job.atoms.atomb->b_iso[job.atoms.atomb->index[atom]],
                       job.sign * job.atoms.atomocc->occupancy[atom], terms));
  const double radius = job.cut->radius[atom];
  for_each_copy(job, centre, radius, [&](const double(&copy)[3]) {
    qx::spread_iso(job.grid, terms, copy, radius, scratch);
  });
  return ok;
}

Status add_aniso(const Job& job, std::int32_t atom) {
  double centre[3];
  QX_TRY(position(job, atom, centre));
  double u[6];
  standard_tensor(job, atom, u);
  qx::AnisoGaussians terms;
  QX_TRY(qx::aniso_terms(job.heading, job.atoms, atom, u,
                         job.sign * job.atoms.atomocc->occupancy[atom], terms));
  const double radius = job.cut->radius[atom];
  for_each_copy(job, centre, radius,
                [&](const double(&copy)[3]) { qx::spread_aniso(job.grid, terms, copy, radius); });
  return ok;
}

// Atoms in the order of small boxes of the grid: neighbours in space touch the same lines of cache.
struct Placed {
  std::int64_t box;
  std::int32_t atom;
};

Status sort_atoms(const Job& job, bool aniso, qx::Tagged<Placed>& placed, std::int32_t& n) {
  constexpr std::int32_t edge = 8;  // grid points
  const std::int32_t natom = job.atoms.system->natom;
  placed = qx::Tagged<Placed>(static_cast<std::size_t>(natom), "pce_order");
  if (!placed) return failed;
  n = 0;
  for (std::int32_t i = 0; i < natom; ++i) {
    if (qx::is_aniso(job.atoms, i) != aniso) continue;
    double f[3];
    QX_TRY(position(job, i, f));
    const auto iz = static_cast<std::int64_t>(f[2] * job.grid.nz / edge);
    const auto iy = static_cast<std::int64_t>(f[1] * job.grid.ny / edge);
    placed[static_cast<std::size_t>(n++)] = {iz * job.grid.ny + iy, i};
  }
  std::sort(placed.get(), placed.get() + n, [](const Placed& a, const Placed& b) {
    return a.box != b.box ? a.box < b.box : a.atom < b.atom;
  });
  return ok;
}

Status open_scratch(const Job& job, qx::Tagged<double>& scratch) {
  scratch = qx::Tagged<double>(qx::spread_scratch_size(job.grid, job.cut->largest), "pce_comb");
  return scratch ? ok : failed;
}

Status check_kind(const Job& job, std::int32_t atom, bool aniso) {
  if (atom < 0 || atom >= job.atoms.system->natom) {
    return fail(job.heading, "There is no atom %d.\n", atom);
  }
  if (qx::is_aniso(job.atoms, atom) == aniso) return ok;
  return aniso ? fail(job.heading, "This is an isotropic atom %d.\n", atom)
               : fail(job.heading, "This is an anisotropic atom %d.\n", atom);
}

Status add_atom(const Job& job, std::int32_t atom, double* scratch) {
  if (!std::isfinite(job.atoms.atomocc->occupancy[atom])) {
    return fail(job.heading, "The occupancy of atom %s is not a number ",
                qx::name_of_atom(job.atoms.system->to_full[atom], atom + 1).text);
  }
  return qx::is_aniso(job.atoms, atom) ? add_aniso(job, atom) : add_iso(job, atom, scratch);
}

Status add_all(const Job& job, bool aniso) {
  qx::Tagged<double> scratch;
  QX_TRY(open_scratch(job, scratch));
  qx::Tagged<Placed> placed;
  std::int32_t n = 0;
  QX_TRY(sort_atoms(job, aniso, placed, n));
  for (std::int32_t i = 0; i < n; ++i) {
    QX_TRY(add_atom(job, placed[static_cast<std::size_t>(i)].atom, scratch.get()));
  }
  return ok;
}

Status add_listed(const Job& job, bool aniso, std::int32_t n, const std::int32_t* atoms) {
  if (!atoms) return add_all(job, aniso);
  qx::Tagged<double> scratch;
  QX_TRY(open_scratch(job, scratch));
  for (std::int32_t i = 0; i < n; ++i) {
    QX_TRY(check_kind(job, atoms[i], aniso));
    QX_TRY(add_atom(job, atoms[i], scratch.get()));
  }
  return ok;
}

Status remove_one(const char* heading, Box box, std::int32_t atom, std::int32_t shift,
                  double*** density) {
  Job job;
  QX_TRY(prepare(job, heading, box, shift, density));
  job.sign = -1.0;
  if (atom < 0 || atom >= job.atoms.system->natom) {
    return fail(heading, "There is no atom %d.\n", atom);
  }
  qx::Tagged<double> scratch;
  QX_TRY(open_scratch(job, scratch));
  return add_atom(job, atom, scratch.get());
}

}  // namespace

Status qx_calc_eden_atom_iso(std::int32_t n, const std::int32_t* atoms, double*** density) {
  Job job;
  QX_TRY(prepare(job, "qx_calc_eden_atom_iso():", Box::full, 0, density));
  return add_listed(job, false, n, atoms);
}

Status qx_calc_subg_eden_atom_iso(std::int32_t n, const std::int32_t* atoms, std::int32_t shift,
                                  double*** density) {
  Job job;
  QX_TRY(prepare(job, "qx_calc_subg_eden_atom_iso():", Box::sub, shift, density));
  return add_listed(job, false, n, atoms);
}

Status qx_calc_eden_atom_aniso(std::int32_t n, const std::int32_t* atoms, double*** density) {
  Job job;
  QX_TRY(prepare(job, "qx_calc_eden_atom_aniso():", Box::full, 0, density));
  return add_listed(job, true, n, atoms);
}

Status qx_calc_subg_eden_atom_aniso(std::int32_t n, const std::int32_t* atoms, std::int32_t shift,
                                    double*** density) {
  Job job;
  QX_TRY(prepare(job, "qx_calc_subg_eden_atom_aniso():", Box::sub, shift, density));
  return add_listed(job, true, n, atoms);
}

Status qx_calc_elec_den_map(std::int32_t shift, double*** density) {
  const qxsubgrid* subgrid = qx_get_qxsubgrid();
  if (!qx_exist_quorix()) return failed;
  Job job;
  const Box box = subgrid && !subgrid->one_box ? Box::sub : Box::full;
  QX_TRY(prepare(job, "qx_calc_elec_den_map():", box, shift, density));
  const auto points = static_cast<std::size_t>(job.grid.nx) *
                      static_cast<std::size_t>(job.grid.ny) *
                      static_cast<std::size_t>(job.grid.nplanes);
  std::memset(job.grid.data, 0, points * sizeof(double));
  if (job.atoms.atomb->niso > 0) QX_TRY(add_all(job, false));
  return job.atoms.atomb->naniso > 0 ? add_all(job, true) : ok;
}

Status qx_remove_eden_atom(std::int32_t atom, double*** density) {
  return remove_one("qx_remove_eden_atom():", Box::full, atom, 0, density);
}

Status qx_remove_subg_eden_atom(std::int32_t atom, std::int32_t shift, double*** density) {
  return remove_one("qx_remove_subg_eden_atom():", Box::sub, atom, shift, density);
}

Status qx_remove_elec_den_from_omit_region(const double box[6], double*** density) {
  Job job;
  QX_TRY(prepare(job, "qx_remove_elec_den_from_omit_region():", Box::full, 0, density));
  job.sign = -1.0;
  qx::Tagged<double> scratch;
  QX_TRY(open_scratch(job, scratch));
  for (std::int32_t i = 0; i < job.atoms.system->natom; ++i) {
    double f[3];
    QX_TRY(position(job, i, f));
    const bool inside = f[0] >= box[0] && f[0] <= box[1] && f[1] >= box[2] && f[1] <= box[3] &&
                        f[2] >= box[4] && f[2] <= box[5];
    if (inside) QX_TRY(add_atom(job, i, scratch.get()));
  }
  return ok;
}

namespace {

// Sums of the i-th Gaussian to derivatives: with S1, Sx.. the moments, drho/dx_centre = rho P r and
// drho/dM = rho (P r r^T P - P) / 2; off-diagonal elements of U count twice.
void add_gradient(const double (&p)[6], const double (&m)[10], double gradient[10]) {
  const double r[3] = {m[1], m[2], m[3]};
  const double rr[3][3] = {{m[4], m[7], m[8]}, {m[7], m[5], m[9]}, {m[8], m[9], m[6]}};
  const double full[3][3] = {{p[0], p[3], p[4]}, {p[3], p[1], p[5]}, {p[4], p[5], p[2]}};
  constexpr int pairs[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) gradient[i] += full[i][j] * r[j];
  }
  for (int t = 0; t < 6; ++t) {
    const auto [a, b] = pairs[t];
    double value = -full[a][b] * m[0];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) value += full[a][i] * rr[i][j] * full[j][b];
    }
    gradient[3 + t] += (t < 3 ? 0.5 : 1.0) * value;
  }
  gradient[9] += m[0];
}

// Derivatives in the standard frame to the frame of the coordinates.
void turn_gradient(const qxcell* cell, double gradient[10]) {
  double out[9] = {};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) out[i] += cell->q[3 * j + i] * gradient[j];
  }
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) out[3 + i] += cell->q_inverse_tensor[6 * j + i] * gradient[3 + j];
  }
  std::copy_n(out, 9, gradient);
}

Status gradient_of(const char* heading, Box box, std::int32_t atom, std::int32_t shift,
                   double*** map, double gradient[10]) {
  Job job;
  QX_TRY(prepare(job, heading, box, shift, map));
  QX_TRY(check_kind(job, atom, true));
  double centre[3];
  QX_TRY(position(job, atom, centre));
  double u[6];
  standard_tensor(job, atom, u);
  qx::AnisoGaussians terms;
  QX_TRY(qx::aniso_terms(heading, job.atoms, atom, u, 1.0, terms));
  const double radius = job.cut->radius[atom];
  double moments[qx::most_gaussians][10] = {};
  for_each_copy(job, centre, radius, [&](const double(&copy)[3]) {
    qx::moments_aniso(job.grid, terms, copy, radius, moments);
  });
  std::fill_n(gradient, 10, 0.0);
  for (std::int32_t i = 0; i < terms.n; ++i) add_gradient(terms.precision[i], moments[i], gradient);
  const double occupancy = job.atoms.atomocc->occupancy[atom];
  for (int i = 0; i < 9; ++i) gradient[i] *= occupancy;
  turn_gradient(job.cell, gradient);
  return ok;
}

}  // namespace

Status qx_calc_geden_atom_iso(std::int32_t atom, double*** map, double gradient[5]) {
  Job job;
  QX_TRY(prepare(job, "qx_calc_geden_atom_iso():", Box::full, 0, map));
  QX_TRY(check_kind(job, atom, false));
  double centre[3];
  QX_TRY(position(job, atom, centre));
  qx::Gaussians terms;
  QX_TRY(qx::iso_terms(job.heading, job.atoms, atom,
                       job.atoms.atomb->b_iso[job.atoms.atomb->index[atom]], 1.0, terms));
  const double radius = job.cut->radius[atom];
  double moments[qx::most_gaussians][5] = {};
  for_each_copy(job, centre, radius, [&](const double(&copy)[3]) {
    qx::moments_iso(job.grid, terms, copy, radius, moments);
  });
  double values[5];
  qx::iso_gradient(terms, moments, values);
  const double occupancy = job.atoms.atomocc->occupancy[atom];
  // Derivatives in the standard frame to the frame of the coordinates.
  for (int i = 0; i < 3; ++i) {
    gradient[i] = 0.0;
    for (int j = 0; j < 3; ++j) gradient[i] += occupancy * job.cell->q[3 * j + i] * values[j];
  }
  gradient[3] = occupancy * values[3];
  gradient[4] = values[4];
  return ok;
}

Status qx_calc_geden_atom_aniso(std::int32_t atom, double*** map, double gradient[10]) {
  return gradient_of("qx_calc_geden_atom_aniso():", Box::full, atom, 0, map, gradient);
}

Status qx_calc_subg_geden_atom_aniso(std::int32_t atom, std::int32_t shift, double*** map,
                                     double gradient[10]) {
  return gradient_of("qx_calc_subg_geden_atom_aniso():", Box::sub, atom, shift, map, gradient);
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
