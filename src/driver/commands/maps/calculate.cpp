// What commands that weigh a model against amplitudes share: the road to the likelihood.
#include "driver/commands/fcalc/setup.h"
#include "driver/commands/maps/job.h"
#include "driver/commands/model_fit.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <iostream>

namespace qx {

double rms_of_map() {
  qx_map_statistics_view view = {};
  return qx_get_map_statistics(&view) == 1 ? view.rms : 0.0;
}

namespace {

constexpr double least_completeness = 0.8;

void look_at_completeness(Engine& engine, FcalcJob& job, const MapsOptions& options,
                          MapsReport& report) {
  qx_completeness found = {};
  engine.call([&] { return qx_calc_completeness(&found); });
  report.completeness = found;
  if (found.possible < 1 || found.observed >= least_completeness * found.possible) return;
  std::string line =
      format("only %d of %d unique reflections between the data's limits were observed (%.1f %%)",
             found.observed, found.possible, 100.0 * found.observed / found.possible);
  if (options.base.fill)
    line +=
        ": the others are DFc in FWT, which makes it look like the model; FWT_nofill is without";
  warn(job, line);
}

bool needs_amplitudes(const FcalcJob& job) { return job.observed.amplitude.empty(); }

SectionText amplitudes_section() { return SectionText("xwilson").line("amplitudes"); }

void tell_residues(const MapsReport& report, int worst) {
  std::vector<ResidueDensity> sorted = report.residues;
  if (sorted.empty() || worst < 1) return;
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return a.found.correlation < b.found.correlation;
  });
  const double median = sorted[sorted.size() / 2].found.correlation;
  std::cout << format("Density correlation         : median %.3f of %zu residues, within %.2f A\n",
                      median, sorted.size(), report.radius);
  sorted.resize(std::min(sorted.size(), static_cast<std::size_t>(worst)));
  std::cout << "residue              atoms  correlation  density/rms\n";
  for (const ResidueDensity& row : sorted) {
    std::cout << format("%-20s %5d  %11.3f  %11.2f\n", row.name.c_str(), row.found.atoms,
                        row.found.correlation, row.found.density);
  }
}

}  // namespace

void calculate(Engine& engine, FcalcJob& job, const MapsOptions& options, MapsReport& report) {
  set_up(engine, job);
  if (needs_amplitudes(job)) report.lines += engine.run(amplitudes_section());
  look_at_completeness(engine, job, options, report);
  note_wide_atoms(job, engine.run(SectionText("xfcc").line("calc")));
  report.lines += fit_to_observations(engine, job, options.base.solvent, false);
  for (const SectionText& section : likelihood_sections(job, options)) {
    report.lines += heed_warnings(job, engine.run(section));
  }
}

// What is about an atom grows with the resolution's d.
void correlate_densities(Engine& engine, const FcalcJob& job, MapsReport& report) {
  const Coordinates::Residues residues = job.coordinates.residues();
  const auto count = [](const auto& list) { return static_cast<std::int32_t>(list.size()); };
  std::vector<qx_density_correlation> found(residues.names.size());
  engine.call([&] {
    report.radius = std::clamp(0.75 * high_resolution(), 1.5, 3.0);
    return qx_calc_density_correlation(report.radius, count(residues.of_entry),
                                       residues.of_entry.data(), count(found), found.data());
  });
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (found[i].points > 0) report.residues.push_back({residues.names[i], i, found[i]});
  }
}

std::vector<SectionText> model_sections(Engine& engine, FcalcJob& job, const MapsOptions& options) {
  engine.run(crystal_section(job));
  job.input = options.base.hkl;
  std::vector<SectionText> sections = set_up_sections(job);
  const auto add = [&](const SectionText& section) { sections.push_back(section); };
  if (needs_amplitudes(job)) add(amplitudes_section());
  add(SectionText("xfcc").line("calc"));
  for (const SectionText& section : fit_sections(options.base.solvent, false)) add(section);
  for (const SectionText& section : likelihood_sections(job, options)) add(section);
  return sections;
}

void prepare_with_data(Engine& engine, FcalcJob& job) {
  prepare(engine, job);
  if (job.observed.empty) {
    throw CommandError(2, "there is no amplitude above 0 in column " + job.observed.amplitude +
                              " of " + job.options.hkl);
  }
  if (job.observed.amplitude.empty() && job.observed.intensity.empty()) {
    throw CommandError(2, job.options.hkl +
                              " has neither amplitudes nor intensities under a usual name: give "
                              "--labels F,SIGF,FREE");
  }
}

void tell(const FcalcJob& job, const MapsOptions& options, const MapsReport& report) {
  if (job.observed.free_set) {
    std::cout << "Free flags                  : " << job.observed.free_set->line() << '\n';
  }
  const qx_completeness& found = report.completeness;
  std::cout << format(
      "Completeness                : %d of %d unique reflections observed (%.1f %%)",
      found.observed, found.possible, 100.0 * found.observed / std::max(found.possible, 1));
  if (found.added > 0) std::cout << format(", %d added to the file's", found.added);
  std::cout << '\n' << report.lines;
  tell_residues(report, options.worst);
  for (const WrittenMap& map : report.maps) {
    std::cout << format("%s written, rms %.4f e/A^3\n", map.path.c_str(), map.rms);
  }
  if (!options.base.output.empty()) std::cout << options.base.output << " written\n";
}

}  // namespace qx
