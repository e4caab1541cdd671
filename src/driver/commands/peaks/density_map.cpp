// The density that peaks are looked for in: made of reflections, or read.
#include "driver/commands/command_error.h"
#include "driver/commands/info/map_facts.h"
#include "driver/commands/peaks/job.h"

#include <quorix/map.h>
#include <quorix/views.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gemmi/symmetry.hpp>
#include <new>
#include <string_view>

namespace qx {

qx_density_box DensityMap::box() const {
  return {block.get(),
          {counts[0], counts[1], counts[2]},
          {starts[0], starts[1], starts[2]},
          {intervals[0], intervals[1], intervals[2]}};
}

bool DensityMap::is_whole_cell() const { return std::equal(counts, counts + 3, intervals); }

namespace {

std::size_t points_of(const std::int32_t (&counts)[3]) {
  return static_cast<std::size_t>(counts[0]) * static_cast<std::size_t>(counts[1]) *
         static_cast<std::size_t>(counts[2]);
}

std::unique_ptr<double, void (*)(void*)> new_block(const std::int32_t (&counts)[3]) {
  auto* block = static_cast<double*>(std::malloc(points_of(counts) * sizeof(double)));
  if (!block) throw std::bad_alloc();
  return {block, std::free};
}

MapLabels usual_pair(const PeaksOptions& options, const ReflectionFile& file) {
  MapLabels labels;
  if (!options.full) labels = usual_labels(file, true);
  if (labels.amplitude.empty() && !options.map.difference) labels = usual_labels(file, false);
  if (!labels.amplitude.empty()) return labels;
  std::string pairs;
  if (!options.full) pairs = usual_pairs(true);
  if (!options.map.difference) pairs += (pairs.empty() ? "" : ", ") + usual_pairs(false);
  refuse_labels(file, file.path + " has none of the pairs " + pairs, {},
                passed_over(file, options.map.difference));
}

MapLabels labels_of(const PeaksOptions& options, const ReflectionFile& file) {
  const MapOptions& map = options.map;
  const bool named = !map.amplitude.empty() || !map.phase.empty();
  return named ? given_labels(file, map.amplitude, map.phase) : usual_pair(options, file);
}

void describe(const MapJob& job, DensityMap& map) {
  qx_map_view view;
  qx_group_view group;
  if (qx_get_map_view(&view) != 1 || qx_get_group_view(&group) != 1) {
    throw CommandError(1, "the engine has no map");
  }
  std::copy_n(view.counts, 3, map.counts);
  std::copy_n(view.starts, 3, map.starts);
  std::copy_n(view.intervals, 3, map.intervals);
  std::copy_n(map_cell(job), 6, map.cell);
  map.rms = view.rms;
  map.absolute = true;
  map.group = group.full_name ? group.full_name : "by its operators";
  map.known_group = known_group(job);
  map.crystal = density_crystal(map.cell, map_group(job), job.file.operators);
  map.kind = map_type(job.labels);
  map.difference = is_difference_amplitude(job.labels.amplitude);
}

}  // namespace

DensityMap map_of_reflections(const PeaksOptions& options) {
  MapOptions made = options.map;
  made.extent = {"cell"};
  made.no_scale = true;
  Engine engine(made.verbose);
  const ReflectionFile file = read_reflections(engine, made.input);
  MapJob job = {made, file, labels_of(options, file), file.readable.path, {}, made.dmin};
  DensityMap map;
  map.warnings = map_warnings(job);
  std::int32_t dropped = 0;
  start_map(engine, job, dropped);
  for (std::string& line : grid_warnings(job, dropped)) map.warnings.push_back(std::move(line));
  engine.run(fft_section(made));
  engine.run(map_section(job));
  describe(job, map);
  engine.call([&] {
    map.block = {qx_take_map_density(), std::free};
    return map.block ? ok : failed;
  });
  return map;
}

namespace {

// What a map says of its scale; 0: nothing.
double scale_of(const std::vector<std::string>& labels) {
  constexpr std::string_view scaled = "Density: scaled to rms 1 from ";
  for (const std::string& label : labels) {
    if (label.starts_with("Density: e/A^3")) return 1.0;
    if (label.starts_with(scaled)) return std::strtod(label.c_str() + scaled.size(), nullptr);
  }
  return 0.0;
}

void take_labels(const MapFacts& facts, DensityMap& map) {
  constexpr std::string_view heading = "Map type: ";
  for (const std::string& label : facts.labels) {
    if (label.starts_with(heading)) map.kind = label.substr(heading.size());
  }
  // Its rms is that of the whole cell, whatever the part has.
  const bool by_cell = map.kind.ends_with(cell_scale_mark);
  if (by_cell) map.kind.resize(map.kind.size() - std::string_view(cell_scale_mark).size());
  if (by_cell) map.rms = 1.0;
  const std::size_t bracket = map.kind.find('(');
  const std::size_t first = bracket == std::string::npos ? 0 : bracket + 1;
  map.difference =
      is_difference_amplitude(map.kind.substr(first, map.kind.find('/', first) - first)) ||
      map.kind.starts_with("mFo-DFc") || map.kind.starts_with("Fo-Fc");
  if (map.kind.empty()) map.kind = "of unknown kind";
  const double scale = scale_of(facts.labels);
  map.absolute = std::isfinite(scale) && scale > 0.0;
  if (!map.absolute) return;
  double* values = map.block.get();
  for (std::size_t i = 0; i < points_of(map.counts); ++i) values[i] *= scale;
  map.rms *= scale;
}

void take_crystal(const MapFacts& facts, DensityMap& map) {
  map.known_group = gemmi::find_spacegroup_by_number(facts.map.space_group);
  map.group = facts.group().empty() ? "unknown" : facts.group();
  std::vector<std::string> operators = facts.operators();
  if (!facts.symmetry.unreadable.empty()) {
    map.warnings.push_back("its symmetry records cannot be read: mates are told separately");
    operators.clear();
  } else if (facts.symmetry.check.pairs > 0 && !facts.symmetry.obeyed()) {
    map.warnings.push_back("its density does not have the symmetry of " + map.group +
                           ": mates are told separately");
    operators.clear();
  }
  map.crystal = density_crystal(map.cell, {}, operators);
}

// Fills points of the cell that the file has, itself or by symmetry; false if any is missing.
bool fill_cell(const DensityMap& part, DensityMap& whole) {
  const qx_density_box from = part.box();
  double* values = whole.block.get();
  std::fill_n(values, points_of(whole.counts), NAN);
  std::size_t missing = points_of(whole.counts);
  const auto& n = part.intervals;
  for (const gemmi::Op& op : part.crystal.operators) {
    const double* value = from.density;
    for (std::int64_t z = 0; z < part.counts[2]; ++z) {
      for (std::int64_t y = 0; y < part.counts[1]; ++y) {
        for (std::int64_t x = 0; x < part.counts[0]; ++x, ++value) {
          GridPoint mate = {};
          if (!mate_of(op, {x + part.starts[0], y + part.starts[1], z + part.starts[2]}, n, mate)) {
            return false;
          }
          std::int64_t place = 0;
          for (std::size_t a = 3; a-- > 0;) {
            place = place * n[a] + (mate.at(a) % n[a] + n[a]) % n[a];
          }
          if (!std::isnan(values[place])) continue;
          values[place] = *value;
          if (!std::isnan(*value)) --missing;
        }
      }
    }
  }
  return missing == 0;
}

// From an asymmetric unit, or more than a cell, to the cell.
void complete(DensityMap& map) {
  if (map.is_whole_cell() &&
      std::all_of(map.starts, map.starts + 3, [](int i) { return i == 0; })) {
    return;
  }
  double points = 1.0;
  for (const std::int32_t n : map.intervals) points *= n;
  const double own = static_cast<double>(points_of(map.counts));
  if (own * static_cast<double>(map.crystal.operators.size()) < points) return;
  DensityMap whole;
  std::copy_n(map.intervals, 3, whole.counts);
  std::copy_n(map.intervals, 3, whole.intervals);
  whole.block = new_block(whole.counts);
  if (!fill_cell(map, whole)) return;
  const double scaled = map.rms;
  map.block = std::move(whole.block);
  std::copy_n(whole.counts, 3, map.counts);
  std::fill_n(map.starts, 3, 0);
  map.rms =
      qx_calc_density_statistics(map.block.get(), static_cast<std::int64_t>(points_of(map.counts)))
          .rms;
  if (!(map.rms > 0.0)) map.rms = scaled;
}

}  // namespace

DensityMap map_of_file(const PeaksOptions& options) {
  DensityMap map;
  const auto take = [&](const qx_ccp4_map& found, const MapFacts&) {
    std::copy_n(found.counts, 3, map.counts);
    std::copy_n(found.starts, 3, map.starts);
    std::copy_n(found.intervals, 3, map.intervals);
    std::copy_n(found.cell, 6, map.cell);
    map.block = new_block(map.counts);
    std::copy_n(found.density[0][0], points_of(map.counts), map.block.get());
    return true;
  };
  const MapFacts facts = read_map_facts(options.map.input, options.map.verbose, take);
  map.rms = facts.rms;
  take_labels(facts, map);
  take_crystal(facts, map);
  complete(map);
  return map;
}

}  // namespace qx
