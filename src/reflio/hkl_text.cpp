// Plain lists of reflections: h, k, l, a value, its error, a flag. Lines are fields of 3I4, 2F8 and
// I4, as programs for small molecules have them, or words between blanks; a line of indices 0 0 0
// ends the list.
#include "core/output_file.h"
#include "core/say.h"
#include "reflio/table_text.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace qx {

namespace {

constexpr const char* reading = "read_hkl():";
constexpr const char* writing = "write_hkl():";
constexpr float none = std::numeric_limits<float>::quiet_NaN();

// An integer that ends where its field does.
bool right_justified(const char* line, std::size_t first, std::size_t width, std::int32_t& value) {
  const Word word = field(line, first, width);
  return word.end() == line + first + width && read_index(word, value);
}

// Without a point the last two digits are decimals, as such fields are read everywhere.
bool fixed_value(Word word, double& value) {
  if (!read_number(word, value)) return false;
  if (!std::any_of(word.start, word.end(), [](char c) { return c == '.' || c == 'e' || c == 'E'; }))
    value /= 100.0;
  return true;
}

bool read_fixed(const char* line, float (&row)[6]) {
  if (std::strlen(line) < 28) return false;
  std::int32_t hkl[3];
  double value = 0.0, sigma = 0.0;
  for (std::size_t a = 0; a < 3; ++a) {
    if (!right_justified(line, 4 * a, 4, hkl[a])) return false;
    row[a] = static_cast<float>(hkl[a]);
  }
  if (!fixed_value(field(line, 12, 8), value) || !fixed_value(field(line, 20, 8), sigma)) {
    return false;
  }
  row[3] = static_cast<float>(value);
  row[4] = static_cast<float>(sigma);
  const Word flag = field(line, 28, 4);
  std::int32_t number = 0;
  if (flag.size > 0 && !read_index(flag, number)) return false;
  row[5] = flag.size > 0 ? static_cast<float>(number) : none;
  return true;
}

bool read_words(const char* line, float (&row)[6]) {
  std::size_t n = 0;
  for (const char* at = line;; ++n) {
    at += std::strspn(at, " \t");
    const Word word = {at, std::strcspn(at, " \t")};
    if (word.size == 0) break;
    at = word.end();
    double value = 0.0;
    std::int32_t index = 0;
    if (n == 6 || !(n < 3 ? read_index(word, index) : read_number(word, value))) return false;
    row[n] = n < 3 ? static_cast<float>(index) : static_cast<float>(value);
  }
  std::fill(row + n, row + 6, none);
  return n >= 4;
}

}  // namespace

Status read_hkl(qxrefdata* refdata, const char* path) {
  TableText table(reading, path);
  QX_TRY(table.open(*refdata));
  QX_TRY(table.add_column("VALUE", 'J'));
  QX_TRY(table.add_column("SIGMA", 'Q'));
  QX_TRY(table.add_column("FLAG", 'I'));
  while (const char* line = table.next_line()) {
    if (!*line || *line == '#' || *line == '!') continue;
    float row[6];
    if (!read_fixed(line, row) && !read_words(line, row)) {
      return table.broken("not h, k, l, a value, its error and a flag");
    }
    if (row[0] == 0.0F && row[1] == 0.0F && row[2] == 0.0F) break;
    QX_TRY(table.add_row(row));
  }
  return table.close();
}

namespace {

// Eight characters with as many decimals as they hold, always with a point.
bool print_value(float value, char (&text)[16]) {
  for (const int decimals : {2, 1}) {
    if (std::snprintf(text, sizeof text, "%8.*f", decimals, static_cast<double>(value)) == 8) {
      return true;
    }
  }
  return std::snprintf(text, sizeof text, "%7.0f.", static_cast<double>(value)) == 8;
}

// What brings the largest value into its field.
float scale_of(const qxmtz& mtz, const MtzColumn& value) {
  constexpr float most = 99999.0F;  // with two decimals, or one
  float largest = 0.0F;
  for (std::int32_t i = 0; i < mtz.nreflections; ++i) {
    if (!is_missing(mtz, value, i)) largest = std::max(largest, std::fabs(value.values[i]));
  }
  float scale = 1.0F;
  while (largest * scale > most) scale /= 10.0F;
  return scale;
}

bool print_row(std::FILE* out, const qxmtz& mtz, const ColumnPair& pair, const MtzColumn* flag,
               float scale, std::int32_t i) {
  char value[16], sigma[16];
  if (!print_value(scale * pair.value->values[i], value) ||
      !print_value(pair.sigma ? scale * pair.sigma->values[i] : 0.0F, sigma)) {
    return false;
  }
  std::int32_t hkl[3];
  for (std::int32_t a = 0; a < 3; ++a) {
    hkl[a] = index_of(mtz, a, i);
    if (hkl[a] < -999 || hkl[a] > 9999) return false;
  }
  const bool flagged = flag && !is_missing(mtz, *flag, i);
  const long number = flagged ? std::lround(flag->values[i]) : 0;
  if (number < -999 || number > 9999) return false;
  std::fprintf(out, "%4d%4d%4d%s%s", hkl[0], hkl[1], hkl[2], value, sigma);
  if (flag) std::fprintf(out, "%4ld", number);
  std::fputc('\n', out);
  return true;
}

}  // namespace

bool write_hkl(const char* path, const qxmtz& mtz) {
  const TableOutput output(writing, path, mtz);
  ColumnPair pair = find_pair(mtz, 'J', 'Q');
  if (!pair.value) pair = find_pair(mtz, 'F', 'Q');
  if (!pair.value) return output.refuse("There are no intensities or amplitudes to write.");
  const MtzColumn* flag = find_type(mtz, 'I');
  OutputFile file;
  if (!output.open(file)) return false;
  const float scale = scale_of(mtz, *pair.value);
  std::int32_t left_out = 0;
  for (std::int32_t i = 0; i < mtz.nreflections; ++i) {
    if (is_missing(mtz, *pair.value, i) || (pair.sigma && is_missing(mtz, *pair.sigma, i))) {
      ++left_out;
      continue;
    }
    if (!print_row(file.stream(), mtz, pair, flag, scale, i)) {
      return output.refuse("A number does not fit into the fields of an HKL file.");
    }
  }
  std::fprintf(file.stream(), "   0   0   0    0.00    0.00%s\n", flag ? "   0" : "");
  if (!output.commit(file)) return false;
  if (scale < 1.0F) say("Values were divided by %g to fit\n", 1.0 / static_cast<double>(scale));
  say("%s were written\n", pair.value->type == 'J' ? "Intensities" : "Amplitudes");
  if (left_out > 0) say("Rows without a value, not written: %d\n", left_out);
  const MtzColumn* held[] = {pair.value, pair.sigma, flag};
  output.tell_others(held, 3);
  return true;
}

}  // namespace qx
