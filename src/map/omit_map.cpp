// Maps without a part of the model: what the atoms of a region scatter is taken off F; scale,
// solvent mask and likelihood stay those of the whole model.
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "map/coefficients.h"
#include "map/map.h"
#include "map/omit.h"
#include "scaling/observed.h"
#include "scaling/scale.h"
#include "sf/partition.h"
#include "solvent/solvent.h"

#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/memory.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
#include <quorix/solvent.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

using qx::ComplexF;
using qx::fail;
using qx::failed;
using qx::MaskGrid;
using qx::ok;
using qx::OmitSetting;
using qx::Status;
using qx::Tagged;

namespace {

constexpr const char* here = "qx_generate_omit_map():";

// The scaled structure factors of the whole model, and those of a model with less.
class OmitRun {
 public:
  Status open(const OmitSetting& setting);
  // Coefficients without the marked atoms; `own` are the mark of the atoms about which a cleared
  // mask has no solvent.
  Status coefficients(const std::int32_t* marks, const std::int32_t* groups, std::int32_t own);
  [[nodiscard]] const double* amplitude() const { return amplitude_.get(); }
  [[nodiscard]] const double* phase() const { return phase_.get(); }

 private:
  Status fetch_scale();
  Status fetch_solvent();
  Status take_off_solvent(const std::int32_t* groups, std::int32_t own);
  void take_off(bool solvent);

  const OmitSetting* setting_ = nullptr;
  const qxmap* map_ = nullptr;
  const qxrefdata* data_ = nullptr;
  const qxscale* scale_ = nullptr;      // null: none was fitted
  const qxsolvent* solvent_ = nullptr;  // null: the mask stays
  Tagged<double> k_tot_, amplitude_, phase_;
  ComplexF total_, less_, f_;
};

Status OmitRun::open(const OmitSetting& setting) {
  setting_ = &setting;
  QX_TRY(qx::fetch_calculated(here, map_, data_));
  const auto n = static_cast<std::size_t>(data_->nreflections);
  for (Tagged<double>* column : {&k_tot_, &amplitude_, &phase_}) {
    *column = Tagged<double>(n, "pom_col");
    if (!*column) return failed;
  }
  QX_TRY(qx::calculated_factors(*data_, total_));
  QX_TRY(qx::open_f(data_->nreflections, less_));
  QX_TRY(qx::open_f(data_->nreflections, f_));
  QX_TRY(fetch_scale());
  return setting.omit->clear_mask ? fetch_solvent() : ok;
}

Status OmitRun::fetch_scale() {
  const qxscale* scale = qx_get_qxscale();
  if (!qx_exist_quorix()) return failed;
  std::fill_n(k_tot_.get(), data_->nreflections, 1.0);
  if (!scale || !scale->fitted || scale->nref != data_->nreflections) return ok;
  scale_ = scale;
  return qx_calc_total_scale(k_tot_.get());
}

Status OmitRun::fetch_solvent() {
  const qxsolvent* solvent = qx_get_qxsolvent();
  if (!qx_exist_quorix()) return failed;
  if (scale_ && scale_->fit.model.mode != qx::no_solvent && solvent && solvent->mask) {
    solvent_ = solvent;
  } else {
    qx::say("WARNING: the model has no solvent that could be cleared \n");
  }
  return ok;
}

void OmitRun::take_off(bool solvent) {
  for (std::int32_t i = 0; i < data_->nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double s2 = data_->s_length[i] * data_->s_length[i];
    const double k = k_tot_[at] * (solvent ? qx::solvent_scale(scale_->fit.model, s2) : 1.0);
    f_.re[at] -= k * less_.re[at];
    f_.im[at] -= k * less_.im[at];
  }
}

// The solvent of the points that the region takes from it.
Status OmitRun::take_off_solvent(const std::int32_t* groups, std::int32_t own) {
  const std::size_t points = solvent_->grid.points();
  const Tagged<std::uint8_t> mask(points, "pom_mask");
  if (!mask) return failed;
  std::copy_n(solvent_->mask, points, mask.get());
  const qxomit& omit = *setting_->omit;
  qx::mark_points(*setting_, omit.regions, omit.nregions, solvent_->grid, mask.get());
  qx::mark_points_near(*setting_, groups, own, solvent_->grid, mask.get());
  for (std::size_t i = 0; i < points; ++i) mask[i] = mask[i] != solvent_->mask[i] ? 0 : 1;
  QX_TRY(qx::mask_factors(*solvent_, mask.get(), *data_, less_.re.get(), less_.im.get()));
  take_off(true);
  return ok;
}

Status OmitRun::coefficients(const std::int32_t* marks, const std::int32_t* groups,
                             std::int32_t own) {
  std::copy_n(total_.re.get(), data_->nreflections, f_.re.get());
  std::copy_n(total_.im.get(), data_->nreflections, f_.im.get());
  QX_TRY(qx::marked_factors(marks, less_.re.get(), less_.im.get()));
  take_off(false);
  if (solvent_) QX_TRY(take_off_solvent(groups, own));
  return qx::coefficients_from(here, *map_, *data_, f_, amplitude_.get(), phase_.get());
}

Status generate_regions(const OmitSetting& setting) {
  QX_TRY(qx::check_regions(here, *setting.omit));
  Tagged<std::int32_t> marks, listed;
  QX_TRY(qx::mark_atoms(setting, marks, listed));
  const std::int32_t count = qx::drop_excluded(*setting.system, marks.get());
  qx::say("Omitted                     : %d of %d atoms\n", count, setting.system->natom);
  OmitRun run;
  QX_TRY(run.open(setting));
  QX_TRY(run.coefficients(marks.get(), listed.get(), 1));
  return qx_generate_map_core(run.amplitude(), run.phase());
}

// Groups of the atoms, and how to find the neighbours of each.
struct Groups {
  std::int32_t count = 0;
  Tagged<std::int32_t> of_atom;  // per computed atom
  Tagged<double[3]> positions;   // the same
  Tagged<std::int32_t> starts, sorted;
  qx::AtomBins bins = {};

