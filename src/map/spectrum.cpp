#include "map/spectrum.h"

#include "core/report.h"
#include "crystal/spacegroup.h"

#include <quorix/engine.h>

#include <algorithm>

namespace qx {

namespace {

constexpr auto here = "qx_generate_map_with_coef():";

}  // namespace

Status Spectrum::open_symmetry() {
  const qxspg* spg = qx_get_qxspg();
  if (!spg || spg->nops < 1) return fail(here, "qxspg object has not been created yet ");
  const auto count = static_cast<std::size_t>(spg->nops) + 1;
  operators_ = Tagged<MateOperator>(count, "pgm_op");
  if (!operators_) return failed;
  mates_ = Tagged<Index3>(count, "pgm_mate");
  if (!mates_) return failed;
  if (!make_symmetry(spg->ops, spg->nops, operators_.get(), symmetry_)) {
    return fail(here, "The symmetry operators cannot be applied to reflections. ");
  }
  return ok;
}

Status Spectrum::open_scratch(Index3 bounds) {
  const auto rows = static_cast<std::size_t>(expansion_.list.n);
  const std::size_t members =
      symmetry_.closed ? rows : rows * static_cast<std::size_t>(symmetry_.nrotations);
  // Bits for the indices may take a quarter of a byte per grid point, small sets 4 MB.
  const std::size_t bit_words = std::max(grid_.points() / 32, std::size_t{1} << 19);
  const bool half = expansion_.add_opposites;
  counts_ = Tagged<std::uint8_t>(rows, "pgm_cnt");
  if (!counts_) return failed;
  seen_words_ =
      Tagged<std::uint64_t>(IndexSet::words_needed(bounds, half, members, bit_words), "pgm_seen");
  if (!seen_words_) return failed;
  seen_ = IndexSet(seen_words_.get(), bounds, half, members, bit_words);
  return ok;
}

// Columns by k of the grid from columns by k of the bounds.
Status Spectrum::fold_columns(const std::int32_t* columns, std::int32_t kmax) {
  columns_ = Tagged<std::int32_t>(static_cast<std::size_t>(grid_.ny), "pgm_col");
  if (!columns_) return failed;
  std::fill_n(columns_.get(), grid_.ny, 0);
  for (std::int32_t k = -kmax; k <= kmax; ++k) {
    const std::int32_t rest = k % grid_.ny;
    std::int32_t& column = columns_[static_cast<std::size_t>(rest < 0 ? rest + grid_.ny : rest)];
    column = std::max(column, columns[kmax + k]);
  }
  return ok;
}

Status Spectrum::open(const CoefficientList& list, bool add_opposites, const GridCounts& grid) {
  grid_ = grid;
  QX_TRY(open_symmetry());
  Index3 bounds = {};
  if (!largest_indices(list, bounds) || !mate_bounds(symmetry_, bounds, bounds)) {
    return fail(here, "The indices of the reflections are too large for a map. ");
  }
  expansion_.list = list;
  expansion_.add_opposites = add_opposites;
  QX_TRY(open_scratch(bounds));
  expansion_.symmetry = &symmetry_;
  expansion_.counts = counts_.get();
  expansion_.mates = mates_.get();
  expansion_.seen = &seen_;
  const Tagged<std::int32_t> columns(2 * static_cast<std::size_t>(bounds.k) + 1, "pgm_col");
  if (!columns) return failed;
  extent = measure(expansion_, bounds, columns.get());
  seen_words_.reset();
  return fold_columns(columns.get(), bounds.k);
}

}  // namespace qx
