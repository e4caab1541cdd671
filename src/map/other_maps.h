// Files of the map's box that are no CCP4 maps.
#pragma once

#include "core/report.h"

struct qxmap;

namespace qx {

enum class OtherMap { cns_formatted, cns_unformatted, points };

Status write_other_map(const char* heading, qxmap& map, OtherMap format);

}  // namespace qx