  Status open(const OmitSetting& setting);
  Status open_bins(const OmitSetting& setting);
  // Marks the atoms of a group and those within the rim of any mate of them.
  void mark(const OmitSetting& setting, std::int32_t group, std::int32_t* marks) const;
};

Status Groups::open(const OmitSetting& setting) {
  const molsys& system = *setting.system;
  const auto n = static_cast<std::size_t>(system.natom);
  count = std::min(setting.omit->boxes, system.natom);
  of_atom = Tagged<std::int32_t>(n, "pom_group");
  if (!of_atom) return failed;
  sorted = Tagged<std::int32_t>(n, "pom_order");
  if (!sorted) return failed;
  const double* const axes[3] = {system.x, system.y, system.z};
  qx::halve_atoms(system.natom, axes, count, sorted.get(), of_atom.get());
  return open_bins(setting);
}

Status Groups::open_bins(const OmitSetting& setting) {
  const std::int32_t natom = setting.system->natom;
  positions = Tagged<double[3]>(static_cast<std::size_t>(natom), "pom_at");
  if (!positions) return failed;
  for (std::int32_t i = 0; i < natom; ++i) {
    double(&at)[3] = positions[static_cast<std::size_t>(i)];
    setting.fractional(i, at);
    for (double& x : at) x -= std::floor(x);
  }
  qx::choose_bins(setting.frame, 2.0 * setting.omit->rim, bins);
  starts = Tagged<std::int32_t>(static_cast<std::size_t>(bins.bins()) + 1, "pom_bins");
  if (!starts) return failed;
  bins.starts = starts.get();
  bins.atoms = sorted.get();
  bins.positions = positions.get();
  qx::sort_into_bins(bins, natom);
  return ok;
}

void Groups::mark(const OmitSetting& setting, std::int32_t group, std::int32_t* marks) const {
  for (std::int32_t i = 0; i < setting.system->natom; ++i) {
    const auto at = static_cast<std::size_t>(i);
    if (of_atom[at] != group) continue;
    for (std::int32_t op = 0; op < setting.group->nops; ++op) {
      double mate[3];
      qx::image(setting.group->ops[op], positions[at], mate);
      for (double& x : mate) x -= std::floor(x);
      qx::mark_near(bins, setting.frame, mate, setting.omit->rim, marks);
    }
  }
}

// Every point of the map's grid goes to the group of the atom that it is nearest to.
Status share_points(const OmitSetting& setting, const Groups& groups, const MaskGrid& grid,
                    Tagged<std::uint16_t>& owner) {
  constexpr double near = 3.0;  // Angstrom
  owner = Tagged<std::uint16_t>(grid.points(), "pom_owner");
  if (!owner) return failed;
  const Tagged<float> distance(grid.points(), "pom_near");
  if (!distance) return failed;
  const qx::PointOwners owners = {grid, owner.get(), distance.get()};
  qx::clear_owners(owners);
  for (std::int32_t i = 0; i < setting.system->natom; ++i) {
    const auto atom = static_cast<std::size_t>(i);
    for (std::int32_t op = 0; op < setting.group->nops; ++op) {
      double mate[3];
      qx::image(setting.group->ops[op], groups.positions[atom], mate);
      for (double& x : mate) x -= std::floor(x);
      qx::claim_near(owners, mate, near, static_cast<std::uint16_t>(groups.of_atom[atom]));
    }
  }
  qx::claim_rest(owners);
  (void)qx::symmetrise_owners(owners, setting.group->nops, setting.group->ops);
  return ok;
}

Status map_grid(const OmitSetting& setting, MaskGrid& out) {
  const qxgrid* grid = qx_get_qxgrid();
  if (!qx_exist_quorix()) return failed;
  if (!grid || grid->nx < 1) return fail(here, "qxgrid object has not been created yet ");
  const double(&f)[9] = setting.cell->standard_frac2orth;
  out = {grid->nx,        grid->ny,        grid->nz,        f[0] / grid->nx, f[1] / grid->ny,
         f[4] / grid->ny, f[2] / grid->nz, f[5] / grid->nz, f[8] / grid->nz};
  return ok;
}

struct Extremes {
  std::int32_t low = INT32_MAX, high = 0;
  void add(std::int32_t n) {
    low = std::min(low, n);
    high = std::max(high, n);
  }
};

// The map without a group, its own points into the composite.
Status add_group(const OmitSetting& setting, OmitRun& run, const Groups& groups, std::int32_t group,
                 const std::uint16_t* owner, double* composite, Extremes& omitted) {
  const molsys& system = *setting.system;
  const Tagged<std::int32_t> marks(
      qx::allocate_zeroed<std::int32_t>(static_cast<std::size_t>(system.natom), "pom_marks"));
  if (!marks) return failed;
  groups.mark(setting, group, marks.get());
  omitted.add(qx::drop_excluded(system, marks.get()));
  QX_TRY(run.coefficients(marks.get(), groups.of_atom.get(), group));
  QX_TRY(qx_generate_map_core(run.amplitude(), run.phase()));
  qxmap* map = qx_get_qxmap();
  if (!map) return failed;
  double*** density = qx::map_density(*map);
  if (!density) return failed;
  const double* values = density[0][0];
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid) return failed;
  const std::size_t points = static_cast<std::size_t>(grid->nx) *
                             static_cast<std::size_t>(grid->ny) *
                             static_cast<std::size_t>(grid->nz);
  for (std::size_t i = 0; i < points; ++i) {
    if (owner[i] == group) composite[i] = values[i];
  }
  return ok;
}

