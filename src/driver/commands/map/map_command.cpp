// quorix map: from a reflection file to maps, with nothing to type but its name.

#include "driver/commands/commands.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/map/check.h"
#include "driver/commands/map/files.h"
#include "driver/commands/map/job.h"
#include "driver/commands/model_and_data.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/output_place.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/viewer_scripts.h"

#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/reflection_view.h>
#include <quorix/views.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

// What was found, told to the user.
struct MapReport {
  std::string group, output;
  double high = 0.0, low = 0.0;
  std::int32_t used = 0, dropped = 0;
  std::size_t atoms = 0;  // that the map lies around
  std::int32_t counts[3] = {};
  // Before scaling, e/A^3: of what the scale is taken from, and of the whole cell.
  double mean = 0.0, rms = 0.0, cell_rms = 0.0;
  double rms_in_file = 0.0;
  std::optional<MapCheck> check;
  std::vector<std::string> warnings;

  [[nodiscard]] double deviation() const {
    return std::sqrt(std::max(0.0, rms * rms - mean * mean));
  }
};

// One line on standard error; JSON holds the warnings itself.
void warn(const MapJob& job, MapReport& report, const std::string& line) {
  report.warnings.push_back(line);
  if (!job.options.json) {
    std::cerr << "quorix map: " << job.labels.amplitude << ": " << line << '\n';
  }
}

void note_crystal(const MapJob& job, MapReport& report) {
  qx_group_view group;
  qx_limits_view limits;
  qx_grid_view grid;
  if (qx_get_group_view(&group) != 1 || qx_get_limits_view(&limits) != 1 ||
      qx_get_grid_view(&grid) != 1) {
    throw CommandError(1, "the engine has no crystal");
  }
  report.group = group.full_name ? group.full_name : map_group(job);
  if (report.group.empty()) report.group = job.file.group_name + ", by its operators";
  report.high = limits.high;
  report.low = limits.low;
  report.used = reflections_used();
  std::copy_n(grid.counts, 3, report.counts);
  for (const std::string& line : grid_warnings(job, report.dropped)) warn(job, report, line);
}

// The atoms whose surroundings are wanted.
void add_model(Engine& engine, const MapJob& job, MapReport& report) {
  const std::string& path = job.options.extent.at(1);
  Coordinates coordinates(path);
  if (!job.options.selection.empty()) coordinates.select(job.options.selection, path);
  report.atoms = coordinates.atom_count();
  for (const std::string& line : coordinates.warnings()) warn(job, report, line);
  for (const std::string& line :
       crystal_differences(coordinates.crystal(), known_group(job), map_cell(job),
                           "the box lies where its coordinates are in the map's cell")) {
    warn(job, report, line);
  }
  engine.run(SectionText("xmod"));
  engine.call([&] { return coordinates.fill_model() ? ok : failed; });
  engine.run(SectionText("xmol").line("hydr yes"));
}

void tell(std::ostream& out, const MapJob& job, const MapReport& report) {
  const double* c = map_cell(job);
  out << format("cell        %g %g %g A, %g %g %g degrees\n", c[0], c[1], c[2], c[3], c[4], c[5])
      << "group       " << report.group << '\n'
      << format("resolution  %.3f - %.2f A\n", report.high, report.low)
      << format("reflections %d of %zu used, %s/%s%s\n", report.used, job.file.rows,
                job.labels.amplitude.c_str(), job.labels.phase.c_str(),
                job.labels.weight.empty() ? "" : (" times " + job.labels.weight).c_str())
      << format("grid        %d x %d x %d, %.3f x %.3f x %.3f A\n", report.counts[0],
                report.counts[1], report.counts[2], c[0] / report.counts[0],
                c[1] / report.counts[1], c[2] / report.counts[2]);
  if (job.options.show_grid) return;
  if (!job.options.selection.empty()) {
    out << format("atoms       %zu of %s, selected by %s\n", report.atoms,
                  job.options.extent.at(1).c_str(), job.options.selection.c_str());
  }
  out << format("map         rms %.5f e/A^3", report.rms);
  const bool by_cell = !job.options.no_scale && job.options.extent.front() != "cell";
  if (by_cell) out << " of the whole cell";
  if (std::fabs(report.deviation() - report.rms) > 1e-5 * report.rms) {
    out << format(" about zero, %.5f about the mean %.5f", report.deviation(), report.mean);
  }
  out << (job.options.no_scale ? ", not scaled" : ", scaled to 1");
  if (by_cell) out << format(" (%.3f in the map)", report.rms_in_file);
  out << ": " << report.output << '\n';
  if (report.check) {
    out << format("check       read back, within %.1e rms of a direct sum at %d points\n",
                  report.check->largest, report.check->points);
  }
}

