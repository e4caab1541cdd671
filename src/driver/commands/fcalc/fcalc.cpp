// quorix fcalc: structure factors of a model, and maps from them.
#include "driver/commands/commands.h"
#include "driver/commands/fcalc/report.h"
#include "driver/commands/output_place.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

void warn(FcalcJob& job, const std::string& text) {
  job.warnings.push_back(text);
  if (!job.options.json) std::cerr << "quorix fcalc: warning: " << text << '\n';
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
  const std::vector<std::int32_t> flat =
      unique_indices(job.crystal, job.options.dmin, job.options.dmax);
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
  // Neutrons see hydrogens as well as anything else.
  const bool hydrogens = options.hydrogens == 0 ? options.neutron : options.hydrogens > 0;
  engine.run(SectionText("xmol").line(hydrogens ? "hydr yes" : "hydr no"));
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

// Atoms are cut off at 20 A at most, which the engine says of each.
void note_wide_atoms(FcalcJob& job, const std::string& printed) {
  std::size_t n = 0;
  for (std::size_t at = 0; (at = printed.find("WARNING: atom(", at)) != std::string::npos; ++at)
    ++n;
  if (n > 0) warn(job, format("%zu atoms are so wide that they are cut off at 20 A", n));
}

// Scaling tells how model and observations agree; FC stays on the absolute scale unless asked.
std::string calculate(Engine& engine, FcalcJob& job) {
  note_wide_atoms(job, engine.run(SectionText("xfcc").line("calc")));
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

// Reports name atoms as the file does, for as long as this lives.
class NamedAtoms {
 public:
  explicit NamedAtoms(const Coordinates& coordinates) : coordinates_(coordinates) {
    qx_set_atom_namer(name, this);
  }
  NamedAtoms(const NamedAtoms&) = delete;
  NamedAtoms& operator=(const NamedAtoms&) = delete;
  ~NamedAtoms() { qx_set_atom_namer(nullptr, nullptr); }

 private:
  static const char* name(std::int32_t atom, void* self) {
    auto* names = static_cast<NamedAtoms*>(self);
    names->text_ = names->coordinates_.name_of_entry(static_cast<std::size_t>(atom));
    return names->text_.empty() ? nullptr : names->text_.c_str();
  }

  const Coordinates& coordinates_;
  std::string text_;
};

void prepare(FcalcJob& job) {
  const FcalcOptions& options = job.options;
  for (const std::string& line : job.coordinates.warnings()) warn(job, line);
  job.crystal = choose_crystal(options, job.coordinates);
  const std::string unknown = job.coordinates.unknown_atoms();
  if (!unknown.empty()) warn(job, unknown);
  if (!options.hkl.empty()) find_observed(job);
  const bool maps = !options.map_2fofc.empty() || !options.map_fofc.empty();
  if (maps && job.observed.amplitude.empty()) {
    throw CommandError(2, "maps need observed amplitudes: give --hkl and --labels");
  }
}

FcalcReport calculate_and_write(FcalcJob& job, Progress& progress) {
  const FcalcOptions& options = job.options;
  const NamedAtoms names(job.coordinates);
  Engine engine(options.verbose);
  engine.run(crystal_section(job));
  make_indices(engine, job);
  set_up_grid(engine, options);
  set_up_model(engine, job);
  split(engine, job);
  progress.step("calculating structure factors");
  FcalcReport report;
  report.lines = calculate(engine, job);
  note_results(report);
  progress.step("writing");
  write_map(engine, options.map_2fofc, 2);
  write_map(engine, options.map_fofc, 1);
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
  std::cout << report.lines << job.options.output << " written\n";
}

int run(const FcalcOptions& options) {
  check_options(options);
  if (options.json) keep_standard_output_clean();
  Progress progress("reading");
  FcalcJob job{options, Coordinates(options.model), {}, {}, {}, {}, {}};
  prepare(job);
  const FcalcReport report = calculate_and_write(job, progress);
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
