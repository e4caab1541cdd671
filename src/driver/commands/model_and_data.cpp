#include "driver/commands/model_and_data.h"

#include "driver/commands/command_error.h"
#include "driver/commands/group_name.h"

#include <algorithm>
#include <cmath>
#include <gemmi/symmetry.hpp>  // for SpaceGroup

namespace qx {

namespace {

constexpr double cell_tolerance = 0.01;  // relative

std::string cell_text(const double* c) {
  return format("%g %g %g %g %g %g", c[0], c[1], c[2], c[3], c[4], c[5]);
}

}  // namespace

bool are_of_one_form(const double* cell, const double* other) {
  if (!(cell[0] > 0.0) || !(other[0] > 0.0)) return true;
  for (int i = 0; i < 6; ++i) {
    const double slack = i < 3 ? 0.05 * other[i] : 5.0;
    if (!(std::fabs(cell[i] - other[i]) <= slack)) return false;
  }
  return true;
}

void check_one_form(const Crystal& model, const ReflectionFile& file) {
  if (are_of_one_form(model.cell, file.cell)) return;
  throw CommandError(2, "the model's cell is " + cell_text(model.cell) + ", that of " + file.path +
                            " is " + cell_text(file.cell) +
                            ": two crystal forms; if the model belongs in the other cell all the "
                            "same, give that with --cell");
}

std::vector<std::string> crystal_differences(const Crystal& model, const gemmi::SpaceGroup* group,
                                             const double* cell, const std::string& consequence) {
  std::vector<std::string> lines;
  const double* own = model.cell;
  if (!(own[0] > 0.0)) return lines;
  const gemmi::SpaceGroup* model_group = find_space_group(model.space_group, own[3], own[5]);
  if (group && model_group && !group->operations().is_same_as(model_group->operations())) {
    lines.push_back("the model is in " + model_group->xhm() + ", the reflections are in " +
                    group->xhm() + ": " + consequence);
  }
  const bool differ = !std::equal(own, own + 6, cell, [](double a, double b) {
    return std::fabs(a - b) <= cell_tolerance * std::fabs(b);
  });
  if (differ) {
    lines.push_back("the model's cell is " + cell_text(own) + ", the reflections' " +
                    cell_text(cell) + ": " + consequence);
  }
  return lines;
}

std::string extinct_line(const ReflectionFile& file, const gemmi::SpaceGroup* group,
                         const std::string& column, const std::string& consequence) {
  const auto found = file.find(column);
  if (!group || found.empty()) return {};
  const gemmi::GroupOps operators = group->operations();
  std::size_t count = 0;
  double largest = 0.0;
  for (std::size_t row = 0; row < file.rows; ++row) {
    const double f = std::fabs(static_cast<double>(found.front()->values[row]));
    int hkl[3] = {};
    if (!(f > 0.0) || !std::isfinite(f) || !file.index(row, hkl)) continue;
    if (!operators.is_systematically_absent({hkl[0], hkl[1], hkl[2]})) continue;
    ++count;
    largest = std::max(largest, f);
  }
  if (count == 0) return {};
  return format("%zu reflections that the group extinguishes have amplitudes (up to %g): ", count,
                largest) +
         consequence;
}

}  // namespace qx
