// The record of the refinement target.
#pragma once

#include <quorix/target.h>

namespace qx {
enum TargetType : std::int32_t { least_squares_target, likelihood_target };
}  // namespace qx

struct qxtargetfunc {
  qx::TargetType type = qx::likelihood_target;
  bool calculated = false;
  double value = 0.0;
  std::int32_t natom = 0;  // length of the gradient
  qx_atom_gradient* gradient = nullptr;
};
