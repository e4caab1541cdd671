#include "driver/commands/fcalc/report.h"

#include "scaling/cross_record.h"
#include "crystal/crystal.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "model/molsys.h"
#include "sf/structfact.h"

#include <quorix/engine.h>
#include <quorix/memory.h>
#include <quorix/reflection_view.h>

#include <nlohmann/json.hpp>
#include <sys/resource.h>

namespace qx {

namespace {

double d_of(double s_length) { return s_length > 0.0 ? 1.0 / s_length : 0.0; }

FcalcScaling scaling_of(const ScaleResult& found) {
  FcalcScaling scaling = {found.scale, found.split, found.work, found.free, {}};
  const qxcross* cross = qx_get_qxcross();
  for (std::int32_t i = 0; cross && i < found.nbins; ++i) {
    if (cross->bin_counts[i] == 0) continue;
    scaling.bins.push_back({cross->bin_counts[i], d_of(cross->bin_ranges[i][1]),
                            d_of(cross->bin_ranges[i][0]), found.bins[i].work, found.bins[i].free});
  }
  return scaling;
}

nlohmann::ordered_json json_of(const Agreement& set) {
  if (set.n == 0) return nullptr;
  return {{"reflections", set.n}, {"r", set.r}, {"correlation", set.correlation}};
}

nlohmann::ordered_json json_of(const FcalcScaling& scaling) {
  nlohmann::ordered_json bins = nlohmann::ordered_json::array();
  for (const FcalcBin& bin : scaling.bins) {
    bins.push_back({{"resolution", {bin.high, bin.low}},
                    {"reflections", bin.count},
                    {"work", json_of(bin.work)},
                    {"free", json_of(bin.free)}});
  }
  return {{"k", scaling.scale.k},
          {"b", scaling.scale.b},
          {scaling.split ? "work" : "all", json_of(scaling.work)},
          {"free", json_of(scaling.free)},
          {"bins", bins}};
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
    if (factors->scaling.done) report.scaling = scaling_of(factors->scaling);
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
  if (report.scaling) json["scaling"] = json_of(*report.scaling);
  json["output"] = options.output;
  json["maps"] = maps_of(options);
  json["warnings"] = job.warnings;
  return json;
}

}  // namespace qx
