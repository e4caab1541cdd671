// quorix fcalc: structure factors of a model, and maps from them.
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "driver/commands/commands.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/sections.h"
#include "reflio/mtz.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/mtz.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace qx {

namespace {

struct Options {
  std::string model, hkl, output, space_group, map_2fofc, map_fofc;
  std::vector<std::string> labels, free;
  std::vector<double> cell;
  double dmin = 0.0;
  double b0 = -1.0;  // chosen by resolution
  double ecut = 1e-4;
  double fraction = 0.33;
  double memory = 400.0;
  int gaussians = 0;
  bool hydrogens = false, neutron = false, scale = false, verbose = false;
};

// Labels of the observations in the reflection file; empty where it has none.
struct Observed {
  std::string amplitude, sigma, free;
};

struct Job {
  const Options& options;
  Coordinates coordinates;
  Crystal crystal;
  Observed observed;
};

void warn(const std::string& text) { std::cerr << "quorix fcalc: warning: " << text << '\n'; }

// The crystal of the model, with what the user says instead.
Crystal choose_crystal(const Options& options, const Coordinates& coordinates) {
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

const MtzColumn* column_among(const qxmtz& mtz, char type,
                              std::initializer_list<const char*> labels) {
  for (const char* label : labels) {
    for (const MtzColumn& column : mtz.columns) {
      if (column.type == type && std::strcmp(column.label, label) == 0) return &column;
    }
  }
  return nullptr;
}

std::string label_or_empty(const MtzColumn* column) { return column ? column->label : ""; }

void check_cell(const qxmtz& mtz, const Crystal& crystal) {
  for (int i = 0; i < 6; ++i) {
    if (std::fabs(mtz.cell[i] - crystal.cell[i]) > 0.01 * crystal.cell[i]) {
      return warn(
          format("the cells of model and reflections differ: %g %g %g %g %g %g and "
                 "%g %g %g %g %g %g; the model's is used",
                 crystal.cell[0], crystal.cell[1], crystal.cell[2], crystal.cell[3],
                 crystal.cell[4], crystal.cell[5], mtz.cell[0], mtz.cell[1], mtz.cell[2],
                 mtz.cell[3], mtz.cell[4], mtz.cell[5]));
    }
  }
}

// The given labels, each of which the file must have.
Observed given_labels(const std::vector<std::string>& labels, const qxmtz& mtz,
                      std::string& missing) {
  const auto at = [&](std::size_t i) {
    if (i >= labels.size() || labels[i].empty()) return std::string();
    const bool there = std::any_of(
        mtz.columns.begin(), mtz.columns.end(),
        [&](const MtzColumn& column) { return std::strcmp(column.label, labels[i].c_str()) == 0; });
    if (!there) missing = labels[i];
    return labels[i];
  };
  return {at(0), at(1), at(2)};
}

// The observations' labels: as given, else the usual ones that the file has.
Observed find_observed(Engine& engine, const Job& job) {
  const Options& options = job.options;
  Observed observed;
  std::string missing;
  engine.call([&] {
    qxrefdata* peek = qx_new_qxrefdata_obj();
    if (!peek || qx_read_refdata_mtz_file_obj(peek, options.hkl.c_str()) != ok) return failed;
    const qxmtz& mtz = *peek->mtz;
    if (!options.labels.empty()) {
      observed = given_labels(options.labels, mtz, missing);
    } else {
      observed.amplitude = label_or_empty(
          column_among(mtz, 'F', {"FP", "F", "FOBS", "F-obs", "F-obs-filtered", "FOSC"}));
      observed.sigma = label_or_empty(
          column_among(mtz, 'Q', {"SIGFP", "SIGF", "SIGFOBS", "SIGF-obs", "SIGF-obs-filtered"}));
      observed.free = label_or_empty(column_among(
          mtz, 'I', {"FREE", "FreeR_flag", "RFREE", "FREER", "FreeRflag", "R-free-flags"}));
    }
    check_cell(mtz, job.crystal);
    return qx_delete_qxrefdata_obj(peek);
  });
  if (!missing.empty()) throw CommandError(2, options.hkl + " has no column " + missing);
  return observed;
}

SectionText crystal_section(const Job& job) {
  const Crystal& crystal = job.crystal;
  SectionText text("xcry");
  text.line("spgname " + crystal.space_group);
  text.line(format("cell %.6f %.6f %.6f %.6f %.6f %.6f", crystal.cell[0], crystal.cell[1],
                   crystal.cell[2], crystal.cell[3], crystal.cell[4], crystal.cell[5]));
  if (crystal.own_matrix) {
    std::string line = "orth";
    for (const double value : crystal.orth2frac) line += format(" %.9g", value);
    text.line(line);
  }
  if (job.options.dmin > 0.0) text.line(format("reso %.6f 99999", job.options.dmin));
  if (!job.options.hkl.empty()) {
    std::string line = "read refl mtz file \"" + job.options.hkl + "\" coid H=H";
    const Observed& observed = job.observed;
    if (!observed.amplitude.empty()) line += " FOBS=" + observed.amplitude;
    if (!observed.sigma.empty()) line += " SIGF=" + observed.sigma;
    if (!observed.free.empty()) line += " TEST=" + observed.free;
    text.line(line);
  }
  return text;
}

// The unique set, when no file gives the indices.
void make_indices(Engine& engine, const Job& job) {
  if (!job.options.hkl.empty()) return;
  const std::vector<std::int32_t> flat = unique_indices(job.crystal, job.options.dmin);
  engine.call([&] {
    return qx_set_refdata_indices(static_cast<std::int32_t>(flat.size() / 3), flat.data());
  });
}

// Blurring that keeps the sampling error small: sharp atoms on a coarse grid would alias.
double suitable_b0(const Options& options) {
  if (options.b0 >= 0.0) return options.b0;
  const double d = qx_get_qxresol()->high;
  return std::max(20.0, 4.5 * d * d);
}

void set_up_grid(Engine& engine, const Options& options) {
  engine.run(SectionText("xgrid").line(format("frac %f", options.fraction)));
  engine.run(SectionText("xfft")
                 .line(format("memory %f", options.memory))
                 .line("sincos no")
                 .line(format("B0 %f", suitable_b0(options))));
}

void set_up_model(Engine& engine, const Job& job) {
  const Options& options = job.options;
  SectionText factors("xformfact");
  if (options.neutron) factors.line("diff neutron");
  if (options.gaussians == 5 && !options.neutron) factors.line("atmf C 5 N 5 O 5 S 5");
  engine.run(factors);
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

void split(Engine& engine, const Job& job) {
  if (!job.options.free.empty()) return draw_free_set(engine, job.options.free);
  if (!job.observed.free.empty()) engine.run(SectionText("xcross").line("input"));
}

// Scaling tells how model and observations agree; FC stays on the absolute scale unless asked.
std::string calculate(Engine& engine, const Job& job) {
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

// The last section: the engine is gone after it.
void write_and_end(Engine& engine, const Job& job) {
  std::string line = "write refl mtz file \"" + job.options.output + "\" coid FC=FC PHIC=PHIC";
  if (!job.observed.amplitude.empty()) line += " FOBS=" + job.observed.amplitude;
  if (!job.observed.sigma.empty()) line += " SIGF=" + job.observed.sigma;
  if (!job.options.free.empty()) {
    line += " TEST=FREE";
  } else if (!job.observed.free.empty()) {
    line += " TEST=" + job.observed.free;
  }
  engine.run(SectionText("xter").line(line));
}

void write_map(Engine& engine, const std::string& path, int u) {
  if (path.empty()) return;
  engine.run(SectionText("xmap")
                 .line("mapdef generated with amplitude calc phase calc")
                 .line(format("param type unweighted u %d v 1 scale yes", u))
                 .line("extent unit")
                 .line("generate")
                 .line("write ccp4 file \"" + path + "\" symm yes origin zero"));
}

void check_free(const std::vector<std::string>& free) {
  if (free.empty()) return;
  if (free.size() > 2) throw CommandError(2, "--free takes PERCENT[,SEED]");
  std::size_t used = 0;
  try {
    const double percent = std::stod(free[0], &used);
    bool fine = used == free[0].size() && percent > 0.0 && percent < 100.0;
    if (fine && free.size() > 1) fine = std::stoi(free[1], &used) > 0 && used == free[1].size();
    if (fine) return;
  } catch (const std::exception&) {
    // not a number, or one that is too large
  }
  throw CommandError(2, "--free takes a percentage between 0 and 100 and a seed above 0");
}

void check_options(const Options& options) {
  if (options.hkl.empty() && !(options.dmin > 0.0)) {
    throw CommandError(2, "give the reflections: --hkl FILE or --dmin D");
  }
  if (options.gaussians != 0 && options.gaussians != 5) {
    throw CommandError(2, "--gaussians takes 5, the number to use for every atom");
  }
  if (!options.cell.empty() && options.cell.size() != 6) {
    throw CommandError(2, "--cell takes six numbers: a b c alpha beta gamma");
  }
  if (options.labels.size() > 3) throw CommandError(2, "--labels takes F,SIGF,FREE");
  for (const std::string* path :
       {&options.hkl, &options.output, &options.map_2fofc, &options.map_fofc}) {
    check_text("a file name", *path, "\n\"#!");
  }
  for (const std::string& label : options.labels) check_text("a label", label, "\n\"#!= ");
  check_text("the space group", options.space_group, "\n\"#!");
  check_free(options.free);
  if (!options.hkl.empty() && access(options.hkl.c_str(), R_OK) != 0) {
    throw CommandError(2,
                       "cannot read reflections from " + options.hkl + ": " + std::strerror(errno));
  }
}

int run(const Options& options) {
  check_options(options);
  Job job{options, Coordinates(options.model), {}, {}};
  job.crystal = choose_crystal(options, job.coordinates);
  if (const auto n = job.coordinates.unknown_count()) {
    warn(format("%zu atoms of unknown element take no part", n));
  }
  if (options.neutron && job.coordinates.deuterium_count() > 0) {
    warn(format("%zu deuterium atoms are given the scattering length of hydrogen",
                job.coordinates.deuterium_count()));
  }
  Engine engine(options.verbose);
  Progress progress("reading");
  if (!options.hkl.empty()) job.observed = find_observed(engine, job);
  const bool maps = !options.map_2fofc.empty() || !options.map_fofc.empty();
  if (maps && job.observed.amplitude.empty()) {
    throw CommandError(2, "maps need observed amplitudes: give --hkl and --labels");
  }
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
  write_and_end(engine, job);
  std::cout << report << options.output << " written\n";
  return 0;
}

constexpr const char* closing = R"(
Structure factors are calculated by FFT of the atoms' density and written as FC and PHIC, phases in
degrees: at the reflections of the MTZ file in their order, with F, SIGF and the free flag passed on,
or at the unique set to --dmin. With observations the overall scale, R factor and correlation are
printed, overall and in resolution bins, of the working and the free set. Maps are of the whole cell,
scaled by their rms.

Examples:
  quorix fcalc 1ubq.pdb --hkl 1ubq.mtz -o fc.mtz --map-2fofc 2fofc.ccp4
      Structure factors at the observed reflections, agreement, and a map.
  quorix fcalc 1ubq.pdb --dmin 2 -o fc.mtz
      The unique set to 2 A.
)";

void add_options(CLI::App& command, Options& o) {
  command.add_option("MODEL", o.model, "Coordinates: PDB or mmCIF, also gzipped")
      ->required()
      ->check(names_files("pdb ent cif mmcif pdb.gz ent.gz cif.gz mmcif.gz"));
  command.add_option("--hkl", o.hkl, "MTZ file whose reflections are calculated, in its order")
      ->type_name("FILE")
      ->check(names_files("mtz"));
  command.add_option("--labels", o.labels, "Its columns (default: the usual names)")
      ->type_name("F,SIGF,FREE")
      ->delimiter(',')
      ->allow_extra_args(false);  // what follows is the model
  command.add_option("--dmin", o.dmin, "High-resolution limit in A; without --hkl: the unique set")
      ->type_name("A")
      ->check(CLI::PositiveNumber);
  command.add_option("-o,--output", o.output, "MTZ file to write")
      ->type_name("FILE")
      ->required()
      ->check(names_files("mtz"));
  command.add_option("--spacegroup", o.space_group, "Space group (default: the model's)")
      ->type_name("NAME");
  command.add_option("--cell", o.cell, "Unit cell in A and degrees (default: the model's)")
      ->type_name("A B C ALPHA BETA GAMMA")
      ->expected(6);
  command
      .add_option("--b0", o.b0,
                  "Blurring of the density on the grid, A^2; taken off again (default: 20, or 4.5 "
                  "d^2 if more)")
      ->check(CLI::NonNegativeNumber);
  command.add_option("--ecut", o.ecut, "Density, relative to an atom's peak, that is cut off")
      ->check(CLI::Range(1e-9, 0.5))
      ->capture_default_str();
  command.add_option("--frac", o.fraction, "Grid spacing as a fraction of the resolution")
      ->check(CLI::Range(0.05, 0.5))
      ->capture_default_str();
  command
      .add_option("--memory", o.memory,
                  "Memory budget of the grid in MB; a larger one is worked on in parts")
      ->type_name("MB")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  command.add_flag("--hydrogens", o.hydrogens, "Take hydrogen atoms into account");
  command.add_flag("--neutron", o.neutron, "Neutron scattering lengths");
  command
      .add_option("--gaussians", o.gaussians,
                  "5: five Gaussians for every atom; else C, N, O and S have two")
      ->check(proposes("5"));
  command
      .add_option("--free", o.free,
                  "Draw a free set and write it: 0 for its members, 1 for the rest")
      ->type_name("PERCENT[,SEED]")
      ->delimiter(',')
      ->allow_extra_args(false);
  command.add_option("--map-2fofc", o.map_2fofc, "Write a 2Fo-Fc map (CCP4)")
      ->type_name("FILE")
      ->check(names_files("ccp4 map mrc"));
  command.add_option("--map-fofc", o.map_fofc, "Write an Fo-Fc map (CCP4)")
      ->type_name("FILE")
      ->check(names_files("ccp4 map mrc"));
  command.add_flag("--scale", o.scale, "Put FC on the scale of the observations (k and B)");
  command.add_flag("-v,--verbose", o.verbose, "Show everything the engine prints");
  command.footer(closing);
}

}  // namespace

void add_fcalc(CLI::App& app, int& status) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("fcalc", "Structure factors of a model, and maps from them");
  add_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
