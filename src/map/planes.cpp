// Points of a map from its recipe: planes of the whole cell, or a box.
#include "core/report.h"
#include "core/wrapped.h"
#include "fft/simd.h"
#include "map/plane_workers.h"
#include "map/recipe.h"

#include <algorithm>
#include <limits>

namespace qx {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

RowMoments deliver(const double* from, std::ptrdiff_t n, double* to) {
  return fft_kernels().deliver(from, n, to, false);
}
RowMoments deliver(const double* from, std::ptrdiff_t n, float* to) {
  return fft_kernels().deliver_single(from, n, to);
}

void widen(Extremes& extremes, const RowMoments& row) {
  extremes.minimum = std::min(extremes.minimum, row.minimum);
  extremes.maximum = std::max(extremes.maximum, row.maximum);
}

}  // namespace

template <class T>
Extremes make_plane(const MapRecipe& recipe, const PlaneTransform& transform,
                    const PlaneScratch& scratch, std::int32_t iz, T* plane) noexcept {
  const PlaneRelations& relations = recipe.relations;
  const std::ptrdiff_t nx = recipe.n.nx;
  Extremes extremes = {infinity, -infinity};
  transform.open_plane(recipe.terms, recipe.place[iz], scratch);
  for (std::int32_t i = 0; i < relations.nrows; i += 2) {
    const std::int32_t a = relations.rows[i];
    const std::int32_t b = i + 1 < relations.nrows ? relations.rows[i + 1] : -1;
    const double* rows = transform.rows(a, b, scratch);
    widen(extremes, deliver(rows, nx, plane + a * nx));
    if (b >= 0) widen(extremes, deliver(rows + nx, nx, plane + b * nx));
  }
  fill_rows(relations, plane);
  return extremes;
}

namespace {

// Planes first .. first + count - 1 of a cell, in one block.
template <class T>
class PlaneBlock {
 public:
  PlaneBlock(const GridCounts& n, std::int32_t first, std::int32_t count, T* values)
      : points_(std::ptrdiff_t{n.nx} * n.ny), first_(first), count_(count), values_(values) {}
  [[nodiscard]] T* plane(std::int32_t iz) const {
    return iz < first_ || iz - first_ >= count_ ? nullptr : values_ + (iz - first_) * points_;
  }

 private:
  std::ptrdiff_t points_;
  std::int32_t first_, count_;
  T* values_;
};

// One plane that is calculated, and all that are made of it, as far as they are asked for.
template <class T>
Extremes make_family(const MapRecipe& recipe, const PlaneWorkers& workers, std::int32_t worker,
                     std::int32_t part, const PlaneBlock<T>& block) noexcept {
  const PlaneRelations& relations = recipe.relations;
  const std::int32_t* images = relations.images + relations.first_image[part];
  const std::int32_t* end = relations.images + relations.first_image[part + 1];
  const bool wanted = std::any_of(images, end, [&](std::int32_t iz) { return block.plane(iz); });
  if (!wanted) return {infinity, -infinity};
  T* source = block.plane(*images);
  if (!source) source = workers.values<T>(worker);
  const Extremes extremes =
      make_plane(recipe, workers.transform(), workers.scratch(worker), *images, source);
  for (const std::int32_t* iz = images + 1; iz < end; ++iz) {
    if (T* plane = block.plane(*iz)) make_image(relations, *iz, source, plane);
  }
  return extremes;
}

// Rows of the box that lie in one plane; rows and planes behind a whole period are copies.
DensitySums cut_plane(const MapRecipe& recipe, const PlaneWorkers& workers, std::int32_t worker,
                      const BoxRange& range, std::int32_t jz, double* plane) noexcept {
  const PlaneTransform& transform = workers.transform();
  const PlaneScratch scratch = workers.scratch(worker);
  const std::ptrdiff_t width = range.count(0);
  const std::int32_t ny = recipe.n.ny;
  const std::int32_t distinct = std::min(range.count(1), ny);
  const auto row_of = [&](std::int32_t jy) { return wrapped(range.low[1] + jy, ny); };
  transform.open_plane(recipe.terms, recipe.place[wrapped(range.low[2] + jz, recipe.n.nz)],
                       scratch);
  DensitySums sums;
  for (std::int32_t jy = 0; jy < distinct; jy += 2) {
    const bool pair = jy + 1 < distinct;
    const double* rows = transform.rows(row_of(jy), pair ? row_of(jy + 1) : -1, scratch);
    copy_periodic(rows, recipe.n.nx, range.low[0], width, plane + jy * width);
    if (!pair) continue;
    copy_periodic(rows + recipe.n.nx, recipe.n.nx, range.low[0], width, plane + (jy + 1) * width);
  }
  for (std::int32_t jy = distinct; jy < range.count(1); ++jy) {
    std::copy_n(plane + (jy - ny) * width, width, plane + jy * width);
  }
  for (std::int32_t jy = 0; jy < range.count(1); ++jy) sums.add(plane + jy * width, width);
  return sums;
}

}  // namespace

