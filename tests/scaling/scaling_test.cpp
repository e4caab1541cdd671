// Scale, R factors, likelihood and weighted maps through the engine, on data simulated from a
// model.
#include "core/harvest.h"
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "map/map.h"
#include "model/molsys.h"
#include "scaling/cross_record.h"
#include "scaling/observed.h"
#include "scaling/scale.h"
#include "solvent/solvent.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
#include <quorix/solvent.h>
#include <quorix/structfact.h>
#include <quorix/wilson.h>

#include <cmath>
#include <map>
#include <numeric>
#include <random>

namespace qx::test {
namespace {

constexpr const char* model_sections[] = {"xgrid\nfrac 0.3\nxend\n", "xfft\nmemory 4000\nxend\n",
                                          "xcut\necut 1e-5\nxend\n", "xfcc\ncalc\nxend\n"};

class Scaling : public Engine {
 protected:
  // A model, its structure factors, and amplitudes of a crystal with solvent and, in one of
  // `noise`, errors.
  static void simulate(double k, double k_sol, double b_sol, double noise, int most = 4000) {
    set_up_crystal("P 21 21 21", "31 35 42 90 90 90", 1.9, most);
    set_up_model(random_atoms(220, false, 7));
    for (const char* text : model_sections) ASSERT_TRUE(section(text).ok) << text;
    ASSERT_EQ(qx_calc_solvent_structure_factor(), ok);
    qxrefdata& data = *qx_get_qxrefdata();
    const std::int32_t n = data.nreflections;
    ComplexF f;
    ASSERT_EQ(open_f(n, f), ok);
    ASSERT_EQ(qx_calc_model_structure_factor(f.re.get(), f.im.get()), ok);
    const qxsolvent& solvent = *qx_get_qxsolvent();
    ASSERT_EQ(open_block(data.fobs, static_cast<std::size_t>(n), "test_f"), ok);
    std::mt19937 random(5);
    std::normal_distribution<double> normal;
    for (std::int32_t i = 0; i < n; ++i) {
      const auto at = static_cast<std::size_t>(i);
      const double s2 = data.s_length[i] * data.s_length[i];
      const double k_mask = k_sol * std::exp(-0.25 * b_sol * s2);
      const double amplitude =
          std::hypot(f.re[at] + k_mask * solvent.re[i] + noise * normal(random),
                     f.im[at] + k_mask * solvent.im[i] + noise * normal(random));
      data.fobs[i] = static_cast<float>(k * std::exp(-0.25 * 6.0 * s2) * amplitude);
    }
    ASSERT_TRUE(section("xcross\nparam percent 10 seed -137\nxend\n").ok);
  }
  static const ScaleModel& model() { return qx_get_qxscale()->fit.model; }
};

TEST_F(Scaling, findsScaleAndSolvent) {
  simulate(2.5, 0.38, 55.0, 0.0);
  ASSERT_TRUE(section("xoverall\nparam solvent exp\nscale\nprint\nxend\n").ok);
  EXPECT_NEAR(model().k, 2.5, 5e-3);
  EXPECT_NEAR(model().k_sol, 0.38, 5e-3);
  EXPECT_NEAR(model().b_sol, 55.0, 2.0);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(model().b[i], 6.0, 0.05);
  const SectionResult r = section("xrfactor\ncalc\nprint\nxend\n");
  ASSERT_TRUE(r.ok);
  qx_agreement work = {}, free = {};
  ASSERT_EQ(qx_get_rfactor(&work, &free), ok);
  EXPECT_LT(work.r, 1e-3);
  EXPECT_LT(free.r, 1e-3);
  EXPECT_GT(free.correlation, 0.9999);
  EXPECT_NE(r.output.find("Free set"), std::string::npos) << r.output;
}

TEST_F(Scaling, rFactorsAreThePlainSums) {
  simulate(1.3, 0.35, 40.0, 25.0);
  ASSERT_TRUE(section("xoverall\nscale\nxend\nxrfactor\n").ok);
  ASSERT_TRUE(section("xrfactor\ncalc\nxend\n").ok);
  const qxrefdata& data = *qx_get_qxrefdata();
  ComplexF f;
  ASSERT_EQ(open_f(data.nreflections, f), ok);
  ASSERT_EQ(qx_calc_total_structure_factor(f.re.get(), f.im.get()), ok);
  const qxcross& cross = *qx_get_qxcross();
  const auto r_of = [&](std::int32_t n, const std::int32_t* list, int bin) {
    double over = 0.0, under = 0.0;
    for (std::int32_t j = 0; j < n; ++j) {
      if (bin >= 0 && cross.bin_of[list[j]] != bin) continue;
      const auto fo = static_cast<double>(data.fobs[list[j]]);
      over += std::fabs(fo - f.amplitude(list[j]));
      under += fo;
    }
    return over / under;
  };
  qx_agreement work = {}, free = {};
  ASSERT_EQ(qx_get_rfactor(&work, &free), ok);
  EXPECT_NEAR(work.r, r_of(cross.nwork, cross.work, -1), 1e-9);
  EXPECT_NEAR(free.r, r_of(cross.nfree, cross.free, -1), 1e-9);
  EXPECT_GT(free.r, 0.05);
  for (int bin = 0; bin < cross.bins_built; ++bin) {
    EXPECT_NEAR(cross.bin_r[bin], r_of(cross.nwork, cross.work, bin), 1e-9);
    EXPECT_NEAR(cross.bin_rfree[bin], r_of(cross.nfree, cross.free, bin), 1e-9);
  }
}

TEST_F(Scaling, doesNotSeeTheFreeSet) {
  simulate(1.3, 0.35, 40.0, 25.0);
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  const ScaleModel before = model();
  qxrefdata& data = *qx_get_qxrefdata();
  const qxcross& cross = *qx_get_qxcross();
  for (std::int32_t i = 0; i < cross.nfree; ++i) data.fobs[cross.free[i]] *= 1.7F;
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  EXPECT_EQ(model().k, before.k);
  EXPECT_TRUE(std::equal(before.b, before.b + 6, model().b));
  EXPECT_EQ(model().nbins, before.nbins);
  EXPECT_TRUE(std::equal(before.k_mask, before.k_mask + before.nbins, model().k_mask));
}

TEST_F(Scaling, likelihoodGivesTheErrorsTrueCosine) {
  simulate(1.0, 0.35, 50.0, 40.0, 9000);
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  ASSERT_TRUE(section("xmlf\nestimate\nprint\nreplace\nxend\n").ok);
  const qxrefdata& data = *qx_get_qxrefdata();
  double mean = 0.0;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    ASSERT_GE(data.fom[i], 0.0F);
    ASSERT_LE(data.fom[i], 1.0F);
    mean += static_cast<double>(data.fom[i]) / data.nreflections;
  }
  EXPECT_GT(mean, 0.3);
  EXPECT_LT(mean, 0.99);
  // FWT - DELFWT = D F along the model's phase.
  ComplexF f;
  ASSERT_EQ(open_f(data.nreflections, f), ok);
  ASSERT_EQ(qx_calc_total_structure_factor(f.re.get(), f.im.get()), ok);
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const auto vector = [](float amplitude, float degrees) {
      return std::polar(static_cast<double>(amplitude),
                        static_cast<double>(degrees) * M_PI / 180.0);
    };
    const auto full = vector(data.map_coeff_amplitude[i], data.map_coeff_phase[i]);
    const auto part = vector(data.map_coeff[i], data.map_phase[i]);
    const double s2 = data.s_length[i] * data.s_length[i];
    const double d = sigmaa_at(qx_get_qxml()->fit.model, s2).d;
    const std::complex<double> df = d * std::complex<double>(f.re[at], f.im[at]);
    ASSERT_LT(std::abs(full - part - df), 1e-4 * (1.0 + std::abs(full))) << i;
  }
}

