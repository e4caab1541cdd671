// The refinement target: its object, its value, its gradient by the atoms.
#include "refine/target.h"

#include "core/object.h"
#include "core/open_output.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/reflections.h"
#include "grid/grid.h"
#include "model/density_boxes.h"
#include "model/molsys.h"
#include "refine/gradient_map.h"
#include "refine/reciprocal.h"
#include "scaling/observed.h"
#include "sf/partition.h"

#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/memory.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::ComplexF;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

qxtargetfunc* qx_get_qxtargetfunc() { return qx::slot(qx_get_refsys(), &refsys::target); }
Status qx_set_qxtargetfunc(qxtargetfunc* object) {
  return qx::install(qx_get_refsys(), &refsys::target, object);
}
Status qx_new_qxtargetfunc() {
  return qx::create_in(qx_delete_qxtargetfunc, qx_set_qxtargetfunc, "pns_target");
}
Status qx_delete_qxtargetfunc() {
  qxtargetfunc* target = qx_get_qxtargetfunc();
  if (!target) return ok;
  QX_TRY(qx::release(target->gradient));
  return qx::remove_from(target, qx_set_qxtargetfunc);
}

Status qx_set_qxtargetfunc_type(std::int32_t type) {
  constexpr const char* heading = "qx_set_qxtargetfunc_type():";
  qxtargetfunc* target = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxtargetfunc, target,
                               "qxtargetfunc object has not been created yet."));
  if (type != qx::least_squares_target && type != qx::likelihood_target) {
    return fail(heading, "There is no target of type %d.", type);
  }
  target->type = static_cast<qx::TargetType>(type);
  target->calculated = false;
  return ok;
}

namespace {

Status fetch(const char* heading, qxtargetfunc*& target, const qxrefdata*& data) {
  QX_TRY(qx::require_of_engine(
      heading,
      qx::need(qx_get_qxtargetfunc, target, "qxtargetfunc object has not been created yet."),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  return ok;
}

Status scaled_factors(const qxrefdata& data, ComplexF& f) {
  QX_TRY(qx::open_f(data.nreflections, f));
  return qx_calc_total_structure_factor(f.re.get(), f.im.get());
}

}  // namespace

Status qx_calc_target(double* value) {
  constexpr const char* heading = "qx_calc_target():";
  qxtargetfunc* target = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, target, data));
  ComplexF f;
  QX_TRY(scaled_factors(*data, f));
  QX_TRY(qx::reciprocal_target(heading, target->type, *data, f, target->value, nullptr));
  target->calculated = true;
  *value = target->value;
  return ok;
}

namespace {

constexpr const char* gradient_heading = "qx_calc_target_gradient():";

// Derivatives by the atoms' structure factors: along the phase of F, times k_tot. In the place of
// F.
Status derivatives_by_f(const qxrefdata& data, qx::TargetType type, ComplexF& f, double& value) {
  const auto size = static_cast<std::size_t>(data.nreflections);
  Tagged<double> by_amplitude(size, "ptg_df");
  if (!by_amplitude) return failed;
  QX_TRY(qx::reciprocal_target(gradient_heading, type, data, f, value, by_amplitude.get()));
  Tagged<double> k_tot(size, "ptg_k");
  if (!k_tot) return failed;
  QX_TRY(qx_calc_total_scale(k_tot.get()));
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double amplitude = f.amplitude(i);
    const double factor = amplitude > 0.0 ? by_amplitude[at] * k_tot[at] / amplitude : 0.0;
    f.re[at] *= factor;
    f.im[at] *= factor;
  }
  return ok;
}

// The array [z][y][x] of row pointers over one block that the density routines take.
Status open_map(double***& map) {
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid)
    return qx_exist_quorix() ? fail(gradient_heading, "qxgrid object has not been created yet.")
                             : failed;
  map = xopen_3d_double(grid->nz, grid->ny, grid->nx, "ptg_map");
  return map ? ok : failed;
}

