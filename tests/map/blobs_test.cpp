// Connected regions and masks against searches point by point.
#include <quorix/density_box.h>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace qx::test {
namespace {

// A box of noise, and neighbours as one who knows nothing of runs sees them.
struct Noise {
  std::vector<double> values;
  std::vector<std::uint8_t> mask;
  qx_density_box box;

  Noise(unsigned seed, const int (&counts)[3], const int (&starts)[3], const int (&intervals)[3])
      : box{nullptr,
            {counts[0], counts[1], counts[2]},
            {starts[0], starts[1], starts[2]},
            {intervals[0], intervals[1], intervals[2]}} {
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    const auto n = static_cast<std::size_t>(counts[0] * counts[1] * counts[2]);
    for (std::size_t i = 0; i < n; ++i) {
      values.push_back(normal(random));
      mask.push_back(random() % 5 == 0 ? 1 : 0);
    }
    box.density = values.data();
  }
  [[nodiscard]] std::vector<std::size_t> neighbours(std::size_t i) const {
    const auto at = static_cast<int>(i);
    const int nx = box.counts[0];
    const int ny = box.counts[1];
    const int place[3] = {at % nx, at / nx % ny, at / nx / ny};
    std::vector<std::size_t> list;
    for (int axis = 0; axis < 3; ++axis) {
      for (const int step : {-1, 1}) {
        int other[3] = {place[0], place[1], place[2]};
        other[axis] += step;
        const int count = box.counts[axis];
        if (count == box.intervals[axis]) other[axis] = (other[axis] + count) % count;
        if (other[axis] < 0 || other[axis] >= count) continue;
        list.push_back(static_cast<std::size_t>((other[2] * ny + other[1]) * nx + other[0]));
      }
    }
    return list;
  }
};

// Points and sum of each region, in order.
using Regions = std::vector<std::pair<std::int64_t, double>>;

Regions flooded(const Noise& noise, double level) {
  const double sign = level < 0 ? -1 : 1;
  std::vector<bool> open(noise.values.size());
  for (std::size_t i = 0; i < open.size(); ++i) {
    open[i] = sign * noise.values[i] >= sign * level && noise.mask[i] == 0;
  }
  Regions regions;
  for (std::size_t i = 0; i < open.size(); ++i) {
    if (!open[i]) continue;
    regions.emplace_back(0, 0.0);
    std::vector<std::size_t> stack = {i};
    open[i] = false;
    while (!stack.empty()) {
      const std::size_t at = stack.back();
      stack.pop_back();
      ++regions.back().first;
      regions.back().second += noise.values[at];
      for (const std::size_t other : noise.neighbours(at)) {
        if (open[other]) stack.push_back(other);
        open[other] = false;
      }
    }
  }
  return regions;
}

std::vector<qx_density_blob> blobs_of(const Noise& noise, double level) {
  const qx_density_box& box = noise.box;
  std::vector<qx_density_run> runs(
      static_cast<std::size_t>(qx_count_density_runs(&box, level, noise.mask.data())));
  std::vector<std::int64_t> rows(static_cast<std::size_t>(box.counts[1] * box.counts[2] + 1));
  const std::int64_t n =
      qx_find_density_runs(&box, level, noise.mask.data(), rows.data(), runs.data());
  std::vector<qx_density_blob> blobs(static_cast<std::size_t>(n));
  qx_measure_density_blobs(&box, static_cast<std::int64_t>(runs.size()), runs.data(), n,
                           blobs.data());
  return blobs;
}

TEST(DensityBlobs, areWhatAFloodFills) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    // A cell, and a part that is whole along y only; regions of all sizes up to nearly everything.
    const Noise cell(seed, {7, 6, 5}, {0, 0, 0}, {7, 6, 5});
    const Noise part(seed, {7, 6, 5}, {3, -2, 9}, {12, 6, 15});
    for (const Noise* noise : {&cell, &part}) {
      for (const double level : {1.5, 0.5, -0.3, -1.0}) {
        const Regions expected = flooded(*noise, level);
        const auto found = blobs_of(*noise, level);
        ASSERT_EQ(found.size(), expected.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
          EXPECT_EQ(found[i].points, expected[i].first);
          EXPECT_NEAR(found[i].sum, expected[i].second, 1e-9);
        }
      }
    }
  }
}

