#include "map/recipe.h"

#include "core/parallel.h"
#include "core/report.h"
#include "core/wrapped.h"
#include "crystal/spacegroup.h"
#include "fft/plane_transform.h"
#include "map/plane_workers.h"

#include <quorix/engine.h>

#include <algorithm>

namespace qx {

namespace {

// Which rows there are in a plane of the disc, and how long.
Status lay_out(const Spectrum& spectrum, MapRecipe& recipe) {
  const auto ny = static_cast<std::size_t>(recipe.n.ny);
  QX_TRY(open_block(recipe.width, ny, "pgm_width"));
  QX_TRY(open_block(recipe.row_start, ny, "pgm_row"));
  DiscLayout& disc = recipe.disc;
  disc.nx = recipe.n.nx;
  disc.ny = recipe.n.ny;
  disc.nz = recipe.n.nz;
  disc.alternates = spectrum.extent.alternates && disc.nx % 2 == 0 && disc.ny % 2 == 0;
  disc.hmax = spectrum.extent.largest.h;
  disc.lmax = spectrum.extent.largest.l;
  disc.width = recipe.width;
  disc.row_start = recipe.row_start;
  std::ptrdiff_t next = 0;
  for (std::size_t iy = 0; iy < ny; ++iy) {
    recipe.row_start[iy] = next;
    recipe.width[iy] = disc.kept(spectrum.columns()[iy]);
    next += recipe.width[iy];
  }
  disc.plane_terms = std::max<std::ptrdiff_t>(next, DiscLayout::line);
  return ok;
}

Status open_relations(MapRecipe& recipe) {
  const qxspg* spg = qx_get_qxspg();
  if (!spg) return failed;
  PlaneRelations& relations = recipe.relations;
  relations.counts[0] = recipe.n.nx;
  relations.counts[1] = recipe.n.ny;
  relations.counts[2] = recipe.n.nz;
  QX_TRY(open_block(recipe.operators, static_cast<std::size_t>(spg->nops), "pgm_gridop"));
  QX_TRY(open_block(recipe.relation_block, PlaneRelations::size(relations.counts), "pgm_related"));
  for (std::int32_t i = 0; i < spg->nops; ++i) {
    GridOperator op;
    if (grid_operator(spg->ops[i], relations.counts, op)) {
      recipe.operators[relations.noperators++] = op;
    }
  }
  relations.operators = recipe.operators;
  relate(relations, recipe.relation_block);
  return ok;
}

// Gives every plane that will be made a place, in ascending order; how many there are.
std::int32_t choose_places(MapRecipe& recipe, const BoxRange* range) {
  const std::int32_t nz = recipe.n.nz;
  std::fill_n(recipe.place, nz, -1);
  if (range) {
    const std::int32_t planes = std::min(range->count(2), nz);
    for (std::int32_t i = 0; i < planes; ++i) recipe.place[wrapped(range->low[2] + i, nz)] = 0;
  } else {
    const PlaneRelations& relations = recipe.relations;
    for (std::int32_t i = 0; i < relations.nplanes; ++i) recipe.place[relations.planes[i]] = 0;
  }
  std::int32_t next = 0;
  for (std::int32_t iz = 0; iz < nz; ++iz) {
    if (recipe.place[iz] == 0) recipe.place[iz] = next++;
  }
  return next;
}

void clear_terms(const DiscLayout& disc, double* terms) {
  for (std::int32_t l = -disc.lmax; l <= disc.lmax; ++l) {
    std::fill_n(terms + disc.slot(l) * disc.plane_stride(), disc.plane_stride(), 0.0);
  }
}

// All rows, some thousands a part.
Status expand(const Expansion& expansion, double scale, MapRecipe& recipe) {
  constexpr std::int32_t together = 4096;
  constexpr double operations_a_mate = 40;
  const auto mates = static_cast<std::size_t>(expansion.symmetry->nrotations);
  const std::int32_t parts = (expansion.list.n + together - 1) / together;
  const double operations = operations_a_mate * static_cast<double>(mates) * expansion.list.n;
  const std::int32_t threads = std::min(threads_worth(operations), std::max(parts, 1));
  const Tagged<Index3> scratch(mates * static_cast<std::size_t>(threads), "pgm_mate");
  if (!scratch) return failed;
  parallel(parts, threads, [&](std::int32_t part, std::int32_t worker) {
    const std::int32_t first = part * together;
    const std::int32_t end = std::min(expansion.list.n - first, together) + first;
    Index3* own = scratch.get() + static_cast<std::size_t>(worker) * mates;
    expand_to_disc(expansion, {first, end, own}, scale, recipe.disc, recipe.terms);
  });
  return ok;
}

Status transform_columns(MapRecipe& recipe) {
  PlaneWorkers workers;
  const double columns = static_cast<double>(recipe.disc.plane_terms) * recipe.n.nz;
  QX_TRY(workers.open<double>(recipe.disc, columns * PlaneWorkers::operations_a_value, recipe.n.ny,
                              0));
  parallel(recipe.n.ny, workers.threads(), [&](std::int32_t iy, std::int32_t worker) {
    workers.transform().transform_z(recipe.terms, iy, recipe.place, workers.scratch(worker));
  });
  return ok;
}

}  // namespace

Status open_recipe(Spectrum& spectrum, const GridCounts& n, double scale, const BoxRange* range,
                   MapRecipe*& recipe) {
  MapRecipe* made = nullptr;
  QX_TRY(open_object(made, "pgm_recipe"));
  made->n = n;
  QX_TRY(lay_out(spectrum, *made));
  if (!range) QX_TRY(open_relations(*made));
  QX_TRY(open_block(made->place, static_cast<std::size_t>(n.nz), "pgm_place"));
  const std::int32_t places = choose_places(*made, range);
  made->disc.planes = std::max(places, 2 * made->disc.lmax + 1);
  QX_TRY(open_block(made->terms, static_cast<std::size_t>(made->disc.size()), "pgm_terms"));
  clear_terms(made->disc, made->terms);
  QX_TRY(expand(spectrum.expansion(), scale, *made));
  spectrum.close_expansion();
  QX_TRY(transform_columns(*made));
  recipe = made;
  return ok;
}

Status drop_recipe(MapRecipe*& recipe) {
  MapRecipe* gone = std::exchange(recipe, nullptr);
  if (!gone) return ok;
  QX_TRY(release(gone->width));
  QX_TRY(release(gone->row_start));
  QX_TRY(release(gone->place));
  QX_TRY(release(gone->operators));
  QX_TRY(release(gone->relation_block));
  QX_TRY(release(gone->terms));
  return xfree(gone);
}

}  // namespace qx
