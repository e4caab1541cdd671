// quorix maps: map coefficients from amplitudes and a model. quorix validate: how well they agree.
#include "driver/commands/commands.h"
#include "driver/commands/fcalc/setup.h"
#include "driver/commands/maps/job.h"
#include "driver/commands/maps/omitted.h"
#include "driver/commands/model_fit.h"
#include "driver/commands/output_place.h"
#include "driver/commands/viewer_scripts.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

Json bins_json(bool with_free) {
  Json bins = Json::array();
  for (std::int32_t i = 0; i < qx_get_rfactor_bin_count(); ++i) {
    qx_rfactor_bin bin = {};
    if (qx_get_rfactor_bin(i, &bin) != 1 || bin.n == 0) continue;
    Json row = {{"resolution", {bin.high, bin.low}}, {"reflections", bin.n}};
    if (bin.n_work > 0) row.update({{"r_work", bin.r_work}, {"cc_work", bin.cc_work}});
    if (with_free && bin.n_free > 0) {
      row.update({{"r_free", bin.r_free}, {"cc_free", bin.cc_free}});
    }
    bins.push_back(row);
  }
  return bins;
}

Json residues_json(const MapsReport& report) {
  Json rows = Json::array();
  for (const ResidueDensity& row : report.residues) {
    rows.push_back({{"residue", row.name},
                    {"atoms", row.found.atoms},
                    {"points", row.found.points},
                    {"correlation", row.found.correlation},
                    {"density", row.found.density}});
  }
  return {{"radius", report.radius}, {"residues", rows}};
}

void write_map(Engine& engine, const MapsOptions& options, const std::string& path, bool difference,
               MapsReport& report) {
  if (path.empty()) return;
  const OutputPlace place(path);
  engine.run(weighted_map_section(options, place.path(), difference));
  place.deliver();
  report.maps.push_back({path, difference, rms_of_map()});
}

void write_scripts_of(const MapsOptions& options, const MapsReport& report) {
  if (!options.scripts) return;
  std::vector<ViewedMap> viewed;
  for (const WrittenMap& map : report.maps) viewed.push_back({map.path, map.difference, map.rms});
  const std::filesystem::path prefix = options.prefix;
  const std::string folder = prefix.parent_path().string();
  write_scripts(folder,
                viewer_scripts(prefix.filename().string(), viewed, options.base.model, folder));
}

// Everything as text, nothing of it written.
void show_sections(Engine& engine, FcalcJob& job, const MapsOptions& options) {
  std::vector<SectionText> sections = model_sections(engine, job, options);
  const auto add = [&](const SectionText& section) { sections.push_back(section); };
  add(SectionText("xfcc").line("replace"));
  const std::string& full = options.base.map_2fofc;
  const std::string& difference = options.base.map_fofc;
  if (!full.empty()) add(weighted_map_section(options, full, false));
  if (!difference.empty()) add(weighted_map_section(options, difference, true));
  add(coefficients_section(job, options, options.base.output));
  for (const SectionText& section : sections) std::cout << printed(section);
}

void tell_json(const FcalcJob& job, const MapsOptions& options, const MapsReport& report,
               const Json& numbers) {
  Json json = {{"model", options.base.model},
               {"data", options.base.hkl},
               {"space_group", job.crystal.space_group}};
  const qx_completeness& found = report.completeness;
  json["reflections"] = {
      {"unique", found.possible}, {"observed", found.observed}, {"added", found.added}};
  json.update(numbers);
  if (!report.residues.empty()) json["density"] = residues_json(report);
  for (const WrittenMap& map : report.maps) {
    json["maps"].push_back({{"file", map.path}, {"difference", map.difference}, {"rms", map.rms}});
  }
  if (!options.base.output.empty()) json["output"] = options.base.output;
  json["seconds"] = report.seconds;
  json["warnings"] = job.warnings;
  std::cout << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

int run(MapsOptions& options, bool maps) {
  options.base.command = maps ? "maps" : "validate";
  check_options(options);
  if (options.base.json) keep_standard_output_clean();
  const auto start = std::chrono::steady_clock::now();
  Progress progress("reading");
  Engine engine(options.base.verbose);
  FcalcJob job{options.base, Coordinates(options.base.model)};
  if (!options.omit.empty()) (void)omitted_atoms_line(job, options.omit, "--omit");
  prepare_with_data(engine, job);
  if (options.print_sections) {
    show_sections(engine, job, options);
    return 0;
  }
  const NamedAtoms names(job.coordinates);
  MapsReport report;
  progress.step("calculating structure factors");
  calculate(engine, job, options, report);
  Json numbers;
  engine.call([&] {
    numbers = numbers_of_engine();
    return ok;
  });
  if (!maps) correlate_densities(engine, job, report);
  if (maps) {
    progress.step("writing");
    engine.run(SectionText("xfcc").line("replace"));
    write_map(engine, options, options.base.map_2fofc, false, report);
    write_map(engine, options, options.base.map_fofc, true, report);
    const OutputPlace place(options.base.output);
    engine.run(coefficients_section(job, options, place.path()));
    place.deliver();
    write_scripts_of(options, report);
  }
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (options.base.json) {
    tell_json(job, options, report, numbers);
  } else if (!options.base.quiet) {
    tell(job, options, report);
  }
  return 0;
}

}  // namespace

nlohmann::ordered_json numbers_of_engine() {
  qx_scale_view view = {};
  qx_agreement work = {};
  qx_agreement free = {};
  if (qx_get_scale_view(&view) != ok || qx_get_rfactor(&work, &free) != ok) return nullptr;
  Json json = {{"scale", scale_as_json()},
               {"r",
                {{"work", agreement_as_json(work.n, work.r, work.correlation)},
                 {"free", agreement_as_json(free.n, free.r, free.correlation)},
                 {"bins", bins_json(free.n > 0)}}}};
  json["likelihood"] = {{"reflections", view.likelihood_used}};
  json["fom"] = view.mean_fom;
  return json;
}

void add_maps(CLI::App& app, int& status) {
  auto options = std::make_shared<MapsOptions>();
  CLI::App* command =
      app.add_subcommand("maps", "Map coefficients from measured amplitudes and a model");
  add_maps_options(*command, *options);
  command->callback([options, &status] { status = run(*options, true); });
}

void add_validate(CLI::App& app, int& status) {
  auto options = std::make_shared<MapsOptions>();
  CLI::App* command =
      app.add_subcommand("validate", "R factors and more of a model against measured amplitudes");
  add_validate_options(*command, *options);
  command->callback([options, &status] { status = run(*options, false); });
}

}  // namespace qx
