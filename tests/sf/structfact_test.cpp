// Structure factors by FFT against the plain sum over atoms and operators.
#include "sf/structfact.h"

#include "core/tagged.h"
#include "crystal/reflections.h"
#include "grid/grid.h"
#include "sf/assemble.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/grid.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace qx::test {
namespace {

class StructureFactors : public Engine {
 protected:
  // Grid, transform, cut-off and calculation, as sections.
  static void calculate(const std::string& ecut, const std::string& memory = "4000",
                        const std::string& b0 = "20", const std::string& sincos = "yes") {
    const SectionResult result = section("xgrid\nfrac 0.33\nxend\n");
    ASSERT_TRUE(result.ok) << result.output;
    ASSERT_TRUE(
        section("xfft\nmemory " + memory + "\nsincos " + sincos + "\nB0 " + b0 + "\nxend\n").ok);
    ASSERT_TRUE(section("xcut\necut " + ecut + "\nxend\n").ok);
    const SectionResult calc = section("xfcc\ncalc\nxend\n");
    ASSERT_TRUE(calc.ok) << calc.output;
  }
};

struct Case {
  const char* group;
  const char* cell;
};

class InEveryGroup : public StructureFactors, public ::testing::WithParamInterface<Case> {};

TEST_P(InEveryGroup, agreesWithTheSumOverAtoms) {
  const auto atoms = random_atoms(40, true, 7);
  struct Bar {
    double d;
    const char* ecut;
    double r;
  };
  for (const Bar& bar :
       {Bar{2.0, "0.005", 0.015}, Bar{2.0, "1e-4", 1e-3}, Bar{3.0, "1e-4", 4e-3}}) {
    set_up_crystal(GetParam().group, GetParam().cell, bar.d, 400);
    set_up_model(atoms);
    calculate(bar.ecut);
    EXPECT_LE(vector_r(direct_sum(atoms), engine_sum()), bar.r) << bar.d << " " << bar.ecut;
  }
}

INSTANTIATE_TEST_SUITE_P(
    macromolecular, InEveryGroup,
    ::testing::Values(Case{"P 1", "21 24 27 80 95 110"}, Case{"P 1 21 1", "25 31 22 90 104 90"},
                      Case{"C 1 2 1", "40 21 25 90 99 90"}, Case{"P 21 21 21", "24 28 33 90 90 90"},
                      Case{"P 43 21 2", "31 31 42 90 90 90"},
                      Case{"P 31 2 1", "33 33 41 90 90 120"},
                      Case{"R 3 2 :H", "48 48 55 90 90 120"}, Case{"I 21 3", "44 44 44 90 90 90"}));

TEST_F(StructureFactors, reachHighResolution) {
  const auto atoms = random_atoms(30, true, 3);
  set_up_crystal("P 31", "25 25 31 90 90 120", 1.5, 600);
  set_up_model(atoms);
  calculate("0.005");
  EXPECT_LE(vector_r(direct_sum(atoms), engine_sum()), 0.025);
  calculate("1e-5");
  EXPECT_LE(vector_r(direct_sum(atoms), engine_sum()), 1e-3);
}

TEST_F(StructureFactors, subBoxesGiveTheSameAsOneBox) {
  const auto atoms = random_atoms(40, true, 5);
  set_up_crystal("P 43 21 2", "31 31 42 90 90 90", 2.0, 500);
  set_up_model(atoms);
  calculate("1e-3");
  const auto one_box = engine_sum();
  for (const char* sincos : {"yes", "no"}) {
    for (const auto& [memory, boxes] :
         {std::pair("4.5", 4), std::pair("0.1", 16), std::pair("0", 64)}) {
      calculate("1e-3", memory, "20", sincos);
      EXPECT_EQ(qx_get_qxsubgrid()->boxes[2], boxes) << memory;
      EXPECT_LE(vector_r(one_box, engine_sum()), 1e-10) << memory;
    }
  }
}

// What the road holds decides: one array, not six, beside the rest.
TEST_F(StructureFactors, stayWithinTheBudgetInAsFewBoxesAsWillDo) {
  const auto peak = [](const std::string& memory, std::int32_t boxes) {
    qx_terminate_quorix();
    EXPECT_EQ(qx_create_quorix(), ok);
    set_up_crystal("P 1", "60 61 62 90 95 90", 2.0, 9000);
    set_up_model(random_atoms(300, true, 5));
    calculate("1e-3", memory);
    EXPECT_EQ(qx_get_qxsubgrid()->boxes[2], boxes) << memory;
    return qx_get_max_memory_size();
  };
  constexpr double array = 8e-6 * 96 * 96 * 96;
  qx_set_threads(1);  // each further one has scratch of its own
  const double whole = peak("4000", 1);
  for (const auto& [share, boxes] : {std::pair(0.45, 2), std::pair(0.6, 3), std::pair(0.7, 4)}) {
    const double budget = whole - share * array;
    EXPECT_LE(peak(std::to_string(budget), boxes), budget + 0.1);
  }
  EXPECT_LE(peak("3", 4), whole - 0.7 * array);
  qx_set_threads(0);
}

// A shift moves the planes of the box: by theorem the same as the density moved along z.
TEST_F(StructureFactors, aShiftOfTheOneBoxIsHonoured) {
  set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.5, 300);
  set_up_model(random_atoms(12, true, 6));
  calculate("1e-3");
  double*** density = qx_open_qxelecden_box();
  const qxgrid& grid = *qx_get_qxgrid();
  const std::ptrdiff_t plane = std::ptrdiff_t{grid.nx} * grid.ny;
  constexpr std::int32_t shift = 5;
  std::vector<std::complex<double>> sums[2];
  for (const bool by_hand : {false, true}) {
    ASSERT_EQ(qx_calc_elec_den_map(0, density), ok);
    double* block = density[0][0];
    if (by_hand) {
      std::rotate(block, block + (grid.nz - shift) * plane, block + grid.nz * plane);
    }
    ASSERT_EQ(qx_new_qxstructfact(), ok);
    ASSERT_EQ(qx_set_pre_factor(), ok);
    ASSERT_EQ(qx_calc_sf_by_fft_eden(0, 0, by_hand ? 0 : shift, density), ok);
    sums[by_hand] = engine_sum();
  }
  EXPECT_LE(vector_r(sums[1], sums[0]), 1e-6);
}

