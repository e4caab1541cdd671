// Typed words of binary files and the machine stamp.
#include "core/report.h"
#include "map/ccp4_header.h"

#include <quorix/map.h>

#include <algorithm>
#include <cstring>
#include <sys/types.h>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

template <class T>
std::int32_t write_items(const char* here, const char* what, std::FILE* stream, const T* items,
                         std::int32_t n) {
  if (!stream) {
    (void)fail(here, "file is not writable ");
    return 0;
  }
  const auto count = static_cast<std::size_t>(std::max(n, 0));
  const auto written = static_cast<std::int32_t>(std::fwrite(items, sizeof(T), count, stream));
  // Kept: the text names another format, whose files the same words are made of.
  if (written < n) (void)fail(here, "Failed to write %d %s to mtz file ", n, what);
  return written;
}

template <class T>
std::int32_t read_items(std::FILE* stream, bool swap, T* items, std::int32_t n) {
  if (!stream || n < 1) return 0;
  const std::size_t count = std::fread(items, sizeof(T), static_cast<std::size_t>(n), stream);
  if (swap) qx::swap_words(items, count);
  return static_cast<std::int32_t>(count);
}

bool seek_if_positive(std::FILE* stream, std::int64_t offset) {
  return stream && (offset <= 0 || fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0);
}

}  // namespace

namespace qx {

void swap_words(void* words, std::size_t count) noexcept {
  auto* bytes = static_cast<unsigned char*>(words);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes + 4 * i, 4);
    word = __builtin_bswap32(word);
    std::memcpy(bytes + 4 * i, &word, 4);
  }
}

}  // namespace qx

std::int32_t qx_write_raw_char(std::FILE* stream, const char* items, std::int32_t n) {
  return write_items("qx_write_raw_char():", "chars", stream, items, n);
}

std::int32_t qx_write_raw_int(std::FILE* stream, const std::int32_t* items, std::int32_t n) {
  return write_items("qx_write_raw_int():", "ints", stream, items, n);
}

std::int32_t qx_write_raw_float(std::FILE* stream, const float* items, std::int32_t n) {
  return write_items("qx_write_raw_float():", "floats", stream, items, n);
}

std::int32_t qx_read_raw_char(std::FILE* stream, char* items, std::int32_t n) {
  return read_items(stream, false, items, n);
}

std::int32_t qx_read_raw_int(std::FILE* stream, std::int32_t swap, std::int32_t* items,
                             std::int32_t n) {
  return read_items(stream, swap != 0, items, n);
}

std::int32_t qx_read_raw_float(std::FILE* stream, std::int32_t swap, float* items, std::int32_t n) {
  return read_items(stream, swap != 0, items, n);
}

Status qx_write_machine_stamp(std::FILE* stream, std::int64_t offset) {
  if (seek_if_positive(stream, offset) && std::fwrite(qx::machine_stamp, 1, 4, stream) == 4) {
    return ok;
  }
  return fail("qx_write_machine_stamp():", "Failed to write machine arch code. ");
}

Status qx_read_machine_stamp(std::FILE* stream, std::int64_t offset, std::int32_t* int_code,
                             std::int32_t* float_code) {
  unsigned char stamp[4];
  const bool there =
      stream && (offset < 0 || fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0);
  if (!there || std::fread(stamp, 1, 4, stream) != 4) {
    return fail("qx_read_machine_stamp():", "Failed to get machine stamp");
  }
  *int_code = stamp[1] >> 4;
  *float_code = stamp[0] >> 4;
  return ok;
}
