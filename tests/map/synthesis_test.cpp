// Maps against the plain Fourier sum over the whole sphere of indices.
#include "map/map_engine.h"

#include <cmath>
#include <limits>
#include <random>

namespace qx::test {
namespace {

struct Group {
  const char* name;
  std::vector<std::string> generators;
  std::size_t order;
  Cell cell;
  double dmin;
};

void PrintTo(const Group& group, std::ostream* stream) { *stream << group.name; }

using Terms = std::vector<std::pair<Hkl, std::complex<double>>>;

class SynthesisBase : public MapEngine {
 protected:
  static Terms terms_of(const RandomCrystal& crystal, double dmin) {
    Terms terms;
    for (const Hkl& hkl : crystal.sphere(dmin)) {
      terms.emplace_back(hkl, crystal.structure_factor(hkl));
    }
    return terms;
  }

  // Largest deviation from the direct sum at scattered grid points, in units of the sum's own rms.
  static double deviation(const Terms& terms, double volume, std::mt19937& random) {
    double power = 0;
    for (const auto& term : terms) power += std::norm(term.second);
    const double rms = std::sqrt(power) / volume;
    qxmap* map = qx_get_qxmap();
    const qxgrid* grid = qx_get_qxgrid();
    double worst = 0;
    for (int i = 0; i < 40; ++i) {
      const int x = static_cast<int>(random() % static_cast<unsigned>(grid->nx));
      const int y = static_cast<int>(random() % static_cast<unsigned>(grid->ny));
      const int z = static_cast<int>(random() % static_cast<unsigned>(grid->nz));
      const double at[3] = {static_cast<double>(x) / grid->nx, static_cast<double>(y) / grid->ny,
                            static_cast<double>(z) / grid->nz};
      const double expected = direct_density(terms, volume, at);
      const double scale = map->scale ? 1.0 / rms : 1.0;
      worst = std::max(worst, std::abs(map_density(*map)[z][y][x] / scale - expected) / rms);
    }
    return worst;
  }

