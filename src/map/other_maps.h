// Files of the map's box that are no CCP4 maps.
#pragma once

#include "core/report.h"

struct qxmap;

namespace qx {

// A value as a field of twelve characters holds it: a third digit of the exponent would run into
// the field before, and what is that small is nothing.
inline double in_cns_field(double value) { return value < 1e-99 && value > -1e-99 ? 0.0 : value; }

enum class OtherMap { cns_formatted, cns_unformatted, points };

Status write_other_map(const char* heading, qxmap& map, OtherMap format);

}  // namespace qx
