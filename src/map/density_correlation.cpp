// How well the density of the observations agrees with that of the model about groups of atoms.
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "grid/grid.h"
#include "map/coefficients.h"
#include "model/molsys.h"
#include "scaling/coefficients.h"
#include "scaling/scale.h"
#include "solvent/sphere_rows.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <utility>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

namespace {

constexpr const char* here = "qx_calc_density_correlation():";

struct Sums {
  std::int32_t n;
  double o, c, oo, cc, oc;

  void add(double of_data, double of_model) {
    ++n;
    o += of_data;
    c += of_model;
    oo += of_data * of_data;
    cc += of_model * of_model;
    oc += of_data * of_model;
  }
  [[nodiscard]] double correlation() const {
    const double vo = oo - o * o / n;
    const double vc = cc - c * c / n;
    return n > 0 && vo > 0.0 && vc > 0.0 ? (oc - o * c / n) / std::sqrt(vo * vc) : 0.0;
  }
};

// A whole cell's density that is freed unless the engine has gone.
class CellDensity {
 public:
  CellDensity() = default;
  CellDensity(const CellDensity&) = delete;
  CellDensity& operator=(const CellDensity&) = delete;
  ~CellDensity() {
    if (planes_ && epoch_ == qx::memory_epoch()) (void)xfree_3d_double(planes_);
  }
  void take(qxmap& map) {
    planes_ = std::exchange(map.density, nullptr);
    rms_ = map.cell_rms;
    epoch_ = qx::memory_epoch();
  }
  [[nodiscard]] double*** planes() const { return planes_; }
  [[nodiscard]] double rms() const { return rms_; }

 private:
  double rms_ = 0.0;
  double*** planes_ = nullptr;
  std::int64_t epoch_ = 0;
};

struct Needs {
  qxmap* map = nullptr;
  const qxrefdata* data = nullptr;
  const molsys* system = nullptr;
  const qxcell* cell = nullptr;
  const qxgrid* grid = nullptr;
};

Status fetch(Needs& needs) {
  if (!qx_get_qxmap()) {
    if (!qx_exist_quorix()) return failed;
    QX_TRY(qx_new_qxmap());
  }
  QX_TRY(qx_set_map_default());
  const qxmap* map = nullptr;
  QX_TRY(qx::fetch_calculated(here, map, needs.data));
  needs.map = qx_get_qxmap();
  if (!needs.map) return failed;
  needs.system = qx_get_molsys();
  if (!needs.system) return failed;
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxcell, needs.cell, "qxcell object has not been created yet "),
      qx::need(qx_get_qxgrid, needs.grid, "qxgrid object has not been created yet ")));
  return ok;
}

// Both maps of the same reflections: those that were observed.
Status make_densities(const Needs& needs, CellDensity& of_data, CellDensity& of_model) {
  const qxrefdata& data = *needs.data;
  const auto n = static_cast<std::size_t>(data.nreflections);
  qx::ComplexF f;
  QX_TRY(qx::calculated_factors(data, f));
  qx::ComplexF out;
  const Tagged<float> polar(2 * n, "pdc_polar");
  if (!polar) return failed;
  const Tagged<double> coefficients(2 * n, "pdc_coef");
  if (!coefficients) return failed;
  const std::pair<qx::CoefficientChoice, CellDensity*> maps[] = {
      {{qx::CoefficientKind::sigmaa, 2.0, 1.0, false, false}, &of_data},
      {{qx::CoefficientKind::sigmaa, 0.0, -1.0, false, false}, &of_model}};
  for (const auto& [choice, density] : maps) {
    QX_TRY(qx::weighted_coefficients(here, choice, data, f, out));
    qx::put_polar(out, data.nreflections, polar.get(), polar.get() + n);
    for (std::size_t i = 0; i < 2 * n; ++i) coefficients[i] = static_cast<double>(polar[i]);
    QX_TRY(qx_generate_map_core(coefficients.get(), coefficients.get() + n));
    if (!qx::map_density(*needs.map)) return failed;
    density->take(*needs.map);
  }
  return ok;
}

qx::MaskGrid layout(const Needs& needs) {
  const double(&f)[9] = needs.cell->standard_frac2orth;
  const qxgrid& g = *needs.grid;
  return {g.nx,        g.ny,        g.nz,        f[0] / g.nx, f[1] / g.ny,
          f[4] / g.ny, f[2] / g.nz, f[5] / g.nz, f[8] / g.nz};
}

