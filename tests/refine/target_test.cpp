// Gradients of the targets against differences of the targets' own values by direct recalculation.
#include "refine/target.h"

#include "core/tagged.h"
#include "crystal/reflections.h"
#include "model/molsys.h"
#include "scaling/observed.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>
#include <quorix/structfact.h>

#include <cmath>
#include <random>

namespace qx::test {
namespace {

struct Case {
  const char* group;
  const char* cell;
  const char* type;
  const char* partition = "";
};

class Gradients : public Engine, public ::testing::WithParamInterface<Case> {
 protected:
  static void set_up(const Case& c) {
    set_up_crystal(c.group, c.cell, 2.0, 1500);
    const auto atoms = random_atoms(24, true, 7);
    ASSERT_TRUE(section("xmod\nxend\n").ok);
    add_model_entry({atoms.begin(), atoms.begin() + 5});
    add_model_entry({atoms.begin() + 5, atoms.end()});
    ASSERT_TRUE(section("xmol\nhydr yes\nxend\n").ok);
    ASSERT_TRUE(section(std::string("xpartition\n") + c.partition + "xend\n").ok);
    for (const char* text : {"xgrid\nfrac 0.2\nxend\n", "xfft\nmemory 4000\nB0 25\nxend\n",
                             "xcut\necut 1e-7\nxend\n", "xfcc\ncalc\nxend\n"}) {
      ASSERT_TRUE(section(text).ok) << text;
    }
    qxrefdata& data = *qx_get_qxrefdata();
    const auto n = static_cast<std::size_t>(data.nreflections);
    ComplexF f;
    ASSERT_EQ(open_f(data.nreflections, f), ok);
    ASSERT_EQ(qx_calc_model_structure_factor(f.re.get(), f.im.get()), ok);
    ASSERT_EQ(open_block(data.fobs, n, "test_f"), ok);
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    for (std::size_t i = 0; i < n; ++i) {
      data.fobs[i] = static_cast<float>(
          1.4 * std::hypot(f.re[i] + 12.0 * normal(random), f.im[i] + 12.0 * normal(random)));
    }
    ASSERT_TRUE(section("xcross\nparam percent 20 seed -137\nxend\n").ok);
    ASSERT_TRUE(section("xoverall\nscale\nxend\n").ok);
    ASSERT_TRUE(section("xmlf\nestimate\nxend\n").ok);
    ASSERT_TRUE(section(std::string("xtarget\nparam type ") + c.type + "\nxend\n").ok);
  }
  static double value() {
    EXPECT_EQ(qx_calc_system_struct_factor(), ok);
    double target = 0.0;
    EXPECT_EQ(qx_calc_target(&target), ok);
    return target;
  }
  static double slope(double& parameter, double step) {
    const double saved = parameter;
    parameter = saved + step;
    const double up = value();
    parameter = saved - step;
    const double down = value();
    parameter = saved;
    return (up - down) / (2.0 * step);
  }
};

TEST_P(Gradients, areTheTargetsSlopes) {
  set_up(GetParam());
  ASSERT_EQ(qx_calc_target_gradient(), ok);
  std::int32_t natom = 0;
  const qx_atom_gradient* found = qx_get_target_gradient(&natom);
  ASSERT_EQ(natom, 24);
  const std::vector<qx_atom_gradient> gradient(found, found + natom);
  molsys& system = *qx_get_molsys();
  qxatomb& atomb = *qx_get_qxatomb();
  qxatomocc& atomocc = *qx_get_qxatomocc();
  // Norms over some atoms, by kind of parameter: xyz, B, U, occupancy.
  double difference[4] = {}, size[4] = {};
  const auto compare = [&](int kind, double analytic, double numeric) {
    difference[kind] += (analytic - numeric) * (analytic - numeric);
    size[kind] += numeric * numeric;
  };
  for (const std::int32_t atom : {0, 3, 7, 8, 14, 21}) {
    const qx_atom_gradient& g = gradient[static_cast<std::size_t>(atom)];
    double* axes[3] = {system.x, system.y, system.z};
    for (int i = 0; i < 3; ++i) compare(0, g.xyz[i], slope(axes[i][atom], 0.005));
    if (atomb.index[atom] >= 0) {
      compare(1, g.b, slope(atomb.b_iso[atomb.index[atom]], 0.1));
    } else {
      double(&u)[6] = atomb.u_aniso[~atomb.index[atom]];
      for (int i = 0; i < 6; ++i) compare(2, g.u[i], slope(u[i], 0.001));
    }
    compare(3, g.occupancy, slope(atomocc.occupancy[atom], 0.01));
  }
  for (int kind = 0; kind < 4; ++kind) {
    EXPECT_LT(std::sqrt(difference[kind] / size[kind]), 0.01) << GetParam().group << " " << kind;
  }
}

INSTANTIATE_TEST_SUITE_P(groupsAndTargets, Gradients,
                         ::testing::Values(Case{"P 1", "21 24 27 80 95 110", "ls"},
                                           Case{"C 1 2 1", "40 21 25 90 99 90", "ml"},
                                           Case{"P 43 21 2", "31 31 42 90 90 90", "ml",
                                                "by entry\nscale 1 0.7 12\n"},
                                           Case{"P 31 2 1", "33 33 41 90 90 120", "ls"}));

class Target : public Gradients {};

TEST_F(Target, fixedParametersHaveNoGradientAndFaultsTheirTexts) {
  set_up({"P 21 21 21", "24 28 33 90 90 90", "ml"});
  qx_get_molsys()->frozen[0] = 0;
  qx_get_qxatomb()->fixed[0] = 1;
  qx_get_qxatomocc()->fixed[0] = 1;
  const ScratchDirectory scratch;
  const std::string path = scratch.file("gradient.txt");
  ASSERT_TRUE(section("xtarget\ncalc\ngradient file \"" + path + "\"\ncheck 1\nxend\n").ok);
  std::int32_t natom = 0;
  const qx_atom_gradient& g = qx_get_target_gradient(&natom)[0];
  EXPECT_EQ(g.xyz[0], 0.0);
  EXPECT_EQ(g.b, 0.0);
  EXPECT_EQ(g.occupancy, 0.0);
  const std::string text = read_file(path);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 25);
  const SectionResult unknown = section("xtarget\nfoo\nxend\n");
  EXPECT_NE(unknown.output.find("*** Unknow xtarget task: FOO ***"), std::string::npos);
  ASSERT_EQ(qx_create_quorix(), ok);
  const SectionResult early = section("xtarget\ncalc\nxend\n");
  EXPECT_NE(early.output.find("qxxcry object has not been created yet"), std::string::npos);
}

}  // namespace
}  // namespace qx::test
