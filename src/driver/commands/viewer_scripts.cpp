#include "driver/commands/viewer_scripts.h"

#include "driver/commands/file_kind.h"
#include "driver/commands/sections.h"
#include "driver/commands/whole_file.h"

#include <filesystem>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

std::string absolute(const std::string& path) {
  std::error_code error;
  const auto whole = std::filesystem::absolute(path, error);
  return error ? path : whole.lexically_normal().string();
}

// A text as Python and ChimeraX read it, in quotes.
std::string quoted(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string object_name(const ViewedMap& map) {
  std::string name = std::filesystem::path(map.path).stem().string();
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

std::string coot_script(const std::vector<ViewedMap>& maps, const std::string& model) {
  std::string text = script_mark;
  text +=
      "try:\n"
      "    from coot import handle_read_ccp4_map, read_pdb, set_contour_level_in_sigma\n"
      "except ImportError:\n"
      "    pass  # before version 1 they are there without an import\n\n";
  for (const ViewedMap& map : maps) {
    text += "molecule = handle_read_ccp4_map(" + quoted(absolute(map.path)) +
            (map.difference ? ", 1)\n" : ", 0)\n") +
            format("set_contour_level_in_sigma(molecule, %.1f)\n", sensible_level(map.difference));
  }
  if (!model.empty()) text += "read_pdb(" + quoted(absolute(model)) + ")\n";
  return text;
}

std::string pymol_script(const std::vector<ViewedMap>& maps, const std::string& model) {
  std::string text = script_mark;
  text += "from pymol import cmd\n\ncmd.set(\"normalize_ccp4_maps\", 1)\n";
  if (!model.empty()) text += "cmd.load(" + quoted(absolute(model)) + ", \"coordinates\")\n";
  const char* around = model.empty() ? "" : ", \"coordinates\", carve=2.0";
  for (const ViewedMap& map : maps) {
    const std::string name = object_name(map);
    text += "cmd.load(" + quoted(absolute(map.path)) + ", \"" + name + "_map\", format=\"ccp4\")\n";
    const auto mesh = [&](const char* part, const char* colour, double level) {
      text += format("cmd.isomesh(\"%s%s\", \"%s_map\", %.1f%s)\n", name.c_str(), part,
                     name.c_str(), level, around);
      text += format("cmd.color(\"%s\", \"%s%s\")\n", colour, name.c_str(), part);
    };
    const double level = sensible_level(map.difference);
    mesh(map.difference ? "_more" : "_mesh", map.difference ? "green" : "marine", level);
    if (map.difference) mesh("_less", "red", -level);
  }
  return text;
}

std::string chimerax_script(const std::vector<ViewedMap>& maps, const std::string& model) {
  std::string text = script_mark;
  int number = 0;
  for (const ViewedMap& map : maps) {
    const double level = sensible_level(map.difference) * map.rms;
    text += "open " + quoted(absolute(map.path)) + " format ccp4\n" +
            format("volume #%d style mesh step 1 level %.6g color %s", ++number, level,
                   map.difference ? "green" : "cornflower blue");
    text += map.difference ? format(" level %.6g color red\n", -level) : "\n";
  }
  if (!model.empty()) text += "open " + quoted(absolute(model)) + "\n";
  return text;
}

}  // namespace

double sensible_level(bool difference) { return difference ? 3.0 : 1.5; }

std::vector<ViewerScript> viewer_scripts(const std::string& stem,
                                         const std::vector<ViewedMap>& maps,
                                         const std::string& model) {
  const std::string coot = stem + "_coot.py";
  const std::string pymol = stem + "_pymol.py";
  const std::string chimerax = stem + "_chimerax.cxc";
  return {{"Coot", coot, "coot --script " + coot, coot_script(maps, model)},
          {"PyMOL", pymol, "pymol " + pymol, pymol_script(maps, model)},
          {"ChimeraX", chimerax, "chimerax " + chimerax, chimerax_script(maps, model)}};
}

void write_scripts(const std::string& folder, const std::vector<ViewerScript>& scripts) {
  for (const ViewerScript& script : scripts) {
    write_whole(std::filesystem::path(folder) / script.file, script.text);
  }
}

}  // namespace qx
