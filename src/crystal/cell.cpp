// The unit cell and its reciprocal: constants in, everything derived from them by the checker.
#include "crystal/cell.h"

#include "core/constants.h"
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/cell_geometry.h"
#include "crystal/crystal.h"
#include "crystal/matrix.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* no_cell = "qxcell object has not been created yet ";

struct Edges {
  explicit Edges(const qxcell& cell) : values{cell.a, cell.b, cell.c} {}
  double values[3];
};

qx::CellAngles angles_of(const qxcell& cell) {
  return {cell.cos_alpha, cell.cos_beta, cell.cos_gamma,
          cell.sin_alpha, cell.sin_beta, cell.sin_gamma};
}

double relative_height(const qxcell& cell, double sine) {
  return cell.volume / (cell.a * cell.b * cell.c * sine);
}

bool has_user_matrix(const qxcell& cell) {
  double sum = 0;
  for (int i = 0; i < 12; ++i) sum += std::fabs(cell.orth2frac[i]);
  return cell.user_matrix && !(sum < 1e-10);
}

}  // namespace

Status qx_new_qxcell() { return qx::create_in(qx_delete_qxcell, qx_set_qxcell, "pnrp_cell"); }

Status qx_delete_qxcell() { return qx::remove_from(qx_get_qxcell(), qx_set_qxcell); }

qxcell* qx_get_qxcell() { return qx::slot(qx_get_qxxcry(), &qxxcry::cell); }

Status qx_set_qxcell(qxcell* object) { return qx::install(qx_get_qxxcry(), &qxxcry::cell, object); }

Status qx_new_qxrecicell() {
  return qx::create_in(qx_delete_qxrecicell, qx_set_qxrecicell, "pnrp_rcell");
}

Status qx_delete_qxrecicell() { return qx::remove_from(qx_get_qxrecicell(), qx_set_qxrecicell); }

qxrecicell* qx_get_qxrecicell() { return qx::slot(qx_get_qxxcry(), &qxxcry::recicell); }

Status qx_set_qxrecicell(qxrecicell* object) {
  return qx::install(qx_get_qxxcry(), &qxxcry::recicell, object);
}

Status qx_set_qxcell_cell(const float cell[6]) {
  qxcell* object = qx_get_qxcell();
  if (!object) return fail("qx_set_qxcell_cell():", "%s", no_cell);
  object->a = cell[0];
  object->b = cell[1];
  object->c = cell[2];
  object->alpha = cell[3];
  object->beta = cell[4];
  object->gamma = cell[5];
  return ok;
}

Status qx_set_qxcell_orth2frac(const float m[12]) {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_orth2frac():", "%s", no_cell);
  std::copy_n(m, 12, cell->orth2frac);
  std::fill_n(cell->orth2frac + 12, 3, 0.0);
  cell->orth2frac[15] = 1;
  cell->user_matrix = true;
  return ok;
}

Status qx_run_qxcell_checker() {
  constexpr const char* here = "qx_run_qxcell_checker():";
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "%s", no_cell);
  const Edges edges(*cell);
  if (std::any_of(edges.values, edges.values + 3, [](double e) { return e < 1e-10; })) {
    return fail(here, " Failed to set up cell. ");
  }
  if (cell->alpha == 0 && cell->beta == 0 && cell->gamma == 0) {
    qx::say("WARNING: alpha, beta and gamma angles will be assigned 90 degree. \n");
    cell->alpha = cell->beta = cell->gamma = 90;
  }
  const double angles[3] = {cell->alpha, cell->beta, cell->gamma};
  if (!qx::possible_cell(edges.values, angles)) {
    return fail(here, " Failed to set up cell. \n No cell has the constants %g %g %g %g %g %g ",
                cell->a, cell->b, cell->c, cell->alpha, cell->beta, cell->gamma);
  }
  return qx_set_qxcell_others();
}

