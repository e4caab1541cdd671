// Transforms against FFTW (plans over split arrays, FFTW_MEASURE) and pocketfft. Every case is
// first checked against its peer; then both run alternately in batches, so that a change of clock
// or load meets both, and the median of the ratios is reported beside the rates (5 n log2 n flops).
//
//   fft_bench                     everything
//   fft_bench --benchmark_filter='rows/.*'
//
// QUORIX_FFT=base|avx2|avx512 forces the instruction set of our side.
#include "fft/fft.h"
#include "fft/simd.h"
#include "fft/transform_half.h"

#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/memory.h>

#include <benchmark/benchmark.h>

#ifdef QUORIX_WITH_FFTW
#include <fftw3.h>
#endif
#ifdef QUORIX_WITH_POCKETFFT
#define POCKETFFT_NO_MULTITHREADING
#include <gemmi/third_party/pocketfft_hdronly.h>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A block of the engine's own memory, so that both sides work on the same pages.
class Block {
 public:
  explicit Block(std::size_t count)
      : count_(count), data_(static_cast<double*>(xmalloc(count * sizeof(double), "bench"))) {
    std::mt19937_64 random(count);
    std::uniform_real_distribution<double> uniform(-1, 1);
    std::generate_n(data_, count_, [&] { return uniform(random); });
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { (void)xfree(data_); }
  [[nodiscard]] double* data() const { return data_; }
  [[nodiscard]] std::size_t size() const { return count_; }
  void copy(const Block& other) { std::copy_n(other.data_, count_, data_); }

 private:
  std::size_t count_;
  double* data_;
};

// Row pointers over a block.
struct Rows {
  Rows(const Block& block, std::size_t planes, std::size_t rows, std::size_t length)
      : row(planes * rows), plane(planes) {
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = block.data() + i * length;
    for (std::size_t i = 0; i < planes; ++i) plane[i] = row.data() + i * rows;
  }
  std::vector<double*> row;
  std::vector<double**> plane;
};

double seconds(const std::function<void()>& work, int repeats) {
  const auto start = Clock::now();
  for (int i = 0; i < repeats; ++i) work();
  return std::chrono::duration<double>(Clock::now() - start).count() / repeats;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Side {
  std::function<void()> run;
  std::function<void()> reset;  // before every batch, not timed
};

// Batches of at least `batch` seconds, ours and the peer's by turns.
void compare(benchmark::State& state, double flops, const Side& ours, const Side* peer,
             double batch = 1e-3) {
  int repeats = 1;
  ours.reset();
  ours.run();
  while (repeats < (1 << 20) && seconds(ours.run, repeats) * repeats < batch) {
    repeats *= 2;
    ours.reset();
  }
  std::vector<double> times;
  std::vector<double> ratios;
  for (auto unused : state) {
    (void)unused;
    ours.reset();
    times.push_back(seconds(ours.run, repeats));
    state.SetIterationTime(times.back() * repeats);
    if (!peer) continue;
    peer->reset();
    ratios.push_back(times.back() / seconds(peer->run, repeats));
  }
  state.counters["GF/s"] = flops / median(times) * 1e-9;
  state.counters["us"] = median(times) * 1e6;
  if (peer) state.counters["ratio"] = median(ratios);
}

double relative_difference(const Block& a, const Block& b) {
  double error = 0;
  double norm = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    error += std::pow(a.data()[i] - b.data()[i], 2);
    norm += std::pow(a.data()[i], 2);
  }
  return std::sqrt(error / norm);
}

bool agree(benchmark::State& state, const Block& a, const Block& b) {
  const double difference = relative_difference(a, b);
  if (difference < 1e-13) return true;
  state.SkipWithError(("disagrees by " + std::to_string(difference)).c_str());
  return false;
}

#ifdef QUORIX_WITH_FFTW
// Exchanged parts turn FFTW's exp(-i) into our exp(+i).
class FftwPlan {
 public:
  FftwPlan(const std::vector<int>& n, const Block& re, const Block& im, const Block& out_re,
           const Block& out_im) {
    std::vector<fftw_iodim> dims(n.size());
    int stride = 1;
    for (std::size_t i = n.size(); i-- > 0; stride *= n[i]) dims[i] = {n[i], stride, stride};
    Block keep_re(re.size());
    Block keep_im(im.size());
    keep_re.copy(re);
    keep_im.copy(im);
    plan_ = fftw_plan_guru_split_dft(static_cast<int>(n.size()), dims.data(), 0, nullptr, im.data(),
                                     re.data(), out_im.data(), out_re.data(), FFTW_MEASURE);
    std::copy_n(keep_re.data(), re.size(), re.data());
    std::copy_n(keep_im.data(), im.size(), im.data());
  }
  FftwPlan(const FftwPlan&) = delete;
  FftwPlan& operator=(const FftwPlan&) = delete;
  ~FftwPlan() { fftw_destroy_plan(plan_); }
  void run() const { fftw_execute(plan_); }

