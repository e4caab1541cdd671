#include "grid/grid_size.h"

#include "grid/sub_box.h"

#include <cmath>
#include <gtest/gtest.h>

namespace qx::test {
namespace {

// Literally what the counts must satisfy.
bool allowed(std::int64_t m, std::int64_t multiple) {
  if (m % multiple != 0) return false;
  for (const int prime : {2, 3, 5}) {
    while (m % prime == 0) m /= prime;
  }
  return m == 1;
}

TEST(ClosestCount, isTheFirstAllowedFromBelow) {
  for (const std::int64_t multiple : {1, 2, 3, 4, 6, 12, 24, 10, 90}) {
    for (std::int32_t n = 1; n <= 2100; ++n) {
      std::int32_t expected = n;
      while (!allowed(expected, multiple)) ++expected;
      ASSERT_EQ(closest_count(n, multiple), expected) << n << " by " << multiple;
    }
  }
}

TEST(ClosestCount, namedCasesAndTheEndOfTheRange) {
  EXPECT_EQ(closest_count(151, 1), 160);
  EXPECT_EQ(closest_count(151, 3), 162);
  EXPECT_EQ(closest_count(-5, 4), 4);
  EXPECT_EQ(closest_count(2000000000, 1), 2000000000);
  EXPECT_EQ(closest_count(2147483647, 1), 0);
  EXPECT_EQ(closest_count(1, 1 << 30), 1 << 30);
}

TEST(CombineDivisors, refusesWhatNoTransformableCountCanHold) {
  std::int64_t multiple = 1;
  std::int32_t culprit = 0;
  const std::int32_t good[] = {2, 3, 4, 8};
  EXPECT_TRUE(combine_divisors(good, multiple, culprit));
  EXPECT_EQ(multiple, 24);
  for (const std::int32_t bad : {7, 0, -2, 22}) {
    const std::int32_t divisors[] = {2, bad};
    EXPECT_FALSE(combine_divisors(divisors, multiple, culprit));
    EXPECT_EQ(culprit, bad);
  }
}

struct Split {
  std::int32_t n[3];
  double megabytes;
  BoxSplit kind;
  std::int32_t boxes, planes;
};

class SplitGrid : public ::testing::TestWithParam<Split> {};

TEST_P(SplitGrid, byHand) {
  const Split& c = GetParam();
  std::int32_t boxes = 1;
  std::int32_t planes = c.n[2];
  EXPECT_EQ(split_grid(c.n[0], c.n[1], c.n[2], c.megabytes, boxes, planes), c.kind);
  EXPECT_EQ(boxes, c.boxes);
  EXPECT_EQ(planes, c.planes);
}

using enum BoxSplit;
INSTANTIATE_TEST_SUITE_P(
    Budgets, SplitGrid,
    ::testing::Values(
        // 196.6 MB needed.
        Split{{160, 160, 160}, 400.0, whole, 1, 160}, Split{{160, 160, 160}, 196.0, split, 2, 80},
        // 32 planes fit: 160 -> 80 -> 40 -> 20 is the first below.
        Split{{160, 160, 160}, 40.0, split, 8, 20},
        // 40 planes fit, and 40 planes are not fewer; nor is the budget that is just needed enough.
        Split{{160, 160, 160}, 49.2, split, 8, 20}, Split{{10, 10, 10}, 0.048, split, 2, 5},
        // No factor 2 left after 45 = 3 3 5: by 3 first.
        Split{{100, 100, 45}, 10.0, split, 3, 15},
        // 4 planes fit, fewer than the 5 that a split by 5 needs: every plane by itself.
        Split{{160, 160, 160}, 5.5, split, 160, 1}, Split{{10, 10, 10}, 0.0, split, 10, 1},
        Split{{10, 10, 10}, -99999.0, split, 10, 1}, Split{{10, 10, 10}, NAN, split, 10, 1},
        Split{{10, 10, 14}, 0.0, bad_grid, 1, 14}, Split{{10, 10, 1}, 0.0, no_factor, 1, 1},
        // 2^32 bytes count as none.
        Split{{1024, 1024, 512}, 0.5, whole, 1, 512}));

// One array of a box: alone within the budget whatever it takes, with all else in at most four.
TEST(BoxesUnderBudget, holdWhatOneArrayNeeds) {
  struct Row {
    std::int32_t n[3];
    double budget, held;
    std::int32_t boxes;
  };
  constexpr double big = 216.0;  // MB of 300 x 300 x 300
  const Row rows[] = {{{300, 300, 300}, 400, 100, 1},        {{300, 300, 300}, big + 100, 100, 1},
                      {{300, 300, 300}, big + 99.9, 100, 2}, {{300, 300, 300}, 400, 215, 2},
                      {{300, 300, 300}, 400, 320, 3},        {{300, 300, 300}, 400, 350, 4},
                      {{300, 300, 300}, 400, 399, 4},        {{300, 300, 300}, 400, 1e6, 4},
                      {{300, 300, 300}, 50, 250, 5},         {{300, 300, 300}, 43.2, 250, 5},
                      {{300, 300, 300}, 43.1, 250, 6},       {{300, 300, 300}, 10, 250, 25},
                      {{300, 300, 300}, 0.5, 0, 300},        {{300, 300, 300}, 0, 0, 300},
                      {{300, 300, 225}, 400, 399, 5},        {{10, 10, 1}, 0, 0, 1},
                      {{2000, 2000, 2000}, 64000, 0, 1},     {{2000, 2000, 2000}, 32000, 0, 2}};
  for (const Row& row : rows) {
    EXPECT_EQ(boxes_under_budget(row.n[0], row.n[1], row.n[2], row.budget, row.held), row.boxes)
        << row.n[2] << " planes, " << row.budget << " MB, held " << row.held;
  }
}

}  // namespace
}  // namespace qx::test