Status qx_set_qxcell_others() {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require("qx_set_qxcell_others():", qx_get_qxcell, cell,
                     " qxcell object has not been created yet "));
  QX_TRY(qx_set_qxcell_csang());
  QX_TRY(qx_set_qxcell_volume());
  QX_TRY(qx_set_qxcell_delta());
  QX_TRY(qx_set_qxcell_omega());
  QX_TRY(qx_set_qxcell_theta());
  if (has_user_matrix(*cell)) {
    QX_TRY(qx_set_qxcell_frac2orth());
  } else {
    QX_TRY(qx_set_qxcell_frac2orth_default());
    QX_TRY(qx_set_qxcell_orth2frac_default());
  }
  QX_TRY(qx_set_qxrecicell_from_realspace());
  QX_TRY(qx_set_qxcell_operation_trans());
  return qx_set_qxcell_gmetric();
}

Status qx_set_qxcell_csang() {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_csang():", "%s", no_cell);
  const qx::CellAngles angles = qx::cell_angles(cell->alpha, cell->beta, cell->gamma);
  cell->cos_alpha = angles.cos_alpha;
  cell->cos_beta = angles.cos_beta;
  cell->cos_gamma = angles.cos_gamma;
  cell->sin_alpha = angles.sin_alpha;
  cell->sin_beta = angles.sin_beta;
  cell->sin_gamma = angles.sin_gamma;
  cell->inv_sin_alpha = 1 / cell->sin_alpha;
  cell->inv_sin_beta = 1 / cell->sin_beta;
  cell->inv_sin_gamma = 1 / cell->sin_gamma;
  return ok;
}

Status qx_set_qxcell_volume() {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_volume():", "%s", no_cell);
  cell->volume =
      cell->a * cell->b * cell->c * std::sqrt(qx::relative_volume_squared(angles_of(*cell)));
  return ok;
}

Status qx_set_qxcell_delta() {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_delta():", "%s", no_cell);
  cell->delta = relative_height(*cell, cell->sin_alpha);
  cell->delta_complement = qx::complement(cell->delta);
  return ok;
}

Status qx_set_qxcell_omega() {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_omega():", "%s", no_cell);
  cell->omega = relative_height(*cell, cell->sin_beta);
  cell->omega_complement = qx::complement(cell->omega);
  return ok;
}

Status qx_set_qxcell_theta() {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_theta():", "%s", no_cell);
  cell->theta = relative_height(*cell, cell->sin_gamma);
  cell->theta_complement = qx::complement(cell->theta);
  return ok;
}

Status qx_set_qxcell_frac2orth_default() {
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail("qx_set_qxcell_frac2orth_default():", "%s", no_cell);
  double rotation[9];
  qx::standard_frac2orth(Edges(*cell).values, angles_of(*cell),
                         cell->volume / (cell->a * cell->b * cell->sin_gamma), rotation);
  qx::affine_of(rotation, cell->frac2orth);
  return ok;
}

Status qx_set_qxcell_orth2frac_default() {
  constexpr const char* here = "qx_set_qxcell_orth2frac_default():";
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "%s", no_cell);
  double rotation[9];
  qx::rotation_of(cell->frac2orth, rotation);
  if (!qx::invert33(rotation, rotation)) {
    return fail(here, "Failed to inverse fraction-to-orthogonal matrix ");
  }
  qx::affine_of(rotation, cell->orth2frac);
  return ok;
}

Status qx_set_qxcell_frac2orth() {
  constexpr const char* here = "qx_set_qxcell_frac2orth():";
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "%s", no_cell);
  if (!qx::invert_affine(cell->orth2frac, cell->frac2orth)) {
    return fail(here, "Failed to inverse orthogonal-to-fraction matrix ");
  }
  return ok;
}