// A box of points about the corner of the cell: its centre is there, in whichever period.
TEST(DensityBlobs, crossTheBordersOfTheCell) {
  Noise noise(0, {10, 12, 8}, {0, 0, 0}, {10, 12, 8});
  std::fill(noise.values.begin(), noise.values.end(), 0.0);
  std::fill(noise.mask.begin(), noise.mask.end(), std::uint8_t{0});
  for (const int z : {7, 0}) {
    for (const int y : {11, 0}) {
      for (const int x : {8, 9, 0, 1}) {
        noise.values[static_cast<std::size_t>((z * 12 + y) * 10 + x)] = 2.0;
      }
    }
  }
  noise.values[static_cast<std::size_t>((7 * 12 + 11) * 10 + 9)] = 2.5;
  const auto blobs = blobs_of(noise, 1.0);
  ASSERT_EQ(blobs.size(), 1U);
  EXPECT_EQ(blobs[0].points, 16);
  EXPECT_EQ(blobs[0].peak, 2.5);
  // In one piece: where its first point is, or periods away from there.
  EXPECT_EQ((blobs[0].indices[0] + 10) % 10, 9);
  const double expected[3] = {(9.5 - 0.5 * 0.5 / 32.5) / 10, (11.5 - 0.5 * 0.5 / 32.5) / 12,
                              (7.5 - 0.5 * 0.5 / 32.5) / 8};
  for (int axis = 0; axis < 3; ++axis) {
    const double apart = blobs[0].centroid[axis] - expected[axis];
    EXPECT_NEAR(apart, std::round(apart), 1e-12);
    const double to_peak =
        blobs[0].indices[axis] - blobs[0].centroid[axis] * noise.box.intervals[axis];
    EXPECT_NEAR(to_peak, -0.5 + 0.25 / 32.5, 1e-9);
  }
}

TEST(DensityMask, holdsThePointsWithinTheRadius) {
  const double cell[6] = {11, 13, 9, 80, 105, 118};
  const double places[2][3] = {{0.02, 0.97, 0.5}, {-1.3, 0.4, 2.95}};
  const double radius = 2.3;
  const double deg = std::acos(-1.0) / 180;
  const auto length = [&](const double(&f)[3]) {
    const double ab = std::cos(118 * deg);
    const double ac = std::cos(105 * deg);
    const double bc = std::cos(80 * deg);
    const double a = 11 * f[0];
    const double b = 13 * f[1];
    const double c = 9 * f[2];
    return std::sqrt(a * a + b * b + c * c + 2 * (a * b * ab + a * c * ac + b * c * bc));
  };
  const Noise whole(0, {20, 24, 16}, {0, 0, 0}, {20, 24, 16});
  const Noise part(0, {9, 10, 11}, {15, -3, 4}, {20, 24, 16});
  for (const Noise* noise : {&whole, &part}) {
    const qx_density_box& box = noise->box;
    std::vector<std::uint8_t> mask(noise->values.size());
    qx_mask_density_box(&box, cell, radius, 2, places, mask.data());
    std::size_t i = 0;
    for (int z = 0; z < box.counts[2]; ++z) {
      for (int y = 0; y < box.counts[1]; ++y) {
        for (int x = 0; x < box.counts[0]; ++x, ++i) {
          bool inside = false;
          for (const auto& place : places) {
            for (int n = 0; n < 343; ++n) {
              const double apart[3] = {(box.starts[0] + x) / 20.0 - place[0] + n % 7 - 3,
                                       (box.starts[1] + y) / 24.0 - place[1] + n / 7 % 7 - 3,
                                       (box.starts[2] + z) / 16.0 - place[2] + n / 49 - 3};
              inside = inside || length(apart) <= radius;
            }
          }
          ASSERT_EQ(mask[i] != 0, inside) << x << ' ' << y << ' ' << z;
        }
      }
    }
  }
}

}  // namespace
}  // namespace qx::test
