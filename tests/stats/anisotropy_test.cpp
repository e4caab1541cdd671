#include "stats/anisotropy.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

namespace qx::test {
namespace {

TEST(Anisotropy, findsTheTracelessPartThatTheGroupLeaves) {
  constexpr double true_b[6] = {8.0, -3.0, -5.0, 2.0, -1.5, 4.0};
  constexpr double unit[1][9] = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
  constexpr double along_z[2][9] = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {-1, 0, 0, 0, -1, 0, 0, 0, 1}};
  std::mt19937 random(3);
  std::exponential_distribution<double> wilson(1.0);
  std::uniform_real_distribution<double> place(-0.4, 0.4);
  constexpr std::int32_t n = 40000;
  std::vector<double> z;
  const auto s = std::make_unique<double[][3]>(n);
  for (std::int32_t i = 0; i < n; ++i) {
    for (double& component : s[static_cast<std::size_t>(i)]) component = place(random);
    const double exponent = 0.5 * quadratic(true_b, s[static_cast<std::size_t>(i)]);
    z.push_back(wilson(random) * std::exp(-exponent));
  }
  double b[6] = {};
  fit_anisotropy(n, z.data(), s.get(), invariant_tensors(1, unit, false), b);
  for (int c = 0; c < 6; ++c) EXPECT_NEAR(b[c], true_b[c], 0.3) << c;
  fit_anisotropy(n, z.data(), s.get(), invariant_tensors(2, along_z, false), b);
  EXPECT_EQ(b[4], 0.0);
  EXPECT_EQ(b[5], 0.0);
  EXPECT_NEAR(b[3], true_b[3], 0.8);  // these z do not obey the group
  fit_anisotropy(n, z.data(), s.get(), invariant_tensors(1, unit, true), b);
  for (const double value : b) EXPECT_EQ(value, 0.0);
}

TEST(Anisotropy, spreadIsThatOfThePrincipalValues) {
  // diag(7, 1, -2) turned by 30 degrees about z, then by 50 about x.
  const double c = std::cos(M_PI / 6), s = 0.5;
  const double ct = std::cos(M_PI / 3.6), st = std::sin(M_PI / 3.6);
  const double r[3][3] = {{c, -s, 0}, {ct * s, ct * c, -st}, {st * s, st * c, ct}};
  const auto element = [&](int i, int j) {
    return 7 * r[i][0] * r[j][0] + r[i][1] * r[j][1] - 2 * r[i][2] * r[j][2];
  };
  const double t[6] = {element(0, 0), element(1, 1), element(2, 2),
                       element(0, 1), element(0, 2), element(1, 2)};
  EXPECT_NEAR(principal_spread(t), 9.0, 1e-9);
  const double sphere[6] = {2, 2, 2, 0, 0, 0};
  EXPECT_EQ(principal_spread(sphere), 0.0);
}

}  // namespace
}  // namespace qx::test
