// quorix info: what is in a file.
#pragma once

#include <functional>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>

struct qx_ccp4_map;

namespace qx {

// The facts about a file, under names that scripts can rely on.
nlohmann::ordered_json reflection_info(const std::string& path, bool verbose);
nlohmann::ordered_json map_info(const std::string& path, bool verbose);
// Also hands the density on while it is there; `visit` gives false after a report of the engine.
nlohmann::ordered_json map_info(
    const std::string& path, bool verbose,
    const std::function<bool(const qx_ccp4_map&, const nlohmann::ordered_json&)>& visit);
// The same facts as a person reads them.
void tell_reflections(std::ostream& out, const nlohmann::ordered_json& info);
std::string symmetry_text(const nlohmann::ordered_json& info);  // whether a map obeys its group
void tell_map(std::ostream& out, const nlohmann::ordered_json& info);

}  // namespace qx
