// Merged scalepack files: three lines of header, then 3I4 and two or four F8.1. An error of -1
// stands for what was not measured.
#include "core/output_file.h"
#include "core/say.h"
#include "reflio/table_text.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace qx {

namespace {

constexpr const char* reading = "read_scalepack():";
constexpr const char* writing = "write_scalepack():";
constexpr float none = std::numeric_limits<float>::quiet_NaN();

Status read_header(TableText& table) {
  const char* line = table.next_line();
  std::int32_t one = 0;
  if (!line || !read_index(field(line, 0, 5), one) || one != 1 || field(line, 5, 80).size > 0) {
    return table.broken("not the beginning of a merged scalepack file");
  }
  line = table.next_line();
  if (line) line = table.next_line();
  if (!line) return table.broken("the header ends too early");
  double cell[6];
  for (std::size_t i = 0; i < 6; ++i) {
    if (!read_number(field(line, 10 * i, 10), cell[i])) {
      return table.broken("not a cell and a space group");
    }
  }
  table.set_cell(cell);
  table.set_group(field(line, 60, 80));
  return ok;
}

// A pair of fields, both empty, filled with asterisks for numbers too large, or two numbers.
bool read_pair(const char* line, std::size_t first, float* to) {
  const Word words[2] = {field(line, first, 8), field(line, first + 8, 8)};
  to[0] = to[1] = none;
  if (words[0].size == 0 && words[1].size == 0) return true;
  for (const Word& word : words) {
    if (word.size > 0 && *word.start == '*') return true;
  }
  double value = 0.0, sigma = 0.0;
  if (!read_number(words[0], value) || !read_number(words[1], sigma)) return false;
  if (sigma < 0.0) return true;
  to[0] = static_cast<float>(value);
  to[1] = static_cast<float>(sigma);
  return true;
}

Status read_row(TableText& table, const char* line) {
  constexpr const char* what = "not h, k, l and intensities with their errors";
  float row[7];
  for (std::size_t a = 0; a < 3; ++a) {
    std::int32_t index = 0;
    if (!read_index(field(line, 4 * a, 4), index)) return table.broken(what);
    row[a] = static_cast<float>(index);
  }
  if (!read_pair(line, 12, row + 3) || !read_pair(line, 28, row + 5)) return table.broken(what);
  if (field(line, 44, 80).size > 0) return table.broken(what);
  return table.add_row(row);
}

// A second pair somewhere makes the two those of the Friedel mates.
Status add_columns(TableText& table) {
  bool anomalous = false;
  std::size_t length = 0;
  for (const char* at = table.rest(); *at; at += length + (at[length] ? 1 : 0)) {
    length = std::strcspn(at, "\n");
    for (std::size_t i = 28; i < length; ++i) anomalous = anomalous || at[i] > ' ';
  }
  QX_TRY(table.add_column(anomalous ? "I(+)" : "IMEAN", anomalous ? 'K' : 'J'));
  QX_TRY(table.add_column(anomalous ? "SIGI(+)" : "SIGIMEAN", anomalous ? 'M' : 'Q'));
  if (!anomalous) return ok;
  QX_TRY(table.add_column("I(-)", 'K'));
  return table.add_column("SIGI(-)", 'M');
}

}  // namespace

Status read_scalepack(qxrefdata* refdata, const char* path) {
  TableText table(reading, path);
  QX_TRY(table.open(*refdata));
  QX_TRY(read_header(table));
  QX_TRY(add_columns(table));
  while (const char* line = table.next_line()) {
    if (*line) QX_TRY(read_row(table, line));
  }
  return table.close();
}

namespace {

// Eight characters, with a decimal if there is room.
bool print_pair(std::FILE* out, const qxmtz& mtz, const ColumnPair& pair, std::int32_t i) {
  if (is_missing(mtz, *pair.value, i) || is_missing(mtz, *pair.sigma, i)) {
    std::fputs("     0.0    -1.0", out);
    return true;
  }
  for (const MtzColumn* column : {pair.value, pair.sigma}) {
    const auto value = static_cast<double>(column->values[i]);
    char text[64];
    if (std::snprintf(text, sizeof text, "%8.1f", value) != 8 &&
        std::snprintf(text, sizeof text, "%8.0f", value) != 8) {
      return false;
    }
    std::fputs(text, out);
  }
  return true;
}

// p212121 for P 21 21 21.
void print_header(std::FILE* out, const qxmtz& mtz) {
  std::fputs("    1\n -987\n", out);
  for (const double c : mtz.cell) std::fprintf(out, "%10.3f", c);
  std::fputc(' ', out);
  for (const char* c = mtz.spacegroup_name; *c; ++c) {
    if (*c != ' ') std::fputc(to_lower(*c), out);
  }
  std::fputc('\n', out);
}

bool print_row(std::FILE* out, const qxmtz& mtz, const ColumnPair (&pairs)[2], std::int32_t i,
               std::int32_t& left_out) {
  const bool mates = pairs[1].sigma;
  const bool first = !is_missing(mtz, *pairs[0].value, i) && !is_missing(mtz, *pairs[0].sigma, i);
  const bool second =
      mates && !is_missing(mtz, *pairs[1].value, i) && !is_missing(mtz, *pairs[1].sigma, i);
  if (!first && !second) {
    ++left_out;
    return true;
  }
  for (std::int32_t a = 0; a < 3; ++a) {
    const std::int32_t index = index_of(mtz, a, i);
    if (index < -999 || index > 9999) return false;
    std::fprintf(out, "%4d", index);
  }
  const bool written =
      print_pair(out, mtz, pairs[0], i) && (!second || print_pair(out, mtz, pairs[1], i));
  std::fputc('\n', out);
  return written;
}

}  // namespace

bool write_scalepack(const char* path, const qxmtz& mtz) {
  const TableOutput output(writing, path, mtz);
  ColumnPair pairs[2] = {find_pair(mtz, 'K', 'M'), find_pair(mtz, 'K', 'M', 1)};
  if (!pairs[0].sigma || !pairs[1].sigma) {
    pairs[0] = find_pair(mtz, 'J', 'Q');
    pairs[1] = {};
  }
  if (!pairs[0].sigma) return output.refuse("There are no intensities with errors to write.");
  if (!mtz.has_cell) return output.refuse("There is no cell to write.");
  OutputFile file;
  if (!output.open(file)) return false;
  print_header(file.stream(), mtz);
  std::int32_t left_out = 0;
  for (std::int32_t i = 0; i < mtz.nreflections; ++i) {
    if (!print_row(file.stream(), mtz, pairs, i, left_out)) {
      return output.refuse("A number does not fit into the fields of a scalepack file.");
    }
  }
  if (!output.commit(file)) return false;
  if (left_out > 0) say("Rows without a value, not written: %d\n", left_out);
  const MtzColumn* held[] = {pairs[0].value, pairs[0].sigma, pairs[1].value, pairs[1].sigma};
  output.tell_others(held, 4);
  return true;
}

}  // namespace qx
