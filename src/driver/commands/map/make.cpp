#include "driver/commands/map/make.h"

#include "driver/commands/coordinates.h"
#include "driver/commands/model_and_data.h"

#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/reflection_view.h>
#include <quorix/views.h>

#include <algorithm>
#include <cmath>
#include <iostream>

namespace qx {

double MapReport::deviation() const { return std::sqrt(std::max(0.0, rms * rms - mean * mean)); }

void warn(const MapJob& job, MapReport& report, const std::string& line) {
  report.warnings.push_back(line);
  if (!job.options.json) {
    std::cerr << "quorix map: " << job.labels.amplitude << ": " << line << '\n';
  }
}

namespace {

void note_crystal(const MapJob& job, MapReport& report) {
  qx_group_view group;
  qx_limits_view limits;
  qx_grid_view grid;
  if (qx_get_group_view(&group) != 1 || qx_get_limits_view(&limits) != 1 ||
      qx_get_grid_view(&grid) != 1) {
    throw CommandError(1, "the engine has no crystal");
  }
  report.group = group.full_name ? group.full_name : map_group(job);
  if (report.group.empty()) report.group = job.file.group_name + ", by its operators";
  report.high = limits.high;
  report.low = limits.low;
  report.used = reflections_used();
  std::copy_n(grid.counts, 3, report.counts);
  for (const std::string& line : grid_warnings(job, report.dropped)) warn(job, report, line);
}

// The atoms whose surroundings are wanted.
void add_model(Engine& engine, const MapJob& job, MapReport& report) {
  const std::string& path = job.options.extent.at(1);
  Coordinates coordinates(path);
  if (!job.options.selection.empty()) coordinates.select(job.options.selection, path);
  report.atoms = coordinates.atom_count();
  for (const std::string& line : coordinates.warnings()) warn(job, report, line);
  for (const std::string& line :
       crystal_differences(coordinates.crystal(), known_group(job), map_cell(job),
                           "the box lies where its coordinates are in the map's cell")) {
    warn(job, report, line);
  }
  engine.run(SectionText("xmod"));
  engine.call([&] { return coordinates.fill_model() ? ok : failed; });
  engine.run(SectionText("xmol").line("hydr yes"));
}

}  // namespace

void settle_crystal(Engine& engine, MapJob& job, MapReport& report) {
  start_map(engine, job, report.dropped);
  note_crystal(job, report);
}

void generate(Engine& engine, const MapJob& job, MapReport& report) {
  engine.run(fft_section(job.options));
  if (job.options.extent.front() == "model") add_model(engine, job, report);
  engine.run(map_section(job));
  qx_map_view map;
  if (qx_get_map_view(&map) != 1) throw CommandError(1, "the engine has no map");
  report.mean = map.mean;
  report.rms = map.rms;
  report.cell_rms = map.cell_rms;
  report.rms_in_file = map.written_rms;
  if (job.options.check) {
    report.check = check_map(engine, job.output);
    if (!report.check->passed()) {
      throw CommandError(
          1, report.output + format(" is %.1e rms away from a direct sum", report.check->largest));
    }
  }
}

}  // namespace qx
