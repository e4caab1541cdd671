// What maps from amplitudes and a model rest on. Kernels with 40,000 reflections: scale with bins,
// sigmaA. With QUORIX_BENCH_MODEL (PDB) and QUORIX_BENCH_DATA, as quorix maps takes them: the mask
// with its structure factors beside gemmi's mask alone, in turn; likelihood target with gradients,
// structure factors included, which bench/target_run.py holds against another package.
#include "driver/commands/fcalc/setup.h"
#include "stats/overall_scale.h"
#include "stats/sigmaa.h"

#include <quorix/scaling.h>
#include <quorix/solvent.h>
#include <quorix/structfact.h>
#include <quorix/target.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <gemmi/pdb.hpp>
#include <gemmi/solmask.hpp>
#include <gemmi/symmetry.hpp>
#include <random>
#include <vector>

namespace {

constexpr std::int32_t reflections = 40000;

// A model with solvent and errors, to 1.7 A.
struct Simulated {
  std::vector<double> fo, re, im, mask_re, mask_im, s2, epsilon, f;
  std::vector<double> vectors;
  std::vector<std::int16_t> centric;
  std::vector<std::uint8_t> used;

  Simulated() {
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (std::int32_t i = 0; i < reflections; ++i) {
      const double s = std::cbrt(unit(random) * std::pow(1 / 1.7, 3) + std::pow(1 / 40.0, 3));
      double v[3] = {normal(random), normal(random), normal(random)};
      const double length = std::hypot(v[0], v[1], v[2]);
      for (const double x : v) vectors.push_back(x * s / length);
      s2.push_back(s * s);
      const double fall = 300.0 * std::exp(-0.25 * 25.0 * s * s);
      re.push_back(fall * normal(random));
      im.push_back(fall * normal(random));
      const bool solvent = s < 1 / 3.0;
      mask_re.push_back(solvent ? -0.8 * re.back() + 0.3 * fall * normal(random) : 0.0);
      mask_im.push_back(solvent ? -0.8 * im.back() + 0.3 * fall * normal(random) : 0.0);
      const double k_mask = 0.35 * std::exp(-0.25 * 45.0 * s * s);
      f.push_back(
          std::hypot(re.back() + k_mask * mask_re.back(), im.back() + k_mask * mask_im.back()));
      fo.push_back(1.3 * std::exp(-0.25 * 4.0 * s * s) *
                   std::fabs(f.back() + 0.2 * fall * normal(random)));
      epsilon.push_back(1.0);
      centric.push_back(i % 12 == 0);
      used.push_back(i % 20 == 0);
    }
  }
};

const Simulated& simulated() {
  static const Simulated data;
  return data;
}

void scale_with_bins(benchmark::State& state) {
  const Simulated& d = simulated();
  const qx::ScaleData data = {
      reflections,      d.fo.data(),
      d.re.data(),      d.im.data(),
      d.mask_re.data(), d.mask_im.data(),
      d.s2.data(),      reinterpret_cast<const double(*)[3]>(d.vectors.data())};
  qx::ScaleSettings settings;
  const double identity[1][9] = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
  settings.basis = qx::invariant_tensors(1, identity, false);
  std::vector<double> scratch(qx::scale_scratch_size(reflections));
  for (auto _ : state) {
    benchmark::DoNotOptimize(qx::fit_model_scale(data, settings, scratch.data()));
  }
}
BENCHMARK(scale_with_bins)->Unit(benchmark::kMillisecond);

void sigmaa(benchmark::State& state) {
  const Simulated& d = simulated();
  const qx::SigmaaData data = {reflections,      d.fo.data(), d.f.data(),       d.s2.data(),
                               d.epsilon.data(), nullptr,     d.centric.data(), d.used.data()};
  std::vector<double> scratch(qx::sigmaa_scratch_size(reflections));
  for (auto _ : state) {
    benchmark::DoNotOptimize(qx::fit_sigmaa(data, qx::continuous_likelihood, 0, scratch.data()));
  }
}
BENCHMARK(sigmaa)->Unit(benchmark::kMillisecond);

// ---- on files

struct Files {
  qx::FcalcOptions options;
  std::unique_ptr<qx::FcalcJob> job;
  std::unique_ptr<qx::Engine> engine;

  Files() {
    options.model = std::getenv("QUORIX_BENCH_MODEL");
    options.hkl = std::getenv("QUORIX_BENCH_DATA");
    options.hydrogens = 1;
    job.reset(new qx::FcalcJob{options, qx::Coordinates(options.model), {}, {}, {}, {}, {}});
    engine = std::make_unique<qx::Engine>(false);
    qx::prepare(*engine, *job);
    qx::set_up(*engine, *job);
    engine->run(qx::SectionText("xfcc").line("calc"));
    engine->run(qx::SectionText("xbulk").line("mask"));
    engine->run(qx::SectionText("xoverall").line("scale"));
    engine->run(qx::SectionText("xmlf").line("estimate"));
    engine->run(qx::SectionText("xtarget").line("param type ml").line("calc"));
  }
};

Files& files() {
  static Files open;
  return open;
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void gemmi_mask(const gemmi::Structure& structure) {
  gemmi::SolventMasker masker(gemmi::AtomicRadiiSet::Cctbx);
  gemmi::Grid<float> grid;
  grid.unit_cell = structure.cell;
  grid.spacegroup = gemmi::find_spacegroup_by_name(structure.spacegroup_hm);
  grid.set_size_from_spacing(0.6, true);
  masker.put_mask_on_grid(grid, structure.models.front());
  benchmark::DoNotOptimize(grid.data.data());
}

// The mask and its structure factors; the ratio to gemmi's mask is the median of pairs.
void mask_and_factors(benchmark::State& state) {
  Files& open = files();
  const gemmi::Structure structure = gemmi::read_pdb_file(open.options.model);
  std::vector<double> ratios;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    open.engine->call([] {
      return qx_make_solvent_mask() == 0 ? qx_calc_solvent_structure_factor() : qx::failed;
    });
    const double ours = seconds_since(start);
    state.SetIterationTime(ours);
    start = std::chrono::steady_clock::now();
    gemmi_mask(structure);
    ratios.push_back(ours / seconds_since(start));
  }
  std::nth_element(ratios.begin(), ratios.begin() + static_cast<long>(ratios.size() / 2),
                   ratios.end());
  state.counters["of_gemmi"] = ratios[ratios.size() / 2];
}

void target_and_gradient(benchmark::State& state) {
  Files& open = files();
  for (auto _ : state) {
    open.engine->call([] {
      double value = 0.0;
      if (qx_calc_system_struct_factor() != 0 || qx_calc_target(&value) != 0) return qx::failed;
      return qx_calc_target_gradient();
    });
  }
}

const int registered = [] {
  if (!std::getenv("QUORIX_BENCH_MODEL") || !std::getenv("QUORIX_BENCH_DATA")) return 0;
  benchmark::RegisterBenchmark("mask_and_factors", mask_and_factors)
      ->Unit(benchmark::kMillisecond)
      ->UseManualTime()
      ->Iterations(9);
  benchmark::RegisterBenchmark("target_and_gradient", target_and_gradient)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(1.0);
  return 2;
}();

}  // namespace

BENCHMARK_MAIN();
