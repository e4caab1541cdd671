#include "driver/commands/map/plan.h"

#include "driver/commands/command_error.h"
#include "driver/commands/map/files.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/output_place.h"
#include "driver/commands/viewer_scripts.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

namespace qx {

namespace {

// What the names of the maps begin with that the user does not name.
std::string default_stem(const MapOptions& options) {
  if (options.prefix.empty()) return stem_of(options.input);
  return options.prefix.ends_with('/') ? options.prefix + stem_of(options.input) : options.prefix;
}

// The usual pairs of the kinds that are wanted; `notes` on those that the file has otherwise.
std::vector<MapLabels> usual_maps(const MapOptions& options, const ReflectionFile& file,
                                  std::vector<std::string>& notes) {
  std::vector<MapLabels> chosen;
  std::string pairs;
  for (const bool difference : {false, true}) {
    const bool wanted =
        difference ? options.difference || options.output.empty() : !options.difference;
    if (!wanted) continue;
    const MapLabels labels = usual_labels(file, difference);
    if (!labels.amplitude.empty()) {
      chosen.push_back(labels);
      continue;
    }
    const auto lines = passed_over(file, difference);
    notes.insert(notes.end(), lines.begin(), lines.end());
    pairs += (pairs.empty() ? "" : ", ") + usual_pairs(difference);
  }
  if (chosen.empty()) {
    refuse_labels(file, file.path + " has none of the pairs " + pairs, {}, notes);
  }
  return chosen;
}

std::vector<MapLabels> choose_labels(const MapOptions& options, const ReflectionFile& file,
                                     std::vector<std::string>& notes) {
  const bool named = !options.amplitude.empty() || !options.phase.empty();
  if (!named && options.weight.empty()) return usual_maps(options, file, notes);
  MapLabels labels =
      named ? given_labels(file, options.amplitude, options.phase) : measured_labels(file);
  if (!options.weight.empty()) add_weight(file, options.weight, labels);
  return {labels};
}

void check_extent(const std::vector<std::string>& extent) {
  const std::string& kind = extent.front();
  if (kind == "model" && extent.size() == 1) {
    throw CommandError(2, "--extent model: name the model");
  }
  const std::size_t values = kind == "model" ? 1 : kind == "box" || kind == "frac" ? 6 : 0;
  if (values == 0 && kind != "cell" && kind != "asu") {
    throw CommandError(2, "--extent takes cell, asu, box, frac or model, not '" + kind + "'");
  }
  if (extent.size() != values + 1) {
    throw CommandError(2, format("--extent %s takes %zu values, not %zu (file names stand before "
                                 "this option)",
                                 kind.c_str(), values, extent.size() - 1));
  }
  for (std::size_t i = 1; i <= values && values == 6; ++i) {
    double number = 0.0;
    if (!CLI::detail::lexical_cast(extent[i], number)) {
      throw CommandError(2, "--extent " + kind + ": '" + extent[i] + "' is no number");
    }
  }
}

void check_options(const MapOptions& options) {
  check_extent(options.extent);
  if (options.print_sections && options.extent.front() == "model") {
    throw CommandError(2,
                       "atoms are given to the engine in arrays: --extent model has no text of "
                       "sections to print");
  }
  if (!options.selection.empty() && options.extent.front() != "model") {
    throw CommandError(2, "--select chooses among the atoms of a model: name one");
  }
  if (!options.prefix.empty() && !options.output.empty()) {
    throw CommandError(2, "--prefix is for maps without a name: leave out it or " + options.output);
  }
  if (options.scripts && asks_for_gzip(options.output)) {
    throw CommandError(2, "--scripts: viewers read plain maps, not " + options.output);
  }
  if (options.output == "-" && options.print_sections) {
    throw CommandError(2, "the sections go to standard output: name a file for the map");
  }
  if (options.output == "-" && (options.verbose || options.json || options.scripts)) {
    throw CommandError(
        2, "the map itself goes to standard output: --verbose, --json and --scripts cannot");
  }
}

void plan(const ReflectionFile& file, MapTask& task) {
  const MapOptions& options = task.options;
  task.labels = choose_labels(options, file, task.notes);
  for (const MapLabels& labels : task.labels) {
    task.outputs.push_back(options.output.empty()
                               ? default_stem(options) + "_" + labels.kind + ".ccp4"
                               : options.output);
  }
}

// Many files are looked at before the first map is made, and read when it is their turn.
std::vector<MapTask> plan_each(MapOptions options, const std::vector<std::string>& inputs) {
  constexpr std::size_t most_unpacked = 100;  // that stay open
  Engine engine(options.verbose);
  std::vector<MapTask> tasks;
  std::size_t unpacked = 0;
  for (const std::string& input : inputs) {
    options.input = input;
    MapTask& task = tasks.emplace_back(MapTask{options, readable_mtz(input)});
    plan(read_labels(engine, input, *task.readable), task);
    if (task.readable->unpacked && ++unpacked > most_unpacked) task.readable.reset();
  }
  return tasks;
}

std::vector<MapTask> plan_one(const MapOptions& options) {
  std::vector<MapTask> tasks;
  MapTask& task = tasks.emplace_back(MapTask{options});
  open_input(task);
  plan(*task.file, task);
  return tasks;
}

// The model that is named on the line or behind --extent.
void settle_model(MapOptions& options) {
  if (options.extent.empty()) options.extent = {options.model.empty() ? "cell" : "model"};
  if (options.extent.front() != "model") return;
  if (options.extent.size() == 1 && !options.model.empty()) options.extent.push_back(options.model);
  if (options.extent.size() == 2 && options.model.empty()) options.model = options.extent.back();
  if (options.extent.size() == 2 && options.model != options.extent.back()) {
    throw CommandError(2, options.model + " and " + options.extent.back() +
                              " are both named as the model: name one");
  }
}

// Limits are known in either order.
void order_limits(MapOptions& options) {
  if (options.dmin && options.dmax && *options.dmin > *options.dmax) {
    std::swap(options.dmin, options.dmax);
  }
}

}  // namespace

std::string viewer_stem(const MapTask& task) {
  return task.options.output.empty()
             ? std::filesystem::path(default_stem(task.options)).filename().string()
             : stem_of(task.outputs.front());
}

void open_input(MapTask& task) {
  if (task.file) return;
  const MapOptions& options = task.options;
  if (!task.readable) task.readable = readable_mtz(options.input);
  task.engine = std::make_unique<Engine>(options.verbose);
  task.file = read_reflections(*task.engine, options.input, *task.readable);
}

std::vector<MapTask> plan_maps(MapOptions options) {
  order_limits(options);
  std::vector<std::string> names = options.files;
  names.insert(names.begin(), options.input);
  const MapFiles files = sort_map_files(names, options.force);
  options.output = files.output;
  options.model = files.model;
  settle_model(options);
  check_options(options);
  if (!options.model.empty() && options.extent.front() != "model" && !options.scripts) {
    std::cerr << "quorix map: " << options.model
              << ": the model serves --extent model and --scripts only\n";
  }
  if (files.inputs.size() > 1) return plan_each(options, files.inputs);
  options.input = files.inputs.front();
  return plan_one(options);
}

void check_outputs_of(const std::vector<MapTask>& tasks) {
  const MapOptions& options = tasks.front().options;
  if (options.show_grid || options.print_sections) return;
  std::vector<std::string> inputs = {options.model};
  std::vector<Output> outputs;
  for (const MapTask& task : tasks) {
    inputs.push_back(task.options.input);
    for (const std::string& path : task.outputs) {
      if (path != "-") outputs.push_back({path, FileKind::map});
    }
    if (!options.scripts) continue;
    const auto folder = std::filesystem::path(task.outputs.front()).parent_path();
    const std::vector<Output> scripts = script_outputs(viewer_stem(task), folder.string());
    outputs.insert(outputs.end(), scripts.begin(), scripts.end());
  }
  check_outputs(inputs, outputs, options.force);
}

}  // namespace qx
