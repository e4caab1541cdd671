// Reading and writing MTZ files against gemmi, which is first checked to find the same values. Both
// sides run alternately, every time in a process of its own: programs read a file once, into memory
// that nobody used before. The median of the ratios stands beside our rate.
#include "crystal/reflections.h"
#include "reflio/mtz.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

#include <benchmark/benchmark.h>

#if __has_include(<gemmi/mtz.hpp>)
#define GEMMI_WRITE_IMPLEMENTATION
#define USE_STD_SNPRINTF 1
#include <gemmi/mtz.hpp>
#define WITH_GEMMI 1
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

double seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string scratch(const char* name) {
  const char* folder = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
  return std::string(folder) + "/quorix-bench-" + name;
}

void check(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "mtz_bench: %s\n", what);
  std::exit(1);
}

// A file of indices and `ncolumns` - 3 value columns.
std::string make_file(int nrows, int ncolumns) {
  check(qx_create_quorix() == qx::ok, "no engine");
  auto* mtz = qx::new_object<qxmtz>("bench");
  mtz->nreflections = nrows;
  qx::copy_text(mtz->spacegroup_name, "P 1");
  mtz->spacegroup_number = mtz->nprimitive = 1;
  qx::copy_text(qx::append(mtz->symops, "bench")->text, "x,y,z");
  for (int c = 0; c < ncolumns; ++c) {
    qx::MtzColumn* column = qx::append(mtz->columns, "bench");
    const char name[2] = {c < 3 ? "HKL"[c] : static_cast<char>('a' + c), '\0'};
    qx::copy_text(column->label, name);
    column->type = c < 3 ? 'H' : 'R';
  }
  check(qx::open_values(*mtz) == qx::ok, "no memory");
  for (qx::MtzColumn& column : mtz->columns) {
    for (int i = 0; i < nrows; ++i) column.values[i] = static_cast<float>(i % 1009);
  }
  std::string path = scratch("in.mtz");
  check(qx_write_refdata_mtz_file(path.c_str(), mtz) == 0, "the file could not be written");
  qx_terminate_quorix();
  return path;
}

struct Times {
  double read, write;
};

Times ours(const std::string& path) {
  check(qx_create_quorix() == qx::ok, "no engine");
  qxrefdata* refdata = qx_new_qxrefdata_obj();
  Times times = {};
  times.read = seconds(
      [&] { check(qx_read_refdata_mtz_file_obj(refdata, path.c_str()) == qx::ok, "not read"); });
  times.write = seconds([&] {
    check(qx_write_refdata_mtz_file(scratch("ours.mtz").c_str(), refdata->mtz) == 0, "not written");
  });
  qx_terminate_quorix();
  return times;
}

#ifdef WITH_GEMMI
Times theirs(const std::string& path) {
  gemmi::Mtz mtz;
  Times times = {};
  times.read = seconds([&] { mtz.read_file(path); });
  mtz.spacegroup = gemmi::find_spacegroup_by_name("P 1");
  times.write = seconds([&] { mtz.write_to_file(scratch("theirs.mtz")); });
  return times;
}

void check_agreement(const std::string& path) {
  check(qx_create_quorix() == qx::ok, "no engine");
  qxrefdata* refdata = qx_new_qxrefdata_obj();
  check(qx_read_refdata_mtz_file_obj(refdata, path.c_str()) == qx::ok, "not read");
  gemmi::Mtz other;
  other.read_file(path);
  for (std::size_t c = 0; c < other.columns.size(); ++c) {
    const float* values = refdata->mtz->columns.items[c].values;
    check(std::equal(other.columns[c].begin(), other.columns[c].end(), values), "values differ");
  }
  qx_terminate_quorix();
}
#endif

// The times that `measure` finds in a child process.
Times in_fresh_process(Times (*measure)(const std::string&), const std::string& path) {
  int ends[2];
  check(pipe(ends) == 0, "no pipe");
  const pid_t child = fork();
  if (child == 0) {
    const Times times = measure(path);
    _exit(write(ends[1], &times, sizeof times) == sizeof times ? 0 : 1);
  }
  Times times = {};
  check(child > 0 && read(ends[0], &times, sizeof times) == sizeof times, "a process failed");
  (void)waitpid(child, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  return times;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

void mtz(benchmark::State& state) {
  const int nrows = static_cast<int>(state.range(0));
  const int ncolumns = static_cast<int>(state.range(1));
  const std::string path = make_file(nrows, ncolumns);
  std::vector<double> read;
  std::vector<double> write;
  std::vector<double> read_ratio;
  std::vector<double> write_ratio;
#ifdef WITH_GEMMI
  check_agreement(path);
#endif
  for (auto _ : state) {
    const Times mine = in_fresh_process(ours, path);
    read.push_back(mine.read);
    write.push_back(mine.write);
    state.SetIterationTime(mine.read);
#ifdef WITH_GEMMI
    const Times other = in_fresh_process(theirs, path);
    read_ratio.push_back(mine.read / other.read);
    write_ratio.push_back(mine.write / other.write);
#endif
  }
  const double megabytes = 4e-6 * nrows * ncolumns;
  state.counters["read_MB/s"] = megabytes / median(read);
  state.counters["write_MB/s"] = megabytes / median(write);
  if (!read_ratio.empty()) {
    state.counters["read/gemmi"] = median(read_ratio);
    state.counters["write/gemmi"] = median(write_ratio);
  }
  for (const char* name : {"in.mtz", "ours.mtz", "theirs.mtz"}) {
    std::filesystem::remove(scratch(name));
  }
}

BENCHMARK(mtz)
    ->ArgNames({"reflections", "columns"})
    ->Args({30000, 10})
    ->Args({200000, 12})
    ->Args({1000000, 24})
    ->UseManualTime()
    ->Iterations(25)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
