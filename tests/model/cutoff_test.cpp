// The table of exponentials, the search for radii, the section that sets the threshold.
#include "crystal/cell.h"
#include "grid/grid.h"
#include "model/density.h"
#include "model/formfactors.h"
#include "model/gaussians.h"
#include "model/molsys.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/cell.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/model.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qx::test {
namespace {

class Radii : public Engine {
 protected:
  static void prepare(const std::vector<TestAtom>& atoms) {
    set_up_crystal("P 1", "30 40 50 80 100 110", 4.0, 10);
    set_up_model(atoms);
    ASSERT_TRUE(section("xgrid\nfrac 0.33\nxend\n").ok);
    ASSERT_TRUE(section("xcut\nxend\n").ok);
    ASSERT_EQ(qx_make_molformfact(), ok);
    ASSERT_EQ(qx_new_qxexptab(), ok);
  }
};

// |rho(r) / rho(0)| of an atom with exponentials of the standard library.
double ratio(std::int32_t atom, double b, double r) {
  const atfrmfactbase& base = *qx_get_atfrmfactbase();
  const std::int32_t entry = qx_get_molformfact()->index[atom];
  double at_r = 0.0;
  double at_0 = 0.0;
  for (int i = 0; i < 5; ++i) {
    const double total = base.b[entry][i] + b;
    const double a = base.a[entry][i] / std::pow(total, 1.5);
    at_0 += a;
    at_r += a * std::exp(-4 * std::numbers::pi * std::numbers::pi * r * r / total);
  }
  return std::fabs(at_r / at_0);
}

TEST_F(Radii, standWhereTheDensityFallsBelowTheThreshold) {
  const auto atoms = random_atoms(30, true, 17);
  prepare(atoms);
  for (const double ecut : {0.1, 0.005, 1e-6}) {
    ASSERT_EQ(qx_set_elec_den_rad_cutoff(ecut), ok);
    ASSERT_EQ(qx_update_qxradcut(), ok);
    const qxradcut& cut = *qx_get_qxradcut();
    double largest = 0.0;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      // U11 is by far the largest eigenvalue of the anisotropic ones, but for the mixed terms.
      double b = atoms[i].b;
      const auto index = static_cast<std::int32_t>(i);
      if (atoms[i].aniso) {
        double values[3];
        ASSERT_EQ(qx_calc_U_eigen_value(atoms[i].u.data(), values), 0);
        b = 8 * std::numbers::pi * std::numbers::pi * values[2];
      }
      b += qx_get_qxatomb()->b0;
      const double radius = cut.radius[i];
      // the last midpoint of an interval narrower than 0.2: the crossing is within 0.2 of it
      EXPECT_GT(ratio(index, b, radius - 0.2), ecut * 0.99) << i;
      EXPECT_LT(ratio(index, b, radius + 0.2), ecut * 1.01) << i;
      largest = std::max(largest, radius);
    }
    EXPECT_EQ(cut.largest, largest);
    // bisection of [0, 20]: radii are odd multiples of 20 / 2^k, at most 20 / 2^7
    EXPECT_EQ(std::fmod(largest * 128 / 20, 1.0), 0.0);
    const double* outer = qx_get_qxboundary()->outer;
    EXPECT_NEAR(outer[5], 1.0 + largest * qx_get_qxrecicell()->c, 1e-12);
    EXPECT_NEAR(outer[0], -largest * qx_get_qxrecicell()->a, 1e-12);
  }
}

TEST_F(Radii, areCappedWithAWarning) {
  auto atoms = random_atoms(3, false, 1);
  atoms[1] = {{0.5, 0.5, 0.5}, 26, 3, 1.0, 90.0};
  prepare(atoms);
  ASSERT_EQ(qx_set_elec_den_rad_uplimit(3.5), ok);
  ASSERT_EQ(qx_set_elec_den_rad_cutoff(0.01), ok);
  const std::string output = captured([] { ASSERT_EQ(qx_update_qxradcut(), ok); });
  EXPECT_NE(output.find("WARNING: atom(Fe+3) has non-ignorable electron density contribution\n"
                        " beyond the radius cutoff (3.500000).\n"),
            std::string::npos)
      << output;
  EXPECT_EQ(qx_get_qxradcut()->radius[1], 3.5);
}

