// Structure factors, solvent, scale, gradients and maps to the last bit, on any number of threads.
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "scaling/observed.h"
#include "scaling/scale.h"
#include "solvent/solvent.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
#include <quorix/solvent.h>
#include <quorix/structfact.h>
#include <quorix/target.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

namespace qx::test {
namespace {

struct Case {
  const char* group;
  const char* cell;
  const char* memory;  // MB: of a small one the density is made in boxes
};

void PrintTo(const Case& c, std::ostream* stream) { *stream << c.group; }

struct Results {
  std::vector<double> factors, solvent, scaled, gradient;
  std::vector<std::uint8_t> mask;
  std::string map;
  double fit = 0.0, target = 0.0;
  bool operator==(const Results&) const = default;
};

class OnThreads : public Engine, public ::testing::WithParamInterface<Case> {
 protected:
  void TearDown() override {
    qx_set_threads(0);
    Engine::TearDown();
  }

  static void append(std::vector<double>& out, const double* values, std::int32_t n) {
    out.insert(out.end(), values, values + n);
  }

  static void model(const Case& c) {
    set_up_crystal(c.group, c.cell, 2.2, 30000);
    set_up_model(random_atoms(900, true, 7));
    const std::string memory = std::string("xfft\nmemory ") + c.memory + "\nxend\n";
    for (const std::string& text :
         {std::string("xgrid\nfrac 0.33\nxend\n"), memory, std::string("xcut\necut 1e-4\nxend\n"),
          std::string("xfcc\ncalc\nxend\n")}) {
      ASSERT_TRUE(section(text).ok) << text;
    }
  }

  static void factors(Results& results) {
    const std::int32_t n = qx_get_qxrefdata()->nreflections;
    ComplexF f;
    ASSERT_EQ(open_f(n, f), ok);
    ASSERT_EQ(qx_calc_model_structure_factor(f.re.get(), f.im.get()), ok);
    append(results.factors, f.re.get(), n);
    append(results.factors, f.im.get(), n);
    ASSERT_EQ(qx_calc_solvent_structure_factor(), ok);
    const qxsolvent& solvent = *qx_get_qxsolvent();
    append(results.solvent, solvent.re, n);
    append(results.solvent, solvent.im, n);
    results.mask.assign(solvent.mask, solvent.mask + solvent.grid.points());
  }

  // Amplitudes that are the model's but for a scale and a pattern of errors.
  static void observe(const Results& results) {
    qxrefdata& data = *qx_get_qxrefdata();
    const auto n = static_cast<std::size_t>(data.nreflections);
    ASSERT_EQ(open_block(data.fobs, n, "test_f"), ok);
    for (std::size_t i = 0; i < n; ++i) {
      const double f = std::hypot(results.factors[i] + 0.3 * results.solvent[i],
                                  results.factors[n + i] + 0.3 * results.solvent[n + i]);
      data.fobs[i] =
          static_cast<float>(1.7 * f + 5.0 + 4.0 * std::sin(7.0 * static_cast<double>(i)));
    }
  }

  static void refinement(Results& results) {
    ASSERT_TRUE(section("xcross\nparam percent 40 seed -137\nxend\n").ok);
    ASSERT_TRUE(section("xoverall\nparam solvent exp\nscale\nxend\n").ok);
    results.fit = qx_get_qxscale()->fit.model.k;
    ComplexF f;
    const std::int32_t n = qx_get_qxrefdata()->nreflections;
    ASSERT_EQ(open_f(n, f), ok);
    ASSERT_EQ(qx_calc_total_structure_factor(f.re.get(), f.im.get()), ok);
    append(results.scaled, f.re.get(), n);
    append(results.scaled, f.im.get(), n);
    ASSERT_TRUE(section("xmlf\nestimate\nxend\n").ok);
    ASSERT_TRUE(section("xtarget\nparam type ml\nxend\n").ok);
    ASSERT_EQ(qx_calc_target(&results.target), ok);
    ASSERT_EQ(qx_calc_target_gradient(), ok);
    std::int32_t natom = 0;
    const qx_atom_gradient* gradient = qx_get_target_gradient(&natom);
    for (std::int32_t i = 0; i < natom; ++i) {
      append(results.gradient, gradient[i].xyz, 3);
      append(results.gradient, gradient[i].u, 6);
      append(results.gradient, &gradient[i].b, 1);
      append(results.gradient, &gradient[i].occupancy, 1);
    }
  }

  static void map(Results& results) {
    const ScratchDirectory scratch;
    const std::string path = scratch.file("map");
    ASSERT_TRUE(section("xmap\nparam type sigmaa u 2 v 1 scale yes\nextent unit\ngenerate\n"
                        "write ccp4 file \"" +
                        path + "\"\nxend\n")
                    .ok);
    results.map = read_file(path).substr(1024);  // the points
  }

  static Results results(const Case& c, std::int32_t threads) {
    Results results;
    qx_set_threads(threads);
    EXPECT_EQ(qx_create_quorix(), ok);
    std::int32_t seed = -137;  // of the free set: random numbers outlive an engine
    (void)qx_get_random_double01(&seed);
    model(c);
    if (!HasFatalFailure()) factors(results);
    if (!HasFatalFailure()) observe(results);
    if (!HasFatalFailure()) refinement(results);
    if (!HasFatalFailure()) map(results);
    return results;
  }

  static std::ptrdiff_t threads_of_the_process() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
  }
};

TEST_P(OnThreads, resultsAreTheSameToTheLastBit) {
  const Results one = results(GetParam(), 1);
  ASSERT_GT(one.gradient.size(), 0U);
  for (const std::int32_t threads : {2, 3, 8}) {
    const Results several = results(GetParam(), threads);
    EXPECT_EQ(one.factors, several.factors);
    EXPECT_EQ(one.mask, several.mask);
    EXPECT_EQ(one.solvent, several.solvent);
    EXPECT_EQ(one.scaled, several.scaled);
    EXPECT_EQ(one.gradient, several.gradient);
    EXPECT_TRUE(one.map == several.map);
    EXPECT_TRUE(one == several) << threads;
  }
  EXPECT_GE(threads_of_the_process(), 8);
}

INSTANTIATE_TEST_SUITE_P(shapes, OnThreads,
                         ::testing::Values(Case{"P 21 21 21", "41 55 62 90 90 90", "4000"},
                                           Case{"C 1 2 1", "68 43 51 90 104 90", "4000"},
                                           Case{"P 31 2 1", "52 52 66 90 90 120", "20"},
                                           Case{"P 1", "31 37 43 77 98 103", "6"}));

}  // namespace
}  // namespace qx::test
