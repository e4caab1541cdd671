// MTZ files that are read, changed and written again, with all that nobody asked to change.
#pragma once

#include "driver/commands/readable_file.h"

#include <gemmi/mtz.hpp>
#include <string>

namespace qx {

// A plain file that the engine has read already: what is wrong with one, the engine tells better.
gemmi::Mtz open_mtz(const std::string& path, const std::string& shown);
// Puts a line before the others, with the date; the format allows 30.
void add_history(gemmi::Mtz& mtz, const std::string& line);
// As a whole or not at all, gzipped by its name.
void write_mtz(const gemmi::Mtz& mtz, const std::string& path);

}  // namespace qx
