// What a map was made of and how, as labels 3 to 10 of its file.
#pragma once

#include <quorix/api.h>

struct qxgrid;
struct qxmap;
struct qxspg;

namespace qx {

struct Ccp4Header;

// The label that tells what a unit of the map is in e/A^3.
void add_density_label(const qxmap& map, Ccp4Header& header);

// Fills the labels behind the two that every map has. The date is that of $SOURCE_DATE_EPOCH if it
// is set, so that equal input can give equal bytes.
Status add_provenance(const qxmap& map, const qxgrid& grid, const qxspg& spg, Ccp4Header& header);

}  // namespace qx
