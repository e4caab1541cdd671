// Derivatives of a map's overlap with an atom by the atom's parameters.
#include "core/report.h"
#include "crystal/cell.h"
#include "model/density_job.h"
#include "model/gradient.h"

#include <quorix/density.h>

#include <algorithm>

using qx::ok;
using qx::Status;

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

Status gradient_of(const char* heading, qx::Box box, std::int32_t atom, std::int32_t shift,
                   double*** map, double gradient[10]) {
  qx::DensityJob job;
  QX_TRY(qx::prepare_job(job, heading, box, shift, map));
  QX_TRY(qx::check_kind(job, atom, true));
  double centre[3];
  QX_TRY(qx::position(job, atom, centre));
  double u[6];
  qx::standard_tensor(job, atom, u);
  qx::AnisoGaussians terms;
  QX_TRY(qx::aniso_terms(heading, job.atoms, atom, u, 1.0, terms));
  const double radius = job.cut->radius[atom];
  double moments[qx::most_gaussians][10] = {};
  qx::for_each_copy(job, centre, radius, [&](const double(&copy)[3]) {
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
  qx::DensityJob job;
  QX_TRY(qx::prepare_job(job, "qx_calc_geden_atom_iso():", qx::Box::full, 0, map));
  QX_TRY(qx::check_kind(job, atom, false));
  double centre[3];
  QX_TRY(qx::position(job, atom, centre));
  qx::Gaussians terms;
  QX_TRY(qx::iso_terms(job.heading, job.atoms, atom,
                       job.atoms.atomb->b_iso[job.atoms.atomb->index[atom]], 1.0, terms));
  const double radius = job.cut->radius[atom];
  double moments[qx::most_gaussians][5] = {};
  qx::for_each_copy(job, centre, radius, [&](const double(&copy)[3]) {
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
  return gradient_of("qx_calc_geden_atom_aniso():", qx::Box::full, atom, 0, map, gradient);
}

Status qx_calc_subg_geden_atom_aniso(std::int32_t atom, std::int32_t shift, double*** map,
                                     double gradient[10]) {
  return gradient_of("qx_calc_subg_geden_atom_aniso():", qx::Box::sub, atom, shift, map, gradient);
}
