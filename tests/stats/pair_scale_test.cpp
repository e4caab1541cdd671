#include "stats/pair_scale.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

namespace qx::test {
namespace {

constexpr double unit[1][9] = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};

// F2 = F1 / scale with noise, and `strange` of a thousand pairs that differ by half of F1.
struct Made {
  std::vector<double> f1, f2, sigma1, sigma2, s2;
  std::unique_ptr<double[][3]> s;

  Made(std::int32_t n, const PairScale& scale, double noise, int strange)
      : s(std::make_unique<double[][3]>(static_cast<std::size_t>(n))) {
    std::mt19937 random(17);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> place(-0.3, 0.3);
    for (std::int32_t i = 0; i < n; ++i) {
      double(&v)[3] = s[static_cast<std::size_t>(i)];
      for (double& component : v) component = place(random);
      s2.push_back(v[0] * v[0] + v[1] * v[1] + v[2] * v[2] + 1e-4);
      const double f = 100.0 * std::exp(-5.0 * s2.back()) * (0.3 + std::fabs(normal(random)));
      const double more = i % 1000 < strange ? 1.5 : 1.0;
      f1.push_back(f + noise * normal(random));
      f2.push_back((more * f + noise * normal(random)) / pair_scale_at(scale, s2.back(), v));
      sigma1.push_back(noise);
      sigma2.push_back(noise / pair_scale_at(scale, s2.back(), v));
    }
  }
  [[nodiscard]] AmplitudePairs pairs() const {
    return {static_cast<std::int32_t>(f1.size()),
            f1.data(),
            f2.data(),
            sigma1.data(),
            sigma2.data(),
            s2.data(),
            s.get()};
  }
};

PairScale fitted(const AmplitudePairs& pairs) {
  std::vector<double> scratch(pair_scale_scratch(pairs.n) + 1);
  return fit_pair_scale(pairs, invariant_tensors(1, unit, false), scratch.data());
}

TEST(PairScale, isFoundWhateverALigandChanged) {
  PairScale truth;
  truth.k = 3.0;
  constexpr double b[6] = {4.0, -6.0, 8.0, 1.0, -2.0, 3.0};
  constexpr double centre[3] = {0.0, 0.1, 0.25};
  constexpr double curve[3] = {1.05, 0.95, 1.02};
  std::copy_n(b, 6, truth.b);
  truth.nbins = 3;
  std::copy_n(centre, 3, truth.centre);
  std::copy_n(curve, 3, truth.curve);
  for (const int strange : {0, 100}) {
    const Made made(20000, truth, 1.0, strange);
    const PairScale found = fitted(made.pairs());
    double squares = 0.0, mean = 0.0;
    for (std::size_t i = 0; i < made.s2.size(); ++i) {
      const double ratio =
          pair_scale_at(found, made.s2[i], made.s[i]) / pair_scale_at(truth, made.s2[i], made.s[i]);
      squares += (ratio - 1.0) * (ratio - 1.0) / static_cast<double>(made.s2.size());
      mean += (ratio - 1.0) / static_cast<double>(made.s2.size());
    }
    EXPECT_LT(std::sqrt(squares), 0.012) << strange;
    EXPECT_LT(std::fabs(mean), 0.008) << strange;  // plain least squares: 0.06 with strange ones
  }
}

TEST(PairScale, differencesAndWeightsAreTheFormulas) {
  const Made made(500, {}, 2.0, 10);
  AmplitudePairs pairs = made.pairs();
  std::vector<double> sigma = made.sigma1;
  sigma[3] = 0.0;
  pairs.sigma1 = sigma.data();
  std::vector<double> d(500), error(500);
  const PairDifferences means = pair_differences(pairs, {}, d.data(), error.data());
  double squares = 0.0;
  for (std::size_t i = 0; i < 500; ++i) {
    EXPECT_DOUBLE_EQ(d[i], made.f2[i] - made.f1[i]);
    EXPECT_NEAR(error[i], i == 3 ? 0.0 : std::sqrt(8.0), 1e-12);
    squares += d[i] * d[i] / 500;
  }
  EXPECT_EQ(means.without_error, 1);
  EXPECT_NEAR(means.mean_d2, squares, 1e-9);
  EXPECT_NEAR(means.mean_variance, 8.0, 1e-9);
  const double large = 3.0 * std::sqrt(squares);
  EXPECT_NEAR(difference_weight(means, -large, 4.0, 0.05), 1.0 / (1.0 + 2.0 + 0.45), 1e-12);
  EXPECT_NEAR(difference_weight(means, 0.0, 0.0, 0.05), 0.5, 1e-12);  // unknown: as the mean
}

TEST(PairScale, ofNothingIsOne) {
  const Made made(3, {}, 0.0, 0);
  AmplitudePairs pairs = made.pairs();
  EXPECT_NEAR(fitted(pairs).k * fitted(pairs).curve[0], 1.0, 1e-6);
  const std::vector<double> zero(3, 0.0);
  pairs.f2 = zero.data();
  EXPECT_EQ(fitted(pairs).k, 1.0);
  pairs.n = 0;
  EXPECT_EQ(fitted(pairs).k, 1.0);
  const PairDifferences none = pair_differences(pairs, {}, nullptr, nullptr);
  EXPECT_EQ(difference_weight(none, 0.0, 0.0, 0.05), 1.0);
}

}  // namespace
}  // namespace qx::test
