#include "model/density_job.h"

#include "core/report.h"
#include "core/require.h"
#include "crystal/cell.h"
#include "grid/grid.h"
#include "model/atom_name.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/grid.h>

namespace qx {

namespace {

// The cell by the standard orthogonalisation, whatever frame the coordinates are in: distances are
// the same.
Status lay_out(DensityJob& job, Box box, std::int32_t shift, double*** density) {
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid || grid->nx < 1) return fail(job.heading, "qxgrid object has not been created yet.");
  const qxsubgrid* subgrid = nullptr;
  QX_TRY(qx::require(job.heading, qx_get_qxsubgrid, subgrid,
                     "qxsubgrid object has not been created yet."));
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
Status check_reach(const DensityJob& job) {
  constexpr double most_cells = 100.0;
  const qxrecicell& r = *job.reciprocal;
  const double cells = job.cut->largest * std::max({r.a, r.b, r.c});
  if (cells <= most_cells) return ok;
  return fail(job.heading, "The cut-off radius %f reaches over %g unit cells ", job.cut->largest,
              cells);
}

}  // namespace

Status prepare_job(DensityJob& job, const char* heading, Box box, std::int32_t shift,
                   double*** density) {
  job.heading = heading;
  QX_TRY(fetch_sources(heading, job.atoms));
  const qxexptab* table = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxexptab, table, "qxexptab object has not been created yet."));
  job.cut = qx_get_qxradcut();
  if (!job.cut || job.cut->natom != job.atoms.system->natom || job.cut->natom < 1) {
    return fail(heading, "qxradcut object has not been created yet.");
  }
  job.cell = qx_get_qxcell();
  if (!job.cell || !(job.cell->volume > 0.0)) {
    return fail(heading, " qxcell object has not been created yet ");
  }
  QX_TRY(qx::require(heading, qx_get_qxrecicell, job.reciprocal,
                     " qxrecicell object has not been created yet "));
  QX_TRY(check_reach(job));
  return lay_out(job, box, shift, density);
}

void place_atom(const DensityJob& job, std::int32_t atom, double (&out)[3]) noexcept {
  const double(&m)[16] = job.cell->orth2frac;
  const double x = job.atoms.system->x[atom];
  const double y = job.atoms.system->y[atom];
  const double z = job.atoms.system->z[atom];
  for (int i = 0; i < 3; ++i) {
    const double f = m[4 * i] * x + m[4 * i + 1] * y + m[4 * i + 2] * z + m[4 * i + 3];
    out[i] = f - std::floor(f);
  }
}

Status position(const DensityJob& job, std::int32_t atom, double (&out)[3]) {
  place_atom(job, atom, out);
  for (const double f : out) {
    if (std::isfinite(f)) continue;
    const molsys& system = *job.atoms.system;
    return fail(job.heading, "The coordinates of atom %s are not numbers: %f %f %f ",
                name_of_atom(system.to_full[atom], atom + 1).text, system.x[atom], system.y[atom],
                system.z[atom]);
  }
  return ok;
}

Copies copies_of(const DensityJob& job, const double (&centre)[3], double radius) noexcept {
  const double margin[3] = {radius * job.reciprocal->a, radius * job.reciprocal->b,
                            radius * job.reciprocal->c};
  Copies n;
  for (int i = 0; i < 3; ++i) {
    n.low[i] = static_cast<int>(std::ceil(-margin[i] - centre[i]));
    n.high[i] = static_cast<int>(std::floor(1.0 + margin[i] - centre[i]));
  }
  return n;
}

void standard_tensor(const DensityJob& job, std::int32_t atom, double (&out)[6]) noexcept {
  const auto& u = tensor_of(job.atoms, atom);
  for (int i = 0; i < 6; ++i) {
    out[i] = 0.0;
    for (int j = 0; j < 6; ++j) out[i] += job.cell->q_inverse_tensor[6 * i + j] * u[j];
  }
}

Status check_kind(const DensityJob& job, std::int32_t atom, bool aniso) {
  if (atom < 0 || atom >= job.atoms.system->natom) {
    return fail(job.heading, "There is no atom %d.\n", atom);
  }
  if (is_aniso(job.atoms, atom) == aniso) return ok;
  return aniso ? fail(job.heading, "This is an isotropic atom %d.\n", atom)
               : fail(job.heading, "This is an anisotropic atom %d.\n", atom);
}

Status open_scratch(const DensityJob& job, Tagged<double>& scratch) {
  scratch = Tagged<double>(spread_scratch_size(job.grid, job.cut->largest), "pce_comb");
  return scratch ? ok : failed;
}

namespace {

// What an atom scatters, in the way that it is held; false: no finite density.
struct AtomTerms {
  bool aniso;
  Gaussians round;
  AnisoGaussians shaped;

  bool make(const DensityJob& job, std::int32_t atom) noexcept {
    const double occupancy = job.sign * job.atoms.atomocc->occupancy[atom];
    aniso = is_aniso(job.atoms, atom);
    if (!aniso) {
      const double b = job.atoms.atomb->b_iso[job.atoms.atomb->index[atom]];
      return iso_gaussians(job.atoms, atom, b, occupancy, round);
    }
    double u[6];
    standard_tensor(job, atom, u);
    return aniso_gaussians(job.atoms, atom, u, occupancy, shaped);
  }

  void spread(const DensityJob& job, const SpreadGrid& grid, const double (&centre)[3],
              double radius, double* scratch) const noexcept {
    for_each_copy(job, centre, radius, [&](const double(&copy)[3]) {
      if (aniso) {
        spread_aniso(grid, shaped, copy, radius, scratch);
      } else {
        spread_iso(grid, round, copy, radius, scratch);
      }
    });
  }
};

Status check_occupancy(const DensityJob& job, std::int32_t atom) {
  if (std::isfinite(job.atoms.atomocc->occupancy[atom])) return ok;
  return fail(job.heading, "The occupancy of atom %s is not a number ",
              name_of_atom(job.atoms.system->to_full[atom], atom + 1).text);
}

}  // namespace

Status check_terms(const DensityJob& job, std::int32_t atom) {
  const double occupancy = job.sign * job.atoms.atomocc->occupancy[atom];
  if (is_aniso(job.atoms, atom)) {
    double u[6];
    standard_tensor(job, atom, u);
    AnisoGaussians terms;
    return aniso_terms(job.heading, job.atoms, atom, u, occupancy, terms);
  }
  const double b = job.atoms.atomb->b_iso[job.atoms.atomb->index[atom]];
  Gaussians terms;
  return iso_terms(job.heading, job.atoms, atom, b, occupancy, terms);
}

Status check_atom(const DensityJob& job, std::int32_t atom) {
  QX_TRY(check_occupancy(job, atom));
  return check_terms(job, atom);
}

void spread_checked(const DensityJob& job, const SpreadGrid& grid, std::int32_t atom,
                    const double (&centre)[3], double* scratch) noexcept {
  AtomTerms terms;
  if (terms.make(job, atom)) terms.spread(job, grid, centre, job.cut->radius[atom], scratch);
}

Status spread_atom(const DensityJob& job, std::int32_t atom, const double (&centre)[3],
                   double* scratch) {
  QX_TRY(check_occupancy(job, atom));
  AtomTerms terms;
  if (!terms.make(job, atom)) return check_terms(job, atom);
  terms.spread(job, job.grid, centre, job.cut->radius[atom], scratch);
  return ok;
}

Status spread_atom(const DensityJob& job, std::int32_t atom, double* scratch) {
  double centre[3];
  QX_TRY(position(job, atom, centre));
  return spread_atom(job, atom, centre, scratch);
}

}  // namespace qx
