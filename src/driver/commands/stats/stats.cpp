// quorix stats: what a set of observations is worth.
#include "driver/commands/commands.h"
#include "driver/commands/group_name.h"
#include "driver/commands/output_place.h"
#include "driver/commands/stats/job.h"
#include "driver/commands/whole_file.h"

#include <quorix/engine.h>

#include <CLI/CLI.hpp>
#include <gemmi/symmetry.hpp>  // for SpaceGroup
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

struct StatsReport {
  std::vector<std::string> warnings;
  std::string crystal, observations, free_set, lines;
  StatsCounts counts;
  qx_wilson_view wilson = {};
  std::vector<qx_wilson_bin> bins;
};

void warn(const StatsOptions& options, StatsReport& report, const std::string& text) {
  report.warnings.push_back(text);
  if (!options.json) std::cerr << "quorix stats: warning: " << text << '\n';
}

bool of_amplitudes(const StatsJob& job) { return !job.columns.amplitude.empty(); }

ObservedColumns choose_columns(const StatsOptions& options, const ReflectionFile& file) {
  if (file.batches > 0) {
    throw CommandError(
        2, options.data + format(": unmerged data (%d batches): merge them first", file.batches));
  }
  if (!options.labels.empty()) return given_observations(file, options.labels, true);
  ObservedColumns columns = usual_intensities(file);
  if (columns.intensity.empty()) columns = usual_observations(file);
  if (!columns.intensity.empty() || !columns.amplitude.empty()) return columns;
  throw CommandError(2, options.data +
                            " has neither intensities nor amplitudes under a usual name: give "
                            "--labels I,SIGI,FREE or F,SIGF,FREE");
}

const gemmi::SpaceGroup& group_of(const StatsOptions& options, const ReflectionFile& file) {
  const gemmi::SpaceGroup* group =
      options.space_group.empty()
          ? file.group
          : find_space_group(options.space_group, file.cell[3], file.cell[5]);
  if (!group) {
    throw CommandError(
        2, options.space_group.empty()
               ? "the space group of " + options.data + " is not known: give one with --spacegroup"
               : "unknown space group '" + options.space_group + "'");
  }
  return *group;
}

void check_amplitudes(const StatsJob& job) {
  if (job.options.amplitudes.empty()) return;
  if (of_amplitudes(job)) {
    throw CommandError(2, "--amplitudes are made of intensities: " + job.options.data +
                              " has amplitudes, " + job.columns.amplitude);
  }
  if (job.columns.intensity_sigma.empty()) {
    throw CommandError(2, "--amplitudes need the errors of " + job.columns.intensity +
                              ": name both with --labels I,SIGI");
  }
  for (const char* label : {"F", "SIGF"}) {
    if (job.file.find(label).empty()) continue;
    std::cerr << "quorix stats: " << label << " of " << job.options.data
              << " is replaced in what is written\n";
  }
}

void note_free_set(const StatsJob& job, StatsReport& report) {
  if (job.columns.free.empty()) return;
  std::string problem;
  const auto set = choose_free_set(*job.file.find(job.columns.free).front(), {}, problem);
  if (set) report.free_set = set->line();
  if (!set) warn(job.options, report, problem);
}

void note_counts(const StatsJob& job, StatsReport& report) {
  const StatsCounts& n = report.counts;
  const auto say = [&](std::size_t count, const char* text) {
    if (count > 0) warn(job.options, report, format("%zu ", count) + text);
  };
  say(n.repeated, "rows repeat a reflection: the first of each counts for completeness");
  say(n.extinct, "reflections that the group extinguishes have values above 0: is it right?");
  if (n.all.possible > 0 && n.all.completeness() < 0.8) {
    warn(job.options, report,
         format("only %.1f %% of the reflections were measured", 100.0 * n.all.completeness()));
  }
  const double low = line_begins(job.options, n);
  if (low == 0.0) warn(job.options, report, "too few reflections for a Wilson plot");
  if (low > job.options.low) {
    warn(job.options, report,
         format("the data end near %g A: the Wilson line runs through all of them, and its B means "
                "little",
                job.options.low));
  }
}

