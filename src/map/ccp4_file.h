// Writing a CCP4 map file from its header and its points.
#pragma once

#include "core/view3.h"
#include "map/box.h"
#include "map/ccp4_header.h"

#include <quorix/api.h>

struct qxcell;
struct qxspg;

namespace qx {

// Header, the operators of `symmetry` (none: null) and the box [z][y][x], whole or not at all.
// Faults are reported under `heading`.
Status write_ccp4(const char* heading, const char* path, const Ccp4Header& header,
                  const qxspg* symmetry, View3<const double> box);

void set_cell(Ccp4Header& header, const qxcell& cell);
void set_statistics(Ccp4Header& header, const MapStatistics& statistics);

}  // namespace qx
