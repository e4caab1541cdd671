// Scripts that load maps at a sensible level in the programs people look at them with.
#pragma once

#include "driver/commands/output_guard.h"

#include <string>
#include <vector>

namespace qx {

struct ViewedMap {
  std::string path;
  bool difference;
  double rms;  // in the file's units: what levels are counted in
};

struct ViewerScript {
  std::string program, file, command;  // the name to give it, and what to type
  std::string text;
};

// Levels, in rms about zero: that at which a map is drawn, for difference maps both signs.
double sensible_level(bool difference);
// Paths are those from `folder`, where the scripts are to stand; `model` may be empty. The names of
// the files begin with `stem`. Levels are absolute: programs differ in what they take for an rms.
std::vector<ViewerScript> viewer_scripts(const std::string& stem, std::vector<ViewedMap> maps,
                                         const std::string& model, const std::string& folder);
// The files that they will be.
std::vector<Output> script_outputs(const std::string& stem, const std::string& folder);
// Writes them into `folder`; throws CommandError if that fails.
void write_scripts(const std::string& folder, const std::vector<ViewerScript>& scripts);

}  // namespace qx
