// What quorix-map refuses before anything is computed.
#pragma once

namespace qx {

// False, after a line on standard output, if a path holds what the script would lose, or if the map
// would take the place of its own reflections or of a file that is no map.
bool check_map_arguments(const char* reflection_file, const char* map_file);

}  // namespace qx
