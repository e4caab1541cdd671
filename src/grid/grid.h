// Records of the grid, its sub-boxes and the box boundary.
#pragma once

#include "core/constants.h"

#include <quorix/grid.h>

struct qxgrid {
  std::int32_t requested_n[3] = {qx::unset_count, qx::unset_count, qx::unset_count};
  double requested_spacing[3] = {qx::unset, qx::unset, qx::unset};  // Angstrom
  std::int32_t nx = 0, ny = 0, nz = 0;                              // the FFT grid
  double sx = 0, sy = 0, sz = 0;                                    // cell edge / count, Angstrom
  std::int32_t coarse_switch = 0;
  std::int32_t coarse_in_use = 0;
  double coarse_ratio_limit = 0.614125;  // 0.85 cubed
  double coarse_factor = 0.75;
  std::int32_t coarse_n[3] = {};
  double coarse_spacing[3] = {};
  // Reflection-to-grid tables: one row per symmetry operator, one column per reflection.
  std::int32_t** ref_ix = nullptr;
  std::int32_t** ref_iy = nullptr;
  std::int32_t** ref_iz = nullptr;
  std::int32_t** ref_l = nullptr;            // the unwrapped rotated l
  double** ref_shift = nullptr;              // phase of the translation, cycles
  std::int32_t ref_nops = 0, ref_count = 0;  // extents of the tables
  std::int32_t sincos_memory = 1;
  double*** sine = nullptr;  // [plane][operator][reflection]
  double*** cosine = nullptr;
};

struct qxsubgrid {
  double memory = qx::unset;  // budget in megabytes
  std::int32_t one_box = 1;
  std::int32_t boxes[3] = {1, 1, 1};  // sub-boxes along x, y, z
  std::int32_t points[3] = {};        // grid points of a sub-box along x, y, z
};

struct qxboundary {
  double inner[6] = {qx::unset, qx::unset, qx::unset,
                     qx::unset, qx::unset, qx::unset};  // x lo hi, y, z
  double outer[6] = {qx::unset, qx::unset, qx::unset, qx::unset, qx::unset, qx::unset};
};

struct xgrid {
  qxgrid* grid = nullptr;
  qxsubgrid* subgrid = nullptr;
  qxboundary* boundary = nullptr;
};

namespace qx {

// Frees the reflection tables: they hold for one set of counts and reflections.
Status drop_reflection_tables(qxgrid& grid);

// Writes a split of the grid into `boxes`, a divisor of nz, into the record.
void set_boxes(qxsubgrid& box, const qxgrid& grid, std::int32_t boxes) noexcept;

// True when `points` doubles are not more than the machine's memory.
bool fits_in_memory(std::int64_t n0, std::int64_t n1, std::int64_t n2);

}  // namespace qx