nlohmann::ordered_json as_json(const MapJob& job, const MapReport& report) {
  const double* c = map_cell(job);
  nlohmann::ordered_json json = {{"input", job.file.path},
                                 {"labels", {job.labels.amplitude, job.labels.phase}},
                                 {"cell", std::vector<double>(c, c + 6)},
                                 {"space_group", report.group},
                                 {"resolution", {report.high, report.low}},
                                 {"reflections_in_file", job.file.rows},
                                 {"reflections_used", report.used},
                                 {"grid", report.counts},
                                 {"warnings", report.warnings}};
  if (!job.labels.weight.empty()) json["weight"] = job.labels.weight;
  if (job.options.show_grid) return json;
  if (report.atoms > 0) json["atoms"] = report.atoms;
  json["map"] = report.output;
  json["scaled"] = !job.options.no_scale;
  json["mean"] = report.mean;
  json["rms_about_zero"] = report.rms;
  json["rms_about_mean"] = report.deviation();
  json["rms_of_cell"] = report.cell_rms;
  json["rms_in_file"] = report.rms_in_file;
  if (report.check) {
    json["check"] = {{"points", report.check->points},
                     {"largest_deviation_rms", report.check->largest}};
  }
  return json;
}

void generate(Engine& engine, const MapJob& job, MapReport& report) {
  engine.run(fft_section(job.options));
  if (job.options.extent.front() == "model") add_model(engine, job, report);
  engine.run(map_section(job));
  qx_map_view map;
  if (qx_get_map_view(&map) != 1) throw CommandError(1, "the engine has no map");
  report.mean = map.mean;
  report.rms = map.rms;
  report.cell_rms = map.cell_rms;
  report.rms_in_file = map.written_rms;
  if (job.options.check) {
    report.check = check_map(engine, job.output);
    if (!report.check->passed()) {
      throw CommandError(
          1, report.output + format(" is %.1e rms away from a direct sum", report.check->largest));
    }
  }
  engine.run(end_section());
}

// As quorix run takes them: it unpacks and packs what the engine does not.
void print_sections(const MapJob& job) {
  for (const SectionText& section : {crystal_section(job), grid_section(job.options),
                                     fft_section(job.options), map_section(job), end_section()}) {
    std::cout << printed(section);
  }
}

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

// The maps of one file of reflections.
struct Task {
  MapOptions options;
  std::optional<ReflectionFile> file;  // read already
  std::vector<MapLabels> labels;
  std::vector<std::string> outputs;  // a name for each of the labels
  std::vector<std::string> notes;    // on what is not made
};

std::string viewer_stem(const Task& task) {
  return task.options.output.empty()
             ? std::filesystem::path(default_stem(task.options)).filename().string()
             : stem_of(task.outputs.front());
}

void show_in_viewers(const Task& task, const std::vector<ViewedMap>& maps) {
  const MapOptions& options = task.options;
  const std::string folder = std::filesystem::path(maps.front().path).parent_path().string();
  const auto scripts = viewer_scripts(viewer_stem(task), maps, options.model, folder);
  write_scripts(folder, scripts);
  if (options.quiet || options.json) return;
  for (const ViewerScript& script : scripts) {
    std::cout << format("%-11s ", script.program.c_str()) << script.command << '\n';
  }
}