 private:
  fftw_plan plan_;
};
#endif

void rows(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  const int length = static_cast<int>(n);
  Block re(n);
  Block im(n);
  Block a(n);
  Block b(n);
  const Side ours = {
      [&] { (void)qx_forward_cfft(length, re.data(), im.data(), a.data(), b.data()); }, [] {}};
  const double flops = 5.0 * length * std::log2(length);
#ifdef QUORIX_WITH_FFTW
  Block c(n);
  Block d(n);
  const FftwPlan plan({length}, re, im, c, d);
  plan.run();
  ours.run();
  if (!agree(state, c, a) || !agree(state, d, b)) return;
  const Side peer = {[&] { plan.run(); }, [] {}};
  compare(state, flops, ours, &peer);
#else
  compare(state, flops, ours, nullptr);
#endif
}

// All columns of a plane, as the second axis of a 2-D transform; out of place on both sides.
void columns(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  const auto width = static_cast<std::size_t>(state.range(1));
  Block re(n * width);
  Block im(n * width);
  Block a(n * width);
  Block b(n * width);
  const Rows rows_re(re, 1, n, width);
  const Rows rows_im(im, 1, n, width);
  const Rows rows_a(a, 1, n, width);
  const Rows rows_b(b, 1, n, width);
  const qxfftplan* plan = get_qxfftcache(static_cast<int>(n));
  const auto w = static_cast<std::ptrdiff_t>(width);
  qx::FftScratchBlock scratch;
  if (scratch.open({static_cast<int>(n)}) != qx::ok) return state.SkipWithError("no scratch");
  const Side ours = {[&] {
                       qx::fft_kernels().columns(
                           plan->column.program, {rows_re.row.data(), rows_im.row.data()},
                           {rows_a.row.data(), rows_b.row.data()}, 0, w, scratch.get());
                     },
                     [] {}};
  const double flops = 5.0 * static_cast<double>(n * width) * std::log2(static_cast<double>(n));
#ifdef QUORIX_WITH_POCKETFFT
  using Number = std::complex<double>;
  std::vector<Number> x(n * width);
  std::vector<Number> y(n * width);
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = {re.data()[i], im.data()[i]};
  const pocketfft::shape_t shape = {n, width};
  const pocketfft::stride_t stride = {static_cast<std::ptrdiff_t>(16 * width), 16};
  const Side peer = {
      [&] { pocketfft::c2c(shape, stride, stride, {0}, false, x.data(), y.data(), 1.0); }, [] {}};
  peer.run();
  ours.run();
  Block c(n * width);
  Block d(n * width);
  for (std::size_t i = 0; i < y.size(); ++i) {
    c.data()[i] = y[i].real();
    d.data()[i] = y[i].imag();
  }
  if (!agree(state, c, a) || !agree(state, d, b)) return;
  compare(state, flops, ours, &peer);
#else
  compare(state, flops, ours, nullptr);
#endif
}

// In place, as large transforms are; the data are restored before every batch.
void cubes(benchmark::State& state) {
  const int n[3] = {static_cast<int>(state.range(0)), static_cast<int>(state.range(1)),
                    static_cast<int>(state.range(2))};
  const auto n0 = static_cast<std::size_t>(n[0]);
  const auto n1 = static_cast<std::size_t>(n[1]);
  const auto n2 = static_cast<std::size_t>(n[2]);
  const std::size_t points = n0 * n1 * n2;
  Block re(points);
  Block im(points);
  Block a(points);
  Block b(points);
  const Rows ra(a, n0, n1, n2);
  const Rows rb(b, n0, n1, n2);
  auto* const* pa = ra.plane.data();
  auto* const* pb = rb.plane.data();
  const auto restore = [&] {
    a.copy(re);
    b.copy(im);
  };
  const Side ours = {[&] {
                       auto** x = const_cast<double***>(pa);
                       auto** y = const_cast<double***>(pb);
                       (void)qx_forward_cfft_3D(n[0], n[1], n[2], x, y, x, y);
                     },
                     restore};
  const double size = static_cast<double>(points);
  const double flops = 5.0 * size * std::log2(size);
#ifdef QUORIX_WITH_FFTW
  const FftwPlan plan({n[0], n[1], n[2]}, a, b, a, b);
  {
    Block c(points);
    Block d(points);
    restore();
    plan.run();
    c.copy(a);
    d.copy(b);
    restore();
    ours.run();
    if (!agree(state, c, a) || !agree(state, d, b)) return;
  }
  const Side peer = {[&] { plan.run(); }, restore};
  compare(state, flops, ours, &peer, 0);
#else
  compare(state, flops, ours, nullptr, 0);
#endif
}

// The map road: all h, k, l within the ellipsoid that a sampling of a third of the resolution
// leaves. The peer is FFTW's complex-to-real plan for the whole half spectrum, in place in a padded
// array.
void half(benchmark::State& state) {
  const int nx = static_cast<int>(state.range(0));
  const int ny = static_cast<int>(state.range(1));
  const int nz = static_cast<int>(state.range(2));
  const auto limit = [](int n) { return static_cast<int>(n / 3.03); };
  std::vector<std::int32_t> columns(static_cast<std::size_t>(ny));
  for (int k = -limit(ny); k <= limit(ny); ++k) {
    const double rest = 1 - std::pow(k * 3.03 / ny, 2);
    columns[static_cast<std::size_t>(k < 0 ? k + ny : k)] =
        1 + static_cast<int>(nx / 3.03 * std::sqrt(rest));
  }
  const qx::HalfSpectrum spectrum = {{nx, ny, nz, limit(nx)}, limit(ny), limit(nz), columns.data()};
  const std::size_t points =
      static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny) * static_cast<std::size_t>(nz);
  Block source(points);
  Block block(points);
  qx::DensityMoments moments;
  const Side ours = {[&] { (void)qx::inverse_half_3d(spectrum, block.data(), &moments); },
                     [&] { block.copy(source); }};
  const double size = static_cast<double>(points);
  const double flops = 2.5 * size * std::log2(size);
#ifdef QUORIX_WITH_FFTW
  const std::size_t padded =
      static_cast<std::size_t>(nx / 2 + 1) * 2 * points / static_cast<std::size_t>(nx);
  Block complex_block(padded);
  Block complex_source(padded);
  fftw_plan plan =
      fftw_plan_dft_c2r_3d(nz, ny, nx, reinterpret_cast<fftw_complex*>(complex_block.data()),
                           complex_block.data(), FFTW_MEASURE);
  const Side peer = {[&] { fftw_execute(plan); }, [&] { complex_block.copy(complex_source); }};
  compare(state, flops, ours, &peer, 0);
  fftw_destroy_plan(plan);
#else
  compare(state, flops, ours, nullptr, 0);
#endif
}

