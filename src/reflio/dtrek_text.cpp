// d*TREK lists: numbers of integer, real and text fields and of header lines, the header, a name
// for each field, then the rows. A negative error stands for what was not measured.
#include "core/output_file.h"
#include "core/say.h"
#include "reflio/table_text.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace qx {

namespace {

constexpr const char* reading = "read_dtrek():";
constexpr const char* writing = "write_dtrek():";
constexpr float none = std::numeric_limits<float>::quiet_NaN();
constexpr std::size_t most_fields = 256;

struct Known {
  const char* field;
  const char* label;
  char type;
};
constexpr Known known[] = {{"fIntensity", "IMEAN", 'J'}, {"fSigmaI", "SIGIMEAN", 'Q'},
                           {"fIntensity+", "I(+)", 'K'}, {"fSigmaI+", "SIGI(+)", 'M'},
                           {"fIntensity-", "I(-)", 'K'}, {"fSigmaI-", "SIGI(-)", 'M'}};

struct Layout {
  std::int32_t integers = 0, reals = 0, texts = 0, header = 0;
  [[nodiscard]] std::int32_t fields() const { return integers + reals + texts; }
  [[nodiscard]] bool is_good() const {
    return integers >= 3 && reals >= 0 && texts >= 0 && header >= 0 &&
           fields() <= static_cast<std::int32_t>(most_fields) && header <= 1'000'000 &&
           integers < 256 && reals < 256 && texts < 256;
  }
};

Word next_word(const char*& at) {
  at += std::strspn(at, " \t");
  const Word word = {at, std::strcspn(at, " \t")};
  at = word.end();
  return word;
}

Status read_layout(TableText& table, Layout& layout) {
  const char* at = table.next_line();
  std::int32_t* const numbers[] = {&layout.integers, &layout.reals, &layout.texts, &layout.header};
  std::size_t n = 0;
  for (Word word = at ? next_word(at) : Word(); word.size > 0; word = next_word(at)) {
    if (n == 4 || !read_index(word, *numbers[n++])) n = 9;
    if (n > 4) break;
  }
  if ((n == 3 || n == 4) && layout.is_good()) return ok;
  return table.broken("not the numbers of fields that a d*TREK list begins with");
}

// NAME=numbers;
Status read_header_line(TableText& table, const char* line) {
  const char* value = std::strchr(line, '=');
  if (!value) return ok;
  const Word name = field(line, 0, static_cast<std::size_t>(value - line));
  if (is_word(name, "CRYSTAL_SPACEGROUP")) {
    table.set_group(field(value + 1, 0, std::strcspn(value + 1, ";")));
  }
  double numbers[6] = {};
  std::size_t n = 0;
  for (const char* at = value + 1; n < 6; ++n) {
    Word word = next_word(at);
    while (word.size > 0 && word.end()[-1] == ';') --word.size;
    if (!read_number(word, numbers[n])) break;
  }
  if (is_word(name, "CRYSTAL_UNIT_CELL")) {
    if (n != 6) return table.broken("not a cell");
    table.set_cell(numbers);
  }
  if (is_word(name, "SOURCE_WAVELENGTH") && n == 2) table.set_wavelength(numbers[1]);
  return ok;
}

Status add_field(TableText& table, const char* line, char kind) {
  const Word name = field(line, 0, 80);
  if (name.size < 2 || *name.start != kind) return table.broken("not the name of a field");
  for (const Known& row : known) {
    if (is_word(name, row.field)) return table.add_column(row.label, row.type);
  }
  char label[31] = {};
  std::snprintf(label, sizeof label, "%.*s", static_cast<int>(name.size - 1), name.start + 1);
  return table.add_column(label, kind == 'n' ? 'I' : 'R');
}

Status read_fields(TableText& table, const Layout& layout) {
  for (std::int32_t i = 0; i < layout.fields(); ++i) {
    const char* line = table.next_line();
    if (!line) return table.broken("the header ends too early");
    if (i < 3) {
      constexpr const char* indices[] = {"nH", "nK", "nL"};
      if (!is_word(field(line, 0, 80), indices[i])) return table.broken("nH, nK, nL come first");
    } else if (i < layout.integers + layout.reals) {
      QX_TRY(add_field(table, line, i < layout.integers ? 'n' : 'f'));
    }
  }
  return ok;
}

// Errors below 0 take their values with them.
void mark_missing(const qxmtz& mtz, float* row) {
  for (std::int32_t c = 4; c < mtz.columns.count; ++c) {
    const char type = mtz.columns[c].type;
    if ((type == 'Q' || type == 'M') && row[c] < 0.0F) row[c] = row[c - 1] = none;
  }
}

Status read_row(TableText& table, const Layout& layout, const char* line) {
  float row[most_fields] = {};
  const char* at = line;
  for (std::int32_t i = 0; i < layout.fields(); ++i) {
    const Word word = next_word(at);
    double value = 0.0;
    std::int32_t number = 0;
    const bool text = i >= layout.integers + layout.reals;
    const bool good = text    ? word.size > 0
                      : i < 3 ? read_index(word, number)
                              : read_number(word, value);
    if (!good) return table.broken("a field is no number, or fields are missing");
    if (!text) row[i] = i < 3 ? static_cast<float>(number) : static_cast<float>(value);
  }
  if (next_word(at).size > 0) return table.broken("more fields than the header names");
  mark_missing(table.mtz(), row);
  return table.add_row(row);
}

}  // namespace

