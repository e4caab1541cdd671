// What makes a look at a small file quick gives what the plain ways give.
#include "driver/commands/app.h"
#include "driver/commands/info/map_symmetry.h"
#include "driver/commands/unique_reflections.h"

#include <cmath>
#include <cstring>
#include <gemmi/reciproc.hpp>
#include <gtest/gtest.h>
#include <random>

namespace qx::test {
namespace {

// In a cell that every setting of the group's system can have.
gemmi::UnitCell cell_of(const gemmi::SpaceGroup& group) {
  switch (group.crystal_system()) {
    case gemmi::CrystalSystem::Triclinic:
      return {9, 13, 11, 70, 118, 65};
    case gemmi::CrystalSystem::Monoclinic:
      return std::strchr(group.qualifier, 'a')   ? gemmi::UnitCell(9, 13, 11, 118, 90, 90)
             : std::strchr(group.qualifier, 'b') ? gemmi::UnitCell(9, 13, 11, 90, 118, 90)
                                                 : gemmi::UnitCell(9, 13, 11, 90, 90, 118);
    case gemmi::CrystalSystem::Orthorhombic:
      return {9, 13, 11, 90, 90, 90};
    case gemmi::CrystalSystem::Tetragonal:
      return {11, 11, 14, 90, 90, 90};
    case gemmi::CrystalSystem::Trigonal:
    case gemmi::CrystalSystem::Hexagonal:
      return group.ext == 'R' ? gemmi::UnitCell(10, 10, 10, 76, 76, 76)
                              : gemmi::UnitCell(11, 11, 14, 90, 90, 120);
    case gemmi::CrystalSystem::Cubic:
      break;
  }
  return {13, 13, 13, 90, 90, 90};
}

TEST(UniqueReflections, areThoseOfTheWholeBoxInItsOrder) {
  for (const gemmi::SpaceGroup& group : gemmi::spacegroup_tables::main) {
    const gemmi::UnitCell cell = cell_of(group);
    for (const double low : {0.0, 5.0}) {
      std::vector<gemmi::Miller> found;
      for_all_unique(cell, &group, 1.7, low,
                     [&](const gemmi::Miller& hkl) { found.push_back(hkl); });
      std::vector<gemmi::Miller> plain;
      gemmi::for_all_reflections([&](const gemmi::Miller& hkl) { plain.push_back(hkl); }, cell,
                                 &group, 1.7, low, true);
      ASSERT_EQ(found, plain) << group.xhm();
      ASSERT_EQ(UniqueReflections(cell, &group, 1.7, low).count(), plain.size()) << group.xhm();
    }
  }
}

// Every pair of related points, looked for one by one in fractions of the cell.
SymmetryCheck plain_check(const qx_ccp4_map& map, const std::vector<float>& values,
                          const std::vector<std::string>& operators) {
  std::vector<std::pair<double, double>> pairs;
  const auto place = [&](const std::int64_t(&at)[3]) {
    std::int64_t i[3];
    for (int a = 0; a < 3; ++a) {
      const std::int64_t n = map.intervals[a];
      i[a] = ((at[a] - map.starts[a]) % n + n) % n;
      if (i[a] >= map.counts[a]) return std::int64_t{-1};
    }
    return (i[2] * map.counts[1] + i[1]) * map.counts[0] + i[0];
  };
  for (const std::string& text : operators) {
    const gemmi::Op op = gemmi::parse_triplet(text).wrap();
    if (op == gemmi::Op::identity()) continue;
    for (std::int64_t p = 0; p < static_cast<std::int64_t>(values.size()); ++p) {
      const std::int64_t own[3] = {p % map.counts[0] + map.starts[0],
                                   p / map.counts[0] % map.counts[1] + map.starts[1],
                                   p / map.counts[0] / map.counts[1] + map.starts[2]};
      std::array<double, 3> x = {};
      for (std::size_t a = 0; a < 3; ++a) x.at(a) = static_cast<double>(own[a]) / map.intervals[a];
      x = op.apply_to_xyz(x);
      std::int64_t mate[3];
      bool on_grid = true;
      for (std::size_t a = 0; a < 3; ++a) {
        const double at = x.at(a) * map.intervals[a];
        mate[a] = std::llround(at);
        on_grid = on_grid && std::fabs(at - static_cast<double>(mate[a])) < 1e-6;
      }
      if (!on_grid || std::equal(mate, mate + 3, own)) continue;
      const std::int64_t to = place(mate);
      if (to < 0) continue;
      pairs.emplace_back(values[static_cast<std::size_t>(place(own))],
                         values[static_cast<std::size_t>(to)]);
    }
  }
  SymmetryCheck check;
  check.pairs = static_cast<std::int64_t>(pairs.size());
  double a = 0, b = 0, aa = 0, bb = 0, ab = 0;
  const auto n = static_cast<double>(pairs.size());
  for (const auto& [x, y] : pairs) {
    a += x / n;
    b += y / n;
  }
  for (const auto& [x, y] : pairs) {
    aa += (x - a) * (x - a);
    bb += (y - b) * (y - b);
    ab += (x - a) * (y - b);
    check.largest = std::max(check.largest, std::fabs(x - y) / 1.0);
  }
  check.correlation = ab / std::sqrt(aa * bb);
  check.largest /= std::sqrt(aa / n);
  return check;
}

TEST(MapSymmetry, comparesEveryRelatedPairOfTheMap) {
  const std::vector<std::string> hexagonal = {"x,y,z", "-y,x-y,z+1/3", "y,x,-z", "x-y,-y,-z+2/3"};
  const std::vector<std::string> cubic = {"x,y,z", "z,x,y", "-y+1/4,-x+3/4,z", "-x,y+1/2,-z+1/2"};
  struct Case {
    qx_ccp4_map map;
    const std::vector<std::string>& operators;
  };
  const auto box = [](std::array<int, 3> counts, std::array<int, 3> starts, std::array<int, 3> n) {
    qx_ccp4_map map = {};
    std::copy_n(counts.begin(), 3, map.counts);
    std::copy_n(starts.begin(), 3, map.starts);
    std::copy_n(n.begin(), 3, map.intervals);
    return map;
  };
  const Case cases[] = {
      {box({12, 12, 18}, {0, 0, 0}, {12, 12, 18}), hexagonal},
      {box({7, 9, 20}, {-3, 5, -40}, {12, 12, 18}), hexagonal},
      {box({13, 14, 19}, {2, 0, 1}, {12, 12, 18}), hexagonal},
      {box({12, 10, 18}, {0, 0, 0}, {12, 10, 18}), hexagonal},  // not onto the grid
      {box({12, 12, 16}, {0, 0, 0}, {12, 12, 16}), hexagonal},
      {box({16, 16, 16}, {0, 0, 0}, {16, 16, 16}), cubic},
      {box({18, 18, 18}, {0, 0, 0}, {18, 18, 18}), cubic},
      {box({8, 16, 24}, {1, 2, 3}, {8, 16, 24}), cubic}};
  std::mt19937 random(5);
  std::normal_distribution<float> normal;
  for (const Case& c : cases) {
    std::vector<float> values(static_cast<std::size_t>(c.map.counts[0]) *
                              static_cast<std::size_t>(c.map.counts[1]) *
                              static_cast<std::size_t>(c.map.counts[2]));
    for (float& value : values) value = normal(random);
    const std::vector<double> doubles(values.begin(), values.end());
    const SymmetryCheck plain = plain_check(c.map, values, c.operators);
    EXPECT_GT(plain.pairs, 100);
    for (const SymmetryCheck& found : {check_symmetry(c.map, values.data(), c.operators),
                                       check_symmetry(c.map, doubles.data(), c.operators)}) {
      EXPECT_EQ(found.pairs, plain.pairs);
      EXPECT_NEAR(found.correlation, plain.correlation, 1e-9);
      EXPECT_NEAR(found.largest, plain.largest, 1e-6);
    }
  }
}

TEST(CommandLine, aSubcommandAloneIsTheOneAmongAll) {
  int status = 0;
  CLI::App all;
  build_app(all, status);
  for (const CLI::App* command : all.get_subcommands([](const CLI::App*) { return true; })) {
    CLI::App one;
    build_app(one, status, command->get_name().c_str());
    EXPECT_EQ(one.get_subcommands([](const CLI::App*) { return true; }).size(), 1U);
    EXPECT_EQ(one.get_subcommand(command->get_name())->help(), command->help());
  }
  CLI::App unknown;
  build_app(unknown, status, "maq");
  EXPECT_EQ(unknown.help(), all.help());
}

}  // namespace
}  // namespace qx::test
