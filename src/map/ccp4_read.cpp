// Reading a CCP4 map file into x-y-z order.
#include "core/report.h"
#include "core/tagged.h"
#include "core/view3.h"
#include "map/ccp4_header.h"

#include <quorix/map.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>

using qx::Ccp4Header;
using qx::Ccp4Item;
using qx::fail;
using qx::File;
using qx::ItemKind;
using qx::ok;
using qx::Status;

namespace {

constexpr auto here = "qx_rd_ccp4_map():";
constexpr std::size_t map_word_end = offsetof(Ccp4Header, map_word) + 4;
constexpr std::int64_t stamp_offset = offsetof(Ccp4Header, stamp);
constexpr std::size_t record_size = 80;
// Nobody samples a cell as finely: sums and products of such indices stay far from overflowing.
constexpr std::int32_t most_points_of_an_axis = 1 << 24;

// Bytes per value of a data mode; 0 for a mode that is not read.
std::int64_t value_size(std::int32_t mode) {
  switch (mode) {
    case 0:
      return 1;
    case 1:
    case 6:
      return 2;
    case 2:
      return 4;
    default:
      return 0;
  }
}

// By the codes for integers and reals in the second and first byte of the stamp.
bool is_swapped(const unsigned char (&stamp)[4]) {
  return stamp[1] >> 4 != qx::own_format_code || stamp[0] >> 4 != qx::own_format_code;
}

std::int64_t length_of(std::FILE* stream) {
  return fseeko(stream, 0, SEEK_END) == 0 ? static_cast<std::int64_t>(ftello(stream)) : -1;
}

Status check_format(std::FILE* stream, bool& swap) {
  char start[map_word_end] = {};
  std::rewind(stream);
  const std::size_t size = std::fread(start, 1, sizeof start, stream);
  if (!qx_starts_ccp4_map(start, size)) {
    return fail(here, "This is not a CCP4 formated map. ");
  }
  std::int32_t int_code = 0;
  std::int32_t float_code = 0;
  QX_TRY(qx_read_machine_stamp(stream, stamp_offset, &int_code, &float_code));
  swap = int_code != qx::own_format_code || float_code != qx::own_format_code;
  return ok;
}

bool read_item(std::FILE* stream, bool swap, unsigned char* record, const Ccp4Item& item) {
  unsigned char* bytes = record + item.offset;
  switch (item.kind) {
    case ItemKind::integers:
      return qx_read_raw_int(stream, swap, reinterpret_cast<std::int32_t*>(bytes), item.count) ==
             item.count;
    case ItemKind::reals:
      return qx_read_raw_float(stream, swap, reinterpret_cast<float*>(bytes), item.count) ==
             item.count;
    case ItemKind::characters:
    case ItemKind::stamp:
    case ItemKind::label:
      break;
  }
  return qx_read_raw_char(stream, reinterpret_cast<char*>(bytes), item.count) == item.count;
}

Status read_header(std::FILE* stream, bool swap, Ccp4Header& header) {
  std::rewind(stream);
  auto* record = reinterpret_cast<unsigned char*>(&header);
  for (const Ccp4Item& item : qx::ccp4_items()) {
    const bool done = item.skew && header.skew_flag == 0
                          ? fseeko(stream, 4 * item.count, SEEK_CUR) == 0
                          : read_item(stream, swap, record, item);
    if (!done) return fail(here, "%s", item.read_text);
  }
  return ok;
}

bool is_permutation_of_axes(const std::int32_t (&axes)[3]) {
  bool seen[3] = {};
  for (const std::int32_t axis : axes) {
    if (axis < 1 || axis > 3 || seen[axis - 1]) return false;
    seen[axis - 1] = true;
  }
  return true;
}

Status check_place(const Ccp4Header& header) {
  for (int i = 0; i < 3; ++i) {
    if (header.intervals[i] < 1 || header.intervals[i] > most_points_of_an_axis) {
      return fail(here, "Invalid grid intervals %d %d %d ", header.intervals[0],
                  header.intervals[1], header.intervals[2]);
    }
    if (header.starts[i] < -most_points_of_an_axis || header.starts[i] > most_points_of_an_axis) {
      return fail(here, "Invalid map origin %d %d %d ", header.starts[0], header.starts[1],
                  header.starts[2]);
    }
  }
  for (const float constant : header.cell) {
    if (std::isfinite(constant) && constant >= 0.0F) continue;
    const float* c = header.cell;
    return fail(here, "Invalid cell %g %g %g %g %g %g ", double{c[0]}, double{c[1]}, double{c[2]},
                double{c[3]}, double{c[4]}, double{c[5]});
  }
  return ok;
}

// Bytes of all values; -1 when that is no number of bytes.
std::int64_t data_size(const Ccp4Header& header) {
  std::int64_t bytes = value_size(header.mode);
  for (const std::int32_t count : header.counts) {
    if (count < 1 || __builtin_mul_overflow(bytes, std::int64_t{count}, &bytes)) return -1;
  }
  return bytes;
}

// What the header promises must be in the file: nothing is allocated on its word alone.
Status check_sizes(const Ccp4Header& header, std::int64_t length) {
  if (value_size(header.mode) == 0)
    return fail(here, "Map data mode %d is not supported. ", header.mode);
  if (!is_permutation_of_axes(header.axes)) {
    return fail(here, "Invalid axis order %d %d %d ", header.axes[0], header.axes[1],
                header.axes[2]);
  }
  const std::int64_t bytes = data_size(header);
  if (bytes < 0) {
    return fail(here, "Invalid map dimensions %d %d %d ", header.counts[0], header.counts[1],
                header.counts[2]);
  }
  const std::int64_t rest = length - static_cast<std::int64_t>(sizeof header);
  if (header.symmetry_bytes < 0 || header.symmetry_bytes > rest) {
    return fail(here, "Failed to read symmetry operations ");
  }
  if (bytes > rest - header.symmetry_bytes) return fail(here, "Failed to read map data ");
  return ok;
}

// All that precedes the data; the stream stands at the data afterwards.
Status read_description(std::FILE* stream, qx::Ccp4Description& description) {
  Ccp4Header& header = description.header;
  const std::int64_t length = length_of(stream);
  QX_TRY(check_format(stream, description.swapped));
  QX_TRY(read_header(stream, description.swapped, header));
  QX_TRY(check_sizes(header, length));
  QX_TRY(check_place(header));
  description.nlabels = std::clamp(header.nlabels, 0, 10);
  const auto bytes = static_cast<std::size_t>(header.symmetry_bytes);
  if (bytes > 0) {
    description.records = qx::Tagged<char>(bytes, "prcm_sym");
    if (!description.records) return qx::failed;
    if (std::fread(description.records.get(), 1, bytes, stream) != bytes) {
      return fail(here, "Failed to read symmetry operations ");
    }
  }
  description.nrecords = static_cast<std::int32_t>(bytes / record_size);
  return ok;
}

void swap_values(unsigned char* bytes, std::size_t count, std::int64_t size) {
  if (size == 4) qx::swap_words(bytes, count);
  if (size == 2) {
    for (std::size_t i = 0; i < count; ++i) std::swap(bytes[2 * i], bytes[2 * i + 1]);
  }
}

// Sections, rows and columns of the file, each with its own stride in x-y-z order.
struct Strides {
  std::ptrdiff_t section, row, column;
};

Strides strides_of(const Ccp4Header& header, const qx_ccp4_map& map) {
  const std::ptrdiff_t strides[3] = {1, map.counts[0],
                                     static_cast<std::ptrdiff_t>(map.counts[0]) * map.counts[1]};
  return {strides[header.axes[2] - 1], strides[header.axes[1] - 1], strides[header.axes[0] - 1]};
}

// One section of the file, of values of type T.
template <class T, class Value>
void place_as(const unsigned char* bytes, const Ccp4Header& header, const Strides& step,
              Value* values) {
  for (std::ptrdiff_t row = 0; row < header.counts[1]; ++row) {
    Value* target = values + row * step.row;
    for (std::ptrdiff_t column = 0; column < header.counts[0]; ++column) {
      T value;
      std::memcpy(&value, bytes, sizeof value);
      bytes += sizeof value;
      target[column * step.column] = static_cast<Value>(value);
    }
  }
}

template <class Value>
void place_section(const unsigned char* bytes, const Ccp4Header& header, const Strides& step,
                   Value* values) {
  switch (header.mode) {
    case 0:
      return place_as<std::int8_t>(bytes, header, step, values);
    case 1:
      return place_as<std::int16_t>(bytes, header, step, values);
    case 6:
      return place_as<std::uint16_t>(bytes, header, step, values);
    default:
      return place_as<float>(bytes, header, step, values);
  }
}

// `values`: those of the map, x fastest.
template <class Value>
Status read_data(std::FILE* stream, bool swap, const Ccp4Header& header, const qx_ccp4_map& map,
                 Value* values) {
  const Strides step = strides_of(header, map);
  const std::size_t count =
      static_cast<std::size_t>(header.counts[0]) * static_cast<std::size_t>(header.counts[1]);
  const std::int64_t size = value_size(header.mode);
  // What lies in the file as it is to lie in memory is not copied.
  const bool as_it_is = sizeof(Value) == sizeof(float) && header.mode == 2 && step.column == 1 &&
                        step.section == static_cast<std::ptrdiff_t>(count);
  const qx::Tagged<unsigned char> section(as_it_is ? 1 : count * static_cast<std::size_t>(size),
                                          "prcm_et");
  if (!section) return qx::failed;
  for (std::int32_t is = 0; is < header.counts[2]; ++is) {
    Value* first = values + is * step.section;
    auto* bytes = as_it_is ? reinterpret_cast<unsigned char*>(first) : section.get();
    if (std::fread(bytes, static_cast<std::size_t>(size), count, stream) != count) {
      return fail(here, "Failed to read map data ");
    }
    if (swap) swap_values(bytes, count, size);
    if (!as_it_is) place_section(bytes, header, step, first);
  }
  return ok;
}

void swap_numbers(Ccp4Header& header) {
  for (const Ccp4Item& item : qx::ccp4_items()) {
    if (item.kind != ItemKind::integers && item.kind != ItemKind::reals) continue;
    qx::swap_words(reinterpret_cast<unsigned char*>(&header) + item.offset,
                   static_cast<std::size_t>(item.count));
  }
}

qx_ccp4_map map_of(const Ccp4Header& header) {
  qx_ccp4_map map = {};
  for (int i = 0; i < 3; ++i) {
    map.counts[header.axes[i] - 1] = header.counts[i];
    map.starts[header.axes[i] - 1] = header.starts[i];
    map.intervals[i] = header.intervals[i];
  }
  std::copy_n(header.cell, 6, map.cell);
  map.minimum = header.minimum;
  map.maximum = header.maximum;
  map.mean = header.mean;
  map.rms = header.rms;
  map.space_group = header.space_group;
  return map;
}

}  // namespace

