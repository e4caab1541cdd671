// Crystal and grid of a map, settled between them.
#include "driver/commands/command_error.h"
#include "driver/commands/map/job.h"

#include <quorix/reflection_view.h>
#include <quorix/views.h>

#include <algorithm>
#include <cstdlib>

namespace qx {

std::int32_t reflections_used() {
  qx_reflection_view view = {};
  return qx_get_reflection_view(&view) ? view.n : 0;
}

namespace {

// Rows of indices to rows of mates, by operator of the group; h R is linear in h.
struct IndexMatrix {
  std::int32_t of[3][3];
};

std::vector<IndexMatrix> index_matrices() {
  std::vector<IndexMatrix> list;
  for (std::int32_t op = 0;; ++op) {
    IndexMatrix matrix = {};
    for (int a = 0; a < 3; ++a) {
      std::int32_t unit[3] = {};
      double cycles = 0.0;
      unit[a] = 1;
      if (qx_get_index_mate(op, unit, matrix.of[a], &cycles) != 1) return list;
    }
    list.push_back(matrix);
  }
}

bool fits(const std::vector<IndexMatrix>& operators, const std::int32_t (&hkl)[3],
          const std::int32_t (&counts)[3]) {
  for (const IndexMatrix& r : operators) {
    for (int a = 0; a < 3; ++a) {
      const std::int32_t mate = hkl[0] * r.of[0][a] + hkl[1] * r.of[1][a] + hkl[2] * r.of[2][a];
      if (2 * std::abs(mate) >= counts[a]) return false;
    }
  }
  return true;
}

// The resolution to which the grid holds every reflection with all its mates; none if all fit.
std::optional<double> resolution_of_grid() {
  qx_reflections_view set;
  qx_grid_view grid;
  if (qx_get_reflections_view(&set) != 1 || qx_get_grid_view(&grid) != 1) return {};
  // |h| = |a . s| <= |a| |s|, of every mate.
  qx_cell_view cell;
  if (qx_get_cell_view(&cell) != 1) return {};
  const double most = set.n > 0 ? *std::max_element(set.s_length, set.s_length + set.n) : 0.0;
  bool fine = true;
  for (int a = 0; a < 3; ++a) fine = fine && 2.001 * cell.edges[a] * most < grid.counts[a];
  if (fine) return {};
  const std::vector<IndexMatrix> operators = index_matrices();
  double least = 1e30;
  for (std::int32_t i = 0; i < set.n; ++i) {
    const std::int32_t hkl[3] = {set.h[i], set.k[i], set.l[i]};
    if (set.s_length[i] < least && !fits(operators, hkl, grid.counts)) least = set.s_length[i];
  }
  if (least == 1e30) return {};
  return (1.0 + 1e-6) / least;
}

}  // namespace

void start_map(Engine& engine, MapJob& job, std::int32_t& dropped) {
  std::optional<std::int32_t> first;
  for (;;) {
    engine.run(crystal_section(job));
    engine.run(grid_section(job.options));
    if (!first) first = reflections_used();
    const auto limit = resolution_of_grid();
    if (!limit) {
      dropped = *first - reflections_used();
      return;
    }
    if (job.options.counts.empty() && !(job.options.spacing > 0.0)) {
      throw CommandError(2, "the grid is too coarse for this cell: take a smaller --frac");
    }
    engine.renew();
    job.dmin = limit;
  }
}

std::vector<std::string> grid_warnings(const MapJob& job, std::int32_t dropped) {
  std::vector<std::string> lines;
  qx_limits_view limits;
  qx_grid_view grid;
  if (qx_get_limits_view(&limits) != 1 || qx_get_grid_view(&grid) != 1) return lines;
  if (dropped > 0) {
    lines.push_back(format("the grid holds indices to %.3f A: %d reflections beyond take no part",
                           limits.high, dropped));
  }
  const std::vector<int>& asked = job.options.counts;
  if (!asked.empty() && !std::equal(asked.begin(), asked.end(), grid.counts)) {
    lines.push_back(format(
        "a grid of %d x %d x %d is used: counts have no factors but 2, 3 and 5 and suit the group",
        grid.counts[0], grid.counts[1], grid.counts[2]));
  }
  return lines;
}

}  // namespace qx
