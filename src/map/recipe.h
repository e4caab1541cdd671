// A map before it has points: half its spectrum, transformed along z, and what the symmetry spares.
// Points come into being plane by plane for whoever asks, in any order and for several threads.
#pragma once

#include "fft/disc_spectrum.h"
#include "map/box.h"
#include "map/plane_relations.h"
#include "map/spectrum.h"

namespace qx {

// Grid indices of a map, inclusive, in any cell.
struct BoxRange {
  std::int32_t low[3], high[3];
  [[nodiscard]] std::int32_t count(int axis) const { return high[axis] - low[axis] + 1; }
};

struct MapRecipe {
  GridCounts n = {};
  DiscLayout disc;
  std::int32_t* width = nullptr;  // what the layout points to
  std::ptrdiff_t* row_start = nullptr;
  double* terms = nullptr;
  std::int32_t* place = nullptr;  // per plane: where its terms are, -1: nowhere
  GridOperator* operators = nullptr;
  std::int32_t* relation_block = nullptr;
  PlaneRelations relations;  // of a whole cell
};

struct Extremes {
  double minimum, maximum;
};

// From a spectrum that fits half the grid and whose opposites were added; its expansion is closed.
// Terms are multiplied by `scale`. With a range, only its planes can be made (make_box); without
// one, all of them (make_planes). `failed` after a report.
Status open_recipe(Spectrum& spectrum, const GridCounts& n, double scale, const BoxRange* range,
                   MapRecipe*& recipe);
Status drop_recipe(MapRecipe*& recipe);

// Planes first .. first + count - 1 of the whole cell, [z][y][x], for T float or double. Extremes
// are those of the whole cell if all planes are asked for.
template <class T>
Status make_planes(const MapRecipe& recipe, std::int32_t first, std::int32_t count, T* values,
                   Extremes& extremes);
// The points of the range that the recipe was made for, and their statistics.
Status make_box(const MapRecipe& recipe, const BoxRange& range, double* values,
                MapStatistics& statistics);

}  // namespace qx
