// The road from reflections to the density of the map's box. Of most maps a recipe is made: half a
// spectrum, from which planes are calculated for who asks. Where opposites have rows of their own
// half a spectrum is transformed in the block that becomes the density; where indices reach beyond
// half the grid, full complex arrays are.
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "fft/transform_half.h"
#include "grid/grid.h"
#include "map/coefficients.h"
#include "map/map.h"
#include "map/spectrum.h"

#include <quorix/engine.h>
#include <quorix/fft.h>

#include <algorithm>
#include <cmath>
#include <utility>

using qx::fail;
using qx::failed;
using qx::GridCounts;
using qx::ok;
using qx::Spectrum;
using qx::Status;
using qx::View3;

namespace {

constexpr auto here = "qx_generate_map_with_coef():";
constexpr double least_rms = 1e-8;  // below, a map is not scaled

// An array of the cell that is freed unless it was given away.
class CellArray {
 public:
  CellArray(const GridCounts& n, const char* tag)
      : CellArray(n, xopen_3d_double(n.nz, n.ny, n.nx, tag)) {}
  // Takes over what is there already.
  CellArray(const GridCounts& n, double*** planes)
      : n_(n), planes_(planes), epoch_(qx::memory_epoch()) {}
  CellArray(const CellArray&) = delete;
  CellArray& operator=(const CellArray&) = delete;
  ~CellArray() {
    if (planes_ && epoch_ == qx::memory_epoch()) (void)xfree_3d_double(planes_);
  }
  explicit operator bool() const { return planes_ != nullptr; }
  [[nodiscard]] double*** planes() const { return planes_; }
  [[nodiscard]] View3<double> view() const { return qx::view3(planes_, n_.nz, n_.ny, n_.nx); }
  double*** release() { return std::exchange(planes_, nullptr); }

 private:
  GridCounts n_;
  double*** planes_;
  std::int64_t epoch_;
};

// The density of the cell, multiplied by `scale`; `statistics` of it.
Status transform_half(Spectrum& spectrum, double scale, const CellArray& cell,
                      qx::MapStatistics& statistics) {
  const qx::HalfSpectrum half = spectrum.half();
  double* block = cell.view().data;
  qx::clear_half_spectrum(half, block);
  qx::expand_to_half(spectrum.expansion(), scale, half, block);
  spectrum.close_expansion();
  qx::DensityMoments moments;
  QX_TRY(qx::inverse_half_3d(half, block, &moments));
  const auto points = static_cast<double>(half.size());
  statistics = {moments.minimum, moments.maximum, moments.sum / points,
                std::sqrt(moments.sum_of_squares / points)};
  return ok;
}

Status transform_full(Spectrum& spectrum, double scale, const GridCounts& n, const CellArray& cell,
                      qx::MapStatistics& statistics) {
  const CellArray imaginary(n, "pgm_imag");
  if (!imaginary) return failed;
  std::fill_n(cell.view().data, cell.view().size(), 0.0);
  std::fill_n(imaginary.view().data, imaginary.view().size(), 0.0);
  qx::expand_to_full(spectrum.expansion(), scale, cell.view(), imaginary.view());
  spectrum.close_expansion();
  QX_TRY(qx_inverse_cfft_3D(n.nz, n.ny, n.nx, cell.planes(), imaginary.planes(), cell.planes(),
                            imaginary.planes()));
  statistics = qx::statistics_of(qx::as_const(cell.view()));
  return ok;
}

bool is_whole_cell(const qxmap& map, const GridCounts& n) {
  return map.xlow == 0 && map.ylow == 0 && map.zlow == 0 && map.xhigh == n.nx - 1 &&
         map.yhigh == n.ny - 1 && map.zhigh == n.nz - 1;
}

qx::BoxRange range_of(const qxmap& map) {
  return {{map.xlow, map.ylow, map.zlow}, {map.xhigh, map.yhigh, map.zhigh}};
}

GridCounts points_of(const qx::BoxRange& range) {
  return {range.count(0), range.count(1), range.count(2)};
}

// Scale by the rms of the whole cell, which is known from its spectrum: the sum of squares over the
// points is their number times the sum of the squared amplitudes.
double scale_by_spectrum(qxmap& map, const qx::SpectrumExtent& extent, double volume) {
  map.mean = extent.f000 / volume;
  map.rms = map.cell_rms;
  return map.scale && map.rms > least_rms ? 1.0 / map.rms : 1.0;
}

// Scales the box by the rms of `unit`, if scaling is asked for.
void put_on_scale(qxmap& map, const qx::MapStatistics& unit, View3<double> box,
                  qx::MapStatistics& statistics) {
  map.mean = unit.mean;
  map.rms = unit.rms;
  if (map.scale && map.rms > least_rms) qx::scale_values(box, 1.0 / map.rms, statistics);
}

void install(qxmap& map, double*** density, const qx::MapStatistics& statistics) {
  map.density = density;
  map.statistics = statistics;
  map.statistics_known = true;
}

// Cuts the box out of the cell, puts it on the scale asked for and installs it.
Status install_density(qxmap& map, const GridCounts& n, CellArray& cell,
                       qx::MapStatistics statistics) {
  const qx::MapStatistics of_cell = statistics;
  if (is_whole_cell(map, n)) {
    put_on_scale(map, of_cell, cell.view(), statistics);
    install(map, cell.release(), statistics);
    return ok;
  }
  CellArray cut(points_of(range_of(map)), "pgm_emap");
  if (!cut) return failed;
  statistics = qx::cut_box(qx::as_const(cell.view()), map.xlow, map.ylow, map.zlow, cut.view());
  const qx::MapStatistics unit = map.scale == qx::cell_scale ? of_cell : statistics;
  put_on_scale(map, unit, cut.view(), statistics);
  install(map, cut.release(), statistics);
  return ok;
}

// All points of a map that is more than half the grid, or whose opposites are given.
Status generate_points(qxmap& map, Spectrum& spectrum, const GridCounts& n, double volume) {
  CellArray cell(n, "pgm_emap");
  if (!cell) return failed;
  qx::MapStatistics statistics;
  QX_TRY(spectrum.half().fits() ? transform_half(spectrum, 1.0 / volume, cell, statistics)
                                : transform_full(spectrum, 1.0 / volume, n, cell, statistics));
  map.cell_rms = statistics.rms;
  return install_density(map, n, cell, statistics);
}

// The points of a box that is less or more than the cell; its recipe goes.
Status generate_box(qxmap& map, Spectrum& spectrum, const GridCounts& n, double volume) {
  const bool scaled = map.scale == qx::cell_scale;
  const double scale = scaled ? scale_by_spectrum(map, spectrum.extent, volume) : 1.0;
  const qx::BoxRange range = range_of(map);
  qx::MapRecipe* recipe = nullptr;
  QX_TRY(qx::open_recipe(spectrum, n, scale / volume, &range, recipe));
  CellArray box(points_of(range), "pgm_emap");
  if (!box) return failed;
  qx::MapStatistics statistics;
  QX_TRY(qx::make_box(*recipe, range, box.view().data, statistics));
  QX_TRY(qx::drop_recipe(recipe));
  if (!scaled) {
    const qx::MapStatistics unit = statistics;
    put_on_scale(map, unit, box.view(), statistics);
  }
  install(map, box.release(), statistics);
  return ok;
}

Status generate_recipe(qxmap& map, Spectrum& spectrum, const GridCounts& n, double volume) {
  const double scale = scale_by_spectrum(map, spectrum.extent, volume);
  QX_TRY(qx::open_recipe(spectrum, n, scale / volume, nullptr, map.recipe));
  map.statistics = {0, 0, map.mean * scale, map.rms * scale};
  return ok;
}

Status generate(qxmap& map, const qx::CoefficientList& list, bool add_opposites,
                const GridCounts& n, double volume) {
  Spectrum spectrum;
  QX_TRY(spectrum.open(list, add_opposites, n));
  if (!add_opposites || !spectrum.half().fits()) return generate_points(map, spectrum, n, volume);
  map.cell_rms = std::sqrt(spectrum.extent.power) / volume;
  return is_whole_cell(map, n) ? generate_recipe(map, spectrum, n, volume)
                               : generate_box(map, spectrum, n, volume);
}

}  // namespace

