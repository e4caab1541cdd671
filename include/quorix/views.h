// Read-only views of the engine's records, for programs and other languages: what the records hold
// in plain structs, arrays where they lie. Each getter gives 1 and the view, or 0, without a
// report, when there is nothing to see; arrays and texts stay valid until the next call that
// changes the engine.
#pragma once

#include <quorix/api.h>
#include <quorix/reflection_view.h>

typedef struct qx_cell_view {
  double edges[3];       // Angstrom
  double angles[3];      // degrees
  double volume;         // Angstrom^3
  double resolution[6];  // 1/d^2 = h^2 r0 + k^2 r1 + l^2 r2 + hk r3 + hl r4 + kl r5, 1/Angstrom^2
  double orthogonal[9];  // fractional to orthogonal, row-major; a along x, b in the x-y plane
} qx_cell_view;

typedef struct qx_group_view {
  int32_t number;          // International Tables A; 0 for operators that no group of it has
  const char* short_name;  // null where the database has none
  const char* full_name;
  int32_t noperators;             // centrings included
  const double (*operators)[16];  // 4 x 4 row-major on fractional columns
} qx_group_view;

typedef struct qx_limits_view {
  double high, low;  // d, Angstrom
} qx_limits_view;

typedef struct qx_grid_view {
  int32_t counts[3];  // points along x, y, z
  int32_t boxes;      // along z, under the memory budget
} qx_grid_view;

// Arrays of n elements, null where the data set has no such column.
typedef struct qx_reflections_view {
  int32_t n;
  const int32_t *h, *k, *l;
  const double* s_length;         // |s| = 1/d, 1/Angstrom
  const float *fobs, *sigf;       // NaN where missing
  const float *fc, *phic, *fom;   // degrees
  const int16_t *test, *centric;  // -1 where missing; 1: centric
  const int32_t* epsilon;
  int32_t friedel_opposites_differ;  // 0: each reflection stands for its opposite as well
} qx_reflections_view;

// The last map: density[z][y][x] in one block, x fastest, of the box from `starts` on; null while
// nobody has asked for the points of a whole cell (qx_make_map_density).
typedef struct qx_map_view {
  const double* density;
  int32_t counts[3], starts[3];  // along x, y, z
  int32_t intervals[3];          // points of the whole cell
  double mean, rms;              // of the box before scaling, e/A^3; rms about zero
  double cell_rms;               // of the whole cell before scaling
  int32_t scaled;                // 0: e/A^3; 1: in rms of the box; 2: in rms of the cell
  double written_rms;            // of the values as they stand, 0 before they are known
} qx_map_view;

// A reflection file as it was read, all columns included.
typedef struct qx_mtz_view {
  const char *title, *group_name;
  int32_t group_number;
  int32_t nrows, ncolumns, ndatasets, noperators, nhistory, nbatches;
  double cell[6];  // Angstrom, degrees
  float missing;   // marker besides NaN
} qx_mtz_view;

typedef struct qx_mtz_column_view {
  const char* label;
  char type;
  int32_t dataset;
  const float* values;  // one a row
} qx_mtz_column_view;

typedef struct qx_mtz_dataset_view {
  int32_t id;
  const char *project, *crystal, *name;
  double wavelength;  // Angstrom, 0 if not told
} qx_mtz_dataset_view;

// The atoms computed with.
typedef struct qx_atoms_view {
  int32_t n;
  const double *x, *y, *z;  // orthogonal, Angstrom
  const int32_t* atomic_number;
  const double* occupancy;  // null before they have been set up
  double blurring;          // added to every B in densities and taken off again, Angstrom^2
} qx_atoms_view;

typedef struct qxrefdata qxrefdata;

QX_C_BEGIN

QX_API int32_t qx_get_cell_view(qx_cell_view* view);
QX_API int32_t qx_get_group_view(qx_group_view* view);
QX_API int32_t qx_get_limits_view(qx_limits_view* view);
QX_API int32_t qx_get_grid_view(qx_grid_view* view);
QX_API int32_t qx_get_reflections_view(qx_reflections_view* view);
QX_API int32_t qx_get_atoms_view(qx_atoms_view* view);
// Reflections that structure factors of the atoms have been calculated for; 0 before.
QX_API int32_t qx_get_structure_factor_count(void);

// h R of operator `op` of the group, and the phase h.t that comes with it, in cycles: F(h R) =
// F(h) exp(-2 pi i h.t). 0 without such an operator.
QX_API int32_t qx_get_index_mate(int32_t op, const int32_t hkl[3], int32_t mate[3], double* cycles);

QX_API int32_t qx_get_map_view(qx_map_view* view);
// `nplanes` planes of the map from z index `first` of the box on, [z][y][x]. 0 when they are not
// there.
QX_API int32_t qx_copy_map_planes_float(int32_t first, int32_t nplanes, float* values);
QX_API int32_t qx_copy_map_planes_double(int32_t first, int32_t nplanes, double* values);
// The reflections that the map was made of: a set of its own or the crystal's.
QX_API int32_t qx_get_map_reflections_view(qx_reflections_view* view);

// Of the file that a data set (null: the crystal's) was read from.
QX_API int32_t qx_get_mtz_view(const qxrefdata* refdata, qx_mtz_view* view);
QX_API int32_t qx_get_mtz_column_view(const qxrefdata* refdata, int32_t i,
                                      qx_mtz_column_view* view);
QX_API int32_t qx_get_mtz_dataset_view(const qxrefdata* refdata, int32_t i,
                                       qx_mtz_dataset_view* view);
// The text of an operator or of a line of the history; null beyond the last.
QX_API const char* qx_get_mtz_operator(const qxrefdata* refdata, int32_t i);
QX_API const char* qx_get_mtz_history(const qxrefdata* refdata, int32_t i);

QX_C_END
