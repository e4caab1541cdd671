// The solvent's mask by plain distances, and its structure factors by a plain sum over its points.
#include "solvent/mask.h"

#include "crystal/reflections.h"
#include "solvent/solvent.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/memory.h>
#include <quorix/model.h>
#include <quorix/reflections.h>

#include <cmath>
#include <complex>
#include <map>
#include <vector>

namespace qx::test {
namespace {

MaskGrid grid_of(std::int32_t nx, std::int32_t ny, std::int32_t nz, const double (&f)[9]) {
  return {nx, ny, nz, f[0] / nx, f[1] / ny, f[4] / ny, f[2] / nz, f[5] / nz, f[8] / nz};
}

// Shortest distance between two points of the lattice's grid, over copies of the second.
double distance(const MaskGrid& g, const double (&a)[3], const double (&b)[3]) {
  double shortest = 1e30;
  for (int i = -3; i <= 3; ++i) {
    for (int j = -3; j <= 3; ++j) {
      for (int k = -3; k <= 3; ++k) {
        const double d[3] = {a[0] - b[0] - i * g.nx, a[1] - b[1] - j * g.ny,
                             a[2] - b[2] - k * g.nz};
        const double x = d[0] * g.ax + d[1] * g.bx + d[2] * g.cx;
        const double y = d[1] * g.by + d[2] * g.cy;
        const double z = d[2] * g.cz;
        shortest = std::min(shortest, std::sqrt(x * x + y * y + z * z));
      }
    }
  }
  return shortest;
}

TEST(Mask, marksAndShrinksByDistance) {
  // A skew cell with an axis shorter than a sphere.
  const MaskGrid g = grid_of(12, 8, 15, {9.0, -2.0, 1.0, 0, 4.8, 0.7, 0, 0, 11.0});
  const double centre[3] = {0.93, 0.4, 0.05};
  const double radius = 3.1;
  const double shrink = 1.3;
  std::vector<std::uint8_t> mask(g.points()), shrunk(g.points());
  mark_sphere(g, centre, radius, mask.data());
  std::vector<std::uint8_t> scratch(shrink_scratch_size(g, shrink));
  shrink_mask(g, shrink, mask.data(), {0, g.nz}, scratch.data(), shrunk.data());
  const double at[3] = {centre[0] * g.nx, centre[1] * g.ny, centre[2] * g.nz};
  std::vector<std::array<double, 3>> outside;
  for (int z = 0; z < g.nz; ++z) {
    for (int y = 0; y < g.ny; ++y) {
      for (int x = 0; x < g.nx; ++x) {
        const double here[3] = {1.0 * x, 1.0 * y, 1.0 * z};
        const bool inside = distance(g, here, at) <= radius;
        ASSERT_EQ(mask[g.row(z, y) + static_cast<std::size_t>(x)], inside ? 1 : 0) << x << y << z;
        if (!inside) outside.push_back({here[0], here[1], here[2]});
      }
    }
  }
  for (int z = 0; z < g.nz; ++z) {
    for (int y = 0; y < g.ny; ++y) {
      for (int x = 0; x < g.nx; ++x) {
        const double here[3] = {1.0 * x, 1.0 * y, 1.0 * z};
        bool kept = distance(g, here, at) <= radius;
        for (const auto& point : outside) {
          const double other[3] = {point[0], point[1], point[2]};
          kept = kept && distance(g, here, other) > shrink;
        }
        ASSERT_EQ(shrunk[g.row(z, y) + static_cast<std::size_t>(x)], kept ? 1 : 0) << x << y << z;
      }
    }
  }
}

class SolventFactors : public Engine {
 protected:
  using Values = std::map<std::array<int, 3>, std::complex<double>>;
  static Values values() {
    const qxrefdata& data = *qx_get_qxrefdata();
    const qxsolvent& solvent = *qx_get_qxsolvent();
    Values out;
    for (int i = 0; i < data.nreflections; ++i) {
      out[{data.h[i], data.k[i], data.l[i]}] = {solvent.re[i], solvent.im[i]};
    }
    return out;
  }
};

TEST_F(SolventFactors, areTheSumOverTheMask) {
  set_up_crystal("P 1 21 1", "25 31 22 90 104 90", 2.5, 60);
  set_up_model(random_atoms(40, false, 7));
  ASSERT_EQ(qx_calc_solvent_structure_factor(), ok);
  const qxsolvent& solvent = *qx_get_qxsolvent();
  const MaskGrid& g = solvent.grid;
  const double volume = g.ax * g.nx * g.by * g.ny * g.cz * g.nz;
  int compared = 0;
  for (const auto& [hkl, value] : values()) {
    std::complex<double> sum = 0.0;
    for (std::size_t at = 0; at < g.points(); ++at) {
      if (solvent.mask[at]) continue;
      const auto x = static_cast<double>(at % static_cast<std::size_t>(g.nx)) / g.nx;
      const auto y = static_cast<double>(at / static_cast<std::size_t>(g.nx) %
                                         static_cast<std::size_t>(g.ny)) /
                     g.ny;
      const auto z = static_cast<double>(at / static_cast<std::size_t>(g.nx * g.ny)) / g.nz;
      sum += std::polar(1.0, 2.0 * M_PI * (hkl[0] * x + hkl[1] * y + hkl[2] * z));
    }
    sum *= volume / static_cast<double>(g.points());
    if (value == 0.0) continue;
    ++compared;
    EXPECT_LT(std::abs(sum - value), 1e-7 * volume);
  }
  EXPECT_GT(compared, 20);
}

TEST_F(SolventFactors, areThoseOfTheModelExpandedToP1) {
  const auto atoms = random_atoms(30, false, 3);
  const char* cell = "26 26 33 90 90 90";
  set_up_crystal("P 41 21 2", cell, 2.8, 400);
  set_up_model(atoms);
  ASSERT_EQ(qx_calc_solvent_structure_factor(), ok);
  const double fraction = qx_get_solvent_fraction();
  const Values in_group = values();
  std::vector<TestAtom> expanded;
  constexpr double ops[8][3][4] = {{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}},
                                   {{-1, 0, 0, 0}, {0, -1, 0, 0}, {0, 0, 1, .5}},
                                   {{0, -1, 0, .5}, {1, 0, 0, .5}, {0, 0, 1, .25}},
                                   {{0, 1, 0, .5}, {-1, 0, 0, .5}, {0, 0, 1, .75}},
                                   {{-1, 0, 0, .5}, {0, 1, 0, .5}, {0, 0, -1, .25}},
                                   {{1, 0, 0, .5}, {0, -1, 0, .5}, {0, 0, -1, .75}},
                                   {{0, 1, 0, 0}, {1, 0, 0, 0}, {0, 0, -1, 0}},
                                   {{0, -1, 0, 0}, {-1, 0, 0, 0}, {0, 0, -1, .5}}};
  for (const auto& op : ops) {
    for (TestAtom atom : atoms) {
      const auto f = atom.fractional;
      for (std::size_t i = 0; i < 3; ++i) {
        atom.fractional[i] = op[i][0] * f[0] + op[i][1] * f[1] + op[i][2] * f[2] + op[i][3];
      }
      expanded.push_back(atom);
    }
  }
  qx_terminate_quorix();
  ASSERT_EQ(qx_create_quorix(), ok);
  set_up_crystal("P 1", cell, 2.8, 100000);
  set_up_model(expanded);
  ASSERT_EQ(qx_calc_solvent_structure_factor(), ok);
  EXPECT_NEAR(qx_get_solvent_fraction(), fraction, 1e-6);
  const Values in_p1 = values();
  for (const auto& [hkl, value] : in_group) {
    const auto found = in_p1.find(hkl);
    const auto opposite = in_p1.find({-hkl[0], -hkl[1], -hkl[2]});
    ASSERT_TRUE(found != in_p1.end() || opposite != in_p1.end());
    const auto other = found != in_p1.end() ? found->second : std::conj(opposite->second);
    EXPECT_LT(std::abs(other - value), 1e-3 * (1.0 + std::abs(value)));
  }
}

TEST_F(SolventFactors, hydrogensAndAbsentAtomsLeaveNoMark) {
  set_up_crystal("P 1", "20 20 20 90 90 90", 3.0, 20);
  std::vector<TestAtom> atoms = {{{0.5, 0.5, 0.5}}, {{0.1, 0.1, 0.1}}};
  atoms[1].occupancy = 0.0;
  set_up_model(atoms);
  ASSERT_TRUE(section("xbulk\nparam probe 0 shrink 0\nmask\nxend\n").ok);
  const double one = 1.0 - qx_get_solvent_fraction();
  // A sphere of the carbon's radius alone.
  const double radius = qx_get_qxsolvent() ? 1.7 : 0.0;
  EXPECT_NEAR(one, 4.0 / 3.0 * M_PI * radius * radius * radius / 8000.0, 0.15 * one);
}

TEST_F(SolventFactors, faultsAreReported) {
  set_up_crystal("P 1", "20 20 20 90 90 90", 3.0, 20);
  const SectionResult none = section("xbulk\nmask\nxend\n");
  EXPECT_FALSE(none.ok);
  EXPECT_NE(none.output.find("molsys object has not been created yet "), std::string::npos);
  for (const auto& [line, text] : std::map<std::string, std::string>{
           {"param probe -1", "Invalid length of the solvent mask: -1.0"},
           {"param spacing 0", "Invalid length of the solvent mask: 0.0"},
           {"nonsense", "*** Unknow xbulk task: NONS ***"},
           {"write xyz file \"x\"", "Unknown map format: xyz"},
           {"write ccp4", "Undefined map file name. "}}) {
    ASSERT_EQ(qx_create_quorix(), ok);
    const SectionResult result = section("xbulk\n" + line + "\nxend\n");
    EXPECT_FALSE(result.ok);
    EXPECT_NE(result.output.find(text), std::string::npos) << line << result.output;
  }
}

TEST_F(SolventFactors, theMaskIsWrittenAsAMap) {
  set_up_crystal("P 21 21 21", "24 28 33 90 90 90", 3.0, 20);
  set_up_model(random_atoms(30, false, 5));
  const ScratchDirectory scratch;
  const std::string path = scratch.file("mask.ccp4");
  ASSERT_TRUE(section("xbulk\nmask\nwrite ccp4 file \"" + path + "\"\nxend\n").ok);
  qx_ccp4_map map = {};
  ASSERT_EQ(qx_rd_ccp4_map(path.c_str(), &map), ok);
  EXPECT_NEAR(map.mean, qx_get_solvent_fraction(), 1e-6);
  EXPECT_EQ(map.space_group, 19);
  EXPECT_EQ(xfree_3d_double(map.density), ok);
}

}  // namespace
}  // namespace qx::test