Task plan(const MapOptions& options) {
  Task task = {options, read_reflections(options.input, options.verbose), {}, {}, {}};
  task.labels = choose_labels(options, *task.file, task.notes);
  for (const MapLabels& labels : task.labels) {
    task.outputs.push_back(options.output.empty()
                               ? default_stem(options) + "_" + labels.kind + ".ccp4"
                               : options.output);
  }
  return task;
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

std::vector<Task> plan_all(MapOptions options) {
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
  std::vector<Task> tasks;
  for (const std::string& input : files.inputs) {
    options.input = input;
    tasks.push_back(plan(options));
    if (files.inputs.size() > 1) tasks.back().file.reset();  // they may be too many to be held
  }
  return tasks;
}

void check_outputs_of(const std::vector<Task>& tasks) {
  const MapOptions& options = tasks.front().options;
  if (options.show_grid || options.print_sections) return;
  std::vector<std::string> inputs = {options.model};
  std::vector<Output> outputs;
  for (const Task& task : tasks) {
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

void make_map(const Task& task, std::size_t number, nlohmann::ordered_json& all,
              std::vector<ViewedMap>& viewed) {
  const MapOptions& options = task.options;
  const ReflectionFile& file = *task.file;
  const MapLabels& labels = task.labels[number];
  const std::string& output = task.outputs[number];
  const OutputPlace place(output, true);
  MapJob job = {options, file, labels, file.readable, place.path(), options.dmin};
  check_text("the space group", map_group(job));
  MapReport report;
  report.output = output;
  if (number == 0) {
    for (const std::string& line : task.notes) warn(job, report, line);
  }
  for (const std::string& line : map_warnings(job)) warn(job, report, line);
  const auto engine = start_map(job, report.dropped);
  note_crystal(job, report);
  if (options.print_sections) {
    job.input = file.path;
    job.output = output;
    return print_sections(job);
  }
  if (!options.show_grid) {
    generate(*engine, job, report);
    place.deliver();
  }
  viewed.push_back({output, is_difference_amplitude(labels.amplitude),
                    options.no_scale ? report.cell_rms : 1.0});
  if (output != "-") all.push_back(as_json(job, report));
  if (!options.quiet && !options.json) tell(output == "-" ? std::cerr : std::cout, job, report);
}

void make_maps(Task& task, nlohmann::ordered_json& all) {
  const MapOptions& options = task.options;
  if (!task.file) task.file = read_reflections(options.input, options.verbose);
  std::vector<ViewedMap> viewed;
  for (std::size_t i = 0; i < task.labels.size(); ++i) {
    if (i > 0 && !options.quiet && !options.json) std::cout << '\n';
    make_map(task, i, all, viewed);
  }
  const bool made = !options.show_grid && !options.print_sections;
  if (options.scripts && made) show_in_viewers(task, viewed);
  task.file.reset();
}

int run(const MapOptions& options) {
  const Progress progress("calculating maps");
  const auto& names_given = options.files;
  if (options.json || std::find(names_given.begin(), names_given.end(), "-") != names_given.end()) {
    keep_standard_output_clean();
  }
  std::vector<Task> tasks = plan_all(options);
  check_outputs_of(tasks);
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  const bool names = tasks.size() > 1 && !options.quiet && !options.json && !options.print_sections;
  for (Task& task : tasks) {
    if (names) std::cout << (&task == &tasks.front() ? "" : "\n") << task.options.input << ":\n";
    make_maps(task, all);
  }
  if (options.json && !options.print_sections)
    std::cout << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  return 0;
}

}  // namespace

void add_map(CLI::App& app, int& status) {
  auto options = std::make_shared<MapOptions>();
  CLI::App* command = app.add_subcommand("map", "Maps from the coefficients of a reflection file");
  add_map_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
