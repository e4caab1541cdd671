// Maps without a part of the model: which atoms a region holds, what is left of F, whose points a
// composite map takes, and what becomes of atoms that are not in the crystal.
#include "map/omit.h"

#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "map/map.h"
#include "scaling/observed.h"
#include "solvent/solvent.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/engine.h>
#include <quorix/grid.h>
#include <quorix/map.h>
#include <quorix/reflections.h>
#include <quorix/solvent.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace qx::test {
namespace {

using Point = std::array<double, 3>;

Point image_of(const Point& f, std::int32_t op) {
  const double* m = qx_get_qxspg()->ops[op];
  Point out{};
  for (std::size_t i = 0; i < 3; ++i) {
    out[i] = m[4 * i] * f[0] + m[4 * i + 1] * f[1] + m[4 * i + 2] * f[2] + m[4 * i + 3];
  }
  return out;
}

double length_of(const Point& d) {
  const double* m = qx_get_qxcell()->standard_frac2orth;
  return std::hypot(m[0] * d[0] + m[1] * d[1] + m[2] * d[2], m[4] * d[1] + m[5] * d[2],
                    m[8] * d[2]);
}

// Calls work(copy) for all mates of a point in the cells about the origin.
template <class Work>
void for_each_mate(const Point& f, Work work) {
  for (std::int32_t op = 0; op < qx_get_qxspg()->nops; ++op) {
    const Point mate = image_of(f, op);
    for (int n = 0; n < 343; ++n) {
      Point copy = mate;
      const int shift[3] = {n % 7 - 3, n / 7 % 7 - 3, n / 49 - 3};
      for (std::size_t i = 0; i < 3; ++i) copy[i] += shift[i] - std::floor(mate[i]);
      work(copy);
    }
  }
}

std::vector<double> map_values() {
  qxmap& map = *qx_get_qxmap();
  const auto n = static_cast<std::size_t>(map.xhigh - map.xlow + 1) *
                 static_cast<std::size_t>(map.yhigh - map.ylow + 1) *
                 static_cast<std::size_t>(map.zhigh - map.zlow + 1);
  const double* values = map_density(map)[0][0];
  return {values, values + n};
}

class Omit : public Engine {
 protected:
  static void calculate(const std::string& fraction = "0.3") {
    for (const std::string& text :
         {"xgrid\nfrac " + fraction + "\nxend\n", std::string("xfft\nmemory 4000\nxend\n"),
          std::string("xcut\necut 1e-5\nxend\n"), std::string("xfcc\ncalc\nxend\n")}) {
      ASSERT_TRUE(section(text).ok) << text;
    }
  }
  // Amplitudes of `truth` with the solvent of the model and errors; scale and likelihood.
  static void observe(const std::vector<std::complex<double>>& truth, double noise) {
    qxrefdata& data = *qx_get_qxrefdata();
    const auto n = static_cast<std::size_t>(data.nreflections);
    ASSERT_EQ(qx_calc_solvent_structure_factor(), ok);
    const qxsolvent& solvent = *qx_get_qxsolvent();
    ASSERT_EQ(open_block(data.fobs, n, "test_f"), ok);
    std::mt19937 random(5);
    std::normal_distribution<double> normal;
    for (std::size_t i = 0; i < n; ++i) {
      const double s2 = data.s_length[i] * data.s_length[i];
      const double k_mask = 0.35 * std::exp(-0.25 * 45.0 * s2);
      const std::complex<double> wet =
          truth[i] + k_mask * std::complex<double>(solvent.re[i], solvent.im[i]);
      data.fobs[i] = static_cast<float>(
          std::abs(wet + noise * std::complex<double>(normal(random), normal(random))));
    }
    for (const char* text : {"xcross\nparam percent 10 seed -137\nxend\n",
                             "xoverall\nscale\nxend\n", "xmlf\nestimate\nxend\n"}) {
      const SectionResult result = section(text);
      ASSERT_TRUE(result.ok) << text << result.output;
    }
  }
  static void simulate(const char* group, const char* cell, int natom, double dmin = 2.2) {
    set_up_crystal(group, cell, dmin, 6000);
    atoms = random_atoms(natom, true, 7);
    set_up_model(atoms);
    calculate();
    observe(engine_sum(), 15.0);
  }
  inline static std::vector<TestAtom> atoms;
};

struct Case {
  const char* group;
  const char* cell;
};

class Regions : public Omit, public ::testing::WithParamInterface<Case> {
 protected:
  // What is left of F once the atoms that `within` tells are gone.
  template <class Within>
  static void expect_without(const std::string& region, Within within) {
    ASSERT_TRUE(section("xomit\n" + region + "\nparam rim 0\nexclude\nxend\n").ok) << region;
    std::vector<TestAtom> rest;
    std::copy_if(atoms.begin(), atoms.end(), std::back_inserter(rest), [&](const TestAtom& atom) {
      bool inside = false;
      for_each_mate(atom.fractional, [&](const Point& copy) { inside = inside || within(copy); });
      return !inside;
    });
    ASSERT_LT(rest.size(), atoms.size()) << region;
    ASSERT_GT(rest.size(), 0U) << region;
    EXPECT_LT(vector_r(direct_sum(rest), engine_sum()), 3e-3) << region;
    ASSERT_TRUE(section("xomit\nrestore\nxend\n").ok);
    EXPECT_LT(vector_r(direct_sum(atoms), engine_sum()), 3e-3);
  }
};

TEST_P(Regions, leaveOutTheAtomsAnyMateOfWhichTheyHold) {
  set_up_crystal(GetParam().group, GetParam().cell, 2.5, 300);
  atoms = random_atoms(60, true, 7);
  set_up_model(atoms);
  calculate();
  // Across a corner of the cell, and beyond it.
  expect_without("region frac xmin=0.9 xmax=1.15 ymin=-0.1 ymax=0.15 zmin=0.4 zmax=0.55",
                 [](const Point& p) {
                   return p[0] >= 0.9 && p[0] <= 1.15 && p[1] >= -0.1 && p[1] <= 0.15 &&
                          p[2] >= 0.4 && p[2] <= 0.55;
                 });
  const double* m = qx_get_qxcell()->orth2frac;
  const double at[3] = {2.0, 3.0, 21.0};
  Point centre{};
  for (std::size_t i = 0; i < 3; ++i) {
    centre[i] = m[4 * i] * at[0] + m[4 * i + 1] * at[1] + m[4 * i + 2] * at[2];
  }
  expect_without("region sphere x=2 y=3 z=21 radius=4.5", [&](const Point& p) {
    return length_of({p[0] - centre[0], p[1] - centre[1], p[2] - centre[2]}) <= 4.5;
  });
  expect_without("region atoms 3 7:9", [&](const Point& p) {
    return std::any_of(atoms.begin(), atoms.end(), [&](const TestAtom& atom) {
      const auto i = &atom - atoms.data();
      if (i != 2 && (i < 6 || i > 8)) return false;
      const Point& f = atom.fractional;
      return length_of({p[0] - f[0], p[1] - f[1], p[2] - f[2]}) < 1e-9;
    });
  });
}

INSTANTIATE_TEST_SUITE_P(groups, Regions,
                         ::testing::Values(Case{"P 1", "21 24 27 80 95 110"},
                                           Case{"C 1 2 1", "40 21 25 90 99 90"},
                                           Case{"P 43 21 2", "31 31 42 90 90 90"},
                                           Case{"P 31 2 1", "33 33 41 90 90 120"}));

TEST_F(Omit, aMapWithoutARegionIsThatOfTheModelWithoutItsAtoms) {
  simulate("P 21 21 21", "25 29 33 90 90 90", 120);
  const std::string region = "region frac xmin=0 xmax=0.3 ymin=0 ymax=0.3 zmin=0 zmax=0.4\n";
  for (const char* mask : {"keep", "clear"}) {
    const std::string head = "xomit\n" + region + "param u 2 v 1 mask " + mask + "\n";
    const SectionResult generated = section(head + "generate\nxend\n");
    ASSERT_TRUE(generated.ok) << generated.output;
    EXPECT_NE(generated.output.find("Omitted                     : "), std::string::npos);
    const std::vector<double> map = map_values();
    const double before = qx_get_solvent_fraction();
    ASSERT_TRUE(section(head + "exclude\nxend\n").ok);
    ASSERT_TRUE(section("xmap\nparam type sigmaa u 2 v 1\ngenerate\nxend\n").ok);
    const std::vector<double> other = map_values();
    ASSERT_EQ(map.size(), other.size());
    const double rms = qx_get_qxmap()->rms;
    for (std::size_t i = 0; i < map.size(); ++i) ASSERT_NEAR(map[i], other[i], 1e-4 * rms) << mask;
    if (std::string(mask) == "clear") {
      EXPECT_LT(qx_get_solvent_fraction(), before - 0.01);
      const MaskGrid& grid = qx_get_qxsolvent()->grid;
      EXPECT_EQ(
          qx_get_qxsolvent()
              ->mask[grid.row(grid.nz / 5, grid.ny / 8) + static_cast<std::size_t>(grid.nx / 8)],
          1);
    }
    ASSERT_TRUE(section("xomit\nrestore\nxend\n").ok);
  }
  // A composite of one group is the map without any atom.
  ASSERT_TRUE(section("xomit\ncomposite boxes 1\ngenerate\nxend\n").ok);
  const std::vector<double> composite = map_values();
  ASSERT_TRUE(
      section("xomit\nregion frac xmin=0 xmax=1 ymin=0 ymax=1 zmin=0 zmax=1\ngenerate\nxend\n").ok);
  EXPECT_EQ(composite, map_values());
}

TEST_F(Omit, everyPointOfACompositeIsOfItsNearestGroup) {
  simulate("P 31 2 1", "27 27 34 90 90 120", 70, 2.6);
  const SectionResult made = section("xomit\ncomposite boxes 6\nparam rim 1\ngenerate\nxend\n");
  ASSERT_TRUE(made.ok) << made.output;
  EXPECT_NE(made.output.find(": 6 groups of 70 atoms, "), std::string::npos) << made.output;
  const std::vector<double> composite = map_values();
  const qxgrid grid = *qx_get_qxgrid();
  const auto index = [&](const Point& f) {
    const std::int32_t n[3] = {grid.nx, grid.ny, grid.nz};
    std::size_t at[3];
    for (std::size_t i = 0; i < 3; ++i) {
      at[i] = static_cast<std::size_t>((std::lround(f[i] * n[i]) % n[i] + n[i]) % n[i]);
    }
    return (at[2] * static_cast<std::size_t>(grid.ny) + at[1]) * static_cast<std::size_t>(grid.nx) +
           at[0];
  };
  // It has the crystal's symmetry.
  double worst = 0.0;
  for (int i = 0; i < 4000; ++i) {
    const Point f = {static_cast<double>(i % grid.nx) / grid.nx,
                     static_cast<double>((7 * i) % grid.ny) / grid.ny,
                     static_cast<double>((11 * i) % grid.nz) / grid.nz};
    for (std::int32_t op = 0; op < qx_get_qxspg()->nops; ++op) {
      worst = std::max(worst, std::fabs(composite[index(f)] - composite[index(image_of(f, op))]));
    }
  }
  EXPECT_LT(worst, 1e-6);
}

TEST_F(Omit, pointsGoToTheNearestAtomsGroup) {
  set_up_crystal("P 43 21 2", "21 21 33 90 90 90", 3.0, 100);
  const auto points = random_atoms(25, false, 3);
  set_up_model(points);
  const molsys& system = *qx_get_molsys();
  const double* const axes[3] = {system.x, system.y, system.z};
  std::vector<std::int32_t> order(25), group(25);
  halve_atoms(25, axes, 7, order.data(), group.data());
  std::vector<int> sizes(7);
  for (const std::int32_t g : group) ++sizes.at(static_cast<std::size_t>(g));
  EXPECT_GE(*std::min_element(sizes.begin(), sizes.end()), 3);
  EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), 4);
  const double* f = qx_get_qxcell()->standard_frac2orth;
  const MaskGrid grid = {24,        24,        36,        f[0] / 24, f[1] / 24,
                         f[4] / 24, f[2] / 36, f[5] / 36, f[8] / 36};
  std::vector<std::uint16_t> owner(grid.points());
  std::vector<float> distance(grid.points());
  const PointOwners owners = {grid, owner.data(), distance.data()};
  clear_owners(owners);
  const auto claim = [&](std::size_t i) {
    for (std::int32_t op = 0; op < qx_get_qxspg()->nops; ++op) {
      const Point mate = image_of(points[i].fractional, op);
      const double at[3] = {mate[0], mate[1], mate[2]};
      claim_near(owners, at, 3.0, static_cast<std::uint16_t>(group[i]));
    }
  };
  for (std::size_t i = 0; i < 25; ++i) claim(i);
  const std::vector<std::uint16_t> near = owner;
  claim_rest(owners);
  ASSERT_TRUE(symmetrise_owners(owners, qx_get_qxspg()->nops, qx_get_qxspg()->ops));
  EXPECT_EQ(std::count(owner.begin(), owner.end(), PointOwners::nobody), 0);
  for (std::size_t p = 0; p < grid.points(); p += 97) {
    const Point at = {static_cast<double>(p % 24) / 24, static_cast<double>(p / 24 % 24) / 24,
                      static_cast<double>(p / 576) / 36};
    double nearest[7];
    std::fill_n(nearest, 7, 1e9);
    for (std::size_t i = 0; i < 25; ++i) {
      for_each_mate(points[i].fractional, [&](const Point& copy) {
        double& d = nearest[group[i]];
        d = std::min(d, length_of({copy[0] - at[0], copy[1] - at[1], copy[2] - at[2]}));
      });
    }
    const double least = *std::min_element(nearest, nearest + 7);
    if (least < 2.99) {
      EXPECT_LT(nearest[owner[p]], least + 1e-4) << p;
    } else if (least > 3.01) {
      EXPECT_EQ(near[p], PointOwners::nobody) << p;
    }
  }
}

