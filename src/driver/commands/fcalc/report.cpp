#include "driver/commands/fcalc/report.h"

#include "crystal/crystal.h"
#include "crystal/spacegroup.h"
#include "driver/commands/model_fit.h"
#include "grid/grid.h"
#include "model/molsys.h"
#include "sf/structfact.h"

#include <quorix/engine.h>
#include <quorix/memory.h>
#include <quorix/reflection_view.h>
#include <quorix/scaling.h>

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

void add_agreement(Json& scaling, bool split, const Agreement& work, const Agreement& free) {
  scaling[split ? "work" : "all"] = agreement_as_json(work.n, work.r, work.correlation);
  scaling["free"] = agreement_as_json(free.n, free.r, free.correlation);
  scaling["bins"] = bins_as_json();
}

// Of the atoms alone, or with their solvent; null where nothing was scaled.
Json scaling_as_json(const qxstructfact& factors) {
  const ScaleResult& alone = factors.scaling;
  if (alone.done) {
    Json scaling = {{"k", alone.scale.k}, {"b", alone.scale.b}};
    add_agreement(scaling, alone.split, alone.work, alone.free);
    return scaling;
  }
  if (!qx_get_qxscale()) return nullptr;
  Json scaling = scale_as_json();
  scaling["solvent"]["bins"] = scaling["bins"];
  qx_agreement work = {};
  qx_agreement free = {};
  if (qx_get_rfactor(&work, &free) != ok) return nullptr;
  add_agreement(scaling, free.n > 0, {work.n, work.r, work.correlation},
                {free.n, free.r, free.correlation});
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

void note_results(FcalcReport& report) {
  if (const qxspg* group = qx_get_qxspg(); group && group->full_name) {
    report.group = group->full_name;
  }
  if (const qxresol* limits = qx_get_qxresol()) {
    report.high = limits->high;
    report.low = limits->low;
  }
  if (const qxgrid* grid = qx_get_qxgrid()) {
    report.counts[0] = grid->nx;
    report.counts[1] = grid->ny;
    report.counts[2] = grid->nz;
  }
  if (const qxsubgrid* boxes = qx_get_qxsubgrid()) {
    report.boxes = boxes->one_box ? 1 : boxes->boxes[2];
    const double points = 1.0 * report.counts[0] * report.counts[1] * report.counts[2];
    report.box_megabytes = 8e-6 * points / report.boxes;
    report.engine_megabytes = qx_get_max_memory_size();
    rusage usage = {};
    if (getrusage(RUSAGE_SELF, &usage) == 0) {
      report.program_megabytes = 1.024e-3 * static_cast<double>(usage.ru_maxrss);
    }
  }
  if (const molsys* system = qx_get_molsys()) report.atoms = system->natom;
  if (const qxatomb* blurring = qx_get_qxatomb()) report.b0 = blurring->b0;
  if (const qxstructfact* factors = qx_get_qxstructfact()) {
    report.reflections = factors->nref;
    report.scaling = scaling_as_json(*factors);
  }
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
