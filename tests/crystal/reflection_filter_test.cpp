#include "crystal/reflection_filter.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace qx::test {
namespace {

constexpr double wide = 99999.0;

// A cubic cell of 10 Angstrom, no limits, no cuts.
struct Sample {
  std::vector<std::int32_t> h, k, l;
  std::vector<float> f, sigma;
  RejectionRules rules;
  bool as_intensity = false;

  explicit Sample(const std::vector<std::vector<int>>& indices) {
    for (const auto& hkl : indices) {
      h.push_back(hkl[0]);
      k.push_back(hkl[1]);
      l.push_back(hkl[2]);
    }
    rules.d_low = wide;
    rules.orth2frac[0] = rules.orth2frac[4] = rules.orth2frac[8] = 0.1;
  }

  [[nodiscard]] std::vector<int> kept() const {
    Measured measured;
    if (!f.empty()) measured.values = f.data();
    if (!sigma.empty()) measured.sigmas = sigma.data();
    Candidates input = {h.size(), h.data(), k.data(), l.data(), {}, {}, std::nanf("")};
    (as_intensity ? input.intensity : input.amplitude) = measured;
    std::vector<int> indices(h.size());
    LeftOut left;
    indices.resize(select_reflections(input, rules, indices.data(), left));
    return indices;
  }
};

Sample row(std::size_t n) {
  std::vector<std::vector<int>> indices;
  for (std::size_t i = 0; i < n; ++i) indices.push_back({static_cast<int>(i) + 1, 0, 0});
  return Sample(indices);
}

TEST(ReflectionFilter, resolutionFollowsTheOrthogonalisation) {
  // Columns of the matrix are a*, b*, c* transposed: s_j = h m_1j + k m_2j + l m_3j.
  const double m[9] = {0.1, 0.02, 0.03, 0, 0.05, 0.01, 0, 0, 0.04};
  EXPECT_NEAR(reflection_resolution(1, 0, 0, m), 1 / std::sqrt(0.01 + 0.0004 + 0.0009), 1e-12);
  EXPECT_NEAR(reflection_resolution(2, -1, 3, m),
              1 / std::hypot(0.2, 0.04 - 0.05, 0.06 - 0.01 + 0.12), 1e-12);
}

// Well inside and outside no root is taken; at a limit, to the last bits, it decides as ever.
TEST(ReflectionFilter, limitsCutWhereTheResolutionItselfDoes) {
  std::vector<std::vector<int>> indices;
  for (int h = 1; h <= 12; ++h) {
    for (int k = 0; k <= 12; ++k) indices.push_back({h, k, 12 - h});
  }
  Sample sample(indices);
  sample.rules.orth2frac[1] = 0.013;
  sample.rules.orth2frac[5] = -0.021;
  const auto d_of = [&](std::size_t i) {
    return reflection_resolution(sample.h[i], sample.k[i], sample.l[i], sample.rules.orth2frac);
  };
  for (std::size_t i = 0; i < sample.h.size(); ++i) {
    for (const double steps : {-2.0, -1.0, 0.0, 1.0, 2.0}) {
      const double off = 1.0 + steps * 1.2e-16;  // on both sides of the limit's own allowance
      sample.rules.d_high = d_of(i) / (1 - 1e-9) * off;
      sample.rules.d_low = d_of(i) * 1.4 / (1 + 1e-9) * off;
      std::vector<int> wanted;
      for (std::size_t at = 0; at < sample.h.size(); ++at) {
        const double d = d_of(at);
        if (d >= sample.rules.d_high * (1 - 1e-9) && d <= sample.rules.d_low * (1 + 1e-9)) {
          wanted.push_back(static_cast<int>(at));
        }
      }
      ASSERT_EQ(sample.kept(), wanted) << i << " " << steps;
    }
  }
  for (const double none : {0.0, -1.0}) {
    sample.rules.d_high = none;
    sample.rules.d_low = INFINITY;
    EXPECT_EQ(sample.kept().size(), sample.h.size());
    sample.rules.d_low = none;
    EXPECT_TRUE(sample.kept().empty());
  }
}

TEST(ReflectionFilter, theOriginAndTheLimitsRejectAloneWithoutCuts) {
  Sample sample({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {5, 0, 0}, {10, 0, 0}});
  EXPECT_EQ(sample.kept(), (std::vector<int>{1, 2, 3, 4}));
  sample.f = {1, 0, -5, 1e9F, 1};
  sample.sigma = {1, 100, 100, 100, 100};
  EXPECT_EQ(sample.kept(), (std::vector<int>{1, 2, 3, 4}));
  sample.rules.d_high = 2.0;
  sample.rules.d_low = 5.0;
  EXPECT_EQ(sample.kept(), (std::vector<int>{2, 3}));
}

TEST(ReflectionFilter, limitsTakenFromTheDataKeepTheExtremes) {
  Sample sample({{1, 0, 0}, {3, 4, 5}, {7, 7, 7}});
  sample.rules.d_low = 10.0 * (1 - 4e-16);
  sample.rules.d_high = 10.0 / std::sqrt(147.0) * (1 + 4e-16);
  EXPECT_EQ(sample.kept().size(), 3U);
  sample.rules.d_low = 10.0 * (1 - 1e-8);
  EXPECT_EQ(sample.kept().size(), 2U);
}

TEST(ReflectionFilter, nothingThatIsNoNumberPasses) {
  Sample sample({{1, 0, 0}});
  sample.rules.orth2frac[0] = std::nan("");
  EXPECT_TRUE(sample.kept().empty());
  sample.rules.orth2frac[0] = 0.1;
  sample.rules.d_high = std::nan("");
  EXPECT_TRUE(sample.kept().empty());
}

TEST(ReflectionFilter, theMinimumIsForAmplitudesOnly) {
  Sample sample = row(4);
  sample.f = {1.0F, 2.0F, std::nanf(""), 3.0F};
  sample.rules.amplitude_minimum = 2.0;
  EXPECT_EQ(sample.kept(), (std::vector<int>{1, 3}));
  sample.as_intensity = true;
  EXPECT_EQ(sample.kept().size(), 4U);
}

TEST(ReflectionFilter, sigmaAndRmsRulesServeAmplitudesAndIntensities) {
  for (const bool as_intensity : {false, true}) {
    Sample sample = row(6);
    sample.as_intensity = as_intensity;
    sample.f = {1.0F, -4.0F, 2.0F, std::nanf(""), 3.0F, 6.0F};
    sample.sigma = {1.0F, 1.0F, 0.0F, 1.0F, 1e-5F, 3.0F};
    (as_intensity ? sample.rules.intensity_sigma : sample.rules.amplitude_sigma) = 2.5;
    // 0 and 5 are below the cut, 3 has no value; a sigma of 0 or about it never rejects.
    EXPECT_EQ(sample.kept(), (std::vector<int>{1, 2, 4}));
    (as_intensity ? sample.rules.amplitude_sigma : sample.rules.intensity_sigma) = 1e9;
    EXPECT_EQ(sample.kept(), (std::vector<int>{1, 2, 4}));

    sample.rules.amplitude_sigma = sample.rules.intensity_sigma = 0;
    // The rms is that of the five values that were measured: sqrt(66 / 5) = 3.63.
    (as_intensity ? sample.rules.intensity_rms : sample.rules.amplitude_rms) = 1.5;
    EXPECT_EQ(sample.kept(), (std::vector<int>{0, 1, 2, 3, 4}));
    (as_intensity ? sample.rules.intensity_rms : sample.rules.amplitude_rms) = 1.0;
    EXPECT_EQ(sample.kept(), (std::vector<int>{0, 2, 3, 4}));
  }
}

TEST(ReflectionFilter, withoutSigmasTheSigmaRuleIsSilent) {
  Sample sample = row(2);
  sample.f = {1.0F, 2.0F};
  sample.rules.amplitude_sigma = 100;
  EXPECT_EQ(sample.kept().size(), 2U);
}

}  // namespace
}  // namespace qx::test
