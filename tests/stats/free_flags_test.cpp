// Which value marks the free set, over the columns that programs write.
#include "stats/free_flags.h"

#include <cmath>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace qx::test {
namespace {

using Counts = std::vector<std::pair<float, int>>;

std::vector<float> column_of(const Counts& counts) {
  std::vector<float> column;
  for (const auto& [value, count] : counts) {
    column.insert(column.end(), static_cast<std::size_t>(count), value);
  }
  return column;
}

Counts equal_groups(int n, int each, float first = 0.0F) {
  Counts counts;
  for (int i = 0; i < n; ++i) counts.emplace_back(first + static_cast<float>(i), each + i % 3);
  return counts;
}

std::optional<int> value_of(const Counts& counts, const char* label) {
  return free_value(tally_flags(column_of(counts)), is_one_free_label(label));
}

TEST(FreeFlags, theValueIsToldByCountsAndLabel) {
  struct Row {
    Counts counts;
    const char* label;
    std::optional<int> value;
  };
  const float none = NAN;
  const Row rows[] = {
      {{{0, 50}, {1, 950}}, "FREE", 0},
      {{{0, 950}, {1, 50}}, "R-free-flags", 1},
      {{{0, 950}, {1, 50}}, "FreeR_flag", 1},  // counts weigh more than labels
      {{{0, 50}, {1, 950}}, "R-free-flags", 0},
      {{{-1, 50}, {1, 950}}, "FREER", -1},
      {{{0, 5}, {1, 5}}, "FreeR_flag", 0},
      {{{0, 5}, {1, 5}}, "R_free_flags", 1},
      {equal_groups(20, 670), "R-free-flags", 0},
      {equal_groups(20, 670), "FreeR_flag", 0},
      {equal_groups(10, 67, 1.0F), "FREE", 1},
      {{{0, 900}, {1, 50}, {2, 1}}, "FreeR_flag", 1},
      {{{0, 50}, {1, 900}, {2, 60}}, "FreeR_flag", 0},
      {{{3, 900}, {5, 50}, {7, 60}}, "FREE", 7},
      {{{none, 900}, {0, 3}, {1, 97}}, "FREE", 0},
      {{{1, 900}}, "FREE", std::nullopt},
      {{{none, 900}}, "FREE", std::nullopt},
      {{{0.5F, 50}, {1, 900}}, "FREE", std::nullopt},
      {equal_groups(300, 2), "FREE", std::nullopt},
      {{}, "FREE", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(value_of(row.counts, row.label), row.value)
        << row.label << " " << &row - rows << ": " << value_of(row.counts, row.label).value_or(-99);
  }
}

TEST(FreeFlags, aTallyCountsEveryRow) {
  const float none = NAN;
  const FlagTally tally = tally_flags(column_of({{7, 3}, {none, 2}, {-4, 5}, {7, 1}, {0, 1}}));
  ASSERT_EQ(tally.n, 3);
  EXPECT_EQ(tally.values[0].value, -4);
  EXPECT_EQ(tally.count_of(7), 4U);
  EXPECT_EQ(tally.count_of(8), 0U);
  EXPECT_EQ(tally.flags, 10U);
  EXPECT_EQ(tally.missing, 2U);
  EXPECT_FALSE(tally_flags(column_of({{1e9F, 1}})).usable);
}

}  // namespace
}  // namespace qx::test
