// What the names on the line of quorix map are, told by what stands in the files.
#pragma once

#include <string>
#include <vector>

namespace qx {

struct MapFiles {
  std::vector<std::string> inputs;  // reflections
  std::string model;                // coordinates; empty without
  std::string output;               // empty: after the inputs
};

// Reflections are inputs wherever they stand, and coordinates the model. Behind them may stand a
// name for the map: what is not there yet, is empty, a map, a device or "-"; with `force` any file
// that is neither reflections nor coordinates. Throws CommandError for what cannot be told.
MapFiles sort_map_files(const std::vector<std::string>& names, bool force);

}  // namespace qx