TEST_F(Scaling, unobservedReflectionsAreFilledInFullMapsOnly) {
  simulate(1.0, 0.35, 50.0, 30.0);
  qxrefdata& data = *qx_get_qxrefdata();
  for (std::int32_t i = 0; i < data.nreflections; i += 7) data.fobs[i] = NAN;
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  ASSERT_TRUE(section("xmlf\nestimate\nreplace\nxend\n").ok);
  for (std::int32_t i = 0; i < data.nreflections; i += 7) {
    EXPECT_GT(data.map_coeff_amplitude[i], 0.0F);
    EXPECT_EQ(data.map_coeff[i], 0.0F);
    EXPECT_EQ(data.fom[i], 0.0F);
  }
  for (const char* type : {"sigmaa u 2 v 1", "expected", "unweighted u 2 v 1"}) {
    ASSERT_TRUE(
        section(std::string("xmap\nparam type ") + type + " scale no\ngenerate\nxend\n").ok);
  }
  const SectionResult combined = section("xmap\nparam type combined\ngenerate\nxend\n");
  EXPECT_FALSE(combined.ok);
  EXPECT_NE(combined.output.find("There are no phases to combine with"), std::string::npos);
}

TEST_F(Scaling, kickedMapsLeaveEverythingAsItWas) {
  simulate(1.0, 0.35, 50.0, 30.0, 1500);
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  ASSERT_TRUE(section("xmlf\nestimate\nxend\n").ok);
  const qxml before = *qx_get_qxml();
  ComplexF f, after;
  const std::int32_t n = qx_get_qxrefdata()->nreflections;
  ASSERT_EQ(open_f(n, f), ok);
  ASSERT_EQ(qx_calc_total_structure_factor(f.re.get(), f.im.get()), ok);
  ASSERT_TRUE(
      section(
          "xmap\nparam type sigmaa scale no\nkick seed 3 length 0.3 naverage 2\ngenerate\nxend\n")
          .ok);
  EXPECT_EQ(before.mean_fom, qx_get_qxml()->mean_fom);
  ASSERT_EQ(open_f(n, after), ok);
  ASSERT_EQ(qx_calc_total_structure_factor(after.re.get(), after.im.get()), ok);
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) ASSERT_EQ(f.re[i], after.re[i]);
}

