// Whether a density has the symmetry that its file claims.
#pragma once

#include <quorix/map.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace gemmi {
struct Op;
}

namespace qx {

struct SymmetryCheck {
  std::int64_t pairs = 0;    // of symmetry-related grid points that were compared
  double correlation = 0.0;  // of their densities
  double largest = 0.0;      // difference, in units of the deviation about the mean
};

// An operator such as -x,y+1/2,-z; throws std::exception for a text that is none, also for one
// with numbers that no operator has.
gemmi::Op read_operator(const std::string& text);

using GridPoint = std::array<std::int64_t, 3>;

// Grid point that the operator takes `point` to, of n points a cell; false if it falls between the
// points.
bool mate_of(const gemmi::Op& op, const GridPoint& point, const std::int32_t (&n)[3],
             GridPoint& mate);

// `values`: the map's, x fastest; T is float or double. Throws as read_operator.
template <class T>
SymmetryCheck check_symmetry(const qx_ccp4_map& map, const T* values,
                             const std::vector<std::string>& operators);

// Those of a space group by its number, in its usual setting; empty if there is none.
std::vector<std::string> operators_of_group(std::int32_t number);

}  // namespace qx
