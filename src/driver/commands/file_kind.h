// What a file is, told by its content and never by its name.
#pragma once

#include <string>

namespace qx {

enum class FileKind {
  missing,
  unreadable,
  folder,
  special,  // a pipe, a device
  empty,
  mtz,
  reflections,  // in mmCIF
  table,        // reflections in another format of text
  atoms,        // PDB or mmCIF
  map,
  page,     // HTML
  drawing,  // SVG
  script,   // for a viewer, as these programs write them
  other
};

// Looks into gzipped files as well.
FileKind kind_of(const std::string& path);
// "an MTZ file", "a map".
const char* name_of(FileKind kind);

// Which format of reflections, "CNS", "SCA", "DTR" or "HKL", a text begins like; empty: none.
std::string table_word(const std::string& start);

inline bool holds_reflections(FileKind kind) {
  return kind == FileKind::mtz || kind == FileKind::reflections || kind == FileKind::table;
}

// What viewer scripts begin with.
constexpr const char* script_mark = "# Made by quorix.\n";

}  // namespace qx
