#include "driver/commands/map/files.h"

#include "driver/commands/command_error.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/readable_file.h"

#include <algorithm>
#include <filesystem>

namespace qx {

namespace {

bool is_named_like_an_input(std::string name) {
  if (name.ends_with(".gz")) name.resize(name.size() - 3);
  constexpr const char* endings[] = {".mtz", ".cif", ".mmcif", ".ent", ".pdb"};
  return std::any_of(std::begin(endings), std::end(endings),
                     [&](const char* ending) { return name.ends_with(ending); });
}

// A name that can only have been meant for an input.
[[noreturn]] void refuse_input(const std::string& name, FileKind kind) {
  if (kind == FileKind::missing) throw CommandError(2, "there is no file " + name);
  if (kind == FileKind::unreadable) (void)first_bytes(name, 4096);  // tells the reason
  if (kind == FileKind::folder || kind == FileKind::special) {
    throw CommandError(2, name + " is not a regular file");
  }
  throw CommandError(2, name + " is neither an MTZ nor an mmCIF file of reflections, it is " +
                            name_of(kind) + ": name the reflections first");
}

void take_output(const std::string& name, FileKind kind, bool force, MapFiles& files) {
  if (!files.output.empty()) {
    refuse_input(files.output, kind_of(files.output));
  }
  if (kind == FileKind::missing && name != "-" && is_named_like_an_input(name) && !force) {
    throw CommandError(2, "there is no file " + name + " (if it is to be a map: --force)");
  }
  files.output = name;
}

void take_input(const std::string& name, MapFiles& files) {
  if (!files.output.empty()) refuse_input(files.output, kind_of(files.output));
  for (const std::string& other : files.inputs) {
    std::error_code error;
    if (!std::filesystem::equivalent(other, name, error)) continue;
    throw CommandError(2, name + " are the reflections themselves" +
                              (name == other ? "" : ", as " + other) +
                              ": a map is not written over them, name another file");
  }
  files.inputs.push_back(name);
}

void take_model(const std::string& name, MapFiles& files) {
  if (!files.model.empty()) {
    throw CommandError(
        2, files.model + " and " + name + " both hold coordinates: name one model only");
  }
  files.model = name;
}

}  // namespace

MapFiles sort_map_files(const std::vector<std::string>& names, bool force) {
  MapFiles files;
  for (const std::string& name : names) {
    const FileKind kind = name == "-" ? FileKind::missing : kind_of(name);
    if (holds_reflections(kind)) {
      take_input(name, files);
    } else if (kind == FileKind::atoms) {
      take_model(name, files);
    } else if (files.inputs.empty()) {
      refuse_input(name, kind);
    } else {
      take_output(name, kind, force, files);
    }
  }
  if (files.inputs.empty()) {
    throw CommandError(2, files.model + " holds coordinates: name the reflections as well");
  }
  if (files.inputs.size() > 1 && !files.output.empty()) {
    throw CommandError(2, format("%s would be the map of %zu files: leave it out, and each map is "
                                 "named after its file",
                                 files.output.c_str(), files.inputs.size()));
  }
  return files;
}

}  // namespace qx
