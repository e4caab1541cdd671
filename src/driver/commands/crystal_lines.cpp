#include "driver/commands/crystal_lines.h"

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

}  // namespace qx
