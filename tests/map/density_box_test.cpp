// Densities that leave the engine: they outlive it, and their boxes and values are those of the
// grid.
#include "map/map_engine.h"

#include <quorix/density_box.h>
#include <quorix/engine.h>
#include <quorix/views.h>

#include <cmath>
#include <cstdlib>
#include <vector>

namespace qx::test {
namespace {

class TakenDensity : public MapEngine {
 protected:
  void SetUp() override {
    MapEngine::SetUp();
    install({closed_group({}), {10, 12, 15, 90, 90, 90}, 5}, {10, 12, 15});
    ASSERT_EQ(generate({{{1, 2, 3}, 10.0, 30.0}, {{0, 1, 1}, 5.0, 200.0}}), ok);
  }
};

TEST_F(TakenDensity, outlivesTheEngineThatForgetsIt) {
  qx_map_view view;
  ASSERT_EQ(qx_make_map_density(), ok);
  ASSERT_EQ(qx_get_map_view(&view), 1);
  const std::vector<double> before(view.density, view.density + 10 * 12 * 15);
  const double held = qx_get_xmalloc_memory_size();
  double* taken = qx_take_map_density();
  ASSERT_NE(taken, nullptr);
  EXPECT_LE(qx_get_xmalloc_memory_size(), held - 8e-6 * 10 * 12 * 15);
  EXPECT_EQ(qx_get_map_view(&view), 0);
  EXPECT_EQ(qx_take_map_density(), nullptr);
  ASSERT_EQ(generate({{{1, 0, 0}, 1.0, 0.0}}), ok);  // another, whose points nobody asked for yet
  double* other = qx_take_map_density();
  ASSERT_NE(other, nullptr);
  EXPECT_NEAR(other[0], 2.0 / (10 * 12 * 15), 1e-9);
  std::free(other);
  qx_terminate_quorix();
  EXPECT_EQ(qx_take_map_density(), nullptr);
  EXPECT_TRUE(std::equal(before.begin(), before.end(), taken));
  std::free(taken);
}

// Values by the point's indices, of a box of 5 x 4 x 3 points from (8, -1, 2) on.
struct Box {
  std::vector<double> values;
  qx_density_box box = {nullptr, {5, 4, 3}, {8, -1, 2}, {10, 12, 15}};
  template <class F>
  explicit Box(F&& f) {
    for (int z = 2; z < 5; ++z) {
      for (int y = -1; y < 3; ++y) {
        for (int x = 8; x < 13; ++x) values.push_back(f(x, y, z));
      }
    }
    box.density = values.data();
  }
  double at(int order, double x, double y, double z) const {
    const double point[1][3] = {{x / 10, y / 12, z / 15}};
    double value = 0.0;
    qx_interpolate_density(&box, order, 1, point, &value);
    return value;
  }
};

TEST(DensityBox, partsGoOnByPeriodsAndEndAtTheBorder) {
  const Box whole([](int x, int y, int z) { return 100.0 * x + 10.0 * y + z; });
  qx_density_box part = {nullptr, {2, 2, 2}, {-1, 12, -12}, {10, 12, 15}};  // from (9, 0, 3)
  double values[8] = {};
  ASSERT_EQ(qx_cut_density_box(&whole.box, &part, values), 1);
  EXPECT_EQ(values[0], 903.0);
  EXPECT_EQ(values[1], 1003.0);
  EXPECT_EQ(values[7], 1014.0);
  part.starts[1] = 13;  // its second row is y = 2, still there; z = 5 is not
  part.starts[2] = 4;
  values[0] = 7.0;
  EXPECT_EQ(qx_cut_density_box(&whole.box, &part, values), 0);
  EXPECT_EQ(values[0], 7.0);
}

// Linear interpolation is exact for planes, cubic one for a square; at grid points all are.
TEST(DensityBox, valuesBetweenPoints) {
  const Box plane([](int x, int y, int z) { return 2.0 * x - 3.0 * y + 0.5 * z; });
  EXPECT_NEAR(plane.at(1, 9.25, 0.5, 3.75), 18.5 - 1.5 + 1.875, 1e-12);
  EXPECT_NEAR(plane.at(1, -0.75, 0.5, 3.75), 18.5 - 1.5 + 1.875, 1e-12);  // a period away
  EXPECT_EQ(plane.at(0, 9.4, 1.6, 3.0), 18.0 - 6.0 + 1.5);
  const Box square([](int x, int y, int) { return 1.0 * x * x + y; });
  EXPECT_NEAR(square.at(3, 9.3, 0.25, 3.0), 9.3 * 9.3 + 0.25, 1e-12);
  EXPECT_EQ(square.at(3, 12.0, 2.0, 4.0), 146.0);         // the last point needs no others
  EXPECT_TRUE(std::isnan(square.at(3, 11.5, 0.5, 3.0)));  // cubic: a point is missing beyond
  EXPECT_FALSE(std::isnan(square.at(1, 11.5, 0.5, 3.0)));
  EXPECT_TRUE(std::isnan(square.at(1, 7.5, 0.5, 3.0)));
  EXPECT_TRUE(std::isnan(square.at(3, NAN, 0.0, 3.0)));
  EXPECT_TRUE(std::isnan(square.at(1, 1e300, 0.0, 3.0)));
}

TEST_F(TakenDensity, boundsNeedAModel) {
  const std::int32_t intervals[3] = {10, 12, 15};
  std::int32_t low[3];
  std::int32_t high[3];
  EXPECT_EQ(qx_calc_model_bounds(3.0, intervals, low, high), failed);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

}  // namespace
}  // namespace qx::test
