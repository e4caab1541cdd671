// Writing an MTZ object. The size of the data is known before the first byte, so the header
// location is right from the start and a pipe can be written as well as a file.
#include "core/files_read.h"
#include "core/output_file.h"
#include "reflio/mtz.h"
#include "reflio/mtz_words.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

std::int32_t qx_write_mtz_char(std::FILE* stream, const char* buffer, std::size_t n) {
  return std::fwrite(buffer, 1, n, stream) == n ? 0 : 1;
}

std::int32_t qx_write_mtz_int(std::FILE* stream, const std::int32_t* buffer, std::size_t n) {
  return std::fwrite(buffer, sizeof *buffer, n, stream) == n ? 0 : 1;
}

std::int32_t qx_write_mtz_float(std::FILE* stream, const float* buffer, std::size_t n) {
  return std::fwrite(buffer, sizeof *buffer, n, stream) == n ? 0 : 1;
}

std::int32_t qx_write_mtz_record(std::FILE* stream, const char* record) {
  char padded[qx::mtz_record_size];
  const std::size_t length = std::strlen(record);
  if (length > sizeof padded) return 1;
  std::memset(padded, ' ', sizeof padded);
  std::copy_n(record, length, padded);
  return qx_write_mtz_char(stream, padded, sizeof padded);
}

std::int32_t qx_write_mtz_machine_arch(std::FILE* stream) {
  constexpr char stamp[4] = {0x40, 0x40, 0, 0};
  return qx_write_mtz_char(stream, stamp, sizeof stamp);
}

namespace {

constexpr const char* heading = "qx_write_refdata_mtz_file():";
constexpr std::size_t block_values = 65536;
constexpr std::size_t batches_per_record = 12;

struct Output {
  std::FILE* stream;
  const qxmtz& mtz;
};

// A step gives the text of its failure, or null.
using Step = const char* (*)(const Output&);

QX_PRINTF(2, 3)
bool write_record(std::FILE* stream, const char* format, ...) {
  char text[4 * qx::mtz_record_size];
  va_list values;
  va_start(values, format);
  const int length = std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < sizeof text;
  return fits && qx_write_mtz_record(stream, text) == 0;
}

// A name as one token of a record.
struct Token {
  char text[qx::mtz_record_size + 3];

  explicit Token(const char* name) {
    const bool plain = *name && !std::strchr(name, ' ');
    std::snprintf(text, sizeof text, plain ? "%s" : "'%s'", name);
  }
};

// "%15.4f", or as many digits as the width has for values too large for it.
struct Limit {
  char text[32];