void describe(const StatsJob& job, const gemmi::SpaceGroup& group, StatsReport& report) {
  const double* c = job.file.cell;
  report.crystal =
      group.xhm() + format(", %g %g %g A, %g %g %g degrees", c[0], c[1], c[2], c[3], c[4], c[5]);
  const ObservedColumns& own = job.columns;
  const std::string& value = of_amplitudes(job) ? own.amplitude : own.intensity;
  const std::string& sigma = of_amplitudes(job) ? own.sigma : own.intensity_sigma;
  report.observations = (of_amplitudes(job) ? "amplitudes " : "intensities ") + value +
                        (sigma.empty() ? ", no errors" : " " + sigma);
}

void fetch_numbers(StatsReport& report) {
  if (qx_get_wilson_view(&report.wilson) != ok) return;
  qx_wilson_bin bin = {};
  for (std::int32_t i = 0; qx_get_wilson_bin(i, &bin) == 1; ++i) report.bins.push_back(bin);
}

void calculate(Engine& engine, const StatsJob& job, StatsReport& report) {
  engine.run(crystal_section(job, job.file.readable.path));
  const std::string printed = engine.run(wilson_section(job, report.counts));
  const std::size_t at = std::min(printed.find("Wilson plot  "), printed.find("Acentric mom"));
  if (at != std::string::npos) report.lines = printed.substr(at);
  engine.call([&] {
    fetch_numbers(report);
    return qx_exist_quorix() ? ok : failed;
  });
  if (job.options.amplitudes.empty()) return;
  const OutputPlace place(job.options.amplitudes);
  engine.run(amplitudes_section(job, place.path()));
  place.deliver();
}

void draw(const StatsJob& job, const StatsReport& report) {
  if (job.options.plot.empty()) return;
  if (report.bins.size() < 2) throw CommandError(2, "there is no Wilson plot to draw");
  write_whole(job.options.plot, wilson_plot_svg(job.options.data, report.wilson, report.bins));
}

void tell_shells(const StatsJob& job, const StatsCounts& counts) {
  const char* value = of_amplitudes(job) ? "F" : "I";
  std::cout << format("%8s - %6s  %9s %9s  %9s  %10s  %7s/sigma\n", "d", "d", "measured",
                      "possible", "complete %", (std::string("<") + value + ">").c_str(), value);
  const auto row = [](const StatsShell& shell) {
    std::cout << format("%8.3f - %6.3f  %9zu %9zu  %9.1f   %10.4g  %13.2f\n", shell.low, shell.high,
                        shell.measured, shell.possible, 100.0 * shell.completeness(), shell.mean(),
                        shell.mean_over_error());
  };
  for (const StatsShell& shell : counts.shells) row(shell);
  row(counts.all);
}

void tell(const StatsJob& job, const StatsReport& report) {
  const StatsCounts& n = report.counts;
  const auto line = [](const char* what, const std::string& text) {
    std::cout << format("%-28s: ", what) << text << '\n';
  };
  line("Crystal", report.crystal);
  line("Observations", report.observations);
  line("Reflections", format("%zu rows, %zu without a value; %zu acentric, %zu centric", n.rows,
                             n.missing, n.acentric, n.centric));
  line("Zero or below", format("%zu", n.not_positive));
  line("Without an error", format("%zu", n.without_error));
  line("Resolution", format("%.3f - %.2f A", n.all.high, n.all.low));
  line("Completeness", format("%.2f %% (%zu of %zu)", 100.0 * n.all.completeness(), n.all.measured,
                              n.all.possible));
  if (!report.free_set.empty()) line("Free flags", report.free_set);
  tell_shells(job, n);
  std::cout << report.lines;
  if (!job.options.amplitudes.empty()) {
    std::cout << format("Amplitudes                  : %d, %d reflections left out\n",
                        report.wilson.namplitudes, report.wilson.nleft_out)
              << job.options.amplitudes << " written\n";
  }
  if (!job.options.plot.empty()) std::cout << job.options.plot << " written\n";
}