Status read_dtrek(qxrefdata* refdata, const char* path) {
  TableText table(reading, path);
  QX_TRY(table.open(*refdata));
  Layout layout;
  QX_TRY(read_layout(table, layout));
  for (std::int32_t i = 0; i < layout.header; ++i) {
    const char* line = table.next_line();
    if (!line) return table.broken("the header ends too early");
    QX_TRY(read_header_line(table, line));
  }
  QX_TRY(read_fields(table, layout));
  while (const char* line = table.next_line()) {
    if (*line) QX_TRY(read_row(table, layout, line));
  }
  return table.close();
}

namespace {

void print_header(std::FILE* out, const qxmtz& mtz, int integers, int reals) {
  const double wavelength = wavelength_of(mtz);
  const int lines =
      (mtz.has_cell ? 1 : 0) + (mtz.spacegroup_name[0] ? 1 : 0) + (wavelength > 0.0 ? 1 : 0);
  std::fprintf(out, "%d %d 0 %d\n", integers, reals, lines);
  if (mtz.has_cell) {
    std::fputs("CRYSTAL_UNIT_CELL=", out);
    for (int i = 0; i < 6; ++i) std::fprintf(out, "%s%.4f", i > 0 ? " " : "", mtz.cell[i]);
    std::fputs(";\n", out);
  }
  if (mtz.spacegroup_name[0]) {
    if (mtz.spacegroup_number > 0) {
      std::fprintf(out, "CRYSTAL_SPACEGROUP=%d;\n", mtz.spacegroup_number);
    } else {
      std::fprintf(out, "CRYSTAL_SPACEGROUP=%s;\n", mtz.spacegroup_name);
    }
  }
  if (wavelength > 0.0) std::fprintf(out, "SOURCE_WAVELENGTH=1 %.5f;\n", wavelength);
}

void print_row(std::FILE* out, const qxmtz& mtz, const MtzColumn* flag,
               const ColumnPair (&pairs)[3], std::int32_t i) {
  for (std::int32_t a = 0; a < 3; ++a) std::fprintf(out, "%5d", index_of(mtz, a, i));
  if (flag) {
    std::fprintf(out, " %ld", is_missing(mtz, *flag, i) ? -1L : std::lround(flag->values[i]));
  }
  for (const ColumnPair& pair : pairs) {
    if (!pair.sigma) continue;
    const bool none_there = is_missing(mtz, *pair.value, i) || is_missing(mtz, *pair.sigma, i);
    std::fprintf(out, " %s %s", none_there ? "0" : NumberText(pair.value->values[i]).text,
                 none_there ? "-1" : NumberText(pair.sigma->values[i]).text);
  }
  std::fputc('\n', out);
}

}  // namespace

bool write_dtrek(const char* path, const qxmtz& mtz) {
  const TableOutput output(writing, path, mtz);
  const ColumnPair pairs[3] = {find_pair(mtz, 'J', 'Q'), find_pair(mtz, 'K', 'M'),
                               find_pair(mtz, 'K', 'M', 1)};
  const MtzColumn* flag = find_type(mtz, 'I');
  if (!pairs[0].sigma && !(pairs[1].sigma && pairs[2].sigma)) {
    return output.refuse("There are no intensities with errors to write.");
  }
  OutputFile file;
  if (!output.open(file)) return false;
  std::FILE* out = file.stream();
  int reals = 0;
  for (const ColumnPair& pair : pairs) reals += pair.sigma ? 2 : 0;
  print_header(out, mtz, flag ? 4 : 3, reals);
  std::fputs("nH\nnK\nnL\n", out);
  if (flag) std::fprintf(out, "n%s\n", flag->label);
  constexpr const char* mates[] = {"", "+", "-"};
  for (int i = 0; i < 3; ++i) {
    if (pairs[i].sigma) std::fprintf(out, "fIntensity%s\nfSigmaI%s\n", mates[i], mates[i]);
  }
  for (std::int32_t i = 0; i < mtz.nreflections; ++i) print_row(out, mtz, flag, pairs, i);
  if (!output.commit(file)) return false;
  const MtzColumn* held[] = {flag,           pairs[0].value, pairs[0].sigma, pairs[1].value,
                             pairs[1].sigma, pairs[2].value, pairs[2].sigma};
  output.tell_others(held, 7);
  return true;
}

}  // namespace qx
