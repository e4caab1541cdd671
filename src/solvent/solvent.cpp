// The bulk-solvent object and its mask.
#include "solvent/solvent.h"

#include "core/object.h"
#include "core/parallel.h"
#include "core/report.h"
#include "core/require.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/spacegroup.h"
#include "grid/grid_size.h"
#include "model/molsys.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

qxsolvent* qx_get_qxsolvent() { return qx::slot(qx_get_xmolsys(), &xmolsys::solvent); }
Status qx_set_qxsolvent(qxsolvent* object) {
  return qx::install(qx_get_xmolsys(), &xmolsys::solvent, object);
}
Status qx_new_qxsolvent() {
  return qx::create_in(qx_delete_qxsolvent, qx_set_qxsolvent, "pnx_solvent");
}
Status qx_delete_qxsolvent() {
  qxsolvent* solvent = qx_get_qxsolvent();
  if (!solvent) return ok;
  QX_TRY(qx::drop_solvent_mask(solvent));
  return qx::remove_from(solvent, qx_set_qxsolvent);
}

namespace qx {

Status drop_solvent_factors(qxsolvent* solvent) {
  solvent->nref = 0;
  QX_TRY(release(solvent->re));
  return release(solvent->im);
}

Status drop_solvent_mask(qxsolvent* solvent) {
  solvent->fraction = 0.0;
  QX_TRY(release(solvent->mask));
  return drop_solvent_factors(solvent);
}

void measure_fraction(qxsolvent* solvent) {
  const std::size_t points = solvent->grid.points();
  const auto inside = std::count(solvent->mask, solvent->mask + points, std::uint8_t{1});
  solvent->fraction = 1.0 - static_cast<double>(inside) / static_cast<double>(points);
}

}  // namespace qx

namespace {

Status set_length(const char* heading, double qxsolvent::*field, double value, bool may_be_zero) {
  qxsolvent* solvent = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxsolvent, solvent,
                               " qxsolvent object has not been created yet "));
  constexpr double largest = 20.0;  // Angstrom: beyond any probe, shell or solvent's resolution
  if (!(value >= 0.0) || value > largest || (value == 0.0 && !may_be_zero)) {
    return fail(heading, "Invalid length of the solvent mask: %f ", value);
  }
  solvent->*field = value;
  return qx::drop_solvent_mask(solvent);
}

}  // namespace

Status qx_set_qxsolvent_probe(double probe) {
  return set_length("qx_set_qxsolvent_probe():", &qxsolvent::probe, probe, true);
}
Status qx_set_qxsolvent_shrink(double shrink) {
  return set_length("qx_set_qxsolvent_shrink():", &qxsolvent::shrink, shrink, true);
}
Status qx_set_qxsolvent_spacing(double spacing) {
  return set_length("qx_set_qxsolvent_spacing():", &qxsolvent::spacing, spacing, false);
}
Status qx_set_qxsolvent_cutoff(double cutoff) {
  return set_length("qx_set_qxsolvent_cutoff():", &qxsolvent::cutoff, cutoff, false);
}

namespace {

constexpr const char* here = "qx_make_solvent_mask():";

struct Needs {
  qxsolvent* solvent = nullptr;
  const qxcell* cell = nullptr;
  const qxspg* group = nullptr;
  const molsys* system = nullptr;
  const qxatomocc* occupancies = nullptr;
};

Status fetch(Needs& needs) {
  QX_TRY(qx::require_of_engine(here, qx_get_qxsolvent, needs.solvent,
                               " qxsolvent object has not been created yet "));
  needs.cell = qx_get_qxcell();
  if (!qx_exist_quorix()) return failed;
  if (!needs.cell || !(needs.cell->volume > 0.0)) {
    return fail(here, "qxcell object has not been created yet ");
  }
  needs.group = qx_get_qxspg();
  if (!qx_exist_quorix()) return failed;
  if (!needs.group || needs.group->nops < 1) {
    return fail(here, "qxspg object has not been created yet ");
  }
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_molsys, needs.system, "molsys object has not been created yet "),
      qx::need(qx_get_qxatomocc, needs.occupancies, "qxatomocc object has not been created yet.")));
  return ok;
}

// Multiples of 12 fit the translations of every group: a model and the same model expanded to P 1
// have the same mask.
Status count_points(const Needs& needs, const qx::Divisors& divisors, double edge,
                    std::int32_t& count) {
  constexpr std::int32_t common = 12;
  constexpr double most = 4096.0;
  std::int64_t multiple = common;
  std::int32_t culprit = 0;
  const std::span<const std::int32_t> of_group(divisors.values,
                                               static_cast<std::size_t>(divisors.count));
  if (!qx::combine_divisors(of_group, multiple, culprit)) {
    return fail(here, "No grid of the mask fits a translation of 1/%d ", culprit);
  }
  const double wanted = std::ceil(edge / needs.solvent->spacing - 1e-9);
  if (!(wanted <= most)) return fail(here, "The mask would have %g points along an axis ", wanted);
  count = qx::closest_count(std::max(static_cast<std::int32_t>(wanted), 1), multiple);
  return ok;
}

Status lay_out(const Needs& needs, qx::MaskGrid& grid) {
  const qxcell& cell = *needs.cell;
  const qx::Divisors* divisors = needs.group->translation_divisors;
  QX_TRY(count_points(needs, divisors[0], cell.a, grid.nx));
  QX_TRY(count_points(needs, divisors[1], cell.b, grid.ny));
  QX_TRY(count_points(needs, divisors[2], cell.c, grid.nz));
  const double(&f)[9] = cell.standard_frac2orth;
  grid.ax = f[0] / grid.nx;
  grid.bx = f[1] / grid.ny;
  grid.by = f[4] / grid.ny;
  grid.cx = f[2] / grid.nz;
  grid.cy = f[5] / grid.nz;
  grid.cz = f[8] / grid.nz;
  return ok;
}

