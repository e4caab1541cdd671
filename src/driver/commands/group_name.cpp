#include "driver/commands/group_name.h"

#include <quorix/spacegroup.h>

#include <cstring>
#include <gemmi/symmetry.hpp>  // for find_spacegroup_by_name

namespace qx {

const gemmi::SpaceGroup* find_space_group(std::string name, double alpha, double gamma) {
  const int number = qx_plain_group_name(name.data());
  name.resize(std::strlen(name.c_str()));
  if (number != 0) {
    return gemmi::find_spacegroup_by_number(number);
  }
  return gemmi::find_spacegroup_by_name(name, alpha, gamma);
}

}  // namespace qx