// Hydrogen and deuterium against a sum with lengths written out here, half of them shared sites.
TEST_F(StructureFactors, deuteriumScattersNeutronsAsItself) {
  auto atoms = random_atoms(30, false, 12);
  const std::map<int, double> lengths = {{1, -3.739}, {2, 6.671}, {6, 6.646}, {8, 5.803}};
  std::vector<std::int32_t> mass;
  std::vector<double> weight;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    atoms[i].charge = 0;
    atoms[i].atomic_number = i % 3 == 0 ? 6 : i % 3 == 1 ? 8 : 1;
    mass.push_back(i % 6 == 5 ? 2 : 0);
    if (atoms[i].atomic_number == 1) atoms[i].occupancy = 0.5;
    weight.push_back(lengths.at(mass.back() == 2 ? 2 : atoms[i].atomic_number));
  }
  set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.0, 300);
  set_up_model(atoms, mass);
  ASSERT_TRUE(section("xform\ndiff neutron\nxend\n").ok);
  calculate("1e-6", "4000", "30");
  EXPECT_LE(vector_r(direct_sum(atoms, weight), engine_sum()), 2e-4);
  // To X-rays it is hydrogen.
  ASSERT_TRUE(section("xform\ndiff electron\natmf C 5 O 5\nxend\n").ok);
  const SectionResult electrons = section("xfcc\ncalc\nxend\n");
  ASSERT_TRUE(electrons.ok) << electrons.output;
  EXPECT_LE(vector_r(direct_sum(atoms, false), engine_sum()), 2e-4);
}

TEST_F(StructureFactors, doNotDependOnTheBlurring) {
  const auto atoms = random_atoms(30, false, 9);
  set_up_crystal("P 1 21 1", "25 31 22 90 104 90", 2.0, 300);
  set_up_model(atoms);
  const auto reference = direct_sum(atoms);
  for (const char* b0 : {"10", "20", "40"}) {
    calculate("1e-5", "4000", b0);
    EXPECT_LE(vector_r(reference, engine_sum()), 2e-3) << b0;
  }
}

TEST_F(StructureFactors, withoutBlurringThePrefactorIsTheSamplingVolume) {
  set_up_crystal("P 1", "10 20 30 90 90 90", 2.0, 10);
  set_up_model(random_atoms(3, false, 1));
  calculate("0.005", "4000", "0");
  const qxgrid& grid = *qx_get_qxgrid();
  const double volume = (10.0 / grid.nx) * (20.0 / grid.ny) * (30.0 / grid.nz);
  for (int i = 0; i < 10; ++i) EXPECT_DOUBLE_EQ(qx_get_qxstructfact()->prefactor[i], volume);
}

TEST_F(StructureFactors, neutronLengthsAndForcedGaussiansTakeEffect) {
  auto atoms = random_atoms(12, false, 4);
  for (TestAtom& atom : atoms) atom.charge = 0;
  set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.0, 200);
  set_up_model(atoms);
  ASSERT_TRUE(section("xform\natmf C 5 N 5 O 5 S 5\nxend\n").ok);
  calculate("1e-5");
  EXPECT_LE(vector_r(direct_sum(atoms, false), engine_sum()), 5e-4);
  ASSERT_TRUE(section("xform\ndiff neutron\nxend\n").ok);
  const SectionResult forced = section("xfcc\ncalc\nxend\n");
  ASSERT_TRUE(forced.ok) << forced.output;
  // Lengths are constants, so the ratio of two atoms alone is that of the lengths.
  EXPECT_GT(vector_r(direct_sum(atoms, false), engine_sum()), 0.1);
}

