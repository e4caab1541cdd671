// quorix fcalc: structure factors of a model, and maps from them.
#include "driver/commands/commands.h"
#include "driver/commands/fcalc/report.h"
#include "driver/commands/fcalc/setup.h"
#include "driver/commands/model_fit.h"
#include "driver/commands/output_place.h"

#include <quorix/cross.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>
#include <quorix/structfact.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

// k and B of the atoms alone; FC stays on the absolute scale unless asked.
std::string scale_alone(Engine& engine, const FcalcJob& job) {
  if (!job.options.scale) engine.run(SectionText("xfcc").line("replace"));
  std::string report = engine.run(SectionText("xfcc").line("scale"));
  if (job.options.scale) engine.run(SectionText("xfcc").line("replace"));
  return report;
}

std::string calculate(Engine& engine, FcalcJob& job) {
  note_wide_atoms(job, engine.run(SectionText("xfcc").line("calc")));
  if (job.observed.amplitude.empty() || job.observed.empty) {
    engine.run(SectionText("xfcc").line("replace"));
    return {};
  }
  if (!job.with_solvent()) return scale_alone(engine, job);
  std::string report = fit_to_observations(engine, job, job.options.solvent, true);
  engine.run(SectionText("xfcc").line(job.options.scale ? "replace both fitted" : "replace both"));
  return report;
}

void write_map(Engine& engine, const std::string& path, int u) {
  if (path.empty()) return;
  const OutputPlace place(path);
  engine.run(map_section(place.path(), u));
  place.deliver();
}

// The line that begins so, of what the engine printed; empty if there is none.
std::string line_with(const std::string& printed, const std::string& beginning) {
  const std::size_t at = ("\n" + printed).find("\n" + beginning);
  if (at == std::string::npos) return {};
  return printed.substr(at, printed.find('\n', at) + 1 - at);
}

void check_maps(const FcalcJob& job) {
  const FcalcOptions& options = job.options;
  const bool maps = !options.map_2fofc.empty() || !options.map_fofc.empty();
  if (maps && (job.observed.amplitude.empty() || job.observed.empty)) {
    throw CommandError(2, "maps need observed amplitudes above 0: give --hkl and --labels");
  }
}

FcalcReport calculate_and_write(Engine& engine, FcalcJob& job, Progress& progress) {
  const FcalcOptions& options = job.options;
  const NamedAtoms names(job.coordinates);
  set_up(engine, job);
  progress.step("calculating structure factors");
  FcalcReport report;
  report.lines = calculate(engine, job);
  engine.call([&] {
    note_results(report);
    return ok;
  });
  progress.step("writing");
  write_map(engine, options.map_2fofc, 2);
  write_map(engine, options.map_fofc, 1);
  engine.call([] { return qx_delete_qxstructfact(); });  // the columns are all that is written
  const OutputPlace place(options.output);
  const std::string written = engine.run(end_section(job, place.path()));
  place.deliver();
  report.lines += line_with(written, "Reflections of the input not written");
  return report;
}

void tell(const FcalcJob& job, const FcalcReport& report) {
  if (job.observed.free_set) {
    std::cout << "Free flags                  : " << job.observed.free_set->line() << '\n';
  }
  if (job.options.verbose) {
    std::cout << format(
        "Memory                      : density in boxes of %.1f MB (%d), the engine's "
        "peak %.1f MB, the program's %.1f MB\n",
        report.box_megabytes, report.boxes, report.engine_megabytes, report.program_megabytes);
  }
  std::cout << report.lines << job.options.output << " written\n";
}

int run(const FcalcOptions& options) {
  check_options(options);
  if (options.json) keep_standard_output_clean();
  Progress progress("reading");
  Engine engine(options.verbose);
  FcalcJob job{options, Coordinates(options.model)};
  prepare(engine, job);
  check_maps(job);
  const FcalcReport report = calculate_and_write(engine, job, progress);
  if (options.json) {
    std::cout << as_json(job, report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
              << '\n';
  } else if (!options.quiet) {
    tell(job, report);
  }
  return 0;
}

}  // namespace

void add_fcalc(CLI::App& app, int& status) {
  auto options = std::make_shared<FcalcOptions>();
  CLI::App* command =
      app.add_subcommand("fcalc", "Structure factors of a model, and maps from them");
  add_fcalc_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
