// The threads that make planes of a map, each with scratch of its own.
#pragma once

#include "core/parallel.h"
#include "core/tagged.h"
#include "fft/plane_transform.h"
#include "map/recipe.h"

#include <algorithm>

namespace qx {

class PlaneWorkers {
 public:
  // What a value costs along one axis, about.
  static constexpr double operations_a_value = 12;

  // Of all planes of a map.
  static double cost(const MapRecipe& recipe) {
    return 2 * operations_a_value * static_cast<double>(recipe.n.nx) * recipe.n.ny *
           (recipe.relations.nplanes > 0 ? recipe.relations.nplanes : recipe.disc.planes);
  }
  // As many threads as `operations` are worth, one for a part at most; `values` numbers T for each
  // beside the scratch.
  template <class T>
  Status open(const DiscLayout& disc, double operations, std::int32_t parts, std::size_t values) {
    threads_ = std::min(threads_worth(operations), std::max(parts, 1));
    QX_TRY(transform_.open(disc));
    each_ = transform_.scratch_doubles();
    values_ = (values * sizeof(T) + sizeof(double) - 1) / sizeof(double);
    block_ = Tagged<double>((each_ + values_) * static_cast<std::size_t>(threads_), "pgm_work");
    return block_ ? ok : failed;
  }
  [[nodiscard]] std::int32_t threads() const { return threads_; }
  [[nodiscard]] const PlaneTransform& transform() const { return transform_; }
  [[nodiscard]] PlaneScratch scratch(std::int32_t worker) const {
    return transform_.scratch(block_of(worker));
  }
  template <class T>
  [[nodiscard]] T* values(std::int32_t worker) const {
    return reinterpret_cast<T*>(block_of(worker) + each_);
  }

 private:
  [[nodiscard]] double* block_of(std::int32_t worker) const {
    return block_.get() + (each_ + values_) * static_cast<std::size_t>(worker);
  }

  PlaneTransform transform_;
  Tagged<double> block_;
  std::size_t each_ = 0, values_ = 0;
  std::int32_t threads_ = 1;
};

// The plane that is kept at recipe.place[iz], with the rows that are images of others.
template <class T>
Extremes make_plane(const MapRecipe& recipe, const PlaneTransform& transform,
                    const PlaneScratch& scratch, std::int32_t iz, T* plane) noexcept;

Extremes all_extremes(const Extremes* found, std::int32_t n) noexcept;

}  // namespace qx
