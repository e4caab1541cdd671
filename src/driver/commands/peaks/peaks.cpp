// quorix peaks: where a density is high, or low, and what is near.
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/model_and_data.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/peaks/job.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/whole_file.h"

#include <quorix/map.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>

namespace qx {

namespace {

bool is_map(const std::string& path) {
  const std::string start = first_bytes(path, 4096);
  return qx_starts_ccp4_map(start.data(), start.size()) == 1;
}

void refuse_choices_of_reflections(const PeaksOptions& o) {
  const std::pair<bool, const char*> choices[] = {{o.full, "--full"},
                                                  {o.map.difference, "--difference"},
                                                  {!o.map.amplitude.empty(), "--f"},
                                                  {!o.map.phase.empty(), "--phi"},
                                                  {o.map.dmin.has_value(), "--dmin"},
                                                  {o.map.dmax.has_value(), "--dmax"}};
  for (const auto& [given, name] : choices) {
    if (given)
      throw CommandError(
          2, std::string(name) + " is for reflections: " + o.map.input + " is a map already");
  }
}

DensityMap open_map(const PeaksOptions& options) {
  if (!is_map(options.map.input)) return map_of_reflections(options);
  refuse_choices_of_reflections(options);
  return map_of_file(options);
}

void check_density(const PeaksOptions& options, const DensityMap& map) {
  if (!map.crystal.cell.is_crystal() || !(map.crystal.cell.volume > 0.0)) {
    throw CommandError(2, options.map.input + " has no unit cell");
  }
  if (std::isnan(map.rms)) {
    throw CommandError(2, options.map.input + " holds points that are no numbers");
  }
  if (!(map.rms > 0.0)) {
    throw CommandError(2, "the map of " + options.map.input + " is empty: it is 0 everywhere");
  }
}

// Sites would be told by atoms that are elsewhere; in a cell that differs a little they are nearly
// right.
void check_model(const PeaksOptions& options, const Coordinates& model, DensityMap& map) {
  for (const std::string& line : model.warnings()) map.warnings.push_back(line);
  const auto lines = crystal_differences(model.crystal(), map.known_group, map.cell,
                                         "its atoms are taken where their coordinates say");
  if (!are_of_one_form(model.crystal().cell, map.cell)) {
    throw CommandError(2, options.model + ": " + lines.back() + "; these are two crystal forms");
  }
  map.warnings.insert(map.warnings.end(), lines.begin(), lines.end());
}

void settle_levels(const PeaksOptions& options, const DensityMap& map, PeaksReport& report) {
  const double unit = options.absolute ? 1.0 : map.rms;
  report.level = options.level.value_or(4.0) * unit;
  report.blob_level = options.blob_level.value_or(map.difference ? 3.0 : 1.0) * unit;
  report.min_score = options.min_score.value_or(map.absolute && !map.difference ? 15.0 : 0.0);
  const bool both = options.sign == "both" || (options.sign == "auto" && map.difference);
  report.positive = both || options.sign != "negative";
  report.negative = both || options.sign == "negative";
}

template <class Site, class Size>
void keep_largest(std::vector<Site>& sites, int most, std::size_t& found, Size size) {
  std::stable_sort(sites.begin(), sites.end(), [&](const Site& a, const Site& b) {
    return std::fabs(size(a)) > std::fabs(size(b));
  });
  found = sites.size();
  const auto limit = static_cast<std::size_t>(most);
  if (most > 0 && sites.size() > limit) sites.resize(limit);
}

void search(const PeaksOptions& options, const DensityMap& map, const Coordinates* model,
            PeaksReport& report) {
  const qx_density_box box = map.box();
  std::vector<std::uint8_t> mask;
  const bool outside = model && options.mask_radius > 0.0 && report.positive;
  if (outside && !(options.no_blobs && map.difference)) {
    mask = mask_near_model(box, map.crystal, options.mask_radius, *model);
  }
  const std::uint8_t* masked = mask.empty() ? nullptr : mask.data();
  for (const double sign : {1.0, -1.0}) {
    if (!(sign > 0.0 ? report.positive : report.negative)) continue;
    const std::uint8_t* blob_mask = sign > 0.0 ? masked : nullptr;
    if (!options.no_peaks) {
      const auto found = find_density_peaks(box, map.crystal, sign * report.level, map.rms, model,
                                            map.difference ? nullptr : blob_mask);
      report.peaks.insert(report.peaks.end(), found.begin(), found.end());
    }
    if (!options.no_blobs) {
      const BlobCriteria criteria = {sign * report.blob_level, options.min_volume,
                                     report.min_score};
      const auto found = find_density_blobs(box, map.crystal, criteria, map.rms, model, blob_mask);
      report.blobs.insert(report.blobs.end(), found.begin(), found.end());
    }
  }
  keep_largest(report.peaks, options.most, report.peaks_found,
               [](const DensityPeakSite& peak) { return peak.value; });
  keep_largest(report.blobs, options.most, report.blobs_found,
               [](const DensityBlobSite& blob) { return blob.score; });
}

int run(PeaksOptions& options) {
  check_options(options);
  if (options.map.json) keep_standard_output_clean();
  check_outputs({options.map.input, options.model}, {{options.output, FileKind::atoms}},
                options.map.force);
  Progress progress("reading");
  std::optional<Coordinates> model;
  if (!options.model.empty()) model.emplace(options.model);
  DensityMap map = open_map(options);
  check_density(options, map);
  if (model) check_model(options, *model, map);
  if (!options.map.json) {
    for (const std::string& line : map.warnings) std::cerr << "quorix peaks: " << line << '\n';
  }
  progress.step("searching");
  PeaksReport report;
  settle_levels(options, map, report);
  search(options, map, model ? &*model : nullptr, report);
  if (!options.output.empty()) write_whole(options.output, dummy_atoms(map, report));
  if (options.map.json) {
    tell_json(options, map, report);
  } else if (!options.map.quiet) {
    tell(options, map, report);
  }
  return 0;
}

}  // namespace

void add_peaks(CLI::App& app, int& status) {
  auto options = std::make_shared<PeaksOptions>();
  CLI::App* command = app.add_subcommand("peaks", "Peaks and blobs of a map, and what is near");
  add_peaks_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
