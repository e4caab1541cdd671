#include "reflio/mtz_words.h"

#include <bit>
#include <cmath>
#include <cstring>

namespace qx {

namespace {

// Rows that are moved together: their values of one column fill a cache line.
constexpr std::size_t tile = 16;

std::uint32_t reversed(std::uint32_t word) noexcept {
  return (word >> 24U) | ((word >> 8U) & 0xff00U) | ((word << 8U) & 0xff0000U) | (word << 24U);
}

bool needs_reversal(int code) noexcept {
  constexpr bool little = std::endian::native == std::endian::little;
  return code == (little ? big_endian_numbers : little_endian_numbers);
}

}  // namespace

MachineStamp machine_stamp(const unsigned char* bytes) noexcept {
  return {bytes[0] >> 4, bytes[1] >> 4};
}

bool known_number_format(int code) noexcept {
  return code == big_endian_numbers || code == little_endian_numbers;
}

void convert_words(void* words, std::size_t count, int code) noexcept {
  if (!needs_reversal(code)) return;
  auto* bytes = static_cast<unsigned char*>(words);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes + 4 * i, 4);
    word = reversed(word);
    std::memcpy(bytes + 4 * i, &word, 4);
  }
}

void convert_long_word(std::int64_t& word, int code) noexcept {
  if (!needs_reversal(code)) return;
  std::uint32_t half[2];
  std::memcpy(half, &word, 8);
  const std::uint32_t swapped[2] = {reversed(half[1]), reversed(half[0])};
  std::memcpy(&word, swapped, 8);
}

void rows_to_columns(const float* rows, std::size_t nrows, std::size_t ncolumns,
                     float* const* columns, std::size_t first) noexcept {
  std::size_t r = 0;
  for (; r + tile <= nrows; r += tile) {
    for (std::size_t c = 0; c < ncolumns; ++c) {
      const float* from = rows + r * ncolumns + c;
      float* to = columns[c] + first + r;
      for (std::size_t i = 0; i < tile; ++i) to[i] = from[i * ncolumns];
    }
  }
  for (; r < nrows; ++r) {
    for (std::size_t c = 0; c < ncolumns; ++c) columns[c][first + r] = rows[r * ncolumns + c];
  }
}

void columns_to_rows(const float* const* columns, std::size_t first, std::size_t nrows,
                     std::size_t ncolumns, float* rows) noexcept {
  std::size_t r = 0;
  for (; r + tile <= nrows; r += tile) {
    for (std::size_t c = 0; c < ncolumns; ++c) {
      const float* from = columns[c] + first + r;
      float* to = rows + r * ncolumns + c;
      for (std::size_t i = 0; i < tile; ++i) to[i * ncolumns] = from[i];
    }
  }
  for (; r < nrows; ++r) {
    for (std::size_t c = 0; c < ncolumns; ++c) rows[r * ncolumns + c] = columns[c][first + r];
  }
}

}  // namespace qx
