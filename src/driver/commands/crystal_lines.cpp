#include "driver/commands/crystal_lines.h"

#include "driver/commands/command_error.h"

#include <gemmi/symmetry.hpp>  // for split_centering_vectors

namespace qx {

void add_group(SectionText& text, const std::string& name, const ReflectionFile& file) {
  if (!name.empty()) {
    text.line("spgname " + name);
    return;
  }
  std::vector<gemmi::Op> operators;
  for (const std::string& line : file.operators) operators.push_back(gemmi::parse_triplet(line));
  gemmi::GroupOps group = gemmi::split_centering_vectors(operators);
  if (group.cen_ops.empty()) group.cen_ops.push_back(gemmi::Op::identity().tran);
  for (const gemmi::Op& op : group.sym_ops) text.line("symp " + op.triplet());
  for (const gemmi::Op::Tran& shift : group.cen_ops) {
    text.line("symc " + gemmi::Op{gemmi::Op::identity().rot, shift}.triplet());
  }
}

std::string group_name_of(const ReflectionFile& file) {
  const std::string known = file.engine_group();
  return known.empty() && file.operators.empty() ? file.group_name : known;
}

std::string cell_line(const double* c) {
  return format("cell %.6f %.6f %.6f %.6f %.6f %.6f", c[0], c[1], c[2], c[3], c[4], c[5]);
}

std::string limits_line(double dmin, double dmax) {
  constexpr double no_high_limit = 0.01;  // narrowed to the data
  constexpr double no_low_limit = 99999.0;
  return format("reso %.9g %.9g", dmin > 0.0 ? dmin : no_high_limit,
                dmax > 0.0 ? dmax : no_low_limit);
}

}  // namespace qx
