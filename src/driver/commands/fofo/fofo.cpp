// quorix fofo: differences between two sets of observations of one crystal form.
#include "driver/commands/commands.h"
#include "driver/commands/crystal_lines.h"
#include "driver/commands/fcalc/setup.h"
#include "driver/commands/fofo/job.h"
#include "driver/commands/model_and_data.h"
#include "driver/commands/model_fit.h"
#include "driver/commands/output_place.h"
#include "driver/commands/stats/job.h"

#include <quorix/engine.h>
#include <quorix/fofo.h>
#include <quorix/map.h>
#include <quorix/mtz.h>
#include <quorix/reflections.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <gemmi/symmetry.hpp>  // for SpaceGroup
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

struct FofoReport {
  std::vector<std::string> warnings;
  std::string lines;  // of the model
  qx_fofo_view found = {};
  std::vector<std::pair<double, double>> curve;  // d (Angstrom) and k
  double rms = 0.0;                              // of the map
};

void warn(const FofoOptions& options, FofoReport& report, const std::string& text) {
  report.warnings.push_back(text);
  if (!options.base.json) std::cerr << "quorix fofo: warning: " << text << '\n';
}

// What the engine made of intensities, and the columns that the file has besides.
void write_amplitudes(Engine& engine, const std::string& free, const TemporaryFile& to) {
  engine.call([&] {
    std::vector<const char*> labels(41);  // by the number of a column identifier
    const std::pair<const char*, const char*> columns[] = {
        {"FOBS", "F"}, {"SIGF", "SIGF"}, {"TEST", free.c_str()}};
    for (const auto& [word, label] : columns) {
      std::int32_t number = 0;
      if (qx_get_string_coid(word, &number) != ok) return failed;
      if (*label) labels[static_cast<std::size_t>(number)] = label;
    }
    const qxrefdata* set = qx_get_qxrefdata();
    qxmtz* mtz = set ? qx_make_mtz_with_others_obj(set, labels.data()) : nullptr;
    if (!mtz || qx_write_refdata_mtz_file(to.path().c_str(), mtz) != 0) return failed;
    return qx_delete_mtz_obj(mtz);
  });
}

// F and SIGF of a file's intensities, in a file for the time of this run. The engine is as good as
// fresh afterwards.
AmplitudeSet with_amplitudes(Engine& engine, const ReflectionFile& file,
                             const ObservedColumns& columns) {
  StatsOptions options;
  options.data = file.path;
  const StatsJob job = {options, file, columns};
  auto place = std::make_shared<TemporaryFile>();
  engine.run(crystal_section(job, file.readable.path));
  engine.run(SectionText("xwilson").line("amplitudes"));
  write_amplitudes(engine, columns.free, *place);
  engine.renew();
  return {place->path(), place, {"F", "SIGF", columns.free}};
}

AmplitudeSet amplitude_set(Engine& engine, const FofoOptions& options, const ReflectionFile& file,
                           const std::vector<std::string>& labels) {
  const ObservedColumns columns =
      labels.empty() ? usual_observations(file) : given_observations(file, labels, true);
  if (!columns.amplitude.empty()) {
    return {options.print_sections ? file.path : file.readable.path, file.readable.unpacked,
            columns};
  }
  if (columns.intensity.empty()) {
    throw CommandError(2, file.path +
                              " has neither amplitudes nor intensities under a usual name: give "
                              "--labels F,SIGF,FREE");
  }
  if (options.print_sections) {
    throw CommandError(2, file.path +
                              " holds intensities: make amplitudes of them first, with "
                              "quorix stats --amplitudes");
  }
  return with_amplitudes(engine, file, columns);
}

const std::vector<std::string>& labels_of_on(const FofoOptions& options) {
  return options.on_labels.empty() ? options.base.labels : options.on_labels;
}

// The engine holds the second set against the crystal, which may be the model's: of the files
// themselves nobody has said yet that they belong together.
void check_one_form(const ReflectionFile& on, const ReflectionFile& off) {
  if (on.group && off.group && on.group->number != off.group->number) {
    throw CommandError(2, on.path + " is in " + on.group->xhm() + ", " + off.path + " in " +
                              off.group->xhm() + ": differences need one crystal form");
  }
  if (are_of_one_form(on.cell, off.cell)) return;
  throw CommandError(
      2, on.path + " and " + off.path + " have cells of two crystal forms: differences need one");
}