Status qx_set_qxrecicell_from_realspace() {
  constexpr const char* here = "qx_set_qxrecicell_from_realspace():";
  const qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "%s", no_cell);
  qxrecicell* recicell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxrecicell, recicell,
                     "qxrecicell object has not been created yet "));
  const qx::ReciprocalCell r =
      qx::reciprocal_cell(Edges(*cell).values, angles_of(*cell), cell->volume);
  recicell->a = r.edges[0];
  recicell->b = r.edges[1];
  recicell->c = r.edges[2];
  recicell->cos_alpha = r.cosines[0];
  recicell->cos_beta = r.cosines[1];
  recicell->cos_gamma = r.cosines[2];
  recicell->alpha = std::acos(r.cosines[0]) * 180.0 / qx::pi;
  recicell->beta = std::acos(r.cosines[1]) * 180.0 / qx::pi;
  recicell->gamma = std::acos(r.cosines[2]) * 180.0 / qx::pi;
  // Kept: sines of degrees taken as radians; nothing reads them.
  recicell->sin_alpha = std::sin(recicell->alpha);
  recicell->sin_beta = std::sin(recicell->beta);
  recicell->sin_gamma = std::sin(recicell->gamma);
  recicell->volume = 1 / cell->volume;
  qx::resolution_coefficients(r, recicell->resolution);
  return ok;
}

Status qx_set_qxcell_operation_trans() {
  constexpr const char* here = "qx_set_qxcell_operation_trans():";
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "%s", no_cell);
  qx::standard_frac2orth(Edges(*cell).values, angles_of(*cell), cell->c * cell->theta,
                         cell->standard_frac2orth);
  double to_frac[9];
  double to_orth[9];
  qx::rotation_of(cell->orth2frac, to_frac);
  qx::rotation_of(cell->frac2orth, to_orth);
  qx::multiply33(cell->standard_frac2orth, to_frac, cell->q);
  if (!qx::invert33(cell->standard_frac2orth, cell->standard_orth2frac) ||
      !qx::invert33(cell->q, cell->q_inverse)) {
    return fail(here, " Failed to perform matrix inversion.");
  }
  qx::tensor_matrix_rurt(to_frac, cell->orth2frac_tensor);
  qx::tensor_matrix_rurt(to_orth, cell->frac2orth_tensor);
  qx::tensor_matrix_rtur(cell->q, cell->q_tensor);
  qx::tensor_matrix_rtur(cell->q_inverse, cell->q_inverse_tensor);
  return ok;
}

Status qx_set_qxcell_gmetric() {
  constexpr const char* here = "qx_set_qxcell_gmetric():";
  qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(here, "%s", no_cell);
  qxrecicell* recicell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxrecicell, recicell,
                     "qxrecicell object has not been created yet "));
  const double cosines[3] = {cell->cos_alpha, cell->cos_beta, cell->cos_gamma};
  qx::metric_tensor(Edges(*cell).values, cosines, cell->metric);
  cell->volume_squared = cell->volume * cell->volume;
  const double edges[3] = {recicell->a, recicell->b, recicell->c};
  const double reciprocal[3] = {recicell->cos_alpha, recicell->cos_beta, recicell->cos_gamma};
  qx::metric_tensor(edges, reciprocal, recicell->metric);
  recicell->volume_squared = recicell->volume * recicell->volume;
  // Kept: the two tensors get matrices of different kinds.
  qx::tensor_matrix_rtur(cell->metric, cell->metric_tensor);
  qx::tensor_matrix_rurt(recicell->metric, recicell->metric_tensor);
  return ok;
}

Status qx_get_cell_data_(double out[6]) {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require("qx_get_cell_data_():", qx_get_qxcell, cell,
                     "qxcell object has not been created yet."));
  const double values[6] = {cell->a, cell->b, cell->c, cell->alpha, cell->beta, cell->gamma};
  std::copy_n(values, 6, out);
  return ok;
}

Status qx_get_pdb_fraction_trans_(double out[12]) {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require("qx_get_pdb_fraction_trans_():", qx_get_qxcell, cell,
                     "qxcell object has not been created yet."));
  std::copy_n(cell->orth2frac, 12, out);
  return ok;
}

Status qx_shift_model_by_unit_(double xyz[3]) {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require("qx_shift_model_by_unit_():", qx_get_qxcell, cell,
                     "qxcell object has not been created yet."));
  double fractional[3];
  qx::apply_affine(cell->orth2frac, xyz, fractional);
  fractional[1] += 1.0;  // Kept: only along b
  qx::apply_affine(cell->frac2orth, fractional, xyz);
  return ok;
}