// B and tensor derivatives of fixed parameters, and those of frozen atoms, are 0.
void hold_fixed(const molsys& system, const qxatomb& atomb, const qxatomocc& atomocc,
                std::int32_t atom, qx_atom_gradient& g) {
  if (system.info.excluded && system.info.excluded[atom] != 0) g = {};
  if (system.frozen && system.frozen[atom] == 0) std::fill_n(g.xyz, 3, 0.0);
  if (atomb.fixed && atomb.fixed[atom] != 0) {
    g.b = 0.0;
    std::fill_n(g.u, 6, 0.0);
  }
  if (atomocc.fixed && atomocc.fixed[atom] != 0) g.occupancy = 0.0;
}

Status gradients_from(double*** map, std::int32_t first, std::int32_t last, qx_atom_gradient* out) {
  const molsys* system = qx_get_molsys();
  if (!system)
    return qx_exist_quorix() ? fail(gradient_heading, "molsys object has not been created yet ")
                             : failed;
  const qxatomb* atomb = qx_get_qxatomb();
  if (!atomb)
    return qx_exist_quorix() ? fail(gradient_heading, "qxatomb object has not been created yet.")
                             : failed;
  const qxatomocc* atomocc = qx_get_qxatomocc();
  if (!atomocc)
    return qx_exist_quorix() ? fail(gradient_heading, "qxatomocc object has not been created yet.")
                             : failed;
  QX_TRY(qx::density_gradients(map, first, last, out));
  for (std::int32_t i = first; i < last; ++i) {
    hold_fixed(*system, *atomb, *atomocc, i, out[i]);
  }
  return ok;
}

// Derivatives by the sums of a part, given those by F.
void derivatives_by_part(const qxrefdata& data, const qx::PartSums& part, const ComplexF& by_f,
                         const ComplexF& out) {
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double s = data.s_length[i];
    const double factor = part.scale * std::exp(-0.25 * part.b * s * s);
    out.re[at] = factor * by_f.re[at];
    out.im[at] = factor * by_f.im[at];
  }
}

// Part after part: each sees the map that its own scale makes.
Status gradients_by_part(const qxrefdata& data, const ComplexF& by_f, double*** map,
                         qx_atom_gradient* out) {
  const qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return failed;
  std::int32_t of_atoms = 0;
  QX_TRY(qx::count_atom_parts(of_atoms));
  ComplexF by_part;
  QX_TRY(qx::open_f(data.nreflections, by_part));
  for (std::int32_t i = 0; i < of_atoms; ++i) {
    const qx::PartSums& part = sf->parts[i];
    const bool same = i > 0 && part.scale == sf->parts[i - 1].scale && part.b == sf->parts[i - 1].b;
    if (!same) {
      derivatives_by_part(data, part, by_f, by_part);
      QX_TRY(
          qx::gradient_map(gradient_heading, data, by_part.re.get(), by_part.im.get(), map[0][0]));
    }
    std::int32_t first = 0;
    std::int32_t last = 0;
    QX_TRY(qx::atoms_of_part(i, first, last));
    QX_TRY(gradients_from(map, first, last, out));
  }
  return ok;
}

}  // namespace

Status qx_calc_target_gradient() {
  qxtargetfunc* target = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(fetch(gradient_heading, target, data));
  ComplexF f;
  QX_TRY(scaled_factors(*data, f));
  QX_TRY(derivatives_by_f(*data, target->type, f, target->value));
  target->calculated = true;
  double*** map = nullptr;
  QX_TRY(open_map(map));
  const molsys* system = nullptr;
  QX_TRY(qx::require_of_engine(gradient_heading, qx_get_molsys, system,
                               "molsys object has not been created yet "));
  const std::int32_t natom = system->natom;
  Tagged<qx_atom_gradient> gradient(static_cast<std::size_t>(natom), "ptg_grad");
  if (!gradient) return failed;
  QX_TRY(gradients_by_part(*data, f, map, gradient.get()));
  QX_TRY(xfree_3d_double(map));
  QX_TRY(qx::release(target->gradient));
  target->gradient = gradient.release();
  target->natom = natom;
  return ok;
}

const qx_atom_gradient* qx_get_target_gradient(std::int32_t* natom) {
  const qxtargetfunc* target = qx_get_qxtargetfunc();
  *natom = target ? target->natom : 0;
  return target ? target->gradient : nullptr;
}

