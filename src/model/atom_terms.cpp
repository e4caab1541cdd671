#include "model/atom_terms.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/require.h"
#include "model/atom_name.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

constexpr double eight_pi_squared = 8.0 * pi * pi;

}  // namespace

Status fetch_sources(const char* heading, AtomSources& sources) {
  QX_TRY(qx::require(heading, qx_get_molsys, sources.system,
                     "molsys object has not been created yet."));
  sources.pickup = qx_get_molformfact();
  if (!sources.pickup || sources.pickup->natom != sources.system->natom) {
    return fail(heading, "molformfact object has not been created yet.");
  }
  QX_TRY(qx::require(heading, qx_get_atfrmfactbase, sources.base,
                     "atmfrmfactbase object has not been created yet."));
  sources.atomb = qx_get_qxatomb();
  if (!sources.atomb || !sources.atomb->index) {
    return fail(heading, "qxatomb object has not been created yet.");
  }
  sources.atomocc = qx_get_qxatomocc();
  if (!sources.atomocc || !sources.atomocc->occupancy) {
    return fail(heading, "qxatomocc object has not been created yet.");
  }
  return ok;
}

double isotropic_b(const AtomSources& sources, std::int32_t atom) {
  if (!is_aniso(sources, atom)) return sources.atomb->b_iso[sources.atomb->index[atom]];
  double values[3] = {};
  if (qx_calc_U_eigen_value(tensor_of(sources, atom), values) != 0) return NAN;
  return eight_pi_squared * std::max(std::fabs(values[0]), std::fabs(values[2]));
}

bool iso_gaussians(const AtomSources& sources, std::int32_t atom, double b, double occupancy,
                   Gaussians& out) noexcept {
  const std::int32_t entry = sources.pickup->index[atom];
  return atom_gaussians(sources.pickup->ngauss[atom], sources.base->a[entry],
                        sources.base->b[entry], b + sources.atomb->b0, occupancy, out);
}

bool aniso_gaussians(const AtomSources& sources, std::int32_t atom, const double (&u)[6],
                     double occupancy, AnisoGaussians& out) noexcept {
  const std::int32_t entry = sources.pickup->index[atom];
  out.n = sources.pickup->ngauss[atom];
  for (std::int32_t i = 0; i < out.n; ++i) {
    if (qx_calc_aniso_unk(u, occupancy * sources.base->a[entry][i],
                          sources.base->b[entry][i] + sources.atomb->b0, &out.amplitude[i],
                          out.precision[i]) != 0) {
      return false;
    }
  }
  return true;
}

Status iso_terms(const char* heading, const AtomSources& sources, std::int32_t atom, double b,
                 double occupancy, Gaussians& out) {
  if (iso_gaussians(sources, atom, b, occupancy, out)) return ok;
  return fail(heading, "The B factor %f of atom %s (%s) leaves no finite density with B0 = %f ", b,
              name_of_atom(sources.system->to_full[atom], atom + 1).text,
              sources.system->info.type[atom], sources.atomb->b0);
}

Status aniso_terms(const char* heading, const AtomSources& sources, std::int32_t atom,
                   const double (&u)[6], double occupancy, AnisoGaussians& out) {
  if (aniso_gaussians(sources, atom, u, occupancy, out)) return ok;
  return fail(heading,
              "The anisotropic tensor of atom %s (%s) is not positive definite: "
              "%f %f %f %f %f %f ",
              name_of_atom(sources.system->to_full[atom], atom + 1).text,
              sources.system->info.type[atom], u[0], u[1], u[2], u[3], u[4], u[5]);
}

}  // namespace qx
