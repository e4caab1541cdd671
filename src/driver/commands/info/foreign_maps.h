// Maps of other formats than CCP4's: CNS maps, as text or in Fortran's unformatted records, and
// lists of points as the map section writes them.
#pragma once

#include "driver/commands/info/map_facts.h"

#include <string>

namespace qx {

// What a file that begins so is called; empty: no such map.
std::string foreign_map_name(const std::string& start);

// Throws CommandError for a file that is not what it begins like, or whose length belies its
// header.
MapFacts read_foreign_map_facts(const std::string& path);

}  // namespace qx
