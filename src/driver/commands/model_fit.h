// A model on the scale of the observations: the sections that every command with a model and data
// runs, and what they found as JSON.
#pragma once

#include "driver/commands/fcalc/job.h"

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace qx {

// The lines of `printed` that are no warnings; those are handed on.
std::string heed_warnings(const std::string& printed,
                          const std::function<void(const std::string&)>& hand_on);
// The same, to the job.
std::string heed_warnings(FcalcJob& job, const std::string& printed);

// Solvent, scale and R factors of the structure factors that have been calculated; gives what users
// are shown of it. `solvent` as xoverall takes it, empty for its own choice; brief: no table of
// the solvent's bins.
std::string fit_to_observations(Engine& engine, FcalcJob& job, const std::string& solvent,
                                bool brief);

// The sections of that.
std::vector<SectionText> fit_sections(const std::string& solvent, bool brief);

// From the engine while it is there; null where the sections have not run.
nlohmann::ordered_json scale_as_json();
nlohmann::ordered_json agreement_as_json(std::int32_t n, double r, double correlation);

}  // namespace qx