TEST_F(Omit, aCompositeMapDoesNotShowWhatIsNotThere) {
  // Sixteen atoms of the model are not in the crystal.
  set_up_crystal("P 21 21 21", "27 31 36 90 90 90", 2.0, 20000);
  atoms = random_atoms(260, false, 9);
  for (TestAtom& atom : atoms) {
    // A molecule: what a box holds are its own atoms.
    const auto& f = atom.fractional;
    const auto within = [](double x, double size) { return size * (x - std::floor(x)); };
    atom = {{within(f[0], 0.5), within(f[1], 0.5), within(f[2], 1.0)}, 6, 0, 1.0, 15.0, false, {}};
  }
  const std::size_t real = atoms.size() - 16;
  set_up_model(atoms);
  calculate();
  observe(direct_sum({atoms.begin(), atoms.begin() + static_cast<std::ptrdiff_t>(real)}), 28.0);
  const auto at_atoms = [&](std::size_t first, std::size_t last) {
    qxmap& map = *qx_get_qxmap();
    const qxgrid& grid = *qx_get_qxgrid();
    const std::int32_t n[3] = {grid.nx, grid.ny, grid.nz};
    double sum = 0.0;
    for (std::size_t i = first; i < last; ++i) {
      std::int32_t at[3];
      for (std::size_t k = 0; k < 3; ++k) {
        at[k] =
            static_cast<std::int32_t>(std::lround(atoms[i].fractional[k] * n[k]) % n[k] + n[k]) %
            n[k];
      }
      sum += map_density(map)[at[2]][at[1]][at[0]];
    }
    return sum / static_cast<double>(last - first) / map.rms;
  };
  ASSERT_TRUE(section("xmap\nparam type sigmaa\ngenerate\nxend\n").ok);
  const double phantom_plain = at_atoms(real, atoms.size());
  const double true_plain = at_atoms(0, real);
  ASSERT_TRUE(section("xomit\ncomposite boxes 20\ngenerate\nxend\n").ok);
  const double phantom_omit = at_atoms(real, atoms.size());
  const double true_omit = at_atoms(0, real);
  EXPECT_GT(phantom_plain, 0.5);
  EXPECT_LT(phantom_omit, 0.15);
  EXPECT_GT(true_omit, 0.55 * true_plain);
}

