// What views show is what sections have read and made; and there is nothing to see without an
// engine.
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/engine.h>
#include <quorix/views.h>

#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace qx::test {
namespace {

class Views : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    const std::string mtz = scratch_.file("in.mtz");
    // Two waves in P 21 21 21: (2 0 0) and (0 0 4), their mates told by the group.
    MtzMaker maker({{2, 0, 0}, {0, 0, 4}, {1, 2, 3}});
    write_file(mtz, maker.add("F", 'F', {100, 50, 25}).add("PHI", 'P', {0, 180, 60}).bytes());
    run("xcry\nread refl mtz file \"" + mtz +
        "\" coid map_coeffa=F map_coeffp=PHI\ncell 10 20 30 90 90 90\nspgname \"P 21 21 "
        "21\"\nxend\n");
    run("xgrid\nngrid nx=20 ny=40 nz=60\nxend\n");
    run("xfft\nxend\n");
  }
  static void run(const std::string& text) {
    const SectionResult result = section(text);
    ASSERT_TRUE(result.ok) << result.output;
  }
  ScratchDirectory scratch_;
};

TEST_F(Views, showCrystalReflectionsAndFile) {
  qx_cell_view cell;
  ASSERT_EQ(qx_get_cell_view(&cell), 1);
  EXPECT_NEAR(cell.volume, 6000.0, 1e-9);
  EXPECT_NEAR(cell.orthogonal[4], 20.0, 1e-9);
  EXPECT_NEAR(cell.resolution[2], 1.0 / 900, 1e-12);
  qx_group_view group;
  ASSERT_EQ(qx_get_group_view(&group), 1);
  EXPECT_EQ(group.number, 19);
  EXPECT_EQ(group.noperators, 4);
  qx_reflections_view set;
  ASSERT_EQ(qx_get_reflections_view(&set), 1);
  ASSERT_EQ(set.n, 3);
  EXPECT_EQ(set.l[1], 4);
  EXPECT_NEAR(set.s_length[0], 0.2, 1e-9);
  qx_mtz_view file;
  qx_mtz_column_view column;
  ASSERT_EQ(qx_get_mtz_view(nullptr, &file), 1);
  ASSERT_EQ(qx_get_mtz_column_view(nullptr, file.ncolumns - 1, &column), 1);
  EXPECT_STREQ(column.label, "PHI");
  EXPECT_EQ(column.type, 'P');
  EXPECT_EQ(column.values[2], 60.0F);
  EXPECT_EQ(qx_get_mtz_column_view(nullptr, file.ncolumns, &column), 0);
  EXPECT_EQ(qx_get_mtz_operator(nullptr, file.noperators), nullptr);
}

// h x = h (R x + t) for all x: the mate is h R and its phase h t.
TEST_F(Views, matesOfAnIndexFollowTheOperators) {
  qx_group_view group;
  ASSERT_EQ(qx_get_group_view(&group), 1);
  const std::int32_t hkl[3] = {1, -2, 3};
  const double x[4] = {0.13, 0.47, 0.71, 1.0};
  for (std::int32_t op = 0; op < group.noperators; ++op) {
    std::int32_t mate[3];
    double cycles = 0.0;
    ASSERT_EQ(qx_get_index_mate(op, hkl, mate, &cycles), 1);
    double direct = 0.0;
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 4; ++j) direct += hkl[i] * group.operators[op][4 * i + j] * x[j];
    }
    double by_mate = cycles;
    for (int i = 0; i < 3; ++i) by_mate += mate[i] * x[i];
    EXPECT_NEAR(std::remainder(direct - by_mate, 1.0), 0.0, 1e-12) << op;
  }
  std::int32_t mate[3];
  double cycles = 0.0;
  EXPECT_EQ(qx_get_index_mate(group.noperators, hkl, mate, &cycles), 0);
}

TEST_F(Views, showTheMapByPlanes) {
  run("xmap\nmapdef generated with amplitude input phase input\nextent frac xmin=0 xmax=0.5 ymin=0 "
      "ymax=0.25 zmin=0.5 zmax=1\ngenerate\nxend\n");
  qx_map_view map;
  ASSERT_EQ(qx_get_map_view(&map), 1);
  EXPECT_EQ(map.intervals[1], 40);
  EXPECT_EQ(map.starts[2], 30);
  const auto plane =
      static_cast<std::size_t>(map.counts[0]) * static_cast<std::size_t>(map.counts[1]);
  std::vector<float> values(2 * plane);
  ASSERT_EQ(qx_copy_map_planes_float(3, 2, values.data()), 1);
  std::vector<double> doubles(plane);
  ASSERT_EQ(qx_copy_map_planes_double(3, 1, doubles.data()), 1);
  for (std::size_t i = 0; i < plane; ++i) {
    EXPECT_EQ(values[i], static_cast<float>(map.density[3 * plane + i]));
    EXPECT_EQ(doubles[i], map.density[3 * plane + i]);
  }
  EXPECT_EQ(qx_copy_map_planes_float(map.counts[2] - 1, 2, values.data()), 0);
  EXPECT_EQ(qx_copy_map_planes_float(-1, 1, values.data()), 0);
}

TEST(ViewsWithoutAnEngine, areEmptyAndSayNothing) {
  qx_terminate_quorix();
  const auto deaths = qx_get_die_count();
  qx_cell_view cell;
  qx_group_view group;
  qx_limits_view limits;
  qx_grid_view grid;
  qx_reflections_view set;
  qx_atoms_view atoms;
  qx_map_view map;
  qx_mtz_view file;
  const std::string said = captured([&] {
    EXPECT_EQ(qx_get_cell_view(&cell) + qx_get_group_view(&group) + qx_get_limits_view(&limits) +
                  qx_get_grid_view(&grid) + qx_get_reflections_view(&set) +
                  qx_get_atoms_view(&atoms) + qx_get_map_view(&map) +
                  qx_get_map_reflections_view(&set) + qx_get_mtz_view(nullptr, &file),
              0);
    EXPECT_EQ(qx_get_structure_factor_count(), 0);
  });
  EXPECT_EQ(said, "");
  EXPECT_EQ(qx_get_die_count(), deaths);
}

}  // namespace
}  // namespace qx::test