void fetch_numbers(FofoReport& report) {
  qx_fofo_view& v = report.found;
  if (qx_get_fofo_view(&v) != ok) return;
  for (std::int32_t i = 0; i < v.nbins; ++i) {
    report.curve.emplace_back(1.0 / std::sqrt(v.centre[i]), v.k * v.curve[i]);
  }
}

Json numbers_of(const FofoReport& report) {
  const qx_fofo_view& v = report.found;
  Json curve = Json::array();
  for (const auto& [d, k] : report.curve) curve.push_back({{"d", d}, {"k", k}});
  return {
      {"reflections", {{"both", v.pairs}, {"only_off", v.first_only}, {"only_on", v.second_only}}},
      {"scale", {{"k", v.k}, {"b_cart", std::vector<double>(v.b, v.b + 6)}, {"curve", curve}}},
      {"r", v.r},
      {"correlation", v.correlation},
      {"rms_difference", v.rms_difference},
      {"rms_error", v.rms_error},
      {"mean_weight", v.mean_weight},
      {"without_error", v.without_error},
      {"negative", v.negative},
      {"rejected", v.rejected}};
}

// The differences, the map and the file, in an engine that has the first set and its phases.
void subtract(Engine& engine, const FofoOptions& options, const AmplitudeSet& on,
              const ObservedColumns& off, FofoReport& report) {
  const FcalcOptions& base = options.base;
  const auto tell = [&](const std::string& line) { warn(options, report, line); };
  std::unique_ptr<OutputPlace> map;
  if (!base.map_fofc.empty()) map = std::make_unique<OutputPlace>(base.map_fofc);
  heed_warnings(engine.run(difference_section(options, on, map ? map->path() : "")), tell);
  engine.call([&] {
    qx_map_statistics_view view = {};
    if (map && qx_get_map_statistics(&view) == 1) report.rms = view.rms;
    fetch_numbers(report);
    return qx_exist_quorix() ? ok : failed;
  });
  if (map) map->deliver();
  if (base.output.empty()) return;
  const OutputPlace place(base.output);
  engine.run(differences_written(options, off, place.path()));
  place.deliver();
}

SectionText grid_of_map(const FcalcOptions& options) {
  return SectionText("xgrid").line(format("frac %f", options.fraction));
}

void run_with_phases(const FofoOptions& options, FofoReport& report) {
  const FcalcOptions& base = options.base;
  Engine engine(base.verbose);
  const ReflectionFile file = read_reflections(engine, base.hkl);
  if (file.find(options.phases).empty()) {
    throw CommandError(2, base.hkl + " has no column " + options.phases);
  }
  if (file.find(options.phases).front()->type != 'P') {
    throw CommandError(2, "column " + options.phases + " is no phase");
  }
  const AmplitudeSet off = amplitude_set(engine, options, file, base.labels);
  const AmplitudeSet on =
      amplitude_set(engine, options, read_reflections(engine, options.on), labels_of_on(options));
  const SectionText first[] = {phased_section(options, file, off), grid_of_map(base),
                               SectionText("xfft").line(format("memory %f", base.memory))};
  if (options.print_sections) {
    for (const SectionText& section : first) std::cout << printed(section);
    std::cout << printed(difference_section(options, on, base.map_fofc))
              << printed(differences_written(options, off.columns, base.output));
    return;
  }
  for (const SectionText& section : first) engine.run(section);
  subtract(engine, options, on, off.columns, report);
}

// Everything as text, nothing of it written.
void show_sections(Engine& engine, FcalcJob& job, const FofoOptions& options,
                   const AmplitudeSet& on) {
  const FcalcOptions& base = options.base;
  engine.run(crystal_section(job));
  job.input = base.hkl;
  std::vector<SectionText> sections = set_up_sections(job);
  sections.push_back(SectionText("xfcc").line("calc"));
  if (job.with_solvent()) {
    for (const SectionText& section : fit_sections(base.solvent, true)) sections.push_back(section);
  }
  sections.push_back(SectionText("xfcc").line("replace"));
  sections.push_back(difference_section(options, on, base.map_fofc));
  sections.push_back(differences_written(options, job.observed, base.output));
  for (const SectionText& section : sections) std::cout << printed(section);
}