// Density of a map over the whole cell, x fastest.
std::vector<double> map_of(const char* parameters) {
  EXPECT_TRUE(section(std::string("xmap\nparam type sigmaa scale no ") + parameters +
                      "\nextent unit\ngenerate\nxend\n")
                  .ok);
  EXPECT_EQ(qx_make_map_density(), ok);
  const qxmap& map = *qx_get_qxmap();
  std::vector<double> values;
  for (std::int32_t z = 0; z <= map.zhigh; ++z) {
    for (std::int32_t y = 0; y <= map.yhigh; ++y) {
      values.insert(values.end(), map.density[z][y], map.density[z][y] + map.xhigh + 1);
    }
  }
  return values;
}

TEST_F(Scaling, densityCorrelationIsThatOfBothMapsAboutTheAtoms) {
  simulate(1.0, 0.35, 50.0, 60.0, 1500);
  qxrefdata& data = *qx_get_qxrefdata();
  for (std::int32_t i = 0; i < data.nreflections; i += 9) data.fobs[i] = NAN;
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  ASSERT_TRUE(section("xmlf\nparam missing zero\nestimate\nxend\n").ok);
  const std::vector<double> of_data = map_of("u 2 v 1");
  const std::vector<double> of_model = map_of("u 0 v -1");
  const qxmap& map = *qx_get_qxmap();
  const int n[3] = {map.xhigh + 1, map.yhigh + 1, map.zhigh + 1};
  const double cell[3] = {31.0, 35.0, 42.0};
  constexpr double radius = 1.7;
  const molsys& system = *qx_get_molsys();
  // Atoms 0, 50 and 100 are one group, all others none; about 1 atom there may be nothing at all.
  std::vector<std::int32_t> group(static_cast<std::size_t>(system.natom), -1);
  std::vector<std::int32_t> members = {0, 50, 100};
  for (const std::int32_t atom : members) group[static_cast<std::size_t>(atom)] = 1;
  std::vector<double> o, c;
  for (int z = 0, i = 0; z < n[2]; ++z) {
    for (int y = 0; y < n[1]; ++y) {
      for (int x = 0; x < n[0]; ++x, ++i) {
        const bool near = std::any_of(members.begin(), members.end(), [&](std::int32_t atom) {
          const double place[3] = {x * cell[0] / n[0] - system.x[atom],
                                   y * cell[1] / n[1] - system.y[atom],
                                   z * cell[2] / n[2] - system.z[atom]};
          double square = 0.0;
          for (int a = 0; a < 3; ++a) square += std::pow(std::remainder(place[a], cell[a]), 2);
          return square <= radius * radius;
        });
        if (!near) continue;
        o.push_back(of_data[static_cast<std::size_t>(i)]);
        c.push_back(of_model[static_cast<std::size_t>(i)]);
      }
    }
  }
  const auto mean = [](const std::vector<double>& v) {
    return std::accumulate(v.begin(), v.end(), 0.0) / static_cast<double>(v.size());
  };
  double oc = 0.0, oo = 0.0, cc = 0.0;
  for (std::size_t i = 0; i < o.size(); ++i) {
    oc += (o[i] - mean(o)) * (c[i] - mean(c));
    oo += std::pow(o[i] - mean(o), 2);
    cc += std::pow(c[i] - mean(c), 2);
  }
  qx_density_correlation found[2] = {};
  ASSERT_EQ(qx_calc_density_correlation(radius, system.natom, group.data(), 2, found), ok);
  EXPECT_EQ(found[0].points, 0);
  EXPECT_EQ(found[1].atoms, 3);
  EXPECT_EQ(found[1].points, static_cast<int>(o.size()));
  EXPECT_NEAR(found[1].correlation, oc / std::sqrt(oo * cc), 1e-5);
  EXPECT_LT(found[1].correlation, 0.999);
  double squares = 0.0;
  for (const double value : of_data) squares += value * value;
  const double rms = std::sqrt(squares / static_cast<double>(of_data.size()));
  EXPECT_NEAR(found[1].density, mean(o) / rms, 1e-4);
}

