// From a model and its data to an engine that can calculate.
#include "driver/commands/fcalc/setup.h"

#include <quorix/cross.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <iostream>

namespace qx {

void warn(FcalcJob& job, const std::string& text) {
  job.warnings.push_back(text);
  if (!job.options.json)
    std::cerr << "quorix " << job.options.command << ": warning: " << text << '\n';
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

SectionText grid_section(const FcalcOptions& options) {
  return SectionText("xgrid").line(format("frac %f", options.fraction));
}

SectionText cutoff_section(const FcalcOptions& options) {
  return SectionText("xcut").line(format("ecut %.9g", options.ecut));
}

// Neutrons see hydrogens as well as anything else.
SectionText system_section(const FcalcOptions& options) {
  const bool hydrogens = options.hydrogens == 0 ? options.neutron : options.hydrogens > 0;
  return SectionText("xmol").line(hydrogens ? "hydr yes" : "hydr no");
}

SectionText split_section(const FreeSet& set) {
  return SectionText("xcross").line(format("input free_flag %d", set.value));
}

void set_up_model(Engine& engine, const FcalcJob& job) {
  const FcalcOptions& options = job.options;
  engine.run(formfactor_section(options));
  engine.run(cutoff_section(options));
  engine.call([] { return qx_set_elec_den_rad_uplimit(widest_radius()); });
  engine.run(SectionText("xmod"));
  engine.call([&] { return job.coordinates.fill_model() ? ok : failed; });
  engine.run(system_section(options));
  engine.call([] { return qx_set_xmodel_default(); });  // the system has what is needed of it
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
  if (set) engine.run(split_section(*set));
}

}  // namespace

void prepare(Engine& engine, FcalcJob& job) {
  const FcalcOptions& options = job.options;
  for (const std::string& line : job.coordinates.warnings()) warn(job, line);
  job.crystal = choose_crystal(options, job.coordinates);
  const std::string unknown = job.coordinates.unknown_atoms();
  if (!unknown.empty()) warn(job, unknown);
  if (!options.hkl.empty()) find_observed(engine, job);
}

void set_up(Engine& engine, FcalcJob& job) {
  engine.run(crystal_section(job));
  make_indices(engine, job);
  engine.call([] { return qx_release_refdata_s(); });
  engine.run(grid_section(job.options));
  engine.run(fft_section(job.options));
  set_up_model(engine, job);
  split(engine, job);
}

std::vector<SectionText> set_up_sections(const FcalcJob& job) {
  std::vector<SectionText> sections = {
      crystal_section(job),
      grid_section(job.options),
      fft_section(job.options),
      formfactor_section(job.options),
      cutoff_section(job.options),
      SectionText("xmod").line(
          format("# the %zu atoms of the model are given in arrays", job.coordinates.atom_count())),
      system_section(job.options)};
  if (job.observed.free_set) sections.push_back(split_section(*job.observed.free_set));
  return sections;
}

// Of each atom that is wider than the widest radius the engine says so.
void note_wide_atoms(FcalcJob& job, const std::string& printed) {
  std::size_t n = 0;
  for (std::size_t at = 0; (at = printed.find("WARNING: atom(", at)) != std::string::npos; ++at)
    ++n;
  if (n > 0) {
    warn(job, format("%zu atoms are so wide that they are cut off at %g A", n, widest_radius()));
  }
}

NamedAtoms::NamedAtoms(const Coordinates& coordinates) : coordinates_(coordinates) {
  qx_set_atom_namer(name, this);
}

NamedAtoms::~NamedAtoms() { qx_set_atom_namer(nullptr, nullptr); }

const char* NamedAtoms::name(std::int32_t atom, void* self) {
  auto* names = static_cast<NamedAtoms*>(self);
  names->text_ = names->coordinates_.name_of_entry(static_cast<std::size_t>(atom));
  return names->text_.empty() ? nullptr : names->text_.c_str();
}

}  // namespace qx
