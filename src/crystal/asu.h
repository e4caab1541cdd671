// The asymmetric unit on the grid.
#pragma once

#include <quorix/asu.h>

struct qxasu {
  std::int16_t check = 0;
  double low[3] = {0, 0, 0};  // fractional
  double high[3] = {1, 1, 1};
  std::int32_t grid_low[3] = {};  // grid indices, 0 until computed
  std::int32_t grid_high[3] = {};
  char*** mask = nullptr;            // [z][y][x], 1 = point of the asymmetric unit
  std::int16_t*** counts = nullptr;  // points of the orbit, at its representative
  std::int32_t nops = 0;
  std::int32_t (*rotations)[9] = nullptr;
  std::int32_t (*translations)[3] = nullptr;  // in grid units
};

namespace qx {

// Gives back the mask and the operators, which hold for one set of grid counts.
Status drop_mask(qxasu& asu);

}  // namespace qx