  explicit Limit(double value) {
    if (std::snprintf(text, sizeof text, "%15.4f", value) > 15) {
      std::snprintf(text, sizeof text, "%15.7g", value);
    }
  }
};

bool write_location(std::FILE* stream, std::int64_t location) {
  const bool wide = location > std::numeric_limits<std::int32_t>::max();
  const std::int32_t word = wide ? -1 : static_cast<std::int32_t>(location);
  return qx_write_mtz_int(stream, &word, 1) == 0;
}

// "MTZ ", header location, stamp, and the location again in 64 bits where 32 do not hold it.
const char* preamble(const Output& out) {
  const qxmtz& mtz = out.mtz;
  const std::int64_t location = 21 + std::int64_t{mtz.columns.count} * mtz.nreflections;
  char unused[68] = {};
  if (location > std::numeric_limits<std::int32_t>::max()) std::memcpy(unused, &location, 8);
  const bool written = qx_write_mtz_char(out.stream, "MTZ ", 4) == 0 &&
                       write_location(out.stream, location) &&
                       qx_write_mtz_machine_arch(out.stream) == 0 &&
                       qx_write_mtz_char(out.stream, unused, sizeof unused) == 0;
  return written ? nullptr : "Failed to write header position.";
}

const char* reflections(const Output& out) {
  constexpr const char* text = "Failed to write the reflection data. ";
  const auto nrows = static_cast<std::size_t>(out.mtz.nreflections);
  const auto ncolumns = static_cast<std::size_t>(out.mtz.columns.count);
  if (nrows == 0 || ncolumns == 0) return nullptr;
  const std::size_t block = std::min(nrows, std::max<std::size_t>(1, block_values / ncolumns));
  const qx::Tagged<const float*> columns(ncolumns, "pwm_cols");
  if (!columns) return text;
  const qx::Tagged<float> rows(block * ncolumns, "pwm_rows");
  if (!rows) return text;
  for (std::size_t c = 0; c < ncolumns; ++c) columns[c] = out.mtz.columns.items[c].values;
  for (std::size_t first = 0; first < nrows; first += block) {
    const std::size_t n = std::min(block, nrows - first);
    qx::columns_to_rows(columns.get(), first, n, ncolumns, rows.get());
    if (qx_write_mtz_float(out.stream, rows.get(), n * ncolumns) != 0) return text;
  }
  return nullptr;
}

const char* version(const Output& out) {
  const bool written = write_record(out.stream, "VERS %-20s", "MTZ:V1.1");
  return written ? nullptr : "Failed to write VERS record. ";
}

const char* title(const Output& out) {
  return write_record(out.stream, "TITLE %.74s", out.mtz.title) ? nullptr
                                                                : "Failed to write TITLE record. ";
}

const char* counts(const Output& out) {
  const bool written = write_record(out.stream, "NCOL %12d %12d %12d", out.mtz.columns.count,
                                    out.mtz.nreflections, out.mtz.batches.count);
  return written ? nullptr : "Failed to write NCOL record. ";
}

// Without an overall cell, that of the base data set.
const double* overall_cell(const qxmtz& mtz) {
  if (mtz.has_cell) return mtz.cell;
  for (const qx::MtzDataset& set : mtz.datasets) {
    if (std::strcmp(set.project, "HKL_base") == 0) return set.cell;
  }
  return nullptr;
}

const char* cell(const Output& out) {
  const double* c = overall_cell(out.mtz);
  if (!c) return nullptr;
  const bool written = write_record(out.stream, "CELL %11.5f %11.5f %11.5f %11.5f %11.5f %11.5f",
                                    c[0], c[1], c[2], c[3], c[4], c[5]);
  return written ? nullptr : "Failed to write CELL record. ";
}

const char* sort_order(const Output& out) {
  const std::int32_t* s = out.mtz.sort;
  const bool written =
      write_record(out.stream, "SORT %4d %4d %4d %4d %4d", s[0], s[1], s[2], s[3], s[4]);
  return written ? nullptr : "Failed to write SORT record. ";
}

const char* symmetry(const Output& out) {
  const qxmtz& mtz = out.mtz;
  const bool written = write_record(out.stream, "SYMINF %3d %3d %c %5d %30s %10s", mtz.symops.count,
                                    mtz.nprimitive, mtz.lattice, mtz.spacegroup_number,
                                    Token(mtz.spacegroup_name).text, Token(mtz.point_group).text);
  return written ? nullptr : "Failed to write SYMINF record. ";
}

const char* operators(const Output& out) {
  for (const qx::MtzLine& line : out.mtz.symops) {
    if (!write_record(out.stream, "SYMM %-75s", line.text)) return "Failed to write SYMM record. ";
  }
  return nullptr;
}

const char* resolution(const Output& out) {
  const bool written =
      write_record(out.stream, "RESO %10.4f %10.4f", std::max(0.0, out.mtz.resolution[0]),
                   std::max(0.0, out.mtz.resolution[1]));
  return written ? nullptr : "Failed to write RESO record. ";
}

const char* missing_marker(const Output& out) {
  const double marker = static_cast<double>(out.mtz.missing);
  const bool written = std::isnan(marker) ? write_record(out.stream, "VALM NAN")
                                          : write_record(out.stream, "VALM %15.4f", marker);
  return written ? nullptr : "Failed to write VALM record. ";
}

const char* columns(const Output& out) {
  for (const qx::MtzColumn& column : out.mtz.columns) {
    const bool misym = std::strcmp(column.label, "M_ISYM") == 0;
    const bool written = write_record(
        out.stream, "COLUMN %-30s %c %s %s %4d", Token(misym ? "M/ISYM" : column.label).text,
        column.type, Limit(column.minimum).text, Limit(column.maximum).text, column.dataset_id);
    if (!written) return "Failed to write COLUMN record. ";
  }
  return nullptr;
}

const char* dataset(const Output& out, const qx::MtzDataset& set) {
  const double* c = set.cell;
  if (!write_record(out.stream, "PROJECT %6d %-65s", set.id, Token(set.project).text)) {
    return "Failed to write PROJECT record. ";
  }
  if (!write_record(out.stream, "CRYSTAL %6d %-65s", set.id, Token(set.crystal).text)) {
    return "Failed to write CRYSTAL record. ";
  }
  if (!write_record(out.stream, "DATASET %6d %-65s", set.id, Token(set.name).text)) {
    return "Failed to write DATASET record. ";
  }
  if (!write_record(out.stream, "DCELL %6d %10.4f %10.4f %10.4f %10.4f %10.4f %10.4f", set.id, c[0],
                    c[1], c[2], c[3], c[4], c[5])) {
    return "Failed to write DCELL record. ";
  }
  if (!write_record(out.stream, "DWAVELEN %6d %10.5f", set.id, set.wavelength)) {
    return "Failed to write DWAVELEN record. ";
  }
  return nullptr;
}

const char* datasets(const Output& out) {
  if (!write_record(out.stream, "NDIF %10d", out.mtz.datasets.count)) {
    return "Failed to write NDIF record. ";
  }
  for (const qx::MtzDataset& set : out.mtz.datasets) {
    if (const char* text = dataset(out, set)) return text;
  }
  return nullptr;
}

// Readers of the field expect the numbers of the batches in the main header as well.
const char* batch_numbers(const Output& out) {
  const auto count = static_cast<std::size_t>(out.mtz.batches.count);
  for (std::size_t first = 0; first < count; first += batches_per_record) {
    char text[6 + batches_per_record * 12 + 1] = "BATCH ";
    std::size_t length = 6;
    for (std::size_t i = first; i < std::min(count, first + batches_per_record); ++i) {
      length += static_cast<std::size_t>(std::snprintf(text + length, sizeof text - length, "%6d",
                                                       out.mtz.batches.items[i].number));
    }
    if (qx_write_mtz_record(out.stream, text) != 0) return "Failed to write MTZBATS.";
  }
  return nullptr;
}

const char* end(const Output& out) {
  return write_record(out.stream, "END ") ? nullptr : "Failed to write END record.";
}

const char* history(const Output& out) {
  if (!write_record(out.stream, "MTZHIST %5d", out.mtz.history.count)) {
    return "Failed to write MTZHIST record.";
  }
  for (const qx::MtzLine& line : out.mtz.history) {
    if (qx_write_mtz_record(out.stream, line.text) != 0) return "Failed to write history record.";
  }
  return nullptr;
}

const char* batch(const Output& out, const qx::MtzBatch& b) {
  if (!write_record(out.stream, "BH %8d%8d%8d%8d", b.number, b.nintegers + b.nreals, b.nintegers,
                    b.nreals)) {
    return "Failed to write BH.";
  }
  if (!write_record(out.stream, "TITLE %s", b.title)) return "Failed to write batch TITLE.";
  if (qx_write_mtz_int(out.stream, b.integers, static_cast<std::size_t>(b.nintegers)) != 0 ||
      qx_write_mtz_float(out.stream, b.reals, static_cast<std::size_t>(b.nreals)) != 0) {
    return "Failed to write batch int/float array.";
  }
  if (!write_record(out.stream, "BHCH %20s %20s %20s", b.axes[0], b.axes[1], b.axes[2])) {
    return "Failed to write batch BACH.";
  }
  return nullptr;
}

const char* batches(const Output& out) {
  if (out.mtz.batches.count == 0) return nullptr;
  if (!write_record(out.stream, "MTZBATS")) return "Failed to write MTZBATS.";
  for (const qx::MtzBatch& b : out.mtz.batches) {
    if (const char* text = batch(out, b)) return text;
  }
  return nullptr;
}

const char* end_of_headers(const Output& out) {
  return write_record(out.stream, "MTZENDOFHEADERS") ? nullptr
                                                     : "Failed to write MTZENDOFHEADERS record.";
}

constexpr Step steps[] = {preamble,       reflections, version,       title,         counts,
                          cell,           sort_order,  symmetry,      operators,     resolution,
                          missing_marker, columns,     datasets,      batch_numbers, end,
                          history,        batches,     end_of_headers};

}  // namespace

std::int32_t qx_write_refdata_mtz_file(const char* path, const qxmtz* mtz) {
  if (qx::is_file_read(path)) {
    qx::note(heading, "The file \"%s\" has been read in this job: write to another one. ", path);
    return 1;
  }
  qx::OutputFile file;
  if (!file.open(path)) {
    qx::note(heading, "Failed to open file %s for writing reflection data \n", path);
    return 1;
  }
  for (const Step step : steps) {
    if (const char* text = step({file.stream(), *mtz})) {
      qx::note(heading, "%s", text);
      return 1;
    }
  }
  if (file.commit()) return 0;
  qx::note(heading, "Failed to write the reflection data. ");
  return 1;
}