Status qx_write_target_gradient(const char* path) {
  constexpr const char* heading = "qx_write_target_gradient():";
  std::int32_t natom = 0;
  const qx_atom_gradient* gradient = qx_get_target_gradient(&natom);
  if (!qx_exist_quorix()) return failed;
  if (!gradient) return fail(heading, "The gradient has not been calculated yet.");
  qx::OutputFile file;
  QX_TRY(qx::open_output(heading, path, file));
  std::fprintf(file.stream(), "# atom dT/dx dT/dy dT/dz dT/dB dT/dU11 U22 U33 U12 U13 U23 dT/dq\n");
  for (std::int32_t i = 0; i < natom; ++i) {
    const qx_atom_gradient& g = gradient[i];
    std::fprintf(file.stream(), "%7d", i + 1);
    for (const double value : g.xyz) std::fprintf(file.stream(), " %15.8e", value);
    std::fprintf(file.stream(), " %15.8e", g.b);
    for (const double value : g.u) std::fprintf(file.stream(), " %15.8e", value);
    std::fprintf(file.stream(), " %15.8e\n", g.occupancy);
  }
  if (!file.commit()) return fail(heading, "Failed to write file \"%s\" ", path);
  return ok;
}

namespace {

constexpr const char* check_heading = "qx_check_target_gradient():";

// Central difference of the target by one number of the model.
Status difference(double& parameter, double step, double& slope) {
  const double saved = parameter;
  double values[2];
  for (int side = 0; side < 2; ++side) {
    parameter = saved + (side == 0 ? -step : step);
    QX_TRY(qx::recalculate_factors(check_heading));
    QX_TRY(qx_calc_target(&values[side]));
  }
  parameter = saved;
  slope = (values[1] - values[0]) / (2.0 * step);
  return ok;
}

Status check_atom(std::int32_t atom, const qx_atom_gradient& g) {
  molsys* system = qx_get_molsys();
  if (!system) return failed;
  const qxatomb* atomb = qx_get_qxatomb();
  if (!atomb) return failed;
  const qxatomocc* atomocc = qx_get_qxatomocc();
  if (!atomocc) return failed;
  const bool aniso = atomb->index[atom] < 0;
  double& displacement =
      aniso ? atomb->u_aniso[~atomb->index[atom]][0] : atomb->b_iso[atomb->index[atom]];
  struct Row {
    const char* name;
    double* parameter;
    double step, analytic;
  };
  const Row rows[] = {
      {"x", system->x + atom, 0.01, g.xyz[0]},
      {"y", system->y + atom, 0.01, g.xyz[1]},
      {"z", system->z + atom, 0.01, g.xyz[2]},
      {aniso ? "U11" : "B", &displacement, aniso ? 0.002 : 0.2, aniso ? g.u[0] : g.b},
      {"q", atomocc->occupancy + atom, 0.02, g.occupancy}};
  for (const Row& row : rows) {
    double slope = 0.0;
    QX_TRY(difference(*row.parameter, row.step, slope));
    qx::say("%7d  %-3s  %15.8e  %15.8e\n", atom + 1, row.name, row.analytic, slope);
  }
  return ok;
}

}  // namespace

Status qx_check_target_gradient(std::int32_t natoms) {
  std::int32_t natom = 0;
  if (natoms < 1)
    return fail(check_heading, "The number of atoms to check is not above 0: %d ", natoms);
  QX_TRY(qx_calc_target_gradient());
  const qx_atom_gradient* gradient = qx_get_target_gradient(&natom);
  if (!gradient) return failed;
  qx::say("   atom  by          gradient       difference\n");
  const std::int32_t count = std::min(natoms, natom);
  for (std::int32_t i = 0; i < count; ++i) {
    const auto atom = static_cast<std::int32_t>(std::int64_t{natom} * i / count);
    QX_TRY(check_atom(atom, gradient[atom]));
  }
  QX_TRY(qx::recalculate_factors(check_heading));
  double value = 0.0;
  return qx_calc_target(&value);
}
