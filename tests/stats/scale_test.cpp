// The overall scale on structure factors whose true parameters are known.
#include "stats/overall_scale.h"
#include "stats/scale_bins.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace qx::test {
namespace {

using Rotations = std::vector<std::array<double, 9>>;

const double (*as_rotations(const Rotations& list))[9] {
  return reinterpret_cast<const double(*)[9]>(list.data());
}

// Twofold axes along z, and along x as well.
const Rotations two_along_z = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {-1, 0, 0, 0, -1, 0, 0, 0, 1}};
const Rotations orthorhombic = {{1, 0, 0, 0, 1, 0, 0, 0, 1},
                                {-1, 0, 0, 0, -1, 0, 0, 0, 1},
                                {1, 0, 0, 0, -1, 0, 0, 0, -1},
                                {-1, 0, 0, 0, 1, 0, 0, 0, -1}};

TEST(TensorBasis, countsWhatThePointGroupLeavesFree) {
  const Rotations identity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
  const double s = std::sqrt(0.75);
  const Rotations threefold = {{1, 0, 0, 0, 1, 0, 0, 0, 1},
                               {-0.5, -s, 0, s, -0.5, 0, 0, 0, 1},
                               {-0.5, s, 0, -s, -0.5, 0, 0, 0, 1}};
  const Rotations cyclic = {
      {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 1, 1, 0, 0, 0, 1, 0}, {0, 1, 0, 0, 0, 1, 1, 0, 0}};
  struct Case {
    const Rotations& rotations;
    int n;
  };
  for (const Case& c : {Case{identity, 6}, Case{two_along_z, 4}, Case{orthorhombic, 3},
                        Case{threefold, 2}, Case{cyclic, 2}}) {
    const TensorBasis basis = invariant_tensors(static_cast<std::int32_t>(c.rotations.size()),
                                                as_rotations(c.rotations), false);
    EXPECT_EQ(basis.n, c.n);
    const double v[3] = {0.3, -0.7, 0.2};
    for (int t = 0; t < basis.n; ++t) {
      for (const auto& r : c.rotations) {
        const double turned[3] = {r[0] * v[0] + r[1] * v[1] + r[2] * v[2],
                                  r[3] * v[0] + r[4] * v[1] + r[5] * v[2],
                                  r[6] * v[0] + r[7] * v[1] + r[8] * v[2]};
        EXPECT_NEAR(quadratic(basis.tensors[t], turned), quadratic(basis.tensors[t], v), 1e-12);
      }
    }
  }
}

// Random structure factors in a sphere, scaled and with solvent as asked.
struct Simulation {
  std::vector<double> fo, re, im, mask_re, mask_im, s2;
  std::vector<std::array<double, 3>> s;
  ScaleData data;

  Simulation(int n, double k, const double (&b)[6], double k_sol, double b_sol) {
    std::mt19937 random(11);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    while (static_cast<int>(fo.size()) < n) {
      const std::array<double, 3> v = {0.5 * uniform(random), 0.5 * uniform(random),
                                       0.5 * uniform(random)};
      const double square = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
      if (square > 0.25 || square < 0.0004) continue;
      const double size = 300.0 * std::exp(-5.0 * square);
      const double mask_size = square > mask_limit ? 0.0 : 900.0 * std::exp(-20.0 * square);
      s.push_back(v);
      s2.push_back(square);
      re.push_back(size * normal(random));
      im.push_back(size * normal(random));
      mask_re.push_back(-0.6 * mask_size * re.back() / size + 0.3 * mask_size * normal(random));
      mask_im.push_back(-0.6 * mask_size * im.back() / size + 0.3 * mask_size * normal(random));
      const double solvent = k_sol * std::exp(-0.25 * b_sol * square);
      const double cell[3] = {v[0], v[1], v[2]};
      fo.push_back(
          k * std::exp(-0.25 * quadratic(b, cell)) *
          std::hypot(re.back() + solvent * mask_re.back(), im.back() + solvent * mask_im.back()));
    }
    data = {n,
            fo.data(),
            re.data(),
            im.data(),
            mask_re.data(),
            mask_im.data(),
            s2.data(),
            reinterpret_cast<const double(*)[3]>(s.data())};
  }
};

