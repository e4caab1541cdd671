// quorix info: what is in a file.
#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace qx {

// The facts about a file, under names that scripts can rely on.
nlohmann::ordered_json reflection_info(const std::string& path, bool verbose);
nlohmann::ordered_json map_info(const std::string& path, bool verbose);
// The same facts as a person reads them.
void tell_reflections(std::ostream& out, const nlohmann::ordered_json& info);
void tell_map(std::ostream& out, const nlohmann::ordered_json& info);

}  // namespace qx
