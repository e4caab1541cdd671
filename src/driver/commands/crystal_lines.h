// What xcry is told of the crystal that a reflection file names.
#pragma once

#include "driver/commands/reflection_file.h"
#include "driver/commands/sections.h"

namespace qx {

// The group by its name; without one by the file's operators.
void add_group(SectionText& text, const std::string& name, const ReflectionFile& file);

}  // namespace qx
