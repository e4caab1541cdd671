// Grids of the unit cell, sub-boxes, the box boundary and reflection-to-grid tables. Index i of an
// axis with n points is fractional coordinate i / n. Spacings in Angstrom.
#pragma once

#include <quorix/api.h>

typedef struct qxgrid qxgrid;
typedef struct qxsubgrid qxsubgrid;
typedef struct qxboundary qxboundary;
typedef struct xgrid xgrid;

QX_C_BEGIN

// The grid with its requests, FFT counts and tables. Creating replaces; deleting frees the tables.
QX_API qx_status qx_new_qxgrid(void);
QX_API qx_status qx_delete_qxgrid(void);
// Null when the container holds none; without a container it reports and dies. The setter frees
// nothing.
QX_API qxgrid* qx_get_qxgrid(void);
QX_API qx_status qx_set_qxgrid(qxgrid* object);

QX_API qx_status qx_new_qxsubgrid(void);
QX_API qx_status qx_delete_qxsubgrid(void);
QX_API qxsubgrid* qx_get_qxsubgrid(void);
QX_API qx_status qx_set_qxsubgrid(qxsubgrid* object);

QX_API qx_status qx_new_qxboundary(void);
QX_API qx_status qx_delete_qxboundary(void);
QX_API qxboundary* qx_get_qxboundary(void);
QX_API qx_status qx_set_qxboundary(qxboundary* object);
// Inner fractional box [m, 1 - m] and outer box [-e, 1 + e] on each axis.
QX_API qx_status qx_define_qxboundary(double ex, double ey, double ez, double mx, double my,
                                      double mz);

// The container with grid, sub-grid and boundary; creating replaces all of them.
QX_API qx_status qx_new_xgrid(void);
QX_API qx_status qx_delete_xgrid(void);
QX_API xgrid* qx_get_xgrid(void);
QX_API qx_status qx_set_xgrid(xgrid* object);

// Stores a request for counts / for spacings.
QX_API qx_status qx_init_qxgrid_nxyz(int32_t nx, int32_t ny, int32_t nz);
QX_API qx_status qx_init_qxgrid_sxyz(double sx, double sy, double sz);
// Requested counts = cell edge / requested spacing, cut; spacings not above 0 and counts beyond 32
// bits are reported. The reverse: spacings from counts of at least 1.
QX_API qx_status qx_set_qxgrid_nxyz_by_sxyz(void);
QX_API qx_status qx_set_qxgrid_sxyz_by_nxyz(void);
QX_API qx_status qx_set_grid_sincosmem(int32_t flag);
QX_API qx_status qx_set_coarse_grid_flag_on(void);
QX_API qx_status qx_set_coarse_grid_flag_off(void);

// The smallest count not below n that has only the prime factors 2, 3 and 5 and that the space
// group's translations and asymmetric-unit limits divide evenly, for axis 0, 1 or 2.
QX_API qx_status qx_get_closest_ngrid(int32_t n, int32_t* out, int32_t axis);
// The same without the space group.
QX_API qx_status qx_get_closest_ngrid_wo_trn(int32_t n, int32_t* out);

// Completes the request (counts and spacings) / FFT counts and spacings from the requested counts /
// both, the coarse grid, one sub-box, and the asymmetric unit on the new grid. A change of FFT
// counts drops everything that was computed for the old ones.
QX_API qx_status qx_run_qxgrid_io_checker(void);
QX_API qx_status qx_get_ideal_fftgrid(void);
QX_API qx_status qx_setup_coarse_grid(void);
QX_API qx_status qx_set_grids(void);
QX_API qx_status qx_run_qxgrid_checker(void);

// Splits the FFT grid into sub-boxes along z under the memory budget of the sub-grid (megabytes).
QX_API qx_status qx_run_qxsubgrid_checker(void);

// Tables of grid index and phase shift per operator and reflection; replaces earlier ones.
QX_API qx_status qx_calc_ref2gind(void);

// One line without its end: the caller ends it.
QX_API qx_status qx_print_qxgrid(void);
QX_API qx_status qx_print_qxsubgrid(void);

// The FFT counts, for layers below the grid.
QX_API qx_status qx_get_grid_counts(int32_t* nx, int32_t* ny, int32_t* nz);

QX_C_END