TEST_F(Scaling, switchesDecideWhatIsPrintedAndTheHarvestHasTheNumbers) {
  simulate(1.3, 0.35, 40.0, 25.0, 1500);
  struct Row {
    const char *text, *line;
    bool shown;
  };
  for (const Row& row : {Row{"xoverall\nscale\nxend\n", "Least squares  ", true},
                         Row{"xverbose\nparam verb_ls 0\nxend\n", "", true},
                         Row{"xoverall\nscale\nxend\n", "Least squares  ", false},
                         Row{"xrfactor\ncalc\nxend\n", "RFree       R\n", false},
                         Row{"xmlf\nestimate\nxend\n", "Likelihood     ", false},
                         Row{"xmlf\nprint\nxend\n", "Processor time", false},
                         Row{"xverbose\nparam verb_binr 1 verb_ml 1 verb_cpu 2\nxend\n", "", true},
                         Row{"xrfactor\ncalc\nxend\n", "RFree       R\n", true},
                         Row{"xmlf\nestimate\nxend\n", "Likelihood     ", true},
                         Row{"xmlf\nprint\nxend\n", "Processor time XMLF PRIN     : 0.", true},
                         Row{"xwilson\nparam nbin 8\nplot\nxend\n", "XWIL PLOT", true}}) {
    const SectionResult result = section(row.text);
    ASSERT_TRUE(result.ok) << result.output;
    EXPECT_EQ(result.output.find(row.line) != std::string::npos, row.shown)
        << row.text << result.output;
  }
  const qxharvest& harvest = *qx_get_qxharvest();
  qx_agreement work = {}, free = {};
  ASSERT_EQ(qx_get_rfactor(&work, &free), ok);
  qx_wilson_view wilson = {};
  ASSERT_EQ(qx_get_wilson_view(&wilson), ok);
  EXPECT_EQ(harvest.r_work, work.r);
  EXPECT_EQ(harvest.r_free, free.r);
  EXPECT_GT(harvest.r_free, 0.0);
  EXPECT_EQ(harvest.k_sol, model().k_sol);
  EXPECT_EQ(harvest.b_sol, model().b_sol);
  EXPECT_GT(harvest.b_sol, 0.0);
  EXPECT_EQ(harvest.fom, qx_get_qxml()->mean_fom);
  EXPECT_GT(harvest.fom, 0.0);
  EXPECT_EQ(harvest.wilson_b, wilson.b);
  EXPECT_NE(harvest.wilson_b, 0.0);
}

