// quorix map: from a reflection file to maps, with nothing to type but its name.

#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/map/make.h"
#include "driver/commands/map/plan.h"
#include "driver/commands/output_place.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/viewer_scripts.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

// As quorix run takes them: it unpacks and packs what the engine does not.
void print_sections(const MapJob& job) {
  for (const SectionText& section : {crystal_section(job), grid_section(job.options),
                                     fft_section(job.options), map_section(job), end_section()}) {
    std::cout << printed(section);
  }
}

void show_in_viewers(const MapTask& task, const std::vector<ViewedMap>& maps) {
  const MapOptions& options = task.options;
  const std::string folder = std::filesystem::path(maps.front().path).parent_path().string();
  const auto scripts = viewer_scripts(viewer_stem(task), maps, options.model, folder);
  write_scripts(folder, scripts);
  if (options.quiet || options.json) return;
  for (const ViewerScript& script : scripts) {
    std::cout << format("%-11s ", script.program.c_str()) << script.command << '\n';
  }
}

void make_map(const MapTask& task, std::size_t number, nlohmann::ordered_json& all,
              std::vector<ViewedMap>& viewed) {
  const MapOptions& options = task.options;
  const ReflectionFile& file = *task.file;
  const MapLabels& labels = task.labels[number];
  const std::string& output = task.outputs[number];
  const OutputPlace place(output, true);
  MapJob job = {options, file, labels, file.readable.path, place.path(), options.dmin};
  check_text("the space group", map_group(job));
  MapReport report;
  report.output = output;
  if (number == 0) {
    for (const std::string& line : task.notes) warn(job, report, line);
  }
  for (const std::string& line : map_warnings(job)) warn(job, report, line);
  if (number > 0) task.engine->renew();
  settle_crystal(*task.engine, job, report);
  if (options.print_sections) {
    job.input = file.path;
    job.output = output;
    return print_sections(job);
  }
  if (!options.show_grid) {
    generate(*task.engine, job, report);
    if (number + 1 == task.labels.size()) task.engine->run(end_section());
    place.deliver();
  }
  viewed.push_back({output, is_difference_amplitude(labels.amplitude),
                    options.no_scale ? report.cell_rms : 1.0});
  if (output != "-") all.push_back(as_json(job, report));
  if (!options.quiet && !options.json) tell(output == "-" ? std::cerr : std::cout, job, report);
}

void make_maps(MapTask& task, nlohmann::ordered_json& all) {
  const MapOptions& options = task.options;
  open_input(task);
  std::vector<ViewedMap> viewed;
  for (std::size_t i = 0; i < task.labels.size(); ++i) {
    if (i > 0 && !options.quiet && !options.json) std::cout << '\n';
    make_map(task, i, all, viewed);
  }
  const bool made = !options.show_grid && !options.print_sections;
  if (options.scripts && made) show_in_viewers(task, viewed);
  task.file.reset();
  task.engine.reset();
  task.readable.reset();
}

int run(const MapOptions& options) {
  const Progress progress("calculating maps");
  const auto& names_given = options.files;
  if (options.json || std::find(names_given.begin(), names_given.end(), "-") != names_given.end()) {
    keep_standard_output_clean();
  }
  std::vector<MapTask> tasks = plan_maps(options);
  check_outputs_of(tasks);
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  const bool names = tasks.size() > 1 && !options.quiet && !options.json && !options.print_sections;
  for (MapTask& task : tasks) {
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