ScaleFit fit(const Simulation& simulation, SolventMode mode, double k_sol = -1.0) {
  ScaleSettings settings;
  settings.mode = mode;
  settings.basis = invariant_tensors(4, as_rotations(orthorhombic), false);
  settings.k_sol = k_sol;
  std::vector<double> scratch(scale_scratch_size(simulation.data.n));
  return fit_model_scale(simulation.data, settings, scratch.data());
}

constexpr double true_b[6] = {-4.0, 1.0, 3.0, 0.0, 0.0, 0.0};

TEST(OverallScale, findsTheTrueParameters) {
  const Simulation simulation(5000, 1.7, true_b, 0.38, 55.0);
  const ScaleFit exponential = fit(simulation, exponential_solvent);
  EXPECT_NEAR(exponential.model.k, 1.7, 1e-4);
  EXPECT_NEAR(exponential.model.k_sol, 0.38, 1e-3);
  EXPECT_NEAR(exponential.model.b_sol, 55.0, 0.3);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(exponential.model.b[i], true_b[i], 1e-2) << i;
  double squares = 0.0;
  for (const double f : simulation.fo) squares += f * f;
  EXPECT_LT(exponential.sum, 1e-8 * squares);
  // The freer forms come close to the same curve.
  for (const SolventMode mode : {binned_solvent, smooth_solvent}) {
    const ScaleFit freer = fit(simulation, mode);
    EXPECT_LE(freer.sum, 2e-4 * squares) << mode;
    for (const double d : {20.0, 6.0, 4.0}) {
      const double s2 = 1.0 / (d * d);
      EXPECT_NEAR(solvent_scale(freer.model, s2), 0.38 * std::exp(-0.25 * 55.0 * s2), 0.03) << d;
    }
    EXPECT_EQ(solvent_scale(freer.model, 0.12), 0.0);
    EXPECT_NEAR(freer.model.b[2] - freer.model.b[0], 7.0, 0.3);
  }
}

TEST(OverallScale, freerFormsAreNeverWorse) {
  Simulation simulation(4000, 1.0, true_b, 0.33, 40.0);
  std::mt19937 random(3);
  std::normal_distribution<double> normal(1.0, 0.15);
  // A scale that dips at 4 A, as real data do, and noise.
  for (std::size_t i = 0; i < simulation.fo.size(); ++i) {
    simulation.fo[i] *=
        normal(random) * (1.0 - 0.2 * std::exp(-std::pow((simulation.s2[i] - 0.06) / 0.02, 2)));
  }
  const double exponential = fit(simulation, exponential_solvent).sum;
  EXPECT_LT(fit(simulation, binned_solvent).sum, 0.97 * exponential);
  EXPECT_LT(fit(simulation, smooth_solvent).sum, 0.97 * exponential);
  EXPECT_GT(fit(simulation, no_solvent).sum, exponential);
  EXPECT_DOUBLE_EQ(fit(simulation, exponential_solvent, 0.2).model.k_sol, 0.2);
}

TEST(OverallScale, fewOrEqualReflectionsGiveNumbers) {
  constexpr double none[6] = {};
  for (const int n : {1, 2, 3, 50}) {
    Simulation simulation(n, 1.0, none, 0.0, 20.0);
    for (const SolventMode mode :
         {no_solvent, exponential_solvent, binned_solvent, smooth_solvent}) {
      const ScaleFit result = fit(simulation, mode);
      EXPECT_TRUE(std::isfinite(result.model.k) && std::isfinite(result.sum)) << n << " " << mode;
      EXPECT_TRUE(std::isfinite(total_scale(result.model, 0.01, {0.1, 0.0, 0.0})));
    }
  }
}

TEST(LogarithmicBins, holdTheLeastNumberAndAllReflections) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> uniform(0.001, 0.35);
  for (const int n : {1, 99, 250, 5000}) {
    std::vector<double> s2(static_cast<std::size_t>(n));
    for (double& value : s2) value = uniform(random);
    std::vector<std::int32_t> bin(s2.size());
    double centre[40];
    const int bins = logarithmic_bins(n, s2.data(), 40, 100, bin.data(), centre);
    std::vector<int> counts(static_cast<std::size_t>(bins));
    for (const auto b : bin) ++counts.at(static_cast<std::size_t>(b));
    for (const int count : counts) EXPECT_GE(count, std::min(n, 100)) << n;
    for (int i = 1; i < bins; ++i) EXPECT_GT(centre[i], centre[i - 1]);
  }
}

}  // namespace
}  // namespace qx::test