TEST_F(Radii, ofAnAtomWithoutDensityAreTheLimit) {
  const double a[2] = {1.0, -1.0};
  const double b[2] = {10.0, 10.0};
  Gaussians terms;
  ASSERT_TRUE(atom_gaussians(2, a, b, 20.0, 1.0, terms));
  ASSERT_EQ(qx_new_qxexptab(), ok);
  const qxexptab& table = *qx_get_qxexptab();
  EXPECT_EQ(table.n, 300000);
  const ExpTable exp = {table.n, 1.0 / table.h, table.values};
  EXPECT_EQ(cutoff_radius(terms, exp, 0.005, 20.0).radius, 20.0);
  for (std::int32_t k = 0; k < table.n; ++k)
    ASSERT_NEAR(table.values[k] * std::exp(k * 1e-4), 1.0, 2e-14);
  EXPECT_EQ(exp(30.0), 0.0);
  EXPECT_EQ(exp(1e300), 0.0);
  EXPECT_EQ(exp(INFINITY), 0.0);
  EXPECT_NEAR(exp(1.0), std::exp(-1.0), 1e-4);
  EXPECT_NEAR(exp(29.99985), std::exp(-29.9998), 1e-17);
}

TEST_F(Radii, theSectionSetsTheThreshold) {
  struct Case {
    const char* command;
    double ecut;
    bool warns;
  };
  for (const Case& row : {Case{"ecut 1e-3", 1e-3, false}, Case{"ecut 0", 0.005, true},
                          Case{"param ecut 0.25", 0.25, false},
                          Case{"param ecut -1.0", 0.005, true}, Case{"ecut nan", 0.005, true}}) {
    const SectionResult result = section(std::string("xcut\n") + row.command + "\nxend\n");
    ASSERT_TRUE(result.ok) << result.output;
    EXPECT_EQ(qx_get_qxradcut()->ecut, row.ecut) << row.command;
    EXPECT_EQ(
        result.output.find("Warning: ecut <= 0.0, and reset it to 0.005\n") != std::string::npos,
        row.warns)
        << row.command;
  }
}

struct Fault {
  const char* name;
  Status (*run)();
  const char* report;
};

class RadiiFault : public Radii, public ::testing::WithParamInterface<Fault> {};

TEST_P(RadiiFault, isReportedAndEndsTheEngine) {
  prepare(random_atoms(4, true, 1));
  const std::string output = captured([] { EXPECT_EQ(GetParam().run(), failed); });
  EXPECT_NE(output.find(GetParam().report), std::string::npos) << output;
  EXPECT_EQ(qx_exist_quorix(), 0);
}

template <Status (*prepare)()>
Status then_update() {
  EXPECT_EQ(prepare(), ok);
  return qx_update_qxradcut();
}

Status no_base() { return qx_set_atfrmfactbase(nullptr); }
Status no_pickup() { return qx_set_molformfact(nullptr); }

INSTANTIATE_TEST_SUITE_P(
    each, RadiiFault,
    ::testing::Values(
        Fault{"noCut", then_update<qx_delete_qxradcut>,
              "\n qx_calc_qxradcut():\n qxradcut object has not been created yet \n"},
        Fault{"noPickup", then_update<no_pickup>,
              "\n qx_calc_qxradcut():\n molformfact object has not been created yet \n"},
        Fault{"noBase", then_update<no_base>,
              "\n qx_calc_qxradcut():\n atmfrmfactbase object has not been created yet \n"},
        Fault{"noSystem", then_update<qx_delete_molsys>,
              "\n qx_calc_qxradcut():\n molsys object has not been created yet \n"},
        Fault{"emptySystem", then_update<qx_new_molsys>,
              "\n qx_calc_qxradcut():\n molsys object has not been created yet \n"},
        Fault{"noCell", then_update<qx_delete_qxcell>,
              "\n qx_calc_qxradcut():\n qxcell object has not been created yet \n"},
        Fault{"noB", then_update<qx_delete_qxatomb>,
              "\n qx_calc_qxradcut():\n qxatomb object has not been created yet \n"},
        Fault{"noTable", then_update<qx_delete_qxexptab>,
              "\n qx_calc_qxradcut():\n qxexptab object has not been created yet \n"},
        Fault{"tableOfNothing", [] { return qx_init_qxexptab(0, 0.1); },
              "\nqx_init_qxexptab():\ninvalid input argument n = 0 \n"},
        Fault{"negativeStep", [] { return qx_init_qxexptab(10, -0.1); },
              "\nqx_init_qxexptab():\ninvalid input argument h = -0.1"},
        Fault{"cutOffOfAllDensity", [] { return run_section_text("xcut\necut 1\n") ? ok : failed; },
              "\nqx_set_elec_den_rad_cutoff():\ninvalid cut-off of the density: 1.000000 \n"},
        Fault{"endlessRadius", [] { return qx_set_elec_den_rad_uplimit(INFINITY); },
              "\nqx_set_elec_den_rad_uplimit():\n"},
        Fault{"unknownWord", [] { return run_section_text("xcut\nfoo\n") ? ok : failed; },
              "\nqx_xcut_ctrl():\n *** Unknow xcut task: FOO *** \n"},
        Fault{"ecutOfWords", [] { return run_section_text("xcut\necut x\n") ? ok : failed; },
              "\nqx_xcut_ctrl():\n"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace qx::test
