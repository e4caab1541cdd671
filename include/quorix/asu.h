// The asymmetric unit: fractional limits, limits on the grid, mask and orbit counts, mates of grid
// points. Arrays are [z][y][x] over the FFT grid of the cell.
#pragma once

#include <quorix/api.h>

typedef struct qxasu qxasu;

QX_C_BEGIN

QX_API qx_status qx_new_qxasu(void);
// Releases the mask, the counts and the grid operators too.
QX_API qx_status qx_delete_qxasu(void);
QX_API qxasu* qx_get_qxasu(void);
QX_API qx_status qx_set_qxasu(qxasu* object);

// Whether the grid code is to verify points against the asymmetric unit.
QX_API qx_status qx_set_asu_check_flag_on(void);
QX_API qx_status qx_set_asu_check_flag_off(void);

// Fractional limits; the lower ones are always 0, whatever is given.
QX_API qx_status qx_set_qxasu_limit(float xlo, float xhi, float ylo, float yhi, float zlo,
                                    float zhi);
// Limits on the current grid: 0 to min(round(n x upper) + 1, n). The checker does it once.
QX_API qx_status qx_set_qxasu_int_limit(void);
QX_API qx_status qx_run_qxasu_checker(void);
// The fractional box of the asymmetric unit widened by `cushion` Angstrom on all sides.
QX_API qx_status qx_calc_box_with_asu(double* xlo, double* xhi, double* ylo, double* yhi,
                                      double* zlo, double* zhi, double cushion);

// Builds mask, counts and grid operators for the current grid, replacing what was there, and
// appends a report to spg.data in the working directory.
QX_API qx_status qx_build_ASU(void);
// The mate of grid point (i, j, k) that is marked in the mask / lies in the box of nx x ny x nz
// points; mx, my, mz are the periods, `rot` and `trans` the operators on grid indices. None: fatal.
QX_API qx_status qx_get_asu_grid_point(int32_t nops, const int32_t (*rot)[9],
                                       const int32_t (*trans)[3], int32_t nx, int32_t ny,
                                       int32_t nz, int32_t mx, int32_t my, int32_t mz,
                                       const char* const* const* mask, int32_t i, int32_t j,
                                       int32_t k, int32_t* ia, int32_t* ja, int32_t* ka);
QX_API qx_status qx_get_asubox_grid_point(int32_t nops, const int32_t (*rot)[9],
                                          const int32_t (*trans)[3], int32_t nx, int32_t ny,
                                          int32_t nz, int32_t mx, int32_t my, int32_t mz, int32_t i,
                                          int32_t j, int32_t k, int32_t* ia, int32_t* ja,
                                          int32_t* ka);

// Routines below build the mask if there is none.
// Offsets (iz ny + iy) nx + ix of all grid points, those of the asymmetric unit first; `indices`
// has room for all, `nasu` is how many belong to the unit.
QX_API qx_status qx_sortout_ASU_grid_points(int64_t* indices, int64_t* nasu);
// Sets a density to 0 outside the asymmetric unit: over the cell, or over a box of nx x ny x nz
// points that starts at grid point (x0, y0, z0), taken modulo the cell.
QX_API qx_status qx_clean_non_ASU_gridpoints(double*** density);
QX_API qx_status qx_clean_non_ASU_sub_gridpoints(double*** density, int32_t x0, int32_t y0,
                                                 int32_t z0, int32_t nx, int32_t ny, int32_t nz);
// Verifies that every orbit has exactly one marked point and that the counts add up to the cell.
QX_API qx_status qx_check_asu_consistent(void);

QX_C_END
