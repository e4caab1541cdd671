// Which data sets a batch is about, and what they are called.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qx {

struct DataSet {
  std::string path;         // of the reflections
  std::string name;         // of its folder and the beginning of its maps' names; no two share one
  bool with_model = false;  // maps are made of observations and a model
  bool peaks = false;       // are looked for in the map
  std::vector<std::string> levels = {};  // options of quorix peaks
  std::string model = {};                // empty: none was found
  std::string problem = {};              // why not
};

struct BatchInputs {
  std::vector<DataSet> sets;       // in the order given, what a folder holds by name
  std::vector<std::string> notes;  // what was left out, a line each
};

// Reflection files, folders and lists. Folders are searched all the way down, but for hidden ones
// and `output`. Throws CommandError for an argument that is none of them.
BatchInputs find_data_sets(const std::vector<std::string>& arguments,
                           const std::filesystem::path& output);

// The model of a data set, or why there is none: what `pattern` names, {name} in it being the
// data's file name without its ending and {folder} its folder; without a pattern the coordinates
// beside the data that share their name, else the only ones there.
void find_model(DataSet& set, const std::string& pattern);
// The same where a model serves if there is one: none is no problem, nor are several.
void find_model_if_any(DataSet& set, const std::string& pattern);

}  // namespace qx