namespace {

// A folder can be opened for reading, but holds nothing that could be read.
bool is_folder(const char* path) {
  struct stat state = {};
  return stat(path, &state) == 0 && S_ISDIR(state.st_mode);
}

// The header, with the stream at the data behind it.
Status open_map(const char* path, const File& file, qx::Ccp4Description& description) {
  if (!file || is_folder(path)) return fail(here, "Failed to open file \"%s\" ", path);
  return read_description(file.get(), description);
}

}  // namespace

namespace qx {

Status read_ccp4(const char* path, qx_ccp4_map& map, Ccp4Description& description) {
  const File file(path, "rb");
  QX_TRY(open_map(path, file, description));
  qx_ccp4_map result = map_of(description.header);
  QX_TRY(adopt(result.density,
               xopen_3d_double(result.counts[2], result.counts[1], result.counts[0], "prcm_emap")));
  QX_TRY(
      read_data(file.get(), description.swapped, description.header, result, result.density[0][0]));
  map = result;
  return ok;
}

}  // namespace qx

Status qx_rd_ccp4_map(const char* path, qx_ccp4_map* map) {
  qx::Ccp4Description description;
  return qx::read_ccp4(path, *map, description);
}

namespace {

// Eight characters are the first two words of an origin, the length of a header its third.
void describe_origin(const qx::Ccp4Description& file, qx_ccp4_description& out) {
  char words[8];
  std::memcpy(words, file.header.access + 16, sizeof words);
  out.has_origin = std::memcmp(words, "        ", sizeof words) == 0 ? 0 : 1;
  if (file.swapped) qx::swap_words(words, 2);
  std::memcpy(out.origin, words, sizeof words);
  std::memcpy(&out.origin[2], &file.header.header_size, sizeof out.origin[2]);
}

void describe(qx::Ccp4Description& file, qx_ccp4_description* out) {
  *out = {};
  out->mode = file.header.mode;
  out->swapped = file.swapped ? 1 : 0;
  std::copy_n(file.header.axes, 3, out->axes);
  describe_origin(file, *out);
  out->nlabels = file.nlabels;
  for (std::int32_t i = 0; i < file.nlabels; ++i) {
    std::memcpy(out->labels[i], file.header.labels[i], sizeof file.header.labels[i]);
  }
  out->nrecords = file.nrecords;
  out->records = file.records.release();
}

}  // namespace

