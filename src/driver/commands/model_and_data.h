// A model and reflections that are used together, and may not belong together.
#pragma once

#include "driver/commands/coordinates.h"
#include "driver/commands/reflection_file.h"

#include <string>
#include <vector>

namespace qx {

// Whether lengths differ by a twentieth at most and angles by 5 degrees, as crystals of one form
// do; a cell without lengths does not tell.
bool are_of_one_form(const double* cell, const double* other);

// Throws CommandError for a model whose cell is that of another crystal form.
void check_one_form(const Crystal& model, const ReflectionFile& file);

// A line each for a group and a cell of the model that are not the data's, with what that means;
// nothing where either does not tell.
std::vector<std::string> crystal_differences(const Crystal& model, const gemmi::SpaceGroup* group,
                                             const double* cell, const std::string& consequence);

// A line for amplitudes in `column` of reflections that the group extinguishes; empty without.
std::string extinct_line(const ReflectionFile& file, const gemmi::SpaceGroup* group,
                         const std::string& column, const std::string& consequence);

}  // namespace qx