template <class T>
Status make_planes(const MapRecipe& recipe, std::int32_t first, std::int32_t count, T* values,
                   Extremes& extremes) {
  const auto points = static_cast<std::size_t>(recipe.n.nx) * static_cast<std::size_t>(recipe.n.ny);
  const PlaneBlock<T> block(recipe.n, first, count, values);
  const std::int32_t parts = recipe.relations.nplanes;
  PlaneWorkers workers;
  QX_TRY(workers.open<T>(recipe.disc, PlaneWorkers::cost(recipe), parts,
                         count < recipe.n.nz ? points : 0));
  const Tagged<Extremes> found(static_cast<std::size_t>(parts), "pgm_extremes");
  if (!found) return failed;
  parallel(parts, workers.threads(), [&](std::int32_t part, std::int32_t worker) {
    found[static_cast<std::size_t>(part)] = make_family(recipe, workers, worker, part, block);
  });
  extremes = all_extremes(found.get(), parts);
  return ok;
}

Status make_box(const MapRecipe& recipe, const BoxRange& range, double* values,
                MapStatistics& statistics) {
  const std::ptrdiff_t points = std::ptrdiff_t{range.count(0)} * range.count(1);
  const std::int32_t distinct = std::min(range.count(2), recipe.n.nz);
  PlaneWorkers workers;
  QX_TRY(workers.open<double>(recipe.disc, PlaneWorkers::cost(recipe), distinct, 0));
  const Tagged<DensitySums> sums(static_cast<std::size_t>(distinct), "pgm_sums");
  if (!sums) return failed;
  parallel(distinct, workers.threads(), [&](std::int32_t jz, std::int32_t worker) {
    sums[static_cast<std::size_t>(jz)] =
        cut_plane(recipe, workers, worker, range, jz, values + jz * points);
  });
  DensitySums all;
  for (std::int32_t jz = 0; jz < range.count(2); ++jz) {
    const std::int32_t source = jz % distinct;
    if (jz != source) std::copy_n(values + source * points, points, values + jz * points);
    all.add(sums[static_cast<std::size_t>(source)]);
  }
  statistics = all.statistics(points * range.count(2));
  return ok;
}

Extremes all_extremes(const Extremes* found, std::int32_t n) noexcept {
  Extremes all = {infinity, -infinity};
  for (const Extremes* e = found; e < found + n; ++e) {
    all.minimum = std::min(all.minimum, e->minimum);
    all.maximum = std::max(all.maximum, e->maximum);
  }
  return all;
}

template Status make_planes<float>(const MapRecipe&, std::int32_t, std::int32_t, float*, Extremes&);
template Status make_planes<double>(const MapRecipe&, std::int32_t, std::int32_t, double*,
                                    Extremes&);
template Extremes make_plane<float>(const MapRecipe&, const PlaneTransform&, const PlaneScratch&,
                                    std::int32_t, float*) noexcept;
template Extremes make_plane<double>(const MapRecipe&, const PlaneTransform&, const PlaneScratch&,
                                     std::int32_t, double*) noexcept;

}  // namespace qx
