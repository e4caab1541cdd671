// The map record.
#pragma once

#include "core/constants.h"
#include "map/box.h"
#include "map/recipe.h"

#include <quorix/map.h>

struct qxrefdata;

namespace qx {
enum MapType : std::int32_t { sigmaa_map = 1, unweighted_map, combined_map, expected_map };
enum MapExtent : std::int32_t {
  asym_extent = 1,
  unit_extent,
  box_extent,
  frac_extent,
  model_extent = 6
};
enum MapScale : std::int32_t { no_scale = 0, box_scale = 1, cell_scale = 2 };
enum MapSource : std::int32_t { input_source = 1, calculated_source = 2 };
enum MapKick : std::int32_t { not_kicked = 1, kicked = 2 };
}  // namespace qx

struct qxmap {
  double u = 2.0;  // multiplier of the observed amplitude
  double v = 1.0;  // multiplier of the calculated amplitude
  std::int32_t type = qx::unweighted_map;
  std::int32_t scale = 0;  // 1: divide by the rms, 2: by that of the whole cell
  bool weighted = false;   // the figure of merit multiplies the observed or input amplitude
  std::int32_t kick = 1;
  std::int32_t seed = 137;
  double kick_length = 0.3;
  std::int32_t kick_average = 5;
  std::int32_t extent = qx::unit_extent;
  double limits[6] = {qx::unset, qx::unset, qx::unset,
                      qx::unset, qx::unset, qx::unset};  // xmin xmax ymin ymax zmin zmax
  std::int32_t xlow = 0, xhigh = 0, ylow = 0, yhigh = 0, zlow = 0, zhigh = 0;  // inclusive
  double cushion = 3.0;                                                        // Angstrom
  // Before scaling: of what the scale is taken from, else of the box.
  double mean = 0.0, rms = 0.0;
  double cell_rms = 0.0;  // of the whole cell, before scaling
  // A map of the whole cell is a recipe until somebody asks for its points: map_density().
  qx::MapRecipe* recipe = nullptr;
  double*** density = nullptr;  // [z - zlow][y - ylow][x - xlow]
  char* path = nullptr;
  // Options of the file to be written; without them it holds neither.
  bool symmetry_records = false;  // the operators, 80 characters each, behind the header
  bool zero_origin = false;       // zeros, no blanks, where others read an origin
  bool density_label = false;     // a label tells what a unit is in e/A^3
  char* kind = nullptr;           // what label 2 says that the map is; null: by u and v
  bool of_two_sets = false;       // then that is Fo - Fo
  char* input = nullptr;          // what labels 3 to 10 name as the source; null: no such labels
  char* columns = nullptr;        // and as its columns
  std::int32_t amplitude_source = qx::calculated_source;
  std::int32_t phase_source = qx::calculated_source;
  qxrefdata* refdata = nullptr;  // private reflection set read inside the section
  // What is known of the density after scaling, so that no further pass over it is needed.
  bool statistics_known = false;
  qx::MapStatistics statistics;
};

namespace qx {
// The reflections that the next map is made of: the private set if one was read, else the
// crystal's. Null after a report.
const qxrefdata* map_refdata();
// True when there is a map, as points or as a recipe.
inline bool has_density(const qxmap& map) { return map.density || map.recipe; }
// The points, which come into being now if there is a recipe only; null after a report. The record
// keeps them.
double*** map_density(qxmap& map);
// Releases the density and what is known of it.
Status drop_density(qxmap& map);
// What is known of a recipe's map once its extremes are.
void know_statistics(qxmap& map, const Extremes& extremes);
// Makes the density of the map's box and scale from that of the whole cell, [z][y][x], which is
// taken over.
Status install_cell(qxmap& map, double*** density);
}  // namespace qx