Status fractional(const Needs& needs, std::int32_t atom, double (&out)[3]) {
  const double(&m)[16] = needs.cell->orth2frac;
  const double x = needs.system->x[atom];
  const double y = needs.system->y[atom];
  const double z = needs.system->z[atom];
  for (int i = 0; i < 3; ++i) {
    out[i] = m[4 * i] * x + m[4 * i + 1] * y + m[4 * i + 2] * z + m[4 * i + 3];
    if (!std::isfinite(out[i])) {
      return fail(here, "The coordinates of atom %d are not numbers: %f %f %f ", atom + 1, x, y, z);
    }
  }
  return ok;
}

void mate(const double (&op)[16], const double (&at)[3], double (&out)[3]) {
  for (int i = 0; i < 3; ++i) {
    const double* row = op + 4 * static_cast<std::ptrdiff_t>(i);
    const double f = row[0] * at[0] + row[1] * at[1] + row[2] * at[2] + row[3];
    out[i] = f - std::floor(f);
  }
}

struct Sphere {
  double at[3];  // fractional
  double radius;
};

// Those of the atoms that keep solvent away.
Status collect_spheres(const Needs& needs, qx::Tagged<Sphere>& spheres, std::int32_t& n) {
  constexpr double largest_radius = 10.0;
  n = 0;
  if (needs.system->natom < 1) return ok;
  spheres = qx::Tagged<Sphere>(static_cast<std::size_t>(needs.system->natom), "psm_spheres");
  if (!spheres) return failed;
  for (std::int32_t i = 0; i < needs.system->natom; ++i) {
    if (needs.system->info.atomic_number[i] == 1) continue;
    if (!(needs.occupancies->occupancy[i] > 0.0)) continue;
    const double radius = needs.system->info.vdw_radius[i];
    if (!(radius > 0.0) || radius > largest_radius) {
      return fail(here, "Atom %d has no van der Waals radius: %f ", i + 1, radius);
    }
    Sphere& sphere = spheres[static_cast<std::size_t>(n++)];
    QX_TRY(fractional(needs, i, sphere.at));
    sphere.radius = radius + needs.solvent->probe;
  }
  return ok;
}

// Slabs of planes, some for each thread since atoms are not everywhere. A point is marked or not,
// however the cell is cut.
struct Slabs {
  std::int32_t threads, count, nz;

  Slabs(const qx::MaskGrid& grid, double operations)
      : threads(qx::threads_worth(operations)),
        count(threads > 1 ? std::min(4 * threads, grid.nz) : 1),
        nz(grid.nz) {}
  [[nodiscard]] qx::PlaneRange planes(std::int32_t part) const {
    return {static_cast<std::int32_t>(qx::part_begin(nz, count, part)),
            static_cast<std::int32_t>(qx::part_begin(nz, count, part + 1))};
  }
};

void mark_mates(const Needs& needs, const qx::MaskGrid& grid, const Sphere& sphere,
                qx::PlaneRange planes, std::uint8_t* mask) {
  for (std::int32_t op = 0; op < needs.group->nops; ++op) {
    double copy[3];
    mate(needs.group->ops[op], sphere.at, copy);
    qx::mark_sphere(grid, copy, sphere.radius, planes, mask);
  }
}

Status mark_atoms(const Needs& needs, const qx::MaskGrid& grid, std::uint8_t* mask) {
  qx::Tagged<Sphere> spheres;
  std::int32_t n = 0;
  QX_TRY(collect_spheres(needs, spheres, n));
  const Slabs slabs(grid, 500.0 * n * needs.group->nops);
  qx::parallel(slabs.count, slabs.threads, [&](std::int32_t part, std::int32_t) {
    for (std::int32_t i = 0; i < n; ++i) {
      mark_mates(needs, grid, spheres[static_cast<std::size_t>(i)], slabs.planes(part), mask);
    }
  });
  return ok;
}

Status shrink(const qx::MaskGrid& grid, double distance, const std::uint8_t* reach,
              std::uint8_t* mask) {
  const Slabs slabs(grid, 10.0 * static_cast<double>(grid.points()));
  const std::size_t size = qx::shrink_scratch_size(grid, distance);
  const qx::Tagged<std::uint8_t> scratch(size * static_cast<std::size_t>(slabs.threads), "psm_row");
  if (!scratch) return failed;
  qx::parallel(slabs.count, slabs.threads, [&](std::int32_t part, std::int32_t worker) {
    qx::shrink_mask(grid, distance, reach, slabs.planes(part),
                    scratch.get() + size * static_cast<std::size_t>(worker), mask);
  });
  return ok;
}

}  // namespace

Status qx_make_solvent_mask() {
  Needs needs;
  QX_TRY(fetch(needs));
  QX_TRY(qx::drop_solvent_mask(needs.solvent));
  qx::MaskGrid grid = {};
  QX_TRY(lay_out(needs, grid));
  qx::Tagged<std::uint8_t> reach(qx::allocate_zeroed<std::uint8_t>(grid.points(), "psm_reach"));
  if (!reach) return failed;
  QX_TRY(mark_atoms(needs, grid, reach.get()));
  qx::Tagged<std::uint8_t> mask(grid.points(), "psm_mask");
  if (!mask) return failed;
  QX_TRY(shrink(grid, needs.solvent->shrink, reach.get(), mask.get()));
  needs.solvent->grid = grid;
  needs.solvent->mask = mask.release();
  qx::measure_fraction(needs.solvent);
  return ok;
}

double qx_get_solvent_fraction() {
  const qxsolvent* solvent = qx_get_qxsolvent();
  return solvent ? solvent->fraction : 0.0;
}