void grid_place(const Needs& needs, std::int32_t atom, double (&at)[3]) {
  const double(&m)[16] = needs.cell->orth2frac;
  const molsys& s = *needs.system;
  const std::int32_t counts[3] = {needs.grid->nx, needs.grid->ny, needs.grid->nz};
  for (int i = 0; i < 3; ++i) {
    const double* row = m + 4 * static_cast<std::ptrdiff_t>(i);
    const double place = row[0] * s.x[atom] + row[1] * s.y[atom] + row[2] * s.z[atom] + row[3];
    at[i] = (place - std::floor(place)) * counts[i];
  }
}

// The atoms of each group behind those of the group before.
Status sort_by_group(const molsys& system, std::int32_t n, const std::int32_t* group,
                     std::int32_t ngroups, Tagged<std::int32_t>& starts,
                     Tagged<std::int32_t>& atoms) {
  const auto slots = static_cast<std::size_t>(ngroups) + 1;
  starts = Tagged<std::int32_t>(qx::allocate_zeroed<std::int32_t>(slots + 1, "pdc_start"));
  if (!starts) return failed;
  atoms = Tagged<std::int32_t>(static_cast<std::size_t>(std::max(system.natom, 1)), "pdc_atom");
  if (!atoms) return failed;
  const auto group_of = [&](std::int32_t atom) -> std::size_t {
    const std::int32_t full = system.to_full[atom];
    const bool counts = full < n && group[full] >= 0 && group[full] < ngroups &&
                        system.info.atomic_number[atom] != 1;
    return static_cast<std::size_t>(counts ? group[full] : ngroups);
  };
  for (std::int32_t i = 0; i < system.natom; ++i) ++starts[group_of(i) + 1];
  for (std::size_t g = 0; g < slots; ++g) starts[g + 1] += starts[g];
  for (std::int32_t i = system.natom - 1; i >= 0; --i) {
    // Filled from the end: each start is right again afterwards.
    const std::size_t g = group_of(i);
    atoms[static_cast<std::size_t>(--starts[g + 1])] = i;
  }
  for (std::size_t g = 0; g < slots; ++g) starts[g] = starts[g + 1];
  return ok;
}

}  // namespace

Status qx_calc_density_correlation(double radius, std::int32_t n, const std::int32_t* group,
                                   std::int32_t ngroups, qx_density_correlation* out) {
  constexpr double largest_radius = 20.0;
  if (!(radius > 0.0) || radius > largest_radius || n < 0 || ngroups < 1) {
    return fail(here, "Invalid radius %f or number of groups %d ", radius, ngroups);
  }
  Needs needs;
  QX_TRY(fetch(needs));
  CellDensity of_data;
  CellDensity of_model;
  QX_TRY(make_densities(needs, of_data, of_model));
  const double rms = std::max(of_data.rms(), 1e-30);
  Tagged<std::int32_t> starts;
  Tagged<std::int32_t> atoms;
  QX_TRY(sort_by_group(*needs.system, n, group, ngroups, starts, atoms));
  const qx::MaskGrid grid = layout(needs);
  const Tagged<std::int32_t> last_group(
      qx::allocate_zeroed<std::int32_t>(grid.points(), "pdc_seen"));
  if (!last_group) return failed;
  for (std::int32_t g = 0; g < ngroups; ++g) {
    const auto at = static_cast<std::size_t>(g);
    Sums sums = {};
    for (std::int32_t j = starts[at]; j < starts[at + 1]; ++j) {
      double place[3];
      grid_place(needs, atoms[static_cast<std::size_t>(j)], place);
      qx::for_each_run(
          grid, place, radius,
          [&](std::int32_t iz, std::int32_t iy, std::int32_t first, std::int32_t last) {
            const std::int32_t z = qx::wrapped(iz, grid.nz);
            const std::int32_t y = qx::wrapped(iy, grid.ny);
            for (std::int32_t ix = first; ix <= last; ++ix) {
              const std::int32_t x = qx::wrapped(ix, grid.nx);
              std::int32_t& seen = last_group[grid.row(z, y) + static_cast<std::size_t>(x)];
              if (std::exchange(seen, g + 1) == g + 1) continue;
              sums.add(of_data.planes()[z][y][x], of_model.planes()[z][y][x]);
            }
          });
    }
    out[g] = {starts[at + 1] - starts[at], sums.n, sums.correlation(),
              sums.n > 0 ? sums.o / sums.n / rms : 0.0};
  }
  return ok;
}