void run_with_model(const FofoOptions& options, FofoReport& report) {
  const FcalcOptions& base = options.base;
  Engine engine(base.verbose);
  FcalcJob job{base, Coordinates(base.model)};
  prepare(engine, job);
  std::shared_ptr<TemporaryFile> kept;  // until the sections have read it
  if (job.observed.amplitude.empty()) {
    const AmplitudeSet off = amplitude_set(engine, options, *job.data, base.labels);
    const std::optional<FreeSet> free_set = job.observed.free_set;
    job.input = off.path;
    kept = off.kept;
    job.observed = off.columns;
    job.observed.free_set = free_set;
  }
  const ReflectionFile on_file = read_reflections(engine, options.on);
  check_one_form(on_file, *job.data);
  const AmplitudeSet on = amplitude_set(engine, options, on_file, labels_of_on(options));
  if (options.print_sections) return show_sections(engine, job, options, on);
  const NamedAtoms names(job.coordinates);
  set_up(engine, job);
  note_wide_atoms(job, engine.run(SectionText("xfcc").line("calc")));
  if (job.with_solvent()) report.lines = fit_to_observations(engine, job, base.solvent, true);
  engine.run(SectionText("xfcc").line("replace"));
  report.warnings = job.warnings;
  subtract(engine, options, on, job.observed, report);
}

void tell(const FofoOptions& options, const FofoReport& report) {
  const FcalcOptions& base = options.base;
  const qx_fofo_view& v = report.found;
  std::cout << report.lines << "Difference                  : " << options.on << " minus "
            << base.hkl << '\n'
            << format("Reflections in both         : %d, only in ON %d, only in OFF %d\n", v.pairs,
                      v.second_only, v.first_only)
            << format(
                   "Scale of ON                 : k = %.5f  B11 = %.3f B22 = %.3f B33 = %.3f "
                   "B12 = %.3f B13 = %.3f B23 = %.3f, %d bins\n",
                   v.k, v.b[0], v.b[1], v.b[2], v.b[3], v.b[4], v.b[5], v.nbins)
            << format("Agreement of the sets       : R = %.4f  correlation = %.4f\n", v.r,
                      v.correlation)
            << format(
                   "Differences                 : rms = %.4g  rms error = %.4g  %d below 0, %d "
                   "rejected, mean weight = %.3f\n",
                   v.rms_difference, v.rms_error, v.negative, v.rejected, v.mean_weight);
  if (!base.map_fofc.empty()) {
    std::cout << format("%s written, rms %.4g\n", base.map_fofc.c_str(), report.rms);
  }
  if (!base.output.empty()) std::cout << base.output << " written\n";
}

void tell_json(const FofoOptions& options, const FofoReport& report) {
  const FcalcOptions& base = options.base;
  Json json = {{"on", options.on}, {"off", base.hkl}, {"difference", "on minus off"}};
  json.update(numbers_of(report));
  if (!base.map_fofc.empty()) json["map"] = {{"file", base.map_fofc}, {"rms", report.rms}};
  if (!base.output.empty()) json["output"] = base.output;
  json["warnings"] = report.warnings;
  std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

int run(FofoOptions& options) {
  options.base.command = "fofo";
  check_options(options);
  if (options.base.json) keep_standard_output_clean();
  const Progress progress("calculating differences");
  FofoReport report;
  options.base.model.empty() ? run_with_phases(options, report) : run_with_model(options, report);
  if (options.print_sections) return 0;
  if (options.base.json) {
    tell_json(options, report);
  } else if (!options.base.quiet) {
    tell(options, report);
  }
  return 0;
}

}  // namespace

void add_fofo(CLI::App& app, int& status) {
  auto options = std::make_shared<FofoOptions>();
  CLI::App* command =
      app.add_subcommand("fofo", "What differs between two sets of observations of a crystal form");
  add_fofo_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
