// sigmaA and the intensity statistics on random structure factors of known distribution.
#include "stats/sigmaa.h"

#include "stats/intensities.h"
#include "stats/wilson.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace qx::test {
namespace {

// Normal structure factors whose true part correlates with the model's by sigmaA(s^2).
struct Simulation {
  std::vector<double> fo, f, s2, epsilon;
  std::vector<std::int16_t> centric;
  std::vector<std::uint8_t> used;
  SigmaaData data;

  explicit Simulation(int n) {
    std::mt19937 random(17);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> uniform;
    for (int i = 0; i < n; ++i) {
      const double at = 0.001 + 0.25 * uniform(random);
      const bool is_centric = i % 6 == 0;
      const double e = i % 10 == 0 ? 2.0 : 1.0;
      const double sigma = std::sqrt(e * 5e4 * std::exp(-12.0 * at) / (is_centric ? 1.0 : 2.0));
      const double model = 0.8 * sigma;  // the model is on a scale of its own
      const double a = normal(random), b = is_centric ? 0.0 : normal(random);
      const double rest = std::sqrt(1.0 - truth(at) * truth(at));
      const double re = truth(at) * a + rest * normal(random);
      const double im = is_centric ? 0.0 : truth(at) * b + rest * normal(random);
      fo.push_back(sigma * std::hypot(re, im));
      f.push_back(model * std::hypot(a, b));
      s2.push_back(at);
      epsilon.push_back(e);
      centric.push_back(is_centric ? 1 : 0);
      used.push_back(i % 3 == 0 ? 1 : 0);
    }
    data = {n,       fo.data(),      f.data(),   s2.data(), epsilon.data(),
            nullptr, centric.data(), used.data()};
  }
  static double truth(double at) { return 0.95 - 1.6 * at; }
};

TEST(Sigmaa, findsTheTrueCurve) {
  const Simulation simulation(30000);
  std::vector<double> scratch(sigmaa_scratch_size(simulation.data.n));
  for (const LikelihoodMode mode : {continuous_likelihood, binned_likelihood}) {
    const SigmaaFit fit = fit_sigmaa(simulation.data, mode, 0, scratch.data());
    for (const double at : {0.02, 0.08, 0.15, 0.23}) {
      const SigmaaAt found = sigmaa_at(fit.model, at);
      const double truth = Simulation::truth(at);
      EXPECT_NEAR(found.sigmaa, truth, 0.05) << mode << " " << at;
      EXPECT_NEAR(found.d, truth / 0.8, 0.07) << mode << " " << at;
      EXPECT_NEAR(found.s / (5e4 * std::exp(-12.0 * at)), 1.0 - truth * truth, 0.08);
    }
  }
}

TEST(Sigmaa, aPerfectModelDoesNotRunAway) {
  Simulation simulation(2000);
  simulation.f = simulation.fo;
  std::vector<double> scratch(sigmaa_scratch_size(simulation.data.n));
  const SigmaaFit fit = fit_sigmaa(simulation.data, continuous_likelihood, 0, scratch.data());
  EXPECT_GT(sigmaa_at(fit.model, 0.1).sigmaa, 0.99);
  EXPECT_GT(sigmaa_at(fit.model, 0.1).s, 0.0);
}

TEST(FrenchWilson, isThePosteriorMean) {
  struct Case {
    double intensity, sigma, mean;
  };
  for (const Case& c : {Case{100, 10, 80}, Case{-30, 10, 50}, Case{-200, 20, 3}, Case{3, 10, 1e4},
                        Case{1e6, 5, 1e5}, Case{0, 1, 1}}) {
    for (const bool centric : {false, true}) {
      // Simpson's rule over the amplitude, in plain sight.
      double norm = 0.0, sum = 0.0;
      const double high = std::sqrt(std::max(c.intensity, 0.0) + 12.0 * c.sigma);
      const double low = std::sqrt(std::max(0.0, c.intensity - 12.0 * c.sigma));
      constexpr int n = 20000;
      double most = -1e300;
      std::vector<double> logs;
      for (int i = 0; i <= n; ++i) {
        const double f = low + (high - low) * i / n;
        const double j = f * f;
        const double d = (c.intensity - j) / c.sigma;
        logs.push_back(-0.5 * d * d - j / (centric ? 2.0 * c.mean : c.mean));
        most = std::max(most, logs.back());
      }
      for (int i = 0; i <= n; ++i) {
        const double f = low + (high - low) * i / n;
        const double weight = (i == 0 || i == n ? 1.0
                               : i % 2          ? 4.0
                                                : 2.0) *
                              std::exp(logs[static_cast<std::size_t>(i)] - most) *
                              (centric ? 1.0 : f);
        norm += weight;
        sum += weight * f;
      }
      EXPECT_NEAR(french_wilson(c.intensity, c.sigma, c.mean, centric).f / (sum / norm), 1.0, 1e-5)
          << c.intensity << " " << centric;
    }
  }
}

TEST(Moments, andTheLTestKnowWilsonsAndTwinnedIntensities) {
  std::mt19937 random(23);
  std::exponential_distribution<double> wilson(1.0);
  const auto statistics = [&](bool twinned) {
    std::vector<double> z;
    std::vector<LReflection> list;
    for (int h = 0; h < 30; ++h) {
      for (int k = 0; k < 30; ++k) {
        for (int l = 0; l < 30; ++l) {
          const double i = twinned ? 0.5 * (wilson(random) + wilson(random)) : wilson(random);
          z.push_back(i);
          list.push_back({h, k, l, i});
        }
      }
    }
    const auto n = static_cast<std::int32_t>(z.size());
    return std::pair(moments(n, z.data()), l_test(n, list.data()));
  };
  const auto [plain, plain_l] = statistics(false);
  EXPECT_NEAR(plain.z2, 2.0, 0.05);
  EXPECT_NEAR(plain.e, 0.886, 0.005);
  EXPECT_NEAR(plain_l.mean_l, 0.5, 0.005);
  EXPECT_NEAR(plain_l.mean_l2, 1.0 / 3.0, 0.005);
  const auto [twin, twin_l] = statistics(true);
  EXPECT_NEAR(twin.z2, 1.5, 0.03);
  EXPECT_NEAR(twin_l.mean_l, 0.375, 0.005);
  EXPECT_NEAR(twin_l.mean_l2, 0.2, 0.005);
}

TEST(WilsonPlot, findsScaleAndB) {
  std::mt19937 random(29);
  std::exponential_distribution<double> wilson(1.0);
  std::uniform_real_distribution<double> uniform(0.001, 0.3);
  std::vector<double> intensity, s2, sum_f2;
  for (int i = 0; i < 60000; ++i) {
    s2.push_back(uniform(random));
    sum_f2.push_back(1e5 * std::exp(-3.0 * s2.back()));
    intensity.push_back(4.0 * std::exp(-0.5 * 25.0 * s2.back()) * sum_f2.back() * wilson(random));
  }
  std::vector<std::int32_t> order(s2.size());
  const WilsonPlot plot = wilson_plot({60000, intensity.data(), s2.data(), sum_f2.data()}, 40,
                                      1.0 / 16.0, 1e30, order.data());
  EXPECT_EQ(plot.nbins, 40);
  EXPECT_NEAR(plot.b, 25.0, 0.7);
  EXPECT_NEAR(plot.k, 2.0, 0.1);
  EXPECT_LT(plot.correlation, -0.99);
  EXPECT_EQ(
      wilson_plot({60000, intensity.data(), s2.data(), sum_f2.data()}, 40, 0.5, 1.0, order.data())
          .nbins,
      0);
}

}  // namespace
}  // namespace qx::test
