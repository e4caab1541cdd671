// Structure factors of a model to 2 A: radii, density, transform, sum over operators. Against
// gemmi: density on the grid (cut-off 1e-3 e/A^3, which gives it about our error at 1e-4),
// symmetry, transform, values to 2 A. Both run alternately; the median of the ratios stands beside
// our rates.
#include "random_structure.h"

#include <quorix/structfact.h>

#include <benchmark/benchmark.h>

#if __has_include(<gemmi/dencalc.hpp>)
#include <gemmi/dencalc.hpp>
#include <gemmi/fourier.hpp>
#include <gemmi/it92.hpp>
#include <gemmi/reciproc.hpp>
#define WITH_GEMMI 1
#endif

#include <chrono>
#include <complex>

namespace {

using qx::bench::check;
using qx::bench::Structure;
using Values = std::vector<std::complex<double>>;

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

#ifdef WITH_GEMMI
gemmi::Structure peer_structure(const Structure& s, const char* group) {
  gemmi::Structure out;
  out.cell.set(s.cell[0], s.cell[1], s.cell[2], s.cell[3], s.cell[4], s.cell[5]);
  out.spacegroup_hm = group;
  out.setup_cell_images();
  gemmi::Model model("1");
  model.chains.emplace_back("A");
  model.chains[0].residues.emplace_back();
  for (const qx::bench::Atom& atom : s.atoms) {
    gemmi::Atom copy;
    copy.pos = gemmi::Position(atom.x[0], atom.x[1], atom.x[2]);
    copy.element = gemmi::Element(atom.atomic_number);
    copy.b_iso = static_cast<float>(atom.b);
    copy.occ = 1.0F;
    model.chains[0].residues[0].atoms.push_back(copy);
  }
  out.models.push_back(model);
  return out;
}

Values peer_run(const gemmi::Structure& structure, double rate, float cutoff, double blur,
                std::vector<gemmi::Miller>& hkl) {
  gemmi::DensityCalculator<gemmi::IT92<double>, float> calculator;
  calculator.d_min = 2.0;
  calculator.rate = rate;
  calculator.cutoff = cutoff;
  calculator.blur = blur;
  calculator.set_grid_cell_and_spacegroup(structure);
  calculator.put_model_density_on_grid(structure.models[0]);
  auto sf = gemmi::transform_map_to_f_phi(calculator.grid, /*half_l=*/true);
  const auto data = sf.prepare_asu_data(2.0, blur);
  Values values;
  hkl.clear();
  for (const auto& row : data.v) {
    hkl.push_back(row.hkl);
    values.emplace_back(row.value);
  }
  return values;
}
#endif

Values our_run() {
  const qx::bench::Silence quiet;
  check(qx_calc_system_struct_factor() == qx::ok, "no structure factors");
  const qx_reflection_view view = [] {
    qx_reflection_view v;
    check(qx_get_reflection_view(&v) == 1, "no reflections");
    return v;
  }();
  const auto n = static_cast<std::size_t>(view.n);
  std::vector<double> re(n);
  std::vector<double> im(n);
  check(qx_calc_model_structure_factor(re.data(), im.data()) == qx::ok, "no structure factors");
  Values values;
  for (std::size_t i = 0; i < n; ++i) values.emplace_back(re[i], im[i]);
  return values;
}

#ifdef WITH_GEMMI
double vector_r(const Values& reference, const Values& other) {
  double difference = 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    difference += std::abs(reference[i] - other[i]);
    sum += std::abs(reference[i]);
  }
  return difference / sum;
}

void structure_factors(benchmark::State& state, qx::bench::Axes axes, const char* group) {
  const auto natoms = static_cast<int>(state.range(0));
  Structure structure = qx::bench::random_structure(natoms, axes, 1);
  const gemmi::Structure peer = peer_structure(structure, group);
  std::vector<gemmi::Miller> hkl;
  const Values reference = peer_run(peer, 3.0, 1e-8F, 40.0, hkl);
  {
    const qx::bench::Silence quiet;
    qx::bench::set_up_engine(structure, 2.0, "1e-4", false, group);
    check(qx_set_refdata_indices(static_cast<std::int32_t>(hkl.size()), hkl[0].data()) == qx::ok,
          "no reflections");
  }
  state.counters["R"] = vector_r(reference, our_run());
  state.counters["gemmi_R"] = vector_r(reference, peer_run(peer, 1.5, 1e-3F, 20.0, hkl));
  check(state.counters["R"] < 2e-3, "the structure factors differ");
  std::vector<double> mine;
  std::vector<double> ratio;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(our_run());
    mine.push_back(seconds_since(start));
    state.SetIterationTime(mine.back());
    start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(peer_run(peer, 1.5, 1e-3F, 20.0, hkl));
    ratio.push_back(seconds_since(start) / mine.back());
  }
  state.counters["atoms/s"] = natoms / qx::bench::median(mine);
  state.counters["reflections/s"] = static_cast<double>(hkl.size()) / qx::bench::median(mine);
  state.counters["ratio"] = qx::bench::median(ratio);
  qx_terminate_quorix();
}

BENCHMARK_CAPTURE(structure_factors, orthorhombic, qx::bench::Axes::orthorhombic, "P 21 21 21")
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(structure_factors, hexagonal, qx::bench::Axes::hexagonal, "P 31 2 1")
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
