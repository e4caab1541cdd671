// Overall scale, R and correlation against plain sums and against their definition as a minimum.
#include "stats/scale_fit.h"

#include "core/tagged.h"
#include "crystal/reflections.h"
#include "scaling/cross_record.h"
#include "sf/structfact.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <sstream>

namespace qx::test {
namespace {

// Amplitudes with errors of a third, a scale and a B; some were not measured.
struct Made {
  std::vector<float> fo;
  std::vector<double> fc, s;
  std::vector<std::int32_t> list;

  explicit Made(int n) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < n; ++i) {
      s.push_back(0.5 * unit(random));
      fc.push_back(100.0 * unit(random));
      fo.push_back(static_cast<float>(3.0 * std::exp(-4.0 * s.back() * s.back()) * fc.back() *
                                      (0.7 + 0.6 * unit(random))));
      if (i % 11 == 4) fo.back() = NAN;
      if (i % 3 != 0) list.push_back(i);
    }
  }
  [[nodiscard]] double residual(const OverallScale& scale) const {
    double sum = 0.0;
    for (const std::int32_t i : list) {
      const auto at = static_cast<std::size_t>(i);
      if (std::isnan(fo[at])) continue;
      const double f = scale.k * std::exp(-scale.b * s[at] * s[at] / 4) * fc[at];
      sum += std::pow(static_cast<double>(fo[at]) - f, 2);
    }
    return sum;
  }
};

// R and the correlation of the measured ones, as their definitions read.
Agreement plain_agreement(const std::vector<std::int32_t>& list, const float* fo,
                          const double* fc) {
  std::vector<std::pair<double, double>> pairs;
  for (const std::int32_t i : list) {
    if (!std::isnan(fo[i])) pairs.emplace_back(static_cast<double>(fo[i]), fc[i]);
  }
  Agreement a;
  a.n = static_cast<std::int32_t>(pairs.size());
  double sum_o = 0.0;
  double sum_c = 0.0;
  double difference = 0.0;
  for (const auto& [o, c] : pairs) {
    sum_o += o;
    sum_c += c;
    difference += std::abs(o - c);
  }
  if (sum_o > 0.0) a.r = difference / sum_o;
  double oc = 0.0;
  double oo = 0.0;
  double cc = 0.0;
  for (const auto& [o, c] : pairs) {
    const double x = o - sum_o / a.n;
    const double y = c - sum_c / a.n;
    oc += x * y;
    oo += x * x;
    cc += y * y;
  }
  if (oo > 0.0 && cc > 0.0) a.correlation = oc / std::sqrt(oo * cc);
  return a;
}

void expect_same(const Agreement& found, const Agreement& plain) {
  EXPECT_EQ(found.n, plain.n);
  EXPECT_NEAR(found.r, plain.r, 1e-12);
  EXPECT_NEAR(found.correlation, plain.correlation, 1e-9);
}

TEST(ScaleFit, isTheLeastSquaresMinimum) {
  const Made made(900);
  const OverallScale best = fit_scale(static_cast<std::int32_t>(made.list.size()), made.list.data(),
                                      made.fo.data(), made.fc.data(), made.s.data());
  EXPECT_NEAR(best.k, 3.0, 0.1);
  EXPECT_NEAR(best.b, 16.0, 1.5);
  const double least = made.residual(best);
  for (const double dk : {-1e-3, 0.0, 1e-3}) {
    for (const double db : {-0.02, 0.0, 0.02}) {
      if (dk == 0.0 && db == 0.0) continue;
      EXPECT_GT(made.residual({best.k * (1 + dk), best.b + db}), least) << dk << " " << db;
    }
  }
}

TEST(ScaleFit, agreementIsThePlainSum) {
  const Made made(500);
  const auto n = static_cast<std::int32_t>(made.list.size());
  const Agreement found = agreement(n, made.list.data(), made.fo.data(), made.fc.data());
  expect_same(found, plain_agreement(made.list, made.fo.data(), made.fc.data()));
  EXPECT_GT(found.r, 0.2);  // and not small, whatever the denominator
  EXPECT_EQ(agreement(0, nullptr, nullptr, nullptr).n, 0);
}