  // Counts that leave room (factor 1.0 and more of what the indices need) or make terms alias.
  static std::array<int, 3> counts_for(const RandomCrystal& crystal, double dmin, double factor) {
    int most[3] = {0, 0, 0};
    for (const Hkl& i : crystal.sphere(dmin)) {
      most[0] = std::max(most[0], i.h);
      most[1] = std::max(most[1], i.k);
      most[2] = std::max(most[2], i.l);
    }
    std::array<int, 3> n = {};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      std::int32_t count = 0;
      const double wanted = factor * (2.0 * most[axis] + 2.0);
      EXPECT_EQ(qx_get_closest_ngrid_wo_trn(static_cast<std::int32_t>(wanted), &count), ok);
      n[axis] = count;
    }
    return n;
  }
};

constexpr double tolerance = 2e-6;  // single-precision 2 pi in the phases of the mates

class Synthesis : public SynthesisBase, public ::testing::WithParamInterface<Group> {};

TEST_P(Synthesis, isTheFourierSumOnEveryRoad) {
  const Group& g = GetParam();
  const auto group = closed_group(g.generators);
  ASSERT_EQ(group.size(), g.order);
  RandomCrystal crystal(group, g.cell, 11);
  const Terms terms = terms_of(crystal, g.dmin);
  const std::vector<Row> rows = crystal.unique_rows(g.dmin);
  // Room for half a spectrum; points for every index but not for that; fewer than the indices need.
  for (const double factor : {1.3, 0.97, 0.6}) {
    (void)qx_create_quorix();
    install(crystal, counts_for(crystal, g.dmin, factor));
    ASSERT_EQ(generate(rows), ok);
    EXPECT_LT(deviation(terms, crystal.volume(), crystal.random()), tolerance) << factor;
    qx_get_qxmap()->scale = 1;
    ASSERT_EQ(generate(rows), ok);
    if (factor > 0.9) {
      EXPECT_LT(deviation(terms, crystal.volume(), crystal.random()), tolerance) << factor;
    }
    EXPECT_NEAR(qx_get_qxmap()->statistics.rms, 1.0, 1e-9);
  }
}

// Each row with all its mates and opposites, each orbit shuffled: the first of an orbit wins, so
// the others may say what they like.
TEST_P(Synthesis, furtherRowsOfAnOrbitDoNotCount) {
  const Group& g = GetParam();
  RandomCrystal crystal(closed_group(g.generators), g.cell, 12);
  const Terms terms = terms_of(crystal, g.dmin);
  std::vector<Row> rows = crystal.unique_rows(g.dmin);
  const std::size_t unique = rows.size();
  for (std::size_t i = 0; i < unique; ++i) {
    const Hkl mate = rows[i].hkl * crystal.group()[crystal.random()() % crystal.group().size()];
    rows.push_back({i % 2 ? mate : -mate, 1e3, 12.0});
  }
  install(crystal, counts_for(crystal, g.dmin, 1.2));
  ASSERT_EQ(generate(rows), ok);
  EXPECT_LT(deviation(terms, crystal.volume(), crystal.random()), tolerance);
}

// Rows that the symmetry extinguishes have amplitudes of rounding size only; with garbage in them
// the map must stay.
TEST_P(Synthesis, extinctRowsWeighNothing) {
  const Group& g = GetParam();
  RandomCrystal crystal(closed_group(g.generators), g.cell, 13);
  Terms terms = terms_of(crystal, g.dmin);
  std::vector<Row> rows = crystal.unique_rows(g.dmin);
  const auto strength = [](double amplitude) { return amplitude > 1e-6; };
  std::size_t extinct = 0;
  for (Row& row : rows) {
    if (strength(row.amplitude)) continue;
    row.amplitude = 500.0;
    ++extinct;
  }
  const std::string name = g.name;
  EXPECT_TRUE(extinct > 0 || (name != "C2" && name != "P212121" && name != "I23"));
  install(crystal, counts_for(crystal, g.dmin, 1.2));
  ASSERT_EQ(generate(rows), ok);
  EXPECT_LT(deviation(terms, crystal.volume(), crystal.random()), tolerance);
}

// Phases that the symmetry does not allow, of centric reflections above all: the map has its
// symmetry all the same, and its rms is known beforehand.
TEST_P(Synthesis, hasItsSymmetryWhateverThePhases) {
  const Group& g = GetParam();
  RandomCrystal crystal(closed_group(g.generators), g.cell, 15);
  std::vector<Row> rows = crystal.unique_rows(g.dmin);
  for (Row& row : rows) row = {row.hkl, 50.0, static_cast<double>(crystal.random()() % 360)};
  const int n = 72;  // every translation is a whole number of points
  install(crystal, {n, n, n});
  qx_get_qxmap()->scale = 1;
  ASSERT_EQ(generate(rows), ok);
  qxmap* map = qx_get_qxmap();
  for (int i = 0; i < 300; ++i) {
    int x[3], y[3];
    for (int& c : x) c = static_cast<int>(crystal.random()() % n);
    const auto& op = crystal.group()[crystal.random()() % crystal.group().size()];
    for (int r = 0; r < 3; ++r) {
      const int sum = op.r[r][0] * x[0] + op.r[r][1] * x[1] + op.r[r][2] * x[2];
      y[r] = ((sum + op.t24[r] * n / 24) % n + n) % n;
    }
    ASSERT_NEAR(map_density(*map)[x[2]][x[1]][x[0]], map_density(*map)[y[2]][y[1]][y[0]], 1e-5);
  }
  const View3<const double> all = {map_density(*map)[0][0], n, n, n};
  EXPECT_NEAR(statistics_of(all).rms, 1.0, 1e-7);
}

// With the flag set, a list of the whole sphere or of one row per orbit without opposites stands
// for itself alone.
TEST_P(Synthesis, oppositesWithRowsOfTheirOwn) {
  const Group& g = GetParam();
  RandomCrystal crystal(closed_group(g.generators), g.cell, 14);
  const Terms terms = terms_of(crystal, g.dmin);
  std::vector<Row> rows;
  for (const Row& row : crystal.unique_rows(g.dmin)) {
    rows.push_back(row);
    rows.push_back({-row.hkl, row.amplitude, -row.phase_deg});
  }
  for (const double factor : {1.3, 0.97}) {
    (void)qx_create_quorix();
    install(crystal, counts_for(crystal, g.dmin, factor));
    qx_get_qxrefdata()->friedel_flag = 1;
    qx_get_qxmap()->scale = 1;
    ASSERT_EQ(generate(rows), ok);
    EXPECT_LT(deviation(terms, crystal.volume(), crystal.random()), tolerance);
    EXPECT_NEAR(qx_get_qxmap()->statistics.rms, 1.0, 1e-9);
  }
}

const Cell oblique = {17.3, 21.9, 19.1, 81.0, 97.5, 108.0};
const Cell monoclinic = {23.1, 15.7, 19.4, 90.0, 103.0, 90.0};
const Cell orthorhombic = {17.0, 21.0, 26.0, 90.0, 90.0, 90.0};
const Cell tetragonal = {19.0, 19.0, 27.0, 90.0, 90.0, 90.0};
const Cell hexagonal = {22.0, 22.0, 25.0, 90.0, 90.0, 120.0};
const Cell rhombohedral = {21.0, 21.0, 21.0, 77.0, 77.0, 77.0};
const Cell cubic = {24.0, 24.0, 24.0, 90.0, 90.0, 90.0};

INSTANTIATE_TEST_SUITE_P(
    Groups, Synthesis,
    ::testing::Values(
        Group{"P1", {}, 1, oblique, 2.9}, Group{"P-1", {"-x,-y,-z"}, 2, oblique, 2.7},
        Group{"P21", {"-x,y+1/2,-z"}, 2, monoclinic, 2.6},
        Group{"C2", {"x+1/2,y+1/2,z", "-x,y,-z"}, 4, monoclinic, 2.3},
        Group{"P212121", {"-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2"}, 4, orthorhombic, 2.5},
        Group{"P31", {"-y,x-y,z+1/3"}, 3, hexagonal, 2.7},
        Group{"P41", {"-x,-y,z+1/2", "-y,x,z+1/4"}, 4, tetragonal, 2.5},
        Group{"P4322", {"-x,-y,z+1/2", "-y,x,z+3/4", "-x,y,-z"}, 8, tetragonal, 2.4},
        Group{"P6122", {"-y,x-y,z+1/3", "-x,-y,z+1/2", "y,x,-z+1/3"}, 12, hexagonal, 2.6},
        Group{"R3_hex", {"x+2/3,y+1/3,z+1/3", "-y,x-y,z"}, 9, hexagonal, 2.5},
        Group{"R3_rhomb", {"z,x,y"}, 3, rhombohedral, 2.7},
        Group{"R32", {"x+2/3,y+1/3,z+1/3", "-y,x-y,z", "y,x,-z"}, 18, hexagonal, 2.5},
        Group{"I23", {"x+1/2,y+1/2,z+1/2", "-x,-y,z", "-x,y,-z", "z,x,y"}, 24, cubic, 2.6},
        Group{"F432",
              {"x,y+1/2,z+1/2", "x+1/2,y,z+1/2", "-x,-y,z", "-x,y,-z", "z,x,y", "y,x,-z"},
              96,
              cubic,
              2.4},
        Group{"I4132",
              {"x+1/2,y+1/2,z+1/2", "-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2", "z,x,y",
               "y+3/4,x+1/4,-z+1/4"},
              48,
              cubic,
              2.6}),
    [](const auto& parameter) {
      std::string name = parameter.param.name;
      std::replace(name.begin(), name.end(), '-', 'm');
      return name;
    });

class MapOfFew : public SynthesisBase {
 protected:
  void SetUp() override {
    SynthesisBase::SetUp();
    install(crystal_, {18, 20, 24});
  }
  RandomCrystal crystal_{closed_group({}), {10, 11, 12, 90, 90, 90}, 1};
};

TEST_F(MapOfFew, theConstantTermCountsOnce) {
  for (const std::int16_t flag : {std::int16_t{0}, std::int16_t{1}}) {
    qx_get_qxrefdata()->friedel_flag = flag;
    ASSERT_EQ(generate({{{0, 0, 0}, 1320.0, 0.0}}), ok);
    EXPECT_NEAR(map_density(*qx_get_qxmap())[3][5][7], 1.0, 1e-12);
    EXPECT_NEAR(qx_get_qxmap()->mean, 1.0, 1e-12);
  }
  qx_get_qxmap()->scale = 1;
  ASSERT_EQ(generate({{{0, 0, 0}, 2.0 * 1320.0, 180.0}}), ok);
  EXPECT_NEAR(map_density(*qx_get_qxmap())[3][5][7], -1.0, 1e-12);
  EXPECT_NEAR(qx_get_qxmap()->mean, -2.0, 1e-12);
  EXPECT_NEAR(qx_get_qxmap()->rms, 2.0, 1e-12);
}

TEST_F(MapOfFew, whatIsNotFiniteIsZero) {
  const double nan = std::nan("");
  ASSERT_EQ(generate({{{1, 0, 0}, nan, 10.0}, {{0, 1, 0}, 5.0, nan}, {{0, 0, 1}, INFINITY, 0.0}}),
            ok);
  EXPECT_EQ(qx_get_qxmap()->statistics.maximum, 0.0);
  EXPECT_EQ(qx_get_qxmap()->rms, 0.0);
}

// Operators of a damaged file: an index still gets its term from one row only.
TEST_F(MapOfFew, operatorsThatAreNoGroupGiveEachIndexOneTerm) {
  qxspg* spg = qx_get_qxspg();
  spg->nops = 2;
  ASSERT_EQ(xfree(spg->ops), ok);
  spg->ops = reinterpret_cast<double(*)[16]>(allocate_zeroed<double>(32, "ops"));
  const Operator quarter = {{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}, {0, 0, 0}};
  set_operator(spg->ops[0], closed_group({})[0]);
  set_operator(spg->ops[1], quarter);
  const Hkl first = {1, 2, 3};
  const Hkl second = first * quarter * quarter;
  ASSERT_EQ(generate({{first, 10.0, 0.0}, {second, 7.0, 0.0}, {first * quarter, 1e3, 0.0}}), ok);
  Terms terms;
  for (const Hkl& i : {first, first * quarter}) terms.insert(terms.end(), {{i, 10.0}, {-i, 10.0}});
  for (const Hkl& i : {second, second * quarter}) terms.insert(terms.end(), {{i, 7.0}, {-i, 7.0}});
  std::mt19937 random(3);
  EXPECT_LT(deviation(terms, crystal_.volume(), random), tolerance);
}

// An empty map is not divided by its rms.
TEST_F(MapOfFew, aFlatMapIsNotScaled) {
  qx_get_qxmap()->scale = 1;
  ASSERT_EQ(generate({{{1, 0, 0}, 0.0, 0.0}}), ok);
  EXPECT_EQ(qx_get_qxmap()->statistics.rms, 0.0);
}

TEST_F(MapOfFew, hugeIndicesAreSummedOrReported) {
  ASSERT_EQ(generate({{{1000003, 0, 0}, 660.0, 0.0},
                      {{1000003, 0, 0}, 5.0, 0.0},
                      {{0, -900001, 1000000}, 66.0, 0.0}}),
            ok);
  // 1000003 = 18 * 55555 + 13: cos(2 pi 13 ix / 18), and so on.
  const double turn = 2.0 * std::acos(-1.0);
  const double expected = std::cos(turn * 13.0 * 5.0 / 18.0) +
                          0.1 * std::cos(turn * (-1.0 * 7.0 / 20.0 + 16.0 * 3.0 / 24.0));
  EXPECT_NEAR(map_density(*qx_get_qxmap())[3][7][5], expected, 1e-9);
  const std::string output = captured([&] {
    EXPECT_EQ(generate({{{INT32_MIN, 0, 0}, 1.0, 0.0}}), failed);
  });
  EXPECT_NE(output.find("too large for a map"), std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

// Whole turns change nothing, however many; what is no number gives no term.
TEST_F(MapOfFew, phasesOfAnySizeAreAngles) {
  const auto density = [&](double phase) {
    EXPECT_EQ(generate({{{1, 2, 3}, 660.0, phase}}), ok);
    return map_density(*qx_get_qxmap())[3][7][5];
  };
  const double turn = 2.0 * std::acos(-1.0);
  const double at = turn * (5.0 / 18.0 + 2.0 * 7.0 / 20.0 + 3.0 * 3.0 / 24.0);
  const double height = density(0.0) / std::cos(at);
  for (int phase = -720; phase <= 720; phase += 15) {
    ASSERT_NEAR(density(phase), height * std::cos(turn * phase / 360.0 - at), 1e-12) << phase;
  }
  EXPECT_NEAR(density(360e6 + 30.0), density(30.0), 1e-9);  // within reach of quarter turns
  EXPECT_NEAR(density(360e8 + 30.0), density(30.0), 1e-4);  // beyond it
  EXPECT_EQ(density(std::nan("")), 0.0);
  EXPECT_EQ(density(std::numeric_limits<double>::infinity()), 0.0);
}

// The density of a box is that of the cell at indices taken modulo the counts.
TEST_F(MapOfFew, boxesWrapAroundTheCell) {
  const std::vector<Row> rows = crystal_.unique_rows(2.5);
  ASSERT_EQ(generate(rows), ok);
  std::vector<double> cell(18 * 20 * 24);
  std::copy_n(map_density(*qx_get_qxmap())[0][0], cell.size(), cell.begin());
  qxmap* map = qx_get_qxmap();
  map->extent = frac_extent;
  const double limits[6] = {-1.26, 0.74, 0.95, 2.01, -0.5, -0.5};
  std::copy_n(limits, 6, map->limits);
  ASSERT_EQ(generate(rows), ok);
  const std::array<int, 6> bounds = {map->xlow,  map->xhigh, map->ylow,
                                     map->yhigh, map->zlow,  map->zhigh};
  EXPECT_EQ(bounds, (std::array<int, 6>{-23, 13, 19, 40, -12, -12}));
  double sum = 0;
  for (int y = 19; y <= 40; ++y) {
    for (int x = -23; x <= 13; ++x) {
      const double value = map_density(*map)[0][y - 19][x + 23];
      ASSERT_NEAR(value, cell[static_cast<std::size_t>((12 * 20 + y % 20) * 18 + (x + 36) % 18)],
                  1e-14);
      sum += value;
    }
  }
  EXPECT_NEAR(map->mean, sum / (22 * 37), 1e-12);
  map->scale = 1;
  ASSERT_EQ(generate(rows), ok);
  EXPECT_NEAR(map_density(*map)[0][3][4] * map->rms,
              cell[static_cast<std::size_t>((12 * 20 + 2) * 18 + 17)], 1e-12);
}

}  // namespace
}  // namespace qx::test
