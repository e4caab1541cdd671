// What xcry is told of the crystal that a reflection file names.
#pragma once

#include "driver/commands/reflection_file.h"
#include "driver/commands/section_text.h"

namespace qx {

// The group by its name; without one by the file's operators.
void add_group(SectionText& text, const std::string& name, const ReflectionFile& file);

// The name by which the engine is told of the file's group; empty if only its operators tell it.
std::string group_name_of(const ReflectionFile& file);
// Angstrom and degrees.
std::string cell_line(const double* cell);
// Angstrom; a limit of 0 leaves nothing out.
std::string limits_line(double dmin, double dmax);

}  // namespace qx
