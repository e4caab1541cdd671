// Atoms of the model that maps lack.
#pragma once

#include "driver/commands/fcalc/job.h"

namespace qx {

// The command of the omit section that names the atoms selected by an option. Throws CommandError
// for a text that is no selection, or that selects none.
std::string omitted_atoms_line(const FcalcJob& job, const std::string& selection,
                               const std::string& option);

}  // namespace qx
