#include "driver/commands/commands.h"
#include "driver/commands/fcalc/setup.h"
#include "driver/commands/maps/omitted.h"
#include "driver/commands/model_fit.h"
#include "driver/commands/omit/job.h"
#include "driver/commands/output_place.h"

#include <quorix/map.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

// The engine also warns of the quotes that stay of names.
std::string what_was_left_out(const std::string& said) {
  const std::size_t at = std::min(said.find("Omitted"), said.find("Composite"));
  return at == std::string::npos ? std::string() : said.substr(at, said.find('\n', at) + 1 - at);
}

void write_map(Engine& engine, FcalcJob& job, const OmitOptions& options, const std::string& path,
               bool difference, MapsReport& report) {
  if (path.empty()) return;
  const OutputPlace place(path);
  const std::string said =
      heed_warnings(job, engine.run(omit_map_section(job, options, place.path(), difference)));
  place.deliver();
  if (report.maps.empty()) report.lines += what_was_left_out(said);
  report.maps.push_back({path, difference, rms_of_map()});
}

void tell_json(const FcalcJob& job, const OmitOptions& options, const MapsReport& report,
               const Json& numbers) {
  Json json = {{"model", options.maps.base.model}, {"data", options.maps.base.hkl}};
  if (options.composite) {
    json["omit"] = {{"composite", options.boxes}};
  } else {
    json["omit"] = {{"select", options.selection}};
  }
  json.update(numbers);
  for (const WrittenMap& map : report.maps) {
    json["maps"].push_back({{"file", map.path}, {"difference", map.difference}, {"rms", map.rms}});
  }
  json["seconds"] = report.seconds;
  json["warnings"] = job.warnings;
  std::cout << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

void show_sections(Engine& engine, FcalcJob& job, const OmitOptions& options) {
  std::vector<SectionText> sections = model_sections(engine, job, options.maps);
  const FcalcOptions& base = options.maps.base;
  sections.push_back(omit_map_section(job, options, base.map_2fofc, false));
  if (!base.map_fofc.empty()) {
    sections.push_back(omit_map_section(job, options, base.map_fofc, true));
  }
  sections.push_back(SectionText("xter"));
  for (const SectionText& section : sections) std::cout << printed(section);
}

int run(OmitOptions& options) {
  FcalcOptions& base = options.maps.base;
  base.command = "omit";
  check_options(options);
  if (base.json) keep_standard_output_clean();
  const auto start = std::chrono::steady_clock::now();
  Progress progress("reading");
  Engine engine(base.verbose);
  FcalcJob job{base, Coordinates(base.model)};
  if (!options.composite) (void)omitted_atoms_line(job, options.selection, "--select");
  prepare_with_data(engine, job);
  if (options.print_sections) {
    show_sections(engine, job, options);
    return 0;
  }
  const NamedAtoms names(job.coordinates);
  MapsReport report;
  progress.step("calculating structure factors");
  calculate(engine, job, options.maps, report);
  Json numbers;
  engine.call([&] {
    numbers = numbers_of_engine();
    return ok;
  });
  progress.step("omitting");
  write_map(engine, job, options, base.map_2fofc, false, report);
  write_map(engine, job, options, base.map_fofc, true, report);
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (base.json) {
    tell_json(job, options, report, numbers);
  } else if (!base.quiet) {
    tell(job, options.maps, report);
  }
  return 0;
}

}  // namespace

void add_omit(CLI::App& app, int& status) {
  auto options = std::make_shared<OmitOptions>();
  CLI::App* command =
      app.add_subcommand("omit", "Maps without a part of the model, or composite omit maps");
  add_omit_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
