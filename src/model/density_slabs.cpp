#include "model/density_slabs.h"

#include "core/parallel.h"
#include "model/spread_rows.h"

#include <algorithm>
#include <cstring>

namespace qx {

namespace {

// Planes of the box that an atom's copy may touch.
IndexRange reached(const SpreadGrid& grid, const double (&centre)[3], double radius) noexcept {
  constexpr double rounding = 1.0 + 1e-6;
  return planes_within(grid, centre, radius * rounding);
}

std::size_t points_in_plane(const SpreadGrid& grid) {
  return static_cast<std::size_t>(grid.nx) * static_cast<std::size_t>(grid.ny);
}

// Planes first .. last - 1 as a box of their own.
SpreadGrid slab_of(const SpreadGrid& grid, std::int32_t first, std::int32_t last) noexcept {
  SpreadGrid slab = grid;
  slab.z_first += first * grid.z_step;
  slab.nplanes = last - first;
  slab.data = grid.row(first, 0);
  return slab;
}

// Where to cut the box so that as many planes of atoms lie in each slab: planes cuts[i] to
// cuts[i+1].
Status cut_box(const DensityJob& job, const PlacedAtoms& placed, std::int32_t slabs,
               Tagged<std::int32_t>& cuts) {
  const std::int32_t nplanes = job.grid.nplanes;
  Tagged<std::int64_t> load(
      allocate_zeroed<std::int64_t>(static_cast<std::size_t>(nplanes) + 1, "pce_load"));
  if (!load) return failed;
  for (std::int32_t i = 0; i < placed.n; ++i) {
    const PlacedAtom& atom = placed.atoms[static_cast<std::size_t>(i)];
    const double radius = job.cut->radius[atom.atom];
    for_each_copy(job, atom.at, radius, [&](const double(&copy)[3]) {
      const IndexRange planes = reached(job.grid, copy, radius);
      if (planes.last < planes.first) return;
      ++load[static_cast<std::size_t>(planes.first)];
      --load[static_cast<std::size_t>(planes.last) + 1];
    });
  }
  cuts = Tagged<std::int32_t>(static_cast<std::size_t>(slabs) + 1, "pce_cuts");
  if (!cuts) return failed;
  // Atoms at each plane, and one for the plane itself; then their sums.
  std::int64_t atoms = 0;
  std::int64_t total = 0;
  for (std::int32_t plane = 0; plane < nplanes; ++plane) {
    std::int64_t& at = load[static_cast<std::size_t>(plane)];
    atoms += at;
    at = total;
    total += atoms + 1;
  }
  for (std::int32_t i = 0; i <= slabs; ++i) {
    const std::int64_t* cut =
        std::lower_bound(load.get(), load.get() + nplanes, part_begin(total, slabs, i));
    cuts[static_cast<std::size_t>(i)] = static_cast<std::int32_t>(cut - load.get());
  }
  return ok;
}

void fill_slab(const DensityJob& job, const SpreadGrid& slab, const PlacedAtoms& placed,
               double* scratch) noexcept {
  std::memset(slab.data, 0,
              points_in_plane(slab) * static_cast<std::size_t>(slab.nplanes) * sizeof(double));
  for (std::int32_t i = 0; i < placed.n; ++i) {
    const PlacedAtom& atom = placed.atoms[static_cast<std::size_t>(i)];
    const double radius = job.cut->radius[atom.atom];
    bool touches = false;
    for_each_copy(job, atom.at, radius, [&](const double(&copy)[3]) {
      const IndexRange planes = reached(slab, copy, radius);
      touches = touches || planes.first <= planes.last;
    });
    if (touches) spread_checked(job, slab, atom.atom, atom.at, scratch);
  }
}

}  // namespace

std::int32_t threads_for_atoms(const DensityJob& job, std::int32_t natom) {
  const SpreadGrid& grid = job.grid;
  const double r = job.cut->largest;
  const double points_of_an_atom = 4.0 * r * r * r / (grid.ax * grid.by * grid.cz * grid.z_step);
  const double points = static_cast<double>(points_in_plane(grid)) * grid.nplanes;
  return threads_worth(points + 3.0 * natom * points_of_an_atom);
}

Status fill_slabs(const DensityJob& job, const PlacedAtoms& placed, std::int32_t threads) {
  for (std::int32_t i = 0; i < placed.n; ++i) {
    QX_TRY(check_atom(job, placed.atoms[static_cast<std::size_t>(i)].atom));
  }
  const std::int32_t slabs = std::min(2 * threads, job.grid.nplanes);
  Tagged<std::int32_t> cuts;
  QX_TRY(cut_box(job, placed, slabs, cuts));
  const std::size_t size = (spread_scratch_size(job.grid, job.cut->largest) + 7) / 8 * 8;
  const Tagged<double> scratch(size * static_cast<std::size_t>(threads), "pce_comb");
  if (!scratch) return failed;
  parallel(slabs, threads, [&](std::int32_t part, std::int32_t worker) {
    const auto i = static_cast<std::size_t>(part);
    if (cuts[i] == cuts[i + 1]) return;
    fill_slab(job, slab_of(job.grid, cuts[i], cuts[i + 1]), placed,
              scratch.get() + size * static_cast<std::size_t>(worker));
  });
  return ok;
}

}  // namespace qx
