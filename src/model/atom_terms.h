// The Gaussians of an atom of the molecular system, from its form factor, B factor and occupancy.
#pragma once

#include "model/density.h"
#include "model/formfactors.h"
#include "model/gaussians.h"
#include "model/molsys.h"
#include "model/spread.h"

namespace qx {

// The objects that an atom's values come from.
struct AtomSources {
  const molsys* system = nullptr;
  const molformfact* pickup = nullptr;
  const atfrmfactbase* base = nullptr;
  const qxatomb* atomb = nullptr;
  const qxatomocc* atomocc = nullptr;
};

// Fills the sources; `failed` after a report under `heading`.
Status fetch_sources(const char* heading, AtomSources& sources);

inline bool is_aniso(const AtomSources& sources, std::int32_t atom) {
  return sources.atomb->index[atom] < 0;
}
inline const double (&tensor_of(const AtomSources& sources, std::int32_t atom))[6] {
  return sources.atomb->u_aniso[~sources.atomb->index[atom]];
}

// B of the atom without B0, Angstrom^2; of an anisotropic one 8 pi^2 times the largest absolute
// eigenvalue of its U.
double isotropic_b(const AtomSources& sources, std::int32_t atom);

// rho(r) about the atom, or that of an anisotropic one, for work in parts; false where the routines
// below report.
bool iso_gaussians(const AtomSources& sources, std::int32_t atom, double b, double occupancy,
                   Gaussians& out) noexcept;
bool aniso_gaussians(const AtomSources& sources, std::int32_t atom, const double (&u)[6],
                     double occupancy, AnisoGaussians& out) noexcept;

// rho(r) about the atom, its B replaced by `b`; a density that is not finite is reported.
Status iso_terms(const char* heading, const AtomSources& sources, std::int32_t atom, double b,
                 double occupancy, Gaussians& out);
// The same of an anisotropic atom, its tensor in the standard frame (a along x); one that is not
// positive definite after blurring is reported.
Status aniso_terms(const char* heading, const AtomSources& sources, std::int32_t atom,
                   const double (&u)[6], double occupancy, AnisoGaussians& out);

}  // namespace qx
