// Atoms left out of all that is calculated.
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "map/omit.h"
#include "sf/partition.h"
#include "solvent/solvent.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/solvent.h>
#include <quorix/structfact.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::OmitSetting;
using qx::Status;
using qx::Tagged;

namespace qx {

std::int32_t drop_excluded(const ::molsys& system, std::int32_t* marks) {
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < system.natom; ++i) {
    if (system.info.excluded && system.info.excluded[i] != 0) marks[i] = 0;
    count += marks[i];
  }
  return count;
}

bool has_regions(const qxomit& omit) { return omit.nregions > 0 || omit.listed; }

Status check_regions(const char* heading, const qxomit& omit) {
  return has_regions(omit) ? ok : fail(heading, "There is no region to omit.");
}

Status mark_atoms(const OmitSetting& setting, Tagged<std::int32_t>& marks,
                  Tagged<std::int32_t>& listed) {
  const auto n = static_cast<std::size_t>(setting.system->natom);
  marks = Tagged<std::int32_t>(n, "pom_marks");
  if (!marks) return failed;
  listed = Tagged<std::int32_t>(n, "pom_marks");
  if (!listed) return failed;
  mark_listed(setting, marks.get());
  mark_listed(setting, listed.get());
  mark_regions(setting, setting.omit->regions, setting.omit->nregions, marks.get());
  return ok;
}

}  // namespace qx

namespace {

// The sums follow the list of excluded atoms; nothing to do before they have been calculated.
Status follow_list(const char* heading) {
  const qxstructfact* sf = qx_get_qxstructfact();
  if (!qx_exist_quorix()) return failed;
  return sf && sf->nref > 0 ? qx::recalculate_factors(heading) : ok;
}

Status clear_mask(const OmitSetting& setting, const std::int32_t* listed) {
  const qxsolvent* found = qx_get_qxsolvent();
  if (!qx_exist_quorix()) return failed;
  if (!found || !found->mask) QX_TRY(qx_make_solvent_mask());
  qxsolvent* solvent = qx_get_qxsolvent();
  if (!solvent) return failed;
  qx::mark_points(setting, setting.omit->regions, setting.omit->nregions, solvent->grid,
                  solvent->mask);
  qx::mark_points_near(setting, listed, 1, solvent->grid, solvent->mask);
  qx::measure_fraction(solvent);
  return qx::drop_solvent_factors(solvent);
}

}  // namespace

Status qx_exclude_omit_atoms() {
  constexpr const char* heading = "qx_exclude_omit_atoms():";
  OmitSetting setting;
  QX_TRY(setting.fetch(heading));
  if (setting.omit->boxes > 0) return fail(heading, "A composite map has regions of its own.");
  QX_TRY(qx::check_regions(heading, *setting.omit));
  Tagged<std::int32_t> marks, listed;
  QX_TRY(qx::mark_atoms(setting, marks, listed));
  if (setting.omit->clear_mask) QX_TRY(clear_mask(setting, listed.get()));
  const std::int32_t count = qx::drop_excluded(*setting.system, marks.get());
  molsys* system = qx_get_molsys();
  if (!system) return failed;
  const std::int32_t n = system->natom;
  if (!system->info.excluded) {
    QX_TRY(qx::open_zeroed(system->info.excluded, static_cast<std::size_t>(n), "pom_list"));
  }
  for (std::int32_t i = 0; i < n; ++i) {
    if (marks[static_cast<std::size_t>(i)] != 0) system->info.excluded[i] = 1;
  }
  qx::say("Excluded                    : %d of %d atoms\n", count, n);
  return follow_list(heading);
}

Status qx_restore_omit_atoms() {
  constexpr const char* heading = "qx_restore_omit_atoms():";
  molsys* system = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_molsys, system,
                               "molsys object has not been created yet "));
  if (!system->info.excluded) return ok;
  QX_TRY(qx::release(system->info.excluded));
  qxsolvent* solvent = qx_get_qxsolvent();
  if (!qx_exist_quorix()) return failed;
  if (solvent) QX_TRY(qx::drop_solvent_mask(solvent));
  return follow_list(heading);
}
