// quorix fcalc: structure factors of a model, and maps from them.
#include "driver/commands/commands.h"
#include "driver/commands/fcalc/job.h"
#include "driver/commands/output_place.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

namespace qx {

void warn(const FcalcJob& /*job*/, const std::string& text) {
  std::cerr << "quorix fcalc: warning: " << text << '\n';
}

namespace {

// The crystal of the model, with what the user says instead.
Crystal choose_crystal(const FcalcOptions& options, const Coordinates& coordinates) {
  Crystal crystal = coordinates.crystal();
  if (!options.space_group.empty()) crystal.space_group = options.space_group;
  if (!options.cell.empty()) {
    std::copy_n(options.cell.begin(), 6, crystal.cell);
    crystal.own_matrix = false;
  }
  if (!(crystal.cell[0] > 0.0)) {
    throw CommandError(2, "the model names no unit cell: give one with --cell");
  }
  if (crystal.space_group.empty()) {
    throw CommandError(2, "the model names no space group: give one with --spacegroup");
  }
  return crystal;
}

// The unique set, when no file gives the indices.
void make_indices(Engine& engine, const FcalcJob& job) {
  if (!job.options.hkl.empty()) return;
  const std::vector<std::int32_t> flat = unique_indices(job.crystal, job.options.dmin);
  engine.call([&] {
    return qx_set_refdata_indices(static_cast<std::int32_t>(flat.size() / 3), flat.data());
  });
}

void set_up_grid(Engine& engine, const FcalcOptions& options) {
  engine.run(SectionText("xgrid").line(format("frac %f", options.fraction)));
  engine.run(fft_section(options));
}

void set_up_model(Engine& engine, const FcalcJob& job) {
  const FcalcOptions& options = job.options;
  engine.run(formfactor_section(options));
  engine.run(SectionText("xcut").line(format("ecut %.9g", options.ecut)));
  engine.run(SectionText("xmod"));
  engine.call([&] { return job.coordinates.fill_model() ? ok : failed; });
  engine.run(SectionText("xmol").line(options.hydrogens ? "hydr yes" : "hydr no"));
}

// Free flags drawn anew: 0 for the free set, 1 for the rest, as the data set keeps them.
void draw_free_set(Engine& engine, const std::vector<std::string>& free) {
  std::string line = "param percent " + free[0];
  if (free.size() > 1) line += " seed " + free[1];
  engine.run(SectionText("xcross").line(line));
  engine.call([] {
    qx_reflection_view view;
    if (!qx_get_reflection_view(&view)) return failed;
    std::vector<std::int16_t> flags(static_cast<std::size_t>(view.n), 1);
    std::int32_t n = 0;
    const std::int32_t* members = qx_get_qxcross_free(&n);
    for (std::int32_t i = 0; i < n; ++i) flags[static_cast<std::size_t>(members[i])] = 0;
    return qx_set_refdata_test(view.n, flags.data());
  });
}

void split(Engine& engine, const FcalcJob& job) {
  if (!job.options.free.empty()) return draw_free_set(engine, job.options.free);
  const std::optional<FreeSet>& set = job.observed.free_set;
  if (set) engine.run(SectionText("xcross").line(format("input free_flag %d", set->value)));
}

// Scaling tells how model and observations agree; FC stays on the absolute scale unless asked.
std::string calculate(Engine& engine, const FcalcJob& job) {
  engine.run(SectionText("xfcc").line("calc"));
  if (job.observed.amplitude.empty()) {
    engine.run(SectionText("xfcc").line("replace"));
    return {};
  }
  if (!job.options.scale) engine.run(SectionText("xfcc").line("replace"));
  std::string report = engine.run(SectionText("xfcc").line("scale"));
  if (job.options.scale) engine.run(SectionText("xfcc").line("replace"));
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

int run(const FcalcOptions& options) {
  check_options(options);
  FcalcJob job{options, Coordinates(options.model), {}, {}, {}, {}};
  for (const std::string& line : job.coordinates.warnings()) warn(job, line);
  job.crystal = choose_crystal(options, job.coordinates);
  if (const auto n = job.coordinates.unknown_count()) {
    warn(job, format("%zu atoms of unknown element take no part", n));
  }
  if (options.neutron && job.coordinates.deuterium_count() > 0) {
    warn(job, format("%zu deuterium atoms are given the scattering length of hydrogen",
                     job.coordinates.deuterium_count()));
  }
  Progress progress("reading");
  if (!options.hkl.empty()) find_observed(job);
  const bool maps = !options.map_2fofc.empty() || !options.map_fofc.empty();
  if (maps && job.observed.amplitude.empty()) {
    throw CommandError(2, "maps need observed amplitudes: give --hkl and --labels");
  }
  Engine engine(options.verbose);
  engine.run(crystal_section(job));
  make_indices(engine, job);
  set_up_grid(engine, options);
  set_up_model(engine, job);
  split(engine, job);
  progress.step("calculating structure factors");
  const std::string report = calculate(engine, job);
  progress.step("writing");
  write_map(engine, options.map_2fofc, 2);
  write_map(engine, options.map_fofc, 1);
  const OutputPlace place(options.output);
  const std::string written = engine.run(end_section(job, place.path()));
  place.deliver();
  if (job.observed.free_set) {
    std::cout << "Free flags                  : " << job.observed.free_set->line() << '\n';
  }
  std::cout << report << line_with(written, "Reflections of the input not written")
            << options.output << " written\n";
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
