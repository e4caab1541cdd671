#include "driver/commands/convert/job.h"
#include "driver/commands/reflection_file.h"
#include "driver/commands/resolution_shells.h"
#include "driver/commands/unique_reflections.h"

namespace qx {

std::vector<std::size_t> possible_by_shell(const gemmi::UnitCell& cell,
                                           const gemmi::SpaceGroup* group,
                                           const ShellLimits& limits) {
  const double edges[6] = {cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma};
  if (!are_countable(edges, limits.high)) return {};
  std::vector<std::size_t> counts(static_cast<std::size_t>(limits.count));
  for_all_unique(cell, group, limits.high, limits.low,
                 [&](const gemmi::Miller& hkl) { ++counts[limits.of(cell.calculate_d(hkl))]; });
  return counts;
}

}  // namespace qx
