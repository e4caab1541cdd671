#include "driver/commands/viewer_scripts.h"

#include "driver/commands/command_error.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/whole_file.h"

#include <filesystem>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

namespace fs = std::filesystem;

// From the folder of the scripts, so that it can be moved with all that it holds.
std::string relative_to(const std::string& folder, const std::string& path) {
  const fs::path base = folder.empty() ? fs::path(".") : fs::path(folder);
  std::error_code error;
  const fs::path parent = fs::path(path).parent_path();
  if (fs::equivalent(parent.empty() ? fs::path(".") : parent, base, error)) {
    return fs::path(path).filename().string();
  }
  const fs::path there = fs::relative(path, base, error);
  return error || there.empty() ? fs::absolute(path, error).string() : there.string();
}

// A text as Python and ChimeraX read it, in quotes.
std::string quoted(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

double level_of(const ViewedMap& map) { return sensible_level(map.difference) * map.rms; }

std::string object_name(const ViewedMap& map) {
  std::string name = std::filesystem::path(map.path).stem().string();
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

// Where the script itself stands: programs tell its name in one way or another.
std::string python_beginning(const std::string& script) {
  return script_mark +
         ("import os\n"
          "import sys\n\n"
          "known = dict(globals(), **locals())\n"
          "folder = \"\"  # where this program runs, if it does not tell the script's name\n"
          "for path in [known.get(\"__script__\"), known.get(\"__file__\")] + "
          "list(getattr(sys, \"argv\", [])):\n"
          "    if path and os.path.basename(path) == " +
          quoted(script) +
          ":\n"
          "        folder = os.path.dirname(os.path.abspath(path))\n"
          "        break\n\n");
}

std::string python_path(const std::string& path) {
  return "os.path.join(folder, " + quoted(path) + ")";
}

std::string coot_script(const std::string& script, const std::vector<ViewedMap>& maps,
                        const std::string& model) {
  std::string text = python_beginning(script);
  text +=
      "try:\n"
      "    from coot import handle_read_ccp4_map, read_pdb, set_contour_level_absolute\n"
      "except ImportError:\n"
      "    pass  # before version 1 they are there without an import\n\n";
  for (const ViewedMap& map : maps) {
    text += "molecule = handle_read_ccp4_map(" + python_path(map.path) +
            (map.difference ? ", 1)\n" : ", 0)\n") +
            format("set_contour_level_absolute(molecule, %.6g)\n", level_of(map));
  }
  if (!model.empty()) text += "read_pdb(" + python_path(model) + ")\n";
  return text;
}

std::string pymol_script(const std::string& script, const std::vector<ViewedMap>& maps,
                         const std::string& model) {
  std::string text = python_beginning(script);
  text += "from pymol import cmd\n\ncmd.set(\"normalize_ccp4_maps\", 0)\n";
  if (!model.empty()) text += "cmd.load(" + python_path(model) + ", \"coordinates\")\n";
  const char* around = model.empty() ? "" : ", \"coordinates\", carve=2.0";
  for (const ViewedMap& map : maps) {
    const std::string name = object_name(map);
    text += "cmd.load(" + python_path(map.path) + ", \"" + name + "_map\", format=\"ccp4\")\n";
    const auto mesh = [&](const char* part, const char* colour, double level) {
      text += format("cmd.isomesh(\"%s%s\", \"%s_map\", %.6g%s)\n", name.c_str(), part,
                     name.c_str(), level, around);
      text += format("cmd.color(\"%s\", \"%s%s\")\n", colour, name.c_str(), part);
    };
    const double level = level_of(map);
    mesh(map.difference ? "_more" : "_mesh", map.difference ? "green" : "marine", level);
    if (map.difference) mesh("_less", "red", -level);
  }
  return text;
}

std::string chimerax_script(const std::vector<ViewedMap>& maps, const std::string& model) {
  std::string text = script_mark;
  int number = 0;
  for (const ViewedMap& map : maps) {
    const double level = level_of(map);
    text += "open " + quoted(map.path) + " format ccp4\n" +
            format("volume #%d style mesh step 1 level %.6g color %s", ++number, level,
                   map.difference ? "green" : "cornflower blue");
    text += map.difference ? format(" level %.6g color red\n", -level) : "\n";
  }
  if (!model.empty()) text += "open " + quoted(model) + "\n";
  return text;
}

}  // namespace

double sensible_level(bool difference) { return difference ? 3.0 : 1.5; }

std::vector<ViewerScript> viewer_scripts(const std::string& stem, std::vector<ViewedMap> maps,
                                         const std::string& model, const std::string& folder) {
  for (ViewedMap& map : maps) map.path = relative_to(folder, map.path);
  const std::string atoms = model.empty() ? "" : relative_to(folder, model);
  const std::string coot = stem + "_coot.py";
  const std::string pymol = stem + "_pymol.py";
  const std::string chimerax = stem + "_chimerax.cxc";
  return {{"Coot", coot, "coot --script " + coot, coot_script(coot, maps, atoms)},
          {"PyMOL", pymol, "pymol " + pymol, pymol_script(pymol, maps, atoms)},
          {"ChimeraX", chimerax, "chimerax " + chimerax, chimerax_script(maps, atoms)}};
}

std::vector<Output> script_outputs(const std::string& stem, const std::string& folder) {
  std::vector<Output> outputs;
  for (const ViewerScript& script : viewer_scripts(stem, {}, {}, folder)) {
    outputs.push_back({(std::filesystem::path(folder) / script.file).string(), FileKind::script});
  }
  return outputs;
}

void write_scripts(const std::string& folder, const std::vector<ViewerScript>& scripts) {
  for (const ViewerScript& script : scripts) {
    write_whole(std::filesystem::path(folder) / script.file, script.text);
  }
}

}  // namespace qx