TEST_F(Omit, oddRegionsHaveAResult) {
  simulate("P 21 21 21", "25 29 33 90 90 90", 40, 2.6);
  const SectionResult none =
      section("xomit\nregion sphere x=-70 y=90 z=300 radius=0\ngenerate\nxend\n");
  ASSERT_TRUE(none.ok) << none.output;
  EXPECT_NE(none.output.find(": 0 of 40 atoms"), std::string::npos) << none.output;
  const std::vector<double> without_nothing = map_values();
  ASSERT_TRUE(section("xmap\nparam type sigmaa\ngenerate\nxend\n").ok);
  EXPECT_EQ(without_nothing, map_values());
  const SectionResult whole = section(
      "xomit\nregion box xmin=-9 xmax=99 ymin=-9 ymax=99 zmin=-9 zmax=99\n"
      "param mask clear scale yes\nextent asym\ngenerate\nexclude\nxend\n");
  ASSERT_TRUE(whole.ok) << whole.output;
  EXPECT_NE(whole.output.find(": 40 of 40 atoms"), std::string::npos) << whole.output;
  for (const double value : map_values()) ASSERT_TRUE(std::isfinite(value));
  ASSERT_TRUE(section("xomit\nrestore\nxend\n").ok);
  const SectionResult many = section(
      "xomit\ncomposite boxes 999\nextent frac xmin=-0.2 xmax=0.3 "
      "ymin=0.5 ymax=1.2 zmin=0 zmax=0.1\ngenerate\nxend\n");
  ASSERT_TRUE(many.ok) << many.output;
  EXPECT_NE(many.output.find(": 40 groups of 40 atoms"), std::string::npos) << many.output;
}