Json as_json(const StatsShell& shell) {
  return {{"resolution", {shell.high, shell.low}},
          {"measured", shell.measured},
          {"possible", shell.possible},
          {"completeness", shell.completeness()},
          {"mean", shell.mean()},
          {"mean_over_sigma", shell.mean_over_error()}};
}

Json wilson_json(const qx_wilson_view& view, const std::vector<qx_wilson_bin>& bins) {
  if (bins.empty()) return nullptr;
  Json json = {{"k", view.k}, {"b", view.b}, {"correlation", view.correlation}};
  for (const qx_wilson_bin& bin : bins) {
    json["bins"].push_back(
        {{"half_s2", 0.5 * bin.s2}, {"ln_ratio", bin.log_ratio}, {"reflections", bin.n}});
  }
  return json;
}

Json moments_json(std::int32_t n, double z2, double e) {
  if (n < 1) return nullptr;
  return {{"reflections", n}, {"z2", z2}, {"e", e}};
}

Json as_json(const StatsJob& job, const StatsReport& report) {
  const StatsCounts& n = report.counts;
  const qx_wilson_view& w = report.wilson;
  Json json = {{"data", job.options.data},
               {"crystal", report.crystal},
               {"observations", report.observations},
               {"reflections",
                {{"rows", n.rows},
                 {"missing", n.missing},
                 {"not_positive", n.not_positive},
                 {"without_error", n.without_error},
                 {"repeated", n.repeated},
                 {"extinct", n.extinct},
                 {"acentric", n.acentric},
                 {"centric", n.centric}}},
               {"overall", as_json(n.all)}};
  json["shells"] = Json::array();
  for (const StatsShell& shell : n.shells) json["shells"].push_back(as_json(shell));
  if (!report.free_set.empty()) json["free_flags"] = report.free_set;
  json["wilson"] = wilson_json(w, report.bins);
  json["moments"] = {{"acentric", moments_json(w.nacentric, w.z2_acentric, w.e_acentric)},
                     {"centric", moments_json(w.ncentric, w.z2_centric, w.e_centric)}};
  json["l_test"] = nullptr;
  if (w.npairs > 0) {
    json["l_test"] = {{"pairs", w.npairs}, {"mean_l", w.mean_l}, {"mean_l2", w.mean_l2}};
  }
  if (w.has_anisotropy) {
    json["anisotropy"] = {{"b_cart", std::vector<double>(w.b_cart, w.b_cart + 6)},
                          {"spread", w.b_spread}};
  }
  if (!job.options.amplitudes.empty()) {
    json["amplitudes"] = {
        {"file", job.options.amplitudes}, {"made", w.namplitudes}, {"left_out", w.nleft_out}};
  }
  if (!job.options.plot.empty()) json["plot"] = job.options.plot;
  json["warnings"] = report.warnings;
  return json;
}

int run(const StatsOptions& options) {
  check_options(options);
  if (options.json) keep_standard_output_clean();
  Progress progress("reading");
  Engine engine(options.verbose);
  const ReflectionFile file = read_reflections(engine, options.data);
  const StatsJob job = {options, file, choose_columns(options, file)};
  const gemmi::SpaceGroup& group = group_of(options, file);
  check_amplitudes(job);
  StatsReport report;
  describe(job, group, report);
  report.counts = count_observations(job, &group);
  if (report.counts.all.measured == 0) {
    throw CommandError(2, options.data + ": none of the reflections was measured");
  }
  if (options.print_sections) {
    const std::string end = options.amplitudes.empty()
                                ? printed(SectionText("xter"))
                                : printed(amplitudes_section(job, options.amplitudes));
    std::cout << printed(crystal_section(job, options.data))
              << printed(wilson_section(job, report.counts)) << end;
    return 0;
  }
  note_free_set(job, report);
  note_counts(job, report);
  progress.step("calculating statistics");
  calculate(engine, job, report);
  draw(job, report);
  if (options.json) {
    std::cout << as_json(job, report).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  } else if (!options.quiet) {
    tell(job, report);
  }
  return 0;
}

}  // namespace

void add_stats(CLI::App& app, int& status) {
  auto options = std::make_shared<StatsOptions>();
  CLI::App* command = app.add_subcommand("stats", "What a set of observations is worth");
  add_stats_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
