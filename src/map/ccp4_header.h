// The 1024-byte record that a CCP4 map file begins with, and the table of its items.
#pragma once

#include "core/tagged.h"

#include <quorix/map.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace qx {

inline constexpr unsigned char machine_stamp[4] = {0x44, 0x41, 0x00, 0x00};
inline constexpr std::int32_t own_format_code = 4;

struct Ccp4Header {
  std::int32_t counts[3];  // columns, rows, sections
  std::int32_t mode;
  std::int32_t starts[3];     // of columns, rows, sections
  std::int32_t intervals[3];  // of the cell along x, y, z
  float cell[6];
  std::int32_t axes[3];  // which of x, y, z (1, 2, 3) columns, rows and sections run along
  float minimum, maximum, mean;
  std::int32_t space_group;
  std::int32_t symmetry_bytes;
  std::int32_t skew_flag;
  float skew_rotation[12];
  float skew_translation[8];
  char access[24];
  std::int32_t header_size;
  char map_word[4];
  unsigned char stamp[4];
  float rms;
  std::int32_t nlabels;
  char labels[10][80];
};
static_assert(sizeof(Ccp4Header) == 1024);

enum class ItemKind { integers, reals, characters, stamp, label };

// A run of equal words that is written, read and reported as one.
struct Ccp4Item {
  std::size_t offset;
  ItemKind kind;
  std::int32_t count;
  const char* write_text;  // null for a label: the text depends on it
  const char* read_text;
  bool skew = false;  // on reading, skipped unless the skew flag is set
};

// All items in the order of the file.
std::span<const Ccp4Item> ccp4_items() noexcept;

// A header of zeros, with blank texts and labels, this machine's stamp and axes in the order x, y,
// z.
Ccp4Header blank_ccp4_header() noexcept;
void set_label(Ccp4Header& header, int index, const char* text) noexcept;

// What a file says beside its density, in this machine's byte order.
struct Ccp4Description {
  Ccp4Header header = {};
  bool swapped = false;
  std::int32_t nlabels = 0;  // labels that are there, whatever the header says
  std::int32_t nrecords = 0;
  Tagged<char> records;  // of symmetry, 80 characters each
};

// The one reader of such files: every number that anything is computed from is checked here, so
// its callers need not doubt one. `failed` after a report.
Status read_ccp4(const char* path, qx_ccp4_map& map, Ccp4Description& description);

// Reverses the bytes of `count` words of four bytes.
void swap_words(void* words, std::size_t count) noexcept;

}  // namespace qx
