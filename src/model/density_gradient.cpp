// Derivatives of a map's overlap with an atom by the atom's parameters.
#include "core/parallel.h"
#include "core/report.h"
#include "crystal/cell.h"
#include "model/density_job.h"
#include "model/density_slabs.h"
#include "model/gradient.h"

#include <quorix/density.h>

#include <algorithm>

using qx::ok;
using qx::Status;

namespace {

constexpr const char* iso_heading = "qx_calc_geden_atom_iso():";
constexpr const char* aniso_heading = "qx_calc_geden_atom_aniso():";

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

bool aniso_gradient(const qx::DensityJob& job, std::int32_t atom, double (&gradient)[10]) noexcept {
  double centre[3];
  qx::place_atom(job, atom, centre);
  double u[6];
  qx::standard_tensor(job, atom, u);
  qx::AnisoGaussians terms;
  if (!qx::aniso_gaussians(job.atoms, atom, u, 1.0, terms)) return false;
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
  return true;
}

bool iso_gradient(const qx::DensityJob& job, std::int32_t atom, double (&gradient)[5]) noexcept {
  double centre[3];
  qx::place_atom(job, atom, centre);
  qx::Gaussians terms;
  const double b = job.atoms.atomb->b_iso[job.atoms.atomb->index[atom]];
  if (!qx::iso_gaussians(job.atoms, atom, b, 1.0, terms)) return false;
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
  return true;
}

// One atom's: `gradient` is an array of the size that the kind has.
template <std::size_t size>
Status gradient_of(const char* heading, qx::Box box, std::int32_t atom, std::int32_t shift,
                   double*** map, double* out) {
  constexpr bool aniso = size == 10;
  qx::DensityJob job;
  QX_TRY(qx::prepare_job(job, heading, box, shift, map));
  QX_TRY(qx::check_kind(job, atom, aniso));
  double centre[3];
  QX_TRY(qx::position(job, atom, centre));
  double gradient[size];
  const bool made = [&] {
    if constexpr (aniso) {
      return aniso_gradient(job, atom, gradient);
    } else {
      return iso_gradient(job, atom, gradient);
    }
  }();
  if (!made) return qx::check_terms(job, atom);
  std::copy_n(gradient, size, out);
  return ok;
}

}  // namespace

Status qx_calc_geden_atom_iso(std::int32_t atom, double*** map, double gradient[5]) {
  return gradient_of<5>(iso_heading, qx::Box::full, atom, 0, map, gradient);
}

Status qx_calc_geden_atom_aniso(std::int32_t atom, double*** map, double gradient[10]) {
  return gradient_of<10>(aniso_heading, qx::Box::full, atom, 0, map, gradient);
}

Status qx_calc_subg_geden_atom_aniso(std::int32_t atom, std::int32_t shift, double*** map,
                                     double gradient[10]) {
  return gradient_of<10>("qx_calc_subg_geden_atom_aniso():", qx::Box::sub, atom, shift, map,
                         gradient);
}

namespace {

void fill_gradient(const qx::DensityJob& job, std::int32_t atom, qx_atom_gradient& g) noexcept {
  g = {};
  if (!qx::is_aniso(job.atoms, atom)) {
    double values[5] = {};
    (void)iso_gradient(job, atom, values);
    std::copy_n(values, 3, g.xyz);
    g.b = values[3];
    g.occupancy = values[4];
    return;
  }
  double values[10] = {};
  (void)aniso_gradient(job, atom, values);
  std::copy_n(values, 3, g.xyz);
  std::copy_n(values + 3, 6, g.u);
  g.occupancy = values[9];
}

Status check_atoms(qx::DensityJob& job, std::int32_t first, std::int32_t last) {
  for (std::int32_t i = first; i < last; ++i) {
    job.heading = qx::is_aniso(job.atoms, i) ? aniso_heading : iso_heading;
    double centre[3];
    QX_TRY(qx::position(job, i, centre));
    QX_TRY(qx::check_terms(job, i));
  }
  return ok;
}

}  // namespace

Status qx::density_gradients(double*** map, std::int32_t first, std::int32_t last,
                             qx_atom_gradient* out) {
  if (last <= first) return ok;
  DensityJob job;
  QX_TRY(prepare_job(job, iso_heading, Box::full, 0, map));
  QX_TRY(check_atoms(job, first, last));
  constexpr std::int32_t size = 16;  // atoms of a part
  const std::int32_t parts = (last - first + size - 1) / size;
  parallel(parts, threads_for_atoms(job, last - first), [&](std::int32_t part, std::int32_t) {
    const std::int32_t begin = first + part * size;
    const std::int32_t end = std::min(begin + size, last);
    for (std::int32_t i = begin; i < end; ++i) fill_gradient(job, i, out[i]);
  });
  return ok;
}
