#include "driver/commands/fcalc/report.h"

#include "driver/commands/model_fit.h"

#include <quorix/engine.h>
#include <quorix/memory.h>
#include <quorix/reflection_view.h>
#include <quorix/scaling.h>
#include <quorix/views.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sys/resource.h>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

Json bins_as_json() {
  Json bins = Json::array();
  for (std::int32_t i = 0; i < qx_get_rfactor_bin_count(); ++i) {
    qx_rfactor_bin bin = {};
    if (qx_get_rfactor_bin(i, &bin) != 1 || bin.n == 0) continue;
    bins.push_back({{"resolution", {bin.high, bin.low}},
                    {"reflections", bin.n},
                    {"work", agreement_as_json(bin.n_work, bin.r_work, bin.cc_work)},
                    {"free", agreement_as_json(bin.n_free, bin.r_free, bin.cc_free)}});
  }
  return bins;
}

void add_agreement(Json& scaling, bool split, const qx_agreement& work, const qx_agreement& free) {
  scaling[split ? "work" : "all"] = agreement_as_json(work.n, work.r, work.correlation);
  scaling["free"] = agreement_as_json(free.n, free.r, free.correlation);
  scaling["bins"] = bins_as_json();
}

// Of the atoms alone, or with their solvent; null where nothing was scaled.
Json scaling_as_json() {
  qx_atoms_scale_view alone;
  if (qx_get_atoms_scale_view(&alone) == 1) {
    Json scaling = {{"k", alone.k}, {"b", alone.b}};
    add_agreement(scaling, alone.split == 1, alone.work, alone.free);
    return scaling;
  }
  if (!qx_get_qxscale()) return nullptr;
  Json scaling = scale_as_json();
  scaling["solvent"]["bins"] = scaling["bins"];
  qx_agreement work = {};
  qx_agreement free = {};
  if (qx_get_rfactor(&work, &free) != ok) return nullptr;
  add_agreement(scaling, free.n > 0, work, free);
  return scaling;
}

nlohmann::ordered_json json_of(const ObservedColumns& observed) {
  nlohmann::ordered_json json = {
      {"f", observed.amplitude}, {"sigf", observed.sigma}, {"free", observed.free}};
  if (observed.free_set) {
    const FreeSet& set = *observed.free_set;
    json["free_value"] = set.value;
    json["free_reflections"] = set.count;
    json["flagged_reflections"] = set.flags;
  }
  return json;
}

std::vector<std::string> maps_of(const FcalcOptions& options) {
  std::vector<std::string> maps;
  for (const std::string* path : {&options.map_2fofc, &options.map_fofc}) {
    if (!path->empty()) maps.push_back(*path);
  }
  return maps;
}

}  // namespace

namespace {

void note_crystal(FcalcReport& report) {
  qx_group_view group;
  if (qx_get_group_view(&group) == 1 && group.full_name) report.group = group.full_name;
  qx_limits_view limits;
  if (qx_get_limits_view(&limits) != 1) return;
  report.high = limits.high;
  report.low = limits.low;
}

void note_memory(FcalcReport& report) {
  qx_grid_view grid;
  if (qx_get_grid_view(&grid) != 1) return;
  std::copy_n(grid.counts, 3, report.counts);
  report.boxes = grid.boxes;
  const double points = 1.0 * grid.counts[0] * grid.counts[1] * grid.counts[2];
  report.box_megabytes = 8e-6 * points / report.boxes;
  report.engine_megabytes = qx_get_max_memory_size();
  rusage usage = {};
  if (getrusage(RUSAGE_SELF, &usage) == 0) {
    report.program_megabytes = 1.024e-3 * static_cast<double>(usage.ru_maxrss);
  }
}

}  // namespace

void note_results(FcalcReport& report) {
  note_crystal(report);
  note_memory(report);
  qx_atoms_view atoms;
  if (qx_get_atoms_view(&atoms) == 1) {
    report.atoms = atoms.n;
    report.b0 = atoms.blurring;
  }
  report.reflections = qx_get_structure_factor_count();
  if (report.reflections > 0) report.scaling = scaling_as_json();
}

nlohmann::ordered_json as_json(const FcalcJob& job, const FcalcReport& report) {
  const FcalcOptions& options = job.options;
  const double* c = job.crystal.cell;
  nlohmann::ordered_json json = {{"model", options.model},
                                 {"atoms", report.atoms},
                                 {"radiation", options.neutron ? "neutrons" : "x-rays"},
                                 {"cell", std::vector<double>(c, c + 6)},
                                 {"space_group", report.group},
                                 {"resolution", {report.high, report.low}},
                                 {"reflections", report.reflections},
                                 {"grid", report.counts},
                                 {"boxes", report.boxes},
                                 {"box_megabytes", report.box_megabytes},
                                 {"engine_megabytes", report.engine_megabytes},
                                 {"program_megabytes", report.program_megabytes},
                                 {"b0", report.b0}};
  if (!options.hkl.empty()) {
    json["hkl"] = options.hkl;
    json["labels"] = json_of(job.observed);
  }
  if (!report.scaling.is_null()) json["scaling"] = report.scaling;
  json["output"] = options.output;
  json["maps"] = maps_of(options);
  json["warnings"] = job.warnings;
  return json;
}

}  // namespace qx