TEST_F(StructureFactors, phasesInTheTableNeverPassItsEnd) {
  const SinCosTable table = {100000, nullptr, nullptr};
  for (const double cycles : {-5e-17, -1e-300, 0.0, 1.0, -1.0, 0.99999999999999994, -123456.0}) {
    EXPECT_LT(table.index(cycles), 100000) << cycles;
    EXPECT_GE(table.index(cycles), 0) << cycles;
  }
  EXPECT_EQ(table.index(-0.25), 75000);
  ASSERT_EQ(qx_new_qxsincostab(), ok);
  ASSERT_EQ(qx_init_qxsincostab(), ok);
  const qxsincostab& made = *qx_get_qxsincostab();
  EXPECT_EQ(made.sine[0], 0.0);
  EXPECT_EQ(made.cosine[0], 1.0);
  for (int k = 0; k < 100000; ++k) {
    ASSERT_NEAR(made.sine[k], std::sin(k * 6.28318548202515e-5), 1e-14) << k;
    ASSERT_NEAR(made.cosine[k], std::cos(k * 6.28318548202515e-5), 1e-14) << k;
  }
}

TEST_F(StructureFactors, missingObjectsAreNamed) {
  struct Missing {
    std::function<Status()> run;
    const char* report;
  };
  const Missing cases[] = {
      {[] { return qx_calc_system_struct_factor(); },
       "\nqx_calc_system_struct_factor():\nmolsys object has not been created yet \n"},
      {[] { return qx_set_pre_factor(); },
       "\nqx_set_pre_factor()\n qxstructfact object has not been created yet.\n"},
      {[] { return qx_replace_refdata_fc(); }, "has not been created yet"},
      {[] { return qx_init_qxsincostab(); },
       "\nqx_init_qxsincostab():\n qxsincostab object has not been created yet \n"},
  };
  for (const Missing& row : cases) {
    ASSERT_EQ(qx_create_quorix(), ok);
    const std::string output = captured([&] { EXPECT_EQ(row.run(), failed); });
    EXPECT_NE(output.find(row.report), std::string::npos) << output;
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

TEST_F(StructureFactors, scalingFindsScaleAndB) {
  const auto atoms = random_atoms(40, false, 2);
  set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.0, 800);
  set_up_model(atoms);
  calculate("1e-4");
  qxrefdata* data = qx_get_qxrefdata();
  const auto f = engine_sum();
  data->fobs = allocate<float>(f.size(), "test");
  for (std::size_t i = 0; i < f.size(); ++i) {
    const double s = data->s_length[i];
    data->fobs[i] = static_cast<float>(2.5 * std::exp(-0.25 * 7.0 * s * s) * std::abs(f[i]));
  }
  data->fobs[5] = NAN;
  const SectionResult scaled = section("xcross\nparam percent 5 seed 3 NBIN 4\nxend\n");
  ASSERT_TRUE(scaled.ok) << scaled.output;
  const SectionResult result = section("xfcc\nscale\nreplace\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  EXPECT_NE(result.output.find("k = 2.50000  B = 7.000"), std::string::npos) << result.output;
  EXPECT_NEAR(data->fc[0], data->fobs[0], 1e-3 * data->fobs[0]);
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    EXPECT_GE(data->phic[i], 0.0F);
    EXPECT_LT(data->phic[i], 360.0F);
  }
}

// Sums, prefactors, splits and bins belong to one data set; another one may follow in their place.
TEST_F(StructureFactors, aNewDataSetFindsNothingOfTheOldOne) {
  const auto atoms = random_atoms(40, false, 2);
  set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.0, 30);
  set_up_model(atoms);
  calculate("1e-4");
  for (const int most : {800, 25}) {
    set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 2.0, most);
    double*** box = qx_open_qxelecden_box();
    ASSERT_EQ(qx_calc_elec_den_map(0, box), ok);
    ASSERT_EQ(qx_calc_sf_by_fft_eden(0, 0, 0, box), ok);
    ASSERT_EQ(qx_set_pre_factor(), ok);
    const auto f = engine_sum();
    EXPECT_LE(vector_r(direct_sum(atoms), f), 1e-3);
    qxrefdata* data = qx_get_qxrefdata();
    data->fobs = allocate<float>(f.size(), "test");
    for (std::size_t i = 0; i < f.size(); ++i) data->fobs[i] = static_cast<float>(std::abs(f[i]));
    if (most == 800) {
      ASSERT_TRUE(section("xcross\nparam percent 10\nxend\n").ok);
    }
    const SectionResult result = section("xfcc\nscale\nxend\n");
    ASSERT_TRUE(result.ok) << result.output;
    EXPECT_NE(result.output.find("k = 1.00000"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("Free set") != std::string::npos, most == 800);
  }
}

TEST_F(StructureFactors, unknownWordsAndEndlessSectionsAreReported) {
  EXPECT_EQ(section("xfcc\nfoo\n").output, "\nqx_xfc_ctrl():\n*** Unknow xfc task: FOO ***\n");
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(section("xfcc\n").output, "\nqx_xfc_ctrl():\nFailed to get quorix command. \n");
}

}  // namespace
}  // namespace qx::test