Status fill_composite(const OmitSetting& setting, const Groups& groups, const MaskGrid& grid,
                      double* composite) {
  Tagged<std::uint16_t> owner;
  QX_TRY(share_points(setting, groups, grid, owner));
  OmitRun run;
  QX_TRY(run.open(setting));
  Extremes omitted;
  for (std::int32_t group = 0; group < groups.count; ++group) {
    QX_TRY(add_group(setting, run, groups, group, owner.get(), composite, omitted));
  }
  qx::say("Composite omit map          : %d groups of %d atoms, %d to %d left out of each\n",
          groups.count, setting.system->natom, omitted.low, omitted.high);
  return ok;
}

Status generate_composite(const OmitSetting& setting, qxmap& map) {
  if (qx::has_regions(*setting.omit)) {
    return fail(here, "A composite map has regions of its own.");
  }
  Groups groups;
  QX_TRY(groups.open(setting));
  MaskGrid grid = {};
  QX_TRY(map_grid(setting, grid));
  double*** composite = xopen_3d_double(grid.nz, grid.ny, grid.nx, "pgm_emap");
  if (!composite) return failed;
  // Each group's map is that of the whole cell, unscaled.
  const std::int32_t scale = std::exchange(map.scale, qx::no_scale);
  const std::int32_t extent = std::exchange(map.extent, qx::unit_extent);
  QX_TRY(fill_composite(setting, groups, grid, composite[0][0]));
  map.scale = scale;
  map.extent = extent;
  return qx::install_cell(map, composite);
}

}  // namespace

Status qx_generate_omit_map() {
  OmitSetting setting;
  QX_TRY(setting.fetch(here));
  qxmap* map = nullptr;
  QX_TRY(qx::require_of_engine(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  return setting.omit->boxes > 0 ? generate_composite(setting, *map) : generate_regions(setting);
}
