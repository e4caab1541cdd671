// Cut-off radii of all atoms.
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/cell.h"
#include "model/atom_terms.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/grid.h>

#include <algorithm>
#include <cmath>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* heading = " qx_calc_qxradcut():";

// Everything the search reads, each reported by its own text when absent.
struct Needs {
  qxradcut* cut = nullptr;
  qx::AtomSources atoms;
  const qxcell* cell = nullptr;
  const qxrecicell* reciprocal = nullptr;
  const qxexptab* table = nullptr;
};

Status fetch(Needs& needs) {
  qx::AtomSources& atoms = needs.atoms;
  QX_TRY(qx::require(
      heading, qx::need(qx_get_qxradcut, needs.cut, " qxradcut object has not been created yet "),
      qx::need(qx_get_molformfact, atoms.pickup, " molformfact object has not been created yet "),
      qx::need(qx_get_atfrmfactbase, atoms.base,
               " atmfrmfactbase object has not been created yet ")));
  atoms.system = qx_get_molsys();
  if (!atoms.system || atoms.system->natom < 1) {
    return fail(heading, " molsys object has not been created yet ");
  }
  if (atoms.pickup->natom != atoms.system->natom) {
    return fail(heading, " molformfact object has not been created yet ");
  }
  QX_TRY(qx::require(
      heading, qx::need(qx_get_qxcell, needs.cell, " qxcell object has not been created yet "),
      qx::need(qx_get_qxrecicell, needs.reciprocal, " qxcell object has not been created yet ")));
  atoms.atomb = qx_get_qxatomb();
  if (!atoms.atomb || !atoms.atomb->index) {
    return fail(heading, " qxatomb object has not been created yet ");
  }
  needs.table = qx_get_qxexptab();
  if (!needs.table || !needs.table->values) {
    return fail(heading, " qxexptab object has not been created yet ");
  }
  return ok;
}

Status find_radius(const Needs& needs, std::int32_t atom) {
  const qx::ExpTable table = {needs.table->n, 1.0 / needs.table->h, needs.table->values};
  qx::Gaussians terms;
  QX_TRY(qx::iso_terms(heading, needs.atoms, atom, qx::isotropic_b(needs.atoms, atom), 1.0, terms));
  const qx::CutoffResult result =
      qx::cutoff_radius(terms, table, needs.cut->ecut, needs.cut->limit);
  if (result.capped) {
    qx::say("WARNING: atom(%s) has non-ignorable electron density contribution\n",
            needs.atoms.system->info.type[atom]);
    qx::say(" beyond the radius cutoff (%f).\n", needs.cut->limit);
  }
  needs.cut->radius[atom] = result.radius;
  needs.cut->largest = std::max(needs.cut->largest, result.radius);
  return ok;
}

}  // namespace

Status qx_update_qxradcut() {
  Needs needs;
  QX_TRY(fetch(needs));
  const std::int32_t natom = needs.atoms.system->natom;
  QX_TRY(qx::release(needs.cut->radius));
  needs.cut->largest = -99999.0;
  needs.cut->natom = 0;
  QX_TRY(qx::open_block(needs.cut->radius, static_cast<std::size_t>(natom), "puc_radius"));
  for (std::int32_t i = 0; i < natom; ++i) QX_TRY(find_radius(needs, i));
  needs.cut->natom = natom;
  // Planes of the lattice are 1/a* apart, so that is what a margin is measured in.
  const double ex = needs.cut->largest * needs.reciprocal->a;
  const double ey = needs.cut->largest * needs.reciprocal->b;
  const double ez = needs.cut->largest * needs.reciprocal->c;
  return qx_define_qxboundary(ex, ey, ez, ex, ey, ez);
}
