// The asymmetric unit: fractional limits, limits on the grid, mask and orbit counts, mates of grid
// points. Arrays are [z][y][x] over the FFT grid of the cell.
#pragma once

#include <quorix/api.h>

struct qxasu;

extern "C" {

QX_API qx::Status qx_new_qxasu();
// Releases the mask, the counts and the grid operators too.
QX_API qx::Status qx_delete_qxasu();
QX_API qxasu* qx_get_qxasu();
QX_API qx::Status qx_set_qxasu(qxasu* object);

// Whether the grid code is to verify points against the asymmetric unit.
QX_API qx::Status qx_set_asu_check_flag_on();
QX_API qx::Status qx_set_asu_check_flag_off();

// Fractional limits; the lower ones are always 0, whatever is given.
QX_API qx::Status qx_set_qxasu_limit(float xlo, float xhi, float ylo, float yhi, float zlo,
                                     float zhi);
// Limits on the current grid: 0 to min(round(n x upper) + 1, n). The checker does it once.
QX_API qx::Status qx_set_qxasu_int_limit();
QX_API qx::Status qx_run_qxasu_checker();
// The fractional box of the asymmetric unit widened by `cushion` Angstrom on all sides.
QX_API qx::Status qx_calc_box_with_asu(double* xlo, double* xhi, double* ylo, double* yhi,
                                       double* zlo, double* zhi, double cushion);

// Builds mask, counts and grid operators for the current grid, replacing what was there, and
// appends a report to spg.data in the working directory.
QX_API qx::Status qx_build_ASU();
// The mate of grid point (i, j, k) that is marked in the mask / lies in the box of nx x ny x nz
// points; mx, my, mz are the periods, `rot` and `trans` the operators on grid indices. None: fatal.
QX_API qx::Status qx_get_asu_grid_point(std::int32_t nops, const std::int32_t (*rot)[9],
                                        const std::int32_t (*trans)[3], std::int32_t nx,
                                        std::int32_t ny, std::int32_t nz, std::int32_t mx,
                                        std::int32_t my, std::int32_t mz,
                                        const char* const* const* mask, std::int32_t i,
                                        std::int32_t j, std::int32_t k, std::int32_t* ia,
                                        std::int32_t* ja, std::int32_t* ka);
QX_API qx::Status qx_get_asubox_grid_point(std::int32_t nops, const std::int32_t (*rot)[9],
                                           const std::int32_t (*trans)[3], std::int32_t nx,
                                           std::int32_t ny, std::int32_t nz, std::int32_t mx,
                                           std::int32_t my, std::int32_t mz, std::int32_t i,
                                           std::int32_t j, std::int32_t k, std::int32_t* ia,
                                           std::int32_t* ja, std::int32_t* ka);

// Routines below build the mask if there is none.
// Offsets (iz ny + iy) nx + ix of all grid points, those of the asymmetric unit first; `indices`
// has room for all, `nasu` is how many belong to the unit.
QX_API qx::Status qx_sortout_ASU_grid_points(std::int64_t* indices, std::int64_t* nasu);
// Sets a density to 0 outside the asymmetric unit: over the cell, or over a box of nx x ny x nz
// points that starts at grid point (x0, y0, z0), taken modulo the cell.
QX_API qx::Status qx_clean_non_ASU_gridpoints(double*** density);
QX_API qx::Status qx_clean_non_ASU_sub_gridpoints(double*** density, std::int32_t x0,
                                                  std::int32_t y0, std::int32_t z0, std::int32_t nx,
                                                  std::int32_t ny, std::int32_t nz);
// Verifies that every orbit has exactly one marked point and that the counts add up to the cell.
QX_API qx::Status qx_check_asu_consistent();

}  // extern "C"
