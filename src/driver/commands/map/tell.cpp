// What was found, in lines or as JSON.
#include "driver/commands/map/make.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <ostream>

namespace qx {

void tell(std::ostream& out, const MapJob& job, const MapReport& report) {
  const double* c = map_cell(job);
  out << format("cell        %g %g %g A, %g %g %g degrees\n", c[0], c[1], c[2], c[3], c[4], c[5])
      << "group       " << report.group << '\n'
      << format("resolution  %.3f - %.2f A\n", report.high, report.low)
      << format("reflections %d of %zu used, %s/%s%s\n", report.used, job.file.rows,
                job.labels.amplitude.c_str(), job.labels.phase.c_str(),
                job.labels.weight.empty() ? "" : (" times " + job.labels.weight).c_str())
      << format("grid        %d x %d x %d, %.3f x %.3f x %.3f A\n", report.counts[0],
                report.counts[1], report.counts[2], c[0] / report.counts[0],
                c[1] / report.counts[1], c[2] / report.counts[2]);
  if (job.options.show_grid) return;
  if (!job.options.selection.empty()) {
    out << format("atoms       %zu of %s, selected by %s\n", report.atoms,
                  job.options.extent.at(1).c_str(), job.options.selection.c_str());
  }
  out << format("map         rms %.5f e/A^3", report.rms);
  const bool by_cell = !job.options.no_scale && job.options.extent.front() != "cell";
  if (by_cell) out << " of the whole cell";
  if (std::fabs(report.deviation() - report.rms) > 1e-5 * report.rms) {
    out << format(" about zero, %.5f about the mean %.5f", report.deviation(), report.mean);
  }
  out << (job.options.no_scale ? ", not scaled" : ", scaled to 1");
  if (by_cell) out << format(" (%.3f in the map)", report.rms_in_file);
  out << ": " << report.output << '\n';
  if (report.check) {
    out << format("check       read back, within %.1e rms of a direct sum at %d points\n",
                  report.check->largest, report.check->points);
  }
}

nlohmann::ordered_json as_json(const MapJob& job, const MapReport& report) {
  const double* c = map_cell(job);
  nlohmann::ordered_json json = {{"input", job.file.path},
                                 {"labels", {job.labels.amplitude, job.labels.phase}},
                                 {"cell", std::vector<double>(c, c + 6)},
                                 {"space_group", report.group},
                                 {"resolution", {report.high, report.low}},
                                 {"reflections_in_file", job.file.rows},
                                 {"reflections_used", report.used},
                                 {"grid", report.counts},
                                 {"warnings", report.warnings}};
  if (!job.labels.weight.empty()) json["weight"] = job.labels.weight;
  if (job.options.show_grid) return json;
  if (report.atoms > 0) json["atoms"] = report.atoms;
  json["map"] = report.output;
  json["scaled"] = !job.options.no_scale;
  json["mean"] = report.mean;
  json["rms_about_zero"] = report.rms;
  json["rms_about_mean"] = report.deviation();
  json["rms_of_cell"] = report.cell_rms;
  json["rms_in_file"] = report.rms_in_file;
  if (report.check) {
    json["check"] = {{"points", report.check->points},
                     {"largest_deviation_rms", report.check->largest}};
  }
  return json;
}

}  // namespace qx