void add_cases() {
  for (const int n : {60,  64,  72,  75,  80,  90,  96,  100, 108, 120, 125, 128, 135, 144,
                      150, 160, 180, 192, 200, 216, 225, 240, 243, 250, 256, 270, 288, 300,
                      320, 360, 375, 384, 400, 432, 450, 480, 500, 512, 600, 625, 720, 1024}) {
    benchmark::RegisterBenchmark("rows", rows)->Arg(n)->Iterations(41)->UseManualTime();
  }
  for (const int n : {64,  72,  80,  96,  100, 120, 128, 135, 144, 160, 180, 192,
                      200, 225, 240, 256, 288, 300, 320, 360, 384, 400, 450, 512}) {
    benchmark::RegisterBenchmark("columns", columns)->Args({n, n})->Iterations(15)->UseManualTime();
  }
  for (const int n : {96, 128, 160, 192, 256, 320}) {
    benchmark::RegisterBenchmark("cubes", cubes)
        ->Args({n, n, n})
        ->Iterations(n < 200 ? 9 : 5)
        ->UseManualTime();
  }
  for (const auto& n :
       {std::vector<std::int64_t>{60, 72, 80}, {160, 160, 180}, {256, 256, 256}, {300, 384, 450}}) {
    benchmark::RegisterBenchmark("half", half)->Args(n)->Iterations(7)->UseManualTime();
  }
}

void force_kernels(const char* name) {
  const qx::FftKernels* tables[3];
  const int count = qx::list_fft_kernels(tables);
  for (int i = 0; i < count; ++i) {
    if (std::strcmp(tables[i]->name, name) == 0) qx::force_fft_kernels(tables[i]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (qx_new_quorix() != qx::ok) return 1;
  if (const char* name = std::getenv("QUORIX_FFT")) force_kernels(name);
  std::printf("kernels: %s\n", qx::fft_kernels().name);
  add_cases();
  benchmark::RunSpecifiedBenchmarks();
  qx_terminate_quorix();
  return 0;
}
