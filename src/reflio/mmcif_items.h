// Items of mmCIF that columns of reflections are.
#pragma once

#include "reflio/table_text.h"

#include <cstddef>
#include <cstdint>

namespace qx {

// An item, its type, the identifiers that it is the default of, and the labels that MTZ files have
// for it.
struct MmcifItem {
  const char* name;
  char type;
  std::int32_t coid[3];
  const char* labels;  // between bars
};
constexpr std::size_t mmcif_item_count = 33;

// Null for others.
const MmcifItem* find_mmcif_item(Word name);
// What a column of this label has for a type as a rule; 0: no rule.
char usual_column_type(const char* label);
// By its label and type.
const MmcifItem* mmcif_item_of(const MtzColumn& column);

}  // namespace qx
