// Spreading atoms on the grid at d = 2 A (spacing 0.33 d, relative cut-off 5e-3, B0 20) against
// gemmi's density code with the same radii and blurring. The two maps are compared first; then both
// sides run alternately on a cleared map, and the median of the ratios stands beside our rates.
// five: both sides with four Gaussians and a constant; two: ours with the two-Gaussian file.
//
//   density_bench --benchmark_filter='orthorhombic.*'
#include "core/parallel.h"
#include "grid/grid.h"
#include "model/density.h"
#include "random_structure.h"

#include <benchmark/benchmark.h>

#if __has_include(<gemmi/dencalc.hpp>)
#include <gemmi/dencalc.hpp>
#include <gemmi/it92.hpp>
#define WITH_GEMMI 1
#endif

#include <chrono>
#include <ctime>

namespace {

using qx::bench::check;
using qx::bench::Structure;

// Of the processor: other work on the machine is no part of it. With QUORIX_THREADS above 1 the
// wall's, for a machine without other work; the other side stays on one thread.
double seconds() {
  if (qx::thread_count() == 1) return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

#ifdef WITH_GEMMI
class Peer {
 public:
  using Table = gemmi::IT92<float>;

  explicit Peer(const Structure& s) : structure_(s) {
    const qxgrid& n = *qx_get_qxgrid();
    grid_.set_unit_cell(s.cell[0], s.cell[1], s.cell[2], s.cell[3], s.cell[4], s.cell[5]);
    grid_.spacegroup = gemmi::find_spacegroup_by_name("P 1");
    grid_.set_size(n.nx, n.ny, n.nz);
  }
  // Points within the radii.
  std::size_t run() {
    grid_.fill(0.0F);
    std::size_t points = 0;
    for (std::size_t i = 0; i < structure_.atoms.size(); ++i) {
      const qx::bench::Atom& atom = structure_.atoms[i];
      const auto& coef = Table::get(gemmi::Element(atom.atomic_number).elem);
      const auto terms = coef.precalculate_density_iso(static_cast<float>(atom.b + 20.0), 0.0F);
      grid_.use_points_around<true>(
          gemmi::Fractional(atom.f[0], atom.f[1], atom.f[2]), qx_get_qxradcut()->radius[i],
          [&](float& point, double r2) {
            point += terms.calculate(static_cast<float>(r2));
            ++points;
          },
          false);
    }
    return points;
  }
  // Largest difference from our map over its highest value.
  [[nodiscard]] double difference(const double* map) const {
    double largest = 0.0;
    double peak = 0.0;
    for (std::size_t i = 0; i < grid_.data.size(); ++i) {
      largest = std::max(largest, std::fabs(map[i] - static_cast<double>(grid_.data[i])));
      peak = std::max(peak, map[i]);
    }
    return largest / peak;
  }

 private:
  const Structure& structure_;
  gemmi::Grid<float> grid_;
};
#endif

void spread(benchmark::State& state, qx::bench::Axes axes, bool five) {
  const auto natoms = static_cast<int>(state.range(0));
  const Structure structure = qx::bench::random_structure(natoms, axes, 1);
  double*** box = nullptr;
  {
    const qx::bench::Silence quiet;
    qx::bench::set_up_engine(structure, 2.0, "5e-3", five);
    box = qx_open_qxelecden_box();
    check(box && qx_calc_elec_den_map(0, box) == qx::ok, "no map");
  }
  std::vector<double> mine;
  std::vector<double> ratio;
#ifdef WITH_GEMMI
  Peer peer(structure);
  const std::size_t points = peer.run();
  // a point at the very radius may be on one side only; two Gaussians differ in form
  check(peer.difference(box[0][0]) < (five ? 2e-3 : 2e-2), "the maps differ");
#endif
  for (auto _ : state) {
    double start = seconds();
    check(qx_calc_elec_den_map(0, box) == qx::ok, "no map");
    mine.push_back(seconds() - start);
    state.SetIterationTime(mine.back());
#ifdef WITH_GEMMI
    start = seconds();
    benchmark::DoNotOptimize(peer.run());
    ratio.push_back((seconds() - start) / mine.back());
#endif
  }
  state.counters["atoms/s"] = natoms / qx::bench::median(mine);
#ifdef WITH_GEMMI
  state.counters["ns/point"] = 1e9 * qx::bench::median(mine) / static_cast<double>(points);
  state.counters["gemmi_atoms/s"] = natoms / qx::bench::median(mine) / qx::bench::median(ratio);
  state.counters["ratio"] = qx::bench::median(ratio);
#endif
  qx_terminate_quorix();
}

using qx::bench::Axes;
BENCHMARK_CAPTURE(spread, orthorhombic_two, Axes::orthorhombic, false)
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spread, orthorhombic_five, Axes::orthorhombic, true)
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spread, hexagonal_two, Axes::hexagonal, false)
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spread, hexagonal_five, Axes::hexagonal, true)
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spread, monoclinic_two, Axes::monoclinic, false)
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(spread, monoclinic_five, Axes::monoclinic, true)
    ->Arg(2000)
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
