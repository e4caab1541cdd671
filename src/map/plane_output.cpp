#include "map/plane_output.h"

#include "core/report.h"
#include "map/plane_workers.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace qx {

namespace {

constexpr const char* not_written = "Failed to write map data ";

std::size_t points_of(const MapRecipe& recipe) {
  return static_cast<std::size_t>(recipe.n.nx) * static_cast<std::size_t>(recipe.n.ny);
}

bool write_at(int descriptor, const float* values, std::size_t n, std::int64_t offset) noexcept {
  const char* bytes = reinterpret_cast<const char*>(values);
  std::size_t left = n * sizeof(float);
  while (left > 0) {
    const ssize_t written = pwrite(descriptor, bytes, left, offset);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    offset += written;
    left -= static_cast<std::size_t>(written);
  }
  return true;
}

// A descriptor whose planes are written by several threads, and whether all went well.
class PlacedPlanes {
 public:
  PlacedPlanes(int descriptor, std::int64_t offset, std::size_t points)
      : descriptor_(descriptor), offset_(offset), points_(points) {}
  [[nodiscard]] bool good() const noexcept { return good_.load(std::memory_order_relaxed); }
  void put(std::int32_t iz, const float* plane) noexcept {
    const auto bytes = static_cast<std::int64_t>(points_ * sizeof(float));
    if (!write_at(descriptor_, plane, points_, offset_ + iz * bytes)) good_ = false;
  }

 private:
  int descriptor_;
  std::int64_t offset_;
  std::size_t points_;
  std::atomic<bool> good_ = true;
};

Extremes put_family(const MapRecipe& recipe, const PlaneWorkers& workers, std::int32_t worker,
                    std::int32_t part, PlacedPlanes& file) noexcept {
  const PlaneRelations& relations = recipe.relations;
  auto* plane = workers.values<float>(worker);
  float* image = plane + points_of(recipe);
  const std::int32_t* images = relations.images + relations.first_image[part];
  const std::int32_t* end = relations.images + relations.first_image[part + 1];
  const Extremes extremes =
      make_plane(recipe, workers.transform(), workers.scratch(worker), *images, plane);
  file.put(*images, plane);
  for (const std::int32_t* iz = images + 1; iz < end && file.good(); ++iz) {
    make_image(relations, *iz, plane, image);
    file.put(*iz, image);
  }
  return extremes;
}

bool write_floats(const float* values, std::size_t n, std::FILE* stream) {
  return std::fwrite(values, sizeof(float), n, stream) == n;
}

}  // namespace

bool takes_places(std::FILE* stream) noexcept {
  struct stat state = {};
  return fstat(fileno(stream), &state) == 0 && S_ISREG(state.st_mode);
}

Status write_planes(const char* heading, std::FILE* stream, std::int64_t offset,
                    const MapRecipe& recipe, Extremes& extremes) {
  const std::int32_t parts = recipe.relations.nplanes;
  PlaneWorkers workers;
  QX_TRY(
      workers.open<float>(recipe.disc, PlaneWorkers::cost(recipe), parts, 2 * points_of(recipe)));
  const Tagged<Extremes> found(static_cast<std::size_t>(parts), "pwcm_extremes");
  if (!found) return failed;
  PlacedPlanes file(fileno(stream), offset, points_of(recipe));
  parallel(parts, workers.threads(), [&](std::int32_t part, std::int32_t worker) {
    if (!file.good()) return;
    found[static_cast<std::size_t>(part)] = put_family(recipe, workers, worker, part, file);
  });
  if (!file.good()) return fail(heading, "%s", not_written);
  extremes = all_extremes(found.get(), parts);
  return ok;
}

Status OrderedPlanes::open(const MapRecipe& recipe, Extremes& extremes) {
  recipe_ = &recipe;
  const PlaneRelations& relations = recipe.relations;
  const std::size_t points = points_of(recipe);
  const auto parts = static_cast<std::size_t>(relations.nplanes);
  const bool keep = relations.nplanes < recipe.n.nz;
  if (keep) {
    kept_ = Tagged<float>(parts * points, "pwcm_kept");
    if (!kept_) return failed;
  }
  PlaneWorkers workers;
  QX_TRY(workers.open<float>(recipe.disc, PlaneWorkers::cost(recipe), relations.nplanes,
                             keep ? 0 : points));
  const Tagged<Extremes> found(parts, "pwcm_extremes");
  if (!found) return failed;
  parallel(relations.nplanes, workers.threads(), [&](std::int32_t part, std::int32_t worker) {
    const auto i = static_cast<std::size_t>(part);
    found[i] =
        make_plane(recipe, workers.transform(), workers.scratch(worker), relations.planes[part],
                   keep ? kept_.get() + i * points : workers.values<float>(worker));
  });
  extremes = all_extremes(found.get(), relations.nplanes);
  return ok;
}

Status OrderedPlanes::write(const char* heading, std::FILE* stream) const {
  return kept_ ? write_kept(heading, stream) : write_anew(heading, stream);
}

Status OrderedPlanes::write_kept(const char* heading, std::FILE* stream) const {
  const PlaneRelations& relations = recipe_->relations;
  const std::size_t points = points_of(*recipe_);
  const Tagged<float> image(points, "pwcm_et");
  if (!image) return failed;
  for (std::int32_t iz = 0; iz < recipe_->n.nz; ++iz) {
    const std::int32_t* planes = relations.planes;
    const auto i =
        std::lower_bound(planes, planes + relations.nplanes, relations.plane_source[iz]) - planes;
    const float* source = kept_.get() + static_cast<std::size_t>(i) * points;
    const bool is_source = relations.plane_source[iz] == iz;
    if (!is_source) make_image(relations, iz, source, image.get());
    if (!write_floats(is_source ? source : image.get(), points, stream)) {
      return fail(heading, "%s", not_written);
    }
  }
  return ok;
}

// As many planes at a time as there are threads.
Status OrderedPlanes::write_anew(const char* heading, std::FILE* stream) const {
  const std::size_t points = points_of(*recipe_);
  PlaneWorkers workers;
  QX_TRY(workers.open<float>(recipe_->disc, PlaneWorkers::cost(*recipe_), recipe_->n.nz, 0));
  const std::int32_t together = workers.threads();
  const Tagged<float> planes(points * static_cast<std::size_t>(together), "pwcm_et");
  if (!planes) return failed;
  for (std::int32_t iz = 0; iz < recipe_->n.nz; iz += together) {
    const std::int32_t count = std::min(together, recipe_->n.nz - iz);
    parallel(count, workers.threads(), [&](std::int32_t i, std::int32_t worker) {
      (void)make_plane(*recipe_, workers.transform(), workers.scratch(worker), iz + i,
                       planes.get() + static_cast<std::size_t>(i) * points);
    });
    if (!write_floats(planes.get(), points * static_cast<std::size_t>(count), stream)) {
      return fail(heading, "%s", not_written);
    }
  }
  return ok;
}

}  // namespace qx
