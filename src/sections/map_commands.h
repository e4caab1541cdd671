// Commands that the sections which make a map share: what it is of, its box, its file.
#pragma once

#include "map/map.h"

namespace qx {

// type, scale, weight, cushion, u, v
Status take_map_parameters(const char* heading, qxmap& map);
// unit|asym|model, or box|frac and six limits
Status take_map_extent(const char* heading, qxmap& map);
// xmin .. zmax from the rest of the line; `name` is what a report calls them.
Status take_map_limits(const char* heading, const char* name, double (&limits)[6]);
// ccp4 file "NAME" and its options: the map is written.
Status write_map_as_told(const char* heading, qxmap& map);

}  // namespace qx