class ScaledModel : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    const auto atoms = random_atoms(40, false, 2);
    set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.0, 800);
    set_up_model(atoms);
    ASSERT_TRUE(section("xgrid\nfrac 0.33\nxend\n").ok);
    ASSERT_TRUE(section("xfft\nmemory 400\nxend\n").ok);
    ASSERT_TRUE(section("xfcc\ncalc\nxend\n").ok);
    observe();
  }
  // Amplitudes with errors, some of them missing.
  static void observe() {
    qxrefdata* data = qx_get_qxrefdata();
    const auto f = engine_sum();
    std::mt19937 random(8);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    data->fobs = allocate<float>(f.size(), "test");
    for (std::size_t i = 0; i < f.size(); ++i) {
      data->fobs[i] = static_cast<float>(2.0 * std::abs(f[i]) * (0.6 + 0.8 * unit(random)));
      if (i % 13 == 0) data->fobs[i] = NAN;
    }
  }
  static std::vector<double> scaled_amplitudes() {
    std::vector<double> fc;  // by now on the scale of the observations
    for (const auto& f : engine_sum()) fc.push_back(std::abs(f));
    return fc;
  }
  static std::vector<std::int32_t> members(std::int32_t n, const std::int32_t* list) {
    return {list, list + n};
  }
};

// Bins by |s|, their free and their working reflections, picked anew.
TEST_F(ScaledModel, binsHoldTheirOwnWorkingAndFreeReflections) {
  ASSERT_TRUE(section("xcross\nparam percent 20 seed 3 NBIN 5\nxend\n").ok);
  const SectionResult result = section("xfcc\nscale\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  const qxrefdata& data = *qx_get_qxrefdata();
  const qxcross& cross = *qx_get_qxcross();
  const ScaleResult& found = qx_get_qxstructfact()->scaling;
  const std::vector<double> fc = scaled_amplitudes();
  expect_same(found.work, plain_agreement(members(cross.nwork, cross.work), data.fobs, fc.data()));
  expect_same(found.free, plain_agreement(members(cross.nfree, cross.free), data.fobs, fc.data()));
  std::vector<std::int32_t> order(static_cast<std::size_t>(data.nreflections));
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(),
            [&](auto a, auto b) { return data.s_length[a] < data.s_length[b]; });
  ASSERT_EQ(cross.bins_built, 5);
  std::istringstream table(result.output.substr(result.output.find("CCFree")));
  std::string line;
  std::getline(table, line);
  for (std::size_t bin = 0; bin < 5; ++bin) {
    std::vector<std::int32_t> work;
    std::vector<std::int32_t> free;
    for (std::size_t i = order.size() * bin / 5; i < order.size() * (bin + 1) / 5; ++i) {
      const bool is_free =
          std::find(cross.free, cross.free + cross.nfree, order[i]) != cross.free + cross.nfree;
      (is_free ? free : work).push_back(order[i]);
    }
    const Agreement plain_work = plain_agreement(work, data.fobs, fc.data());
    const Agreement plain_free = plain_agreement(free, data.fobs, fc.data());
    expect_same({cross.bin_nwork[bin], cross.bin_r[bin], cross.bin_cc[bin]}, plain_work);
    expect_same({cross.bin_nfree[bin], cross.bin_rfree[bin], cross.bin_ccfree[bin]}, plain_free);
    int number = 0;
    double columns[7] = {};  // count, high, low, R free, R, CC free, CC
    table >> number;
    for (double& column : columns) table >> column;
    EXPECT_EQ(number, static_cast<int>(bin) + 1);
    EXPECT_NEAR(columns[3], plain_free.r, 6e-4);
    EXPECT_NEAR(columns[4], plain_work.r, 6e-4);
    EXPECT_NEAR(columns[5], plain_free.correlation, 6e-4);
    EXPECT_NEAR(columns[6], plain_work.correlation, 6e-4);
  }
}

TEST_F(ScaledModel, aBinWithoutFreeReflectionsShowsADash) {
  qxrefdata& data = *qx_get_qxrefdata();
  std::vector<std::int16_t> flags;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    flags.push_back(data.s_length[i] < 0.3 && i % 7 == 0 ? 0 : 1);
  }
  ASSERT_EQ(qx_set_refdata_test(data.nreflections, flags.data()), ok);
  ASSERT_TRUE(section("xcross\ninput free_flag 0\nxend\n").ok);
  const SectionResult result = section("xfcc\nscale\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  const std::string last = result.output.substr(result.output.rfind("   10  "));
  EXPECT_EQ(std::count(last.begin(), last.end(), '-'), 2) << last;
  EXPECT_EQ(last.find("0.000"), std::string::npos) << last;
}

}  // namespace
}  // namespace qx::test
