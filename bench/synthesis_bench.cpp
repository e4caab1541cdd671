// From coefficients to a file: the synthesis of a whole cell and the writing of its map, in grid
// points per second. The crystal is made by sections; the coefficients are random.
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "driver/section_job.h"
#include "grid/grid.h"
#include "map/map.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/reflections.h>

#include <benchmark/benchmark.h>
#include <cstdio>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace {

struct Crystal {
  const char* name;
  const char* group;
  const char* cell;
  double a, b, c, d;
};

constexpr Crystal crystals[] = {
    {"P212121 50x60x70 2.0A", "P 21 21 21", "50 60 70 90 90 90", 50, 60, 70, 2.0},
    {"P43212 100x100x110 1.8A", "P 43 21 2", "100 100 110 90 90 90", 100, 100, 110, 1.8},
    {"C2 130x150x170 2.0A", "C 1 2 1", "130 150 170 90 95 90", 130, 150, 170, 2.0},
};

bool run(std::vector<std::string> lines) {
  std::vector<const char*> pointers;
  for (const std::string& line : lines) pointers.push_back(line.c_str());
  return qx::run_section_lines(static_cast<int>(pointers.size()), pointers.data()) == qx::ok;
}

// Every index of one octant or quarter to d, whatever the group: rows of one orbit count once.
std::vector<std::int32_t> indices(const Crystal& crystal) {
  std::vector<std::int32_t> flat;
  for (int h = 0; h * crystal.d <= crystal.a; ++h) {
    for (int k = 0; k * crystal.d <= crystal.b; ++k) {
      for (int l = 0; l * crystal.d <= crystal.c; ++l) {
        const double s2 = h * h / (crystal.a * crystal.a) + k * k / (crystal.b * crystal.b) +
                          l * l / (crystal.c * crystal.c);
        if (s2 > 0 && s2 * crystal.d * crystal.d <= 1) flat.insert(flat.end(), {h, k, l});
      }
    }
  }
  return flat;
}

bool set_up(const Crystal& crystal) {
  if (qx_create_quorix() != qx::ok) return false;
  if (!run({"xcry", std::string("spgname ") + crystal.group, std::string("cell ") + crystal.cell,
            "reso " + std::to_string(crystal.d), "xend"})) {
    return false;
  }
  const auto hkl = indices(crystal);
  const auto n = static_cast<std::int32_t>(hkl.size() / 3);
  if (qx_set_refdata_indices(n, hkl.data()) != qx::ok) return false;
  qxrefdata* data = qx_get_qxrefdata();
  if (qx::open_block(data->map_coeff_amplitude, static_cast<std::size_t>(n), "bench") != qx::ok ||
      qx::open_block(data->map_coeff_phase, static_cast<std::size_t>(n), "bench") != qx::ok) {
    return false;
  }
  std::mt19937 random(1);
  for (std::int32_t i = 0; i < n; ++i) {
    data->map_coeff_amplitude[i] = static_cast<float>(random() % 1000);
    data->map_coeff_phase[i] = static_cast<float>(random() % 360);
  }
  return run({"xgrid", "frac 0.33", "xend"}) && run({"xfft", "xend"}) &&
         run({"xmap", "mapdef generated with amplitude input phase input",
              "param type unweighted scale yes", "extent unit", "generate",
              "write ccp4 file \"/dev/null\"", "xend"});
}

double points() {
  const qxgrid* grid = qx_get_qxgrid();
  return static_cast<double>(grid->nx) * grid->ny * grid->nz;
}

void synthesis(benchmark::State& state, const Crystal& crystal) {
  if (!set_up(crystal)) return state.SkipWithError("the crystal could not be set up");
  for (auto _ : state) {
    if (qx_generate_map() != qx::ok) return state.SkipWithError("no map");
  }
  state.counters["points/s"] =
      benchmark::Counter(points(), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["reflections/s"] = benchmark::Counter(
      qx_get_qxrefdata()->nreflections, benchmark::Counter::kIsIterationInvariantRate);
}

void ccp4_write(benchmark::State& state, const Crystal& crystal) {
  if (!set_up(crystal)) return state.SkipWithError("the crystal could not be set up");
  for (auto _ : state) {
    if (qx_wr_ccp4_map() != qx::ok) return state.SkipWithError("not written");
  }
  state.counters["bytes/s"] =
      benchmark::Counter(4 * points(), benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

int main(int argc, char** argv) {
  // The engine's own reports would stand between the figures.
  if (!std::freopen("/dev/null", "w", stdout)) return 1;
  benchmark::Initialize(&argc, argv);
  for (const Crystal& crystal : crystals) {
    benchmark::RegisterBenchmark((std::string("synthesis ") + crystal.name).c_str(), synthesis,
                                 crystal);
    benchmark::RegisterBenchmark((std::string("ccp4_write ") + crystal.name).c_str(), ccp4_write,
                                 crystal);
  }
  benchmark::ConsoleReporter console(benchmark::ConsoleReporter::OO_Tabular);
  console.SetOutputStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&console);
  qx_terminate_quorix();
}