Status qx_rd_described_ccp4_map(const char* path, qx_ccp4_map* map, qx_ccp4_description* out) {
  qx::Ccp4Description file;
  QX_TRY(qx::read_ccp4(path, *map, file));
  describe(file, out);
  return ok;
}

Status qx_rd_described_ccp4_floats(const char* path, qx_ccp4_map* map, qx_ccp4_description* out,
                                   float** values) {
  const File file(path, "rb");
  qx::Ccp4Description description;
  QX_TRY(open_map(path, file, description));
  const qx_ccp4_map result = map_of(description.header);
  std::size_t count = 1;
  for (const std::int32_t n : result.counts) count *= static_cast<std::size_t>(n);
  qx::Tagged<float> density(count, "prcm_flt");
  if (!density) return qx::failed;
  QX_TRY(read_data(file.get(), description.swapped, description.header, result, density.get()));
  *map = result;
  describe(description, out);
  *values = density.release();
  return ok;
}

std::int32_t qx_starts_ccp4_map(const void* bytes, std::size_t size) {
  const auto* start = static_cast<const char*>(bytes);
  return size >= map_word_end && std::memcmp(start + map_word_end - 4, "MAP ", 4) == 0 ? 1 : 0;
}

std::int64_t qx_look_at_ccp4_map(const char* path, qx_ccp4_map* map) {
  const qx::File file(path, "rb");
  Ccp4Header header;
  if (!file || std::fread(&header, sizeof header, 1, file.get()) != 1) return -1;
  if (!qx_starts_ccp4_map(&header, sizeof header)) return -1;
  if (is_swapped(header.stamp)) swap_numbers(header);
  const std::int64_t data = value_size(header.mode) > 0 ? data_size(header) : -1;
  std::int64_t length = static_cast<std::int64_t>(sizeof header) + header.symmetry_bytes;
  if (data < 0 || header.symmetry_bytes < 0 || !is_permutation_of_axes(header.axes) ||
      __builtin_add_overflow(length, data, &length)) {
    return -1;
  }
  if (map) *map = map_of(header);
  return length;
}
