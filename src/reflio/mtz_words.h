// K. Words of an MTZ file: number formats, byte order, rows to columns and back.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace qx {

// High nibbles of the machine stamp.
enum NumberFormat : int { no_numbers = 0, big_endian_numbers = 1, little_endian_numbers = 4 };

struct MachineStamp {
  int reals = no_numbers;
  int integers = no_numbers;
};

// Formats from the four stamp bytes.
MachineStamp machine_stamp(const unsigned char* bytes) noexcept;

// False for a format that nobody here can convert.
bool known_number_format(int code) noexcept;

// Turns words of a file into numbers of this machine, or back: the step is its own inverse.
// `code` is a known format.
void convert_words(void* words, std::size_t count, int code) noexcept;
void convert_long_word(std::int64_t& word, int code) noexcept;

// rows[r * ncolumns + c] = columns[c][first + r], in either direction.
void rows_to_columns(const float* rows, std::size_t nrows, std::size_t ncolumns,
                     float* const* columns, std::size_t first) noexcept;
void columns_to_rows(const float* const* columns, std::size_t first, std::size_t nrows,
                     std::size_t ncolumns, float* rows) noexcept;

// The value stands for "not measured": NaN, an infinity, or the marker of the file.
inline bool is_missing(float value, float marker) noexcept {
  return !std::isfinite(value) || value == marker;
}

}  // namespace qx
