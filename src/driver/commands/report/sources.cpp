// What quorix report looks at: files told apart, and maps made of reflections.
#include "driver/commands/command_error.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/map/make.h"
#include "driver/commands/map/plan.h"
#include "driver/commands/maps/job.h"
#include "driver/commands/model_and_data.h"
#include "driver/commands/report/report.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <limits>

namespace qx {

namespace {

std::string name_of_file(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

void take_model(ReportOptions& options, const std::string& name) {
  if (!options.model.empty()) {
    throw CommandError(
        2, options.model + " and " + name + " both hold coordinates: name one model only");
  }
  options.model = name;
}

void take_reflections(ReportOptions& options, const std::string& name) {
  if (!options.reflections.empty()) {
    throw CommandError(2, options.reflections + " and " + name +
                              " both hold reflections: a page shows those of one file");
  }
  options.reflections = name;
}

void warn(const std::string& line) { std::cerr << "quorix report: " << line << '\n'; }

// What the engine says of work that the page can do without is not for the screen.
class Aside final : public EngineHost {
 public:
  Aside() : host_(!has_engine_host()) {
    if (host_) set_engine_host(this);
  }
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;
  ~Aside() {
    if (host_) set_engine_host(nullptr);
  }
  void said(const std::string& /*text*/) override {}
  void pause() override {}

 private:
  bool host_;
};

MapSource made_source(const std::string& name, bool difference) {
  MapSource source{name, {}, difference};
  source.file = std::make_shared<TemporaryFile>();
  source.path = source.file->path();
  return source;
}

void make_map(MapTask& task, std::size_t number, PageSources& sources) {
  const MapLabels& labels = task.labels[number];
  MapSource source = made_source(map_type(labels), is_difference_amplitude(labels.amplitude));
  const ReflectionFile& file = *task.file;
  MapJob job = {task.options, file, labels, file.readable.path, source.path, {}};
  MapReport report;
  for (const std::string& line : map_warnings(job)) warn(job, report, line);
  if (number > 0) task.engine->renew();
  settle_crystal(*task.engine, job, report);
  generate(*task.engine, job, report);
  for (const std::string& line : report.warnings) warn(labels.amplitude + ": " + line);
  source.history = {
      format("Coefficients: %s, %s", labels.amplitude.c_str(), labels.phase.c_str()),
      format("Resolution: %.3f to %.2f A, %d reflections", report.high, report.low, report.used),
      "Space group: " + report.group};
  if (number == 0) sources.column = labels.amplitude;
  sources.maps.push_back(std::move(source));
}

// The maps of the usual columns; LabelError where the file has none.
PageSources maps_of_columns(const ReportOptions& options) {
  MapOptions wanted;
  wanted.input = options.reflections;
  wanted.no_scale = true;
  wanted.json = true;  // warnings are told here
  wanted.verbose = options.verbose;
  wanted.extent = {"cell"};
  std::vector<MapTask> tasks = plan_maps(wanted);
  MapTask& task = tasks.front();
  open_input(task);
  for (const std::string& line : task.notes) warn(line);
  PageSources sources;
  for (std::size_t i = 0; i < task.labels.size(); ++i) make_map(task, i, sources);
  return sources;
}

bool has_observations(const ReportOptions& options) {
  Engine engine(options.verbose);
  const ReflectionFile file =
      read_labels(engine, options.reflections, readable_mtz(options.reflections));
  const ObservedColumns found = usual_observations(file);
  return !found.amplitude.empty() || !found.intensity.empty();
}

// The model's crystal where it tells one, else that of the reflections.
MapsOptions comparison(const ReportOptions& options, const Coordinates& model,
                       const ReflectionFile& file) {
  MapsOptions wanted;
  FcalcOptions& base = wanted.base;
  base.command = "report";
  base.model = options.model;
  base.hkl = options.reflections;
  base.json = true;  // warnings are told here
  base.verbose = options.verbose;
  if (!(model.crystal().cell[0] > 0.0)) base.cell.assign(file.cell, file.cell + 6);
  if (model.crystal().space_group.empty()) base.space_group = file.engine_group();
  check_options(wanted);
  return wanted;
}

void note_correlations(Engine& engine, const FcalcJob& job, PageSources& sources) {
  MapsReport report;
  correlate_densities(engine, job, report);
  sources.radius = report.radius;
  sources.correlations.assign(job.coordinates.residues().names.size(),
                              std::numeric_limits<double>::quiet_NaN());
  for (const ResidueDensity& row : report.residues) {
    sources.correlations.at(row.number) = row.found.correlation;
  }
}

void make_weighted_maps(Engine& engine, const FcalcJob& job, const MapsOptions& wanted,
                        PageSources& sources) {
  engine.run(SectionText("xfcc").line("replace"));
  for (const bool difference : {false, true}) {
    MapSource source = made_source(difference ? "mFo-DFc" : "2mFo-DFc", difference);
    engine.run(weighted_map_section(wanted, source.path, difference));
    const std::string& column =
        job.observed.amplitude.empty() ? job.observed.intensity : job.observed.amplitude;
    source.history = {"Calculated from " + column + " and " + name_of_file(wanted.base.model) +
                      ", as quorix maps does"};
    sources.column = column;
    sources.maps.push_back(std::move(source));
  }
}

// Structure factors of the model against the amplitudes; with maps, if they are wanted.
void compare(const ReportOptions& options, const Coordinates& model, bool with_maps,
             PageSources& sources) {
  std::optional<ReflectionFile> file;
  {
    Engine engine(options.verbose);
    file = read_labels(engine, options.reflections, readable_mtz(options.reflections));
  }
  const MapsOptions wanted = comparison(options, model, *file);
  Engine engine(options.verbose);
  FcalcJob job{wanted.base, Coordinates(options.model)};
  prepare_with_data(engine, job);
  MapsReport report;
  calculate(engine, job, wanted, report);
  note_correlations(engine, job, sources);
  if (with_maps) make_weighted_maps(engine, job, wanted, sources);
  for (const std::string& line : job.warnings) {
    const auto& told = model.warnings();
    if (std::find(told.begin(), told.end(), line) == told.end()) warn("warning: " + line);
  }
}

void compare_if_possible(const ReportOptions& options, const Coordinates& model,
                         PageSources& sources) {
  if (!has_observations(options)) return;
  const Aside quiet;
  try {
    compare(options, model, false, sources);
  } catch (const CommandError& error) {
    warn(std::string("no density correlation by residue: ") + error.what());
  }
}

}  // namespace

void sort_files(ReportOptions& options) {
  for (const std::string& name : options.files) {
    const FileKind kind = kind_of(name);
    if (holds_reflections(kind)) {
      take_reflections(options, name);
    } else if (kind == FileKind::atoms) {
      take_model(options, name);
    } else {
      (void)first_bytes(name, 1);  // tells what cannot be read
      options.maps.push_back(name);
    }
  }
  if (!options.reflections.empty() && !options.maps.empty()) {
    throw CommandError(2, options.reflections + " and " + options.maps.front() +
                              ": a page shows the maps of reflections, or those named");
  }
  if (options.reflections.empty() && options.maps.empty()) {
    throw CommandError(2, options.model + " holds coordinates: name a map or reflections as well");
  }
  if (options.maps.size() > 2) throw CommandError(2, "a page shows two maps at most");
}

void check_crystal(const Coordinates& model, const std::string& model_path, const double* cell,
                   const std::string& file) {
  const double* own = model.crystal().cell;
  if (are_of_one_form(own, cell)) return;
  const auto text = [](const double* c) {
    return format("%.2f %.2f %.2f %.1f %.1f %.1f", c[0], c[1], c[2], c[3], c[4], c[5]);
  };
  throw CommandError(2, model_path + " is a model of another crystal: its cell is " + text(own) +
                            ", that of " + file + " is " + text(cell));
}

PageSources sources_of_reflections(const ReportOptions& options, const Coordinates* model) {
  PageSources sources;
  try {
    sources = maps_of_columns(options);
  } catch (const LabelError&) {
    if (!model || !has_observations(options)) throw;
    compare(options, *model, true, sources);
  }
  if (model && sources.correlations.empty()) compare_if_possible(options, *model, sources);
  return sources;
}

}  // namespace qx