TEST_F(Omit, withoutSolventThereIsNoneToClear) {
  simulate("P 21 21 21", "25 29 33 90 90 90", 40, 2.6);
  ASSERT_TRUE(section("xoverall\nparam solvent none\nscale\nxend\nxmlf\n").ok);
  ASSERT_TRUE(section("xmlf\nestimate\nxend\n").ok);
  const SectionResult clear =
      section("xomit\nregion atoms 1:5\nparam mask clear\ngenerate\nxend\n");
  ASSERT_TRUE(clear.ok) << clear.output;
  EXPECT_NE(clear.output.find("no solvent that could be cleared"), std::string::npos);
  const std::vector<double> map = map_values();
  ASSERT_TRUE(section("xomit\nregion atoms 1:5\ngenerate\nxend\n").ok);
  EXPECT_EQ(map, map_values());
}

TEST_F(Omit, faultsHaveTheirTexts) {
  const auto expect = [](const std::string& text, const std::string& said) {
    const SectionResult result = section("xomit\n" + text + "xend\n");
    EXPECT_FALSE(result.ok) << text;
    EXPECT_NE(result.output.find(said), std::string::npos) << text << result.output;
    EXPECT_EQ(qx_exist_quorix(), 0);
    ASSERT_EQ(qx_create_quorix(), ok);
  };
  expect("foo\n", "*** Unknow xomit task: FOO ***");
  expect("generate\n", "molsys object has not been created yet ");
  expect("region here\n", "Unknown region type. ");
  expect("region sphere x=1 y=2 z=3\n", "No radius for sphere defined. ");
  expect("composite boxes 0\n", "The number of boxes must lie between 1 and 10000: 0 ");
  expect("param rim -1\n", "Invalid rim of the region: -1.0");
  expect("param mask some\n", " Unknow mask value: some ");
  expect("region frac xmin=0 xmax=-1 ymin=0 ymax=1 zmin=0 zmax=1\n",
         "Invalid limits of the region");
  const auto again = [] { simulate("P 21 21 21", "25 29 33 90 90 90", 30, 2.8); };
  again();
  expect("generate\n", "There is no region to omit.");
  again();
  expect("region atoms 31\n", "There is no atom 31 to omit: the model has 30.");
  again();
  expect("region atoms 3:1\n", "Invalid number of atoms to omit: 3:1 ");
  again();
  expect("region atoms 1\ncomposite\ngenerate\n", "A composite map has regions of its own.");
  again();
  expect("region atoms 1\nwrite ccp4 file \"out\"\n", "There is no way to get map coefficients.");
  again();
  ASSERT_EQ(release(qx_get_qxrefdata()->fobs), ok);
  expect("region atoms 1\ngenerate\n", "There is no observed amplitude data defined yet.");
}

}  // namespace
}  // namespace qx::test
