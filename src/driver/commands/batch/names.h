// Names for data sets that differ and can stand in any folder.
#pragma once

#include <string>
#include <vector>

namespace qx {

// One for each path, in order: the file's name without its ending. Where several files would share
// one, all of them get the name of the folder above in front (fragA_final), then their endings,
// then further folders; files that even so cannot be told apart are numbered.
std::vector<std::string> data_set_names(const std::vector<std::string>& paths);

}  // namespace qx