namespace qx {

const qxrefdata* map_refdata() {
  const qxmap* map = qx_get_qxmap();
  const qxrefdata* set = map && map->refdata ? map->refdata : qx_get_qxrefdata();
  if (!set || set->nreflections < 1) {
    (void)fail("qx_generate_map():", "There is no reflections defined for generating map");
    return nullptr;
  }
  return set;
}

}  // namespace qx

Status qx::install_cell(qxmap& map, double*** density) {
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const GridCounts n = {grid->nx, grid->ny, grid->nz};
  CellArray cell(n, density);
  QX_TRY(qx_set_map_bound());
  QX_TRY(drop_density(map));
  const MapStatistics statistics = statistics_of(as_const(cell.view()));
  map.cell_rms = statistics.rms;
  return install_density(map, n, cell, statistics);
}

Status qx_generate_map() {
  const qxmap* map = nullptr;
  QX_TRY(qx::require("qx_generate_map():", qx_get_qxmap, map,
                     "qxmap object has not been created yet."));
  const qxrefdata* set = qx::map_refdata();
  if (!set) return failed;
  const auto n = static_cast<std::size_t>(set->nreflections);
  const qx::Tagged<double> amplitude(n, "pgm_fa");
  if (!amplitude) return failed;
  const qx::Tagged<double> phase(n, "pgm_fb");
  if (!phase) return failed;
  QX_TRY(qx::map_coefficients(*map, amplitude.get(), phase.get()));
  return qx_generate_map_core(amplitude.get(), phase.get());
}

Status qx_generate_map_core(const double* amplitude, const double* phase) {
  const qxrefdata* set = qx::map_refdata();
  if (!set) return failed;
  return qx_generate_map_with_coef(set->nreflections, set->h, set->k, set->l, amplitude, phase);
}

Status qx_generate_map_with_coef(std::int32_t nref, const std::int32_t* h, const std::int32_t* k,
                                 const std::int32_t* l, const double* amplitude,
                                 const double* phase) {
  qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  if (nref < 1) return fail(here, "There is no reflections defined for generating map");
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  if (!(cell->volume > 0) || !std::isfinite(cell->volume)) {
    return fail(here, "Invalid cell volume %f ", cell->volume);
  }
  QX_TRY(qx_set_map_bound());
  QX_TRY(qx::drop_density(*map));
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet "));
  const qxrefdata* set = map->refdata ? map->refdata : qx_get_qxrefdata();
  const bool add_opposites = !set || set->friedel_flag == 0;
  return generate(*map, {nref, h, k, l, amplitude, phase}, add_opposites,
                  {grid->nx, grid->ny, grid->nz}, cell->volume);
}
