// Densities apart from the engine that made them: boxes of grid points of a cell.
#pragma once

#include <quorix/api.h>

// Points `starts` .. `starts` + `counts` - 1 of a grid of `intervals` points a cell, all along x,
// y, z; the density is [z][y][x], x fastest.
typedef struct qx_density_box {
  const double* density;
  int32_t counts[3], starts[3], intervals[3];
} qx_density_box;

typedef struct qx_density_peak {
  double height;
  double fractional[3];
  int32_t indices[3];  // of the grid point that it was found at
} qx_density_peak;

// Points that follow each other along x, all beyond a level.
typedef struct qx_density_run {
  int32_t at[3];  // place of the first in the box
  int32_t count;
  int32_t cell[3];  // by how many periods they are away where the blob is in one piece
  int64_t blob;     // which one they belong to, from 0
} qx_density_run;

// Points that are connected by their faces, all beyond a level.
typedef struct qx_density_blob {
  int64_t points;
  double sum;   // of the densities
  double peak;  // the highest, or deepest, of them
  // Of the blob in one piece, which may reach beyond the cell:
  int32_t indices[3];  // grid point that has the peak
  double centroid[3];  // fractional, by density
} qx_density_blob;

QX_C_BEGIN

// The block of the last map's density, which qx_get_map_view describes, leaves the engine: it is
// the caller's, who ends it with free() or qx_end_block(), and the map has none from then on.
// Points that nobody has asked for yet are made. Null when there is no map (without a report) or
// they cannot be made.
QX_API double* qx_take_map_density(void);

// Grid indices, both inclusive, of the box about the atoms computed with, wider by `cushion`
// Angstrom on every side, in the crystal's cell on a grid of these intervals.
QX_API qx_status qx_calc_model_bounds(double cushion, const int32_t intervals[3], int32_t low[3],
                                      int32_t high[3]);

// Fills `density` for the box `to`, whose own density is not looked at, with the points of `from`
// that are the same but for periods of the cell. 0, and `density` as it was, if `from` lacks any;
// nothing is reported, here and in the next.
QX_API int32_t qx_cut_density_box(const qx_density_box* from, const qx_density_box* to,
                                  double* density);
// Densities at `n` points in fractional coordinates: of order 3 by cubic interpolation along each
// axis (continuous with its first derivatives), of order 1 by linear, of order 0 at the nearest
// grid point. NaN where the box lacks a grid point that is needed.
QX_API void qx_interpolate_density(const qx_density_box* box, int32_t order, int64_t n,
                                   const double (*points)[3], double* values);

// Points of at least `level` (of at most it, if it is below 0) above (below) their 26 neighbours;
// place and height by a parabola along each axis. The first `capacity` in the order of the box are
// stored, and the number of all is given. Points at the border of a part of the cell are none.
QX_API int64_t qx_find_density_peaks(const qx_density_box* box, double level, int64_t capacity,
                                     qx_density_peak* peaks);

// Marks with 1 the points within `radius` Angstrom of fractional places, in the cell (Angstrom and
// degrees) all of whose periods are reached; `mask` has a byte for each point, in their order.
QX_API void qx_mask_density_box(const qx_density_box* box, const double cell[6], double radius,
                                int64_t n, const double (*places)[3], uint8_t* mask);

// How many runs there are of points of at least `level` (of at most it, if it is below 0) that are
// not in `mask`; null: none is.
QX_API int64_t qx_count_density_runs(const qx_density_box* box, double level, const uint8_t* mask);
// The same runs in the order of the box, and the number of blobs that they belong to, numbered by
// their first runs. A cell's blobs go on behind its borders, those of a part end there. `rows` is
// scratch for one more than the rows of the box.
QX_API int64_t qx_find_density_runs(const qx_density_box* box, double level, const uint8_t* mask,
                                    int64_t* rows, qx_density_run* runs);
QX_API void qx_measure_density_blobs(const qx_density_box* box, int64_t nruns,
                                     const qx_density_run* runs, int64_t nblobs,
                                     qx_density_blob* blobs);

// A CCP4 map with a zero origin and, if wanted, the operators; cell and group are the crystal's.
// `kind` stands in label 2; label 3 tells `unit`,
// e/A^3 for 1 of the density's, unless that is 0 or no number.
QX_API qx_status qx_write_density_box(const char* path, const qx_density_box* box, const char* kind,
                                      double unit, int32_t symmetry_records);

QX_C_END
