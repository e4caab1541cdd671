#include "reflio/mtz_words.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace qx::test {
namespace {

TEST(MtzWords, stampNibblesAreTheFormats) {
  const unsigned char mixed[4] = {0x4f, 0x11, 0x22, 0x33};
  EXPECT_EQ(machine_stamp(mixed).reals, 4);
  EXPECT_EQ(machine_stamp(mixed).integers, 1);
  EXPECT_TRUE(known_number_format(1) && known_number_format(4));
  EXPECT_FALSE(known_number_format(0) || known_number_format(2) || known_number_format(5));
}

TEST(MtzWords, bigEndianBytesBecomeNumbers) {
  const unsigned char bytes[8] = {0x3f, 0x80, 0, 0, 0xc0, 0x49, 0x0f, 0xdb};  // 1, -pi
  float values[2];
  std::memcpy(values, bytes, 8);
  convert_words(values, 2, big_endian_numbers);
  EXPECT_EQ(values[0], 1.0F);
  EXPECT_FLOAT_EQ(values[1], -3.14159265F);
  std::int64_t location = 0;
  const unsigned char wide[8] = {0, 0, 0, 1, 0, 0, 0, 2};
  std::memcpy(&location, wide, 8);
  convert_long_word(location, big_endian_numbers);
  EXPECT_EQ(location, (std::int64_t{1} << 32) + 2);
}

// Every count around the size of a tile, every width: element (r, c) lands where it belongs.
TEST(MtzWords, rowsAndColumnsChangePlaces) {
  for (const std::size_t ncolumns : {1U, 3U, 7U, 40U}) {
    for (const std::size_t nrows : {0U, 1U, 15U, 16U, 17U, 33U}) {
      constexpr std::size_t first = 2;
      std::vector<float> rows(nrows * ncolumns);
      std::iota(rows.begin(), rows.end(), 1.0F);
      std::vector<std::vector<float>> columns(ncolumns, std::vector<float>(nrows + first, -1.0F));
      std::vector<float*> pointers(ncolumns);
      for (std::size_t c = 0; c < ncolumns; ++c) pointers[c] = columns[c].data();
      rows_to_columns(rows.data(), nrows, ncolumns, pointers.data(), first);
      for (std::size_t r = 0; r < nrows; ++r) {
        for (std::size_t c = 0; c < ncolumns; ++c) {
          ASSERT_EQ(columns[c][first + r], rows[r * ncolumns + c]);
        }
      }
      EXPECT_EQ(columns[0][1], -1.0F);
      std::vector<float> back(rows.size());
      columns_to_rows(pointers.data(), first, nrows, ncolumns, back.data());
      EXPECT_EQ(back, rows);
    }
  }
}

TEST(MtzWords, missingIsNanInfiniteOrTheMarker) {
  const float nan = std::nanf("");
  EXPECT_TRUE(is_missing(nan, nan) && is_missing(INFINITY, nan) && is_missing(-INFINITY, 0));
  EXPECT_TRUE(is_missing(-999.0F, -999.0F) && is_missing(nan, -999.0F));
  EXPECT_FALSE(is_missing(0.0F, nan) || is_missing(-998.0F, -999.0F));
}

}  // namespace
}  // namespace qx::test
