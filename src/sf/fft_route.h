// From boxes of density to sums over the symmetry operators: what is the same for all boxes, once.
#pragma once

#include "core/tagged.h"
#include "sf/assemble.h"
#include "sf/structfact.h"

struct qxgrid;
struct qxrefdata;

namespace qx {

struct FftRoute {
  const qxgrid* grid = nullptr;
  const qxrefdata* data = nullptr;
  std::int32_t nops = 0;
  Tagged<IndexOperator> operators;
  SinCosTable table = {};        // of the root's object
  std::int32_t hmax = 0;         // largest |h| of any mate
  Tagged<std::int32_t> columns;  // how many h of each k any mate lies at

  // True when the columns that reflections lie on can be transformed in the density's own block;
  // otherwise the spectrum takes two further boxes.
  [[nodiscard]] bool in_place() const;
  // How they lie in a box of so many planes.
  [[nodiscard]] HalfLayout layout(std::int32_t planes) const;
};

// The group's operators as they act on indices; a missing group is told under the heading.
Status fetch_operators(const char* heading, Tagged<IndexOperator>& operators, std::int32_t& n);
// Tells missing objects under the heading.
Status prepare_route(const char* heading, FftRoute& route);
// The transform of a box of `planes` planes whose first is `shift`, at every mate of every
// reflection, added to the sums. The density is lost.
Status add_box(const FftRoute& route, std::int32_t planes, std::int32_t shift, double*** density,
               PartSums& sums);

}  // namespace qx