TEST_F(Scaling, faultsHaveTheirTexts) {
  const auto expect = [](const std::string& text, const std::string& said) {
    const SectionResult result = section(text);
    EXPECT_FALSE(result.ok) << text;
    EXPECT_NE(result.output.find(said), std::string::npos) << text << result.output;
    EXPECT_EQ(qx_exist_quorix(), 0);
    ASSERT_EQ(qx_create_quorix(), ok);
  };
  expect("xoverall\nscale\nxend\n", "qxxcry object has not been created yet");
  expect("xoverall\nparam solvent some\nxend\n", " Unknow solvent value: some ");
  expect("xoverall\nfoo\nxend\n", "*** Unknow xoverall task: FOO ***");
  expect("xrfactor\ncalc\nxend\n", "qxscale object has not been created ");
  expect("xrfactor\nfoo\nxend\n", "*** Unknow xrfactor task: FOO ***");
  expect("xmlf\nestimate\nxend\n", "qxxcry object has not been created yet");
  expect("xmlf\nfoo\nxend\n", "*** Unknow xmlf task: FOO ***");
  expect("xwilson\nplot\nxend\n", "qxxcry object has not been created yet");
  expect("xwilson\nfoo\nxend\n", "*** Unknow xwilson task: FOO ***");
  simulate(1.0, 0.0, 50.0, 0.0, 300);
  qxrefdata& data = *qx_get_qxrefdata();
  std::fill_n(data.fobs, data.nreflections, 0.0F);
  expect("xoverall\nscale\nxend\n", "reflections of the working set was observed");
  simulate(1.0, 0.0, 50.0, 0.0, 300);
  ASSERT_TRUE(section("xmol\nhydr yes\nxend\n").ok);
  expect("xmap\nparam type sigmaa\ngenerate\nxend\n", "qxml object has not been created yet.");
  simulate(1.0, 0.0, 50.0, 0.0, 16);
  ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
  expect("xmlf\nestimate\nxend\n", "are too few to estimate sigmaA from");
}

TEST_F(Scaling, amplitudesFromIntensitiesAndTheWilsonPlot) {
  simulate(1.0, 0.0, 50.0, 0.0);
  qxrefdata& data = *qx_get_qxrefdata();
  const auto n = static_cast<std::size_t>(data.nreflections);
  ASSERT_EQ(open_block(data.iobs, n, "test_i"), ok);
  ASSERT_EQ(open_block(data.sigi, n, "test_si"), ok);
  for (std::size_t i = 0; i < n; ++i) {
    data.iobs[i] = data.fobs[i] * data.fobs[i];
    data.sigi[i] = i % 10 == 0 ? 0.0F : 0.01F * data.iobs[i] + 1.0F;
  }
  const std::vector<float> truth(data.fobs, data.fobs + n);
  const SectionResult result =
      section("xwilson\nparam nbin 10 low 5\nplot\nmoments\ntwin\namplitudes\nprint\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  qx_wilson_view view = {};
  ASSERT_EQ(qx_get_wilson_view(&view), ok);
  EXPECT_EQ(view.nbins, 10);
  EXPECT_EQ(view.nleft_out, static_cast<std::int32_t>((n + 9) / 10));
  EXPECT_EQ(view.namplitudes + view.nleft_out, data.nreflections);
  for (std::size_t i = 0; i < n; ++i) {
    if (i % 10 == 0) {
      EXPECT_TRUE(std::isnan(data.fobs[i]));
    } else if (truth[i] > 30.0F) {
      EXPECT_NEAR(data.fobs[i] / truth[i], 1.0F, 0.01F);
    }
  }
}

}  // namespace
}  // namespace qx::test
