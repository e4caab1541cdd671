// Probabilities of amplitudes and phases against numerical integrals.
#include "stats/likelihood.h"

#include "stats/phase_probability.h"

#include <cmath>
#include <gtest/gtest.h>

namespace qx::test {
namespace {

TEST(Bessel, agreesWithTheDefiningIntegrals) {
  // I_n(x) = (1/pi) integral of exp(x cos t) cos(n t), exact for periodic sums of enough points.
  for (const double x : {0.0, 1e-6, 0.3, 3.75, 7.999, 8.001, 40.0, 700.0, 5000.0}) {
    double i0 = 0.0, i1 = 0.0;
    constexpr int n = 4000;
    for (int i = 0; i < n; ++i) {
      const double t = 2.0 * M_PI * i / n;
      const double weight = std::exp(x * (std::cos(t) - 1.0)) / n;
      i0 += weight;
      i1 += weight * std::cos(t);
    }
    EXPECT_NEAR(scaled_bessel(x).i0 / i0, 1.0, 1e-11) << x;
    EXPECT_NEAR(scaled_bessel(x).i1, i1, 1e-11 * i0) << x;
  }
  EXPECT_NEAR(log_i0(1e5), 1e5 - 0.5 * std::log(2.0 * M_PI * 1e5), 1e-4);
  EXPECT_NEAR(log_cosh(1000.0), 1000.0 - std::log(2.0), 1e-9);
}

TEST(Conditional, isAProbabilityWhoseMeritIsTheMeanCosine) {
  for (const bool centric : {false, true}) {
    for (const double df : {0.0, 30.0, 200.0}) {
      constexpr double v = 900.0;
      double total = 0.0;
      constexpr double step = 0.05;
      for (double fo = 0.5 * step; fo < 600.0; fo += step) {
        total += step * std::exp(-Conditional{fo, df, v, centric}.minus_log());
      }
      EXPECT_NEAR(total, 1.0, 1e-4) << centric << " " << df;
    }
    const Conditional c = {80.0, 60.0, 900.0, centric};
    const HendricksonLattman p = unimodal_with(0.7, c.x());
    const PhaseCentroid at = centric ? centric_centroid(p, 0.7) : centroid(p);
    EXPECT_NEAR(std::hypot(at.re, at.im), c.fom(), 1e-9);
    EXPECT_NEAR(std::atan2(at.im, at.re), 0.7, 1e-9);
    const double h = 1e-4;
    const auto value = [&](double df, double v) {
      return Conditional{80.0, df, v, centric}.minus_log();
    };
    EXPECT_NEAR((value(60 + h, 900) - value(60 - h, 900)) / (2 * h), c.by_df(c.fom()), 1e-8);
    EXPECT_NEAR((value(60, 900 + h) - value(60, 900 - h)) / (2 * h), c.by_v(c.fom()), 1e-8);
  }
}

TEST(MapTerms, fullDensityLessDifferenceIsTheModel) {
  for (const bool centric : {false, true}) {
    const MapTerms full = map_terms(2.0, 1.0, centric);
    const MapTerms difference = map_terms(1.0, 1.0, centric);
    EXPECT_DOUBLE_EQ(full.a - difference.a, 0.0);
    EXPECT_DOUBLE_EQ(difference.b - full.b, 1.0);  // -b D F
    EXPECT_DOUBLE_EQ(map_terms(1.0, 0.0, centric).a, 1.0);
    EXPECT_DOUBLE_EQ(map_terms(3.0, 2.0, centric).a, centric ? 2.0 : 3.0);
  }
  EXPECT_DOUBLE_EQ(unobserved_term(2.0, 1.0), 1.0);
  EXPECT_DOUBLE_EQ(unobserved_term(1.0, 1.0), 0.0);
}

TEST(PhaseProbability, keepsItsFigureOfMerit) {
  for (const double m : {0.0, 0.2, 0.9, 0.999}) {
    for (const bool centric : {false, true}) {
      const HendricksonLattman p = unimodal(-1.1, m, centric);
      const PhaseCentroid at = centric ? centric_centroid(p, -1.1) : centroid(p);
      EXPECT_NEAR(std::hypot(at.re, at.im), m, 2e-3) << m;  // 5-degree steps at the sharp end
    }
  }
  // Two opposite opinions of equal weight leave nothing.
  const HendricksonLattman none = unimodal(0.4, 0.8, false) + unimodal(0.4 + M_PI, 0.8, false);
  const PhaseCentroid at = centroid(none);
  EXPECT_NEAR(std::hypot(at.re, at.im), 0.0, 1e-9);
}

}  // namespace
}  // namespace qx::test
