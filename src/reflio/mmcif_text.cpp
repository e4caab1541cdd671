// Reading structure factors in mmCIF: the cell, the group, the wavelength and the loop of _refln
// items of the first block that has one.
#include "reflio/mmcif_items.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace qx {

namespace {

constexpr const char* reading = "read_mmcif():";
constexpr float none = std::numeric_limits<float>::quiet_NaN();
constexpr std::size_t most_items = 200;

// Words, texts in quotes and between lines that begin with a semicolon.
class Tokens {
 public:
  explicit Tokens(TableText& table) : table_(table), at_(table.rest()), start_(at_) {
    table_.count_line();
  }
  // Empty at the end, where `ended` is true as well; a quoted text may be empty too.
  Word next() {
    skip();
    quoted_ = false;
    if (!*at_) {
      ended_ = true;
      return {at_, 0};
    }
    if (*at_ == ';' && begins_line()) return text_field();
    if (*at_ == '\'' || *at_ == '"') return quoted();
    const Word word = {at_, std::strcspn(at_, " \t\r\n")};
    at_ = word.end();
    return word;
  }
  [[nodiscard]] bool ended() const { return ended_; }
  [[nodiscard]] bool is_quoted() const { return quoted_; }
  // A word with a meaning of its own: what ends the values of a loop.
  [[nodiscard]] bool is_key(Word word) const {
    return !quoted_ && (ended_ || *word.start == '_' || is_word(word, "loop_") ||
                        word_begins(word, "data_") || word_begins(word, "save_"));
  }

 private:
  [[nodiscard]] bool begins_line() const { return at_ == start_ || at_[-1] == '\n'; }
  void skip() {
    for (; *at_; ++at_) {
      if (*at_ == '#') at_ += std::strcspn(at_, "\n");
      if (*at_ == '\n') table_.count_line();
      if (*at_ != ' ' && *at_ != '\t' && *at_ != '\r' && *at_ != '\n') return;
      if (!*at_) return;
    }
  }
  Word text_field() {
    quoted_ = true;
    const char* first = ++at_;
    while (*at_ && !(*at_ == ';' && at_[-1] == '\n' && at_ > first)) {
      if (*at_ == '\n') table_.count_line();
      ++at_;
    }
    const Word word = {first, static_cast<std::size_t>(at_ - first)};
    if (*at_) ++at_;
    return word;
  }
  // A quote ends a text only before a blank.
  Word quoted() {
    quoted_ = true;
    const char quote = *at_++;
    const char* first = at_;
    while (*at_ && *at_ != '\n' && !(*at_ == quote && std::strchr(" \t\r\n", at_[1]))) ++at_;
    const Word word = {first, static_cast<std::size_t>(at_ - first)};
    if (*at_ == quote) ++at_;
    return word;
  }

  TableText& table_;
  const char* at_;
  const char* start_;
  bool ended_ = false, quoted_ = false;
};

struct Crystal {
  double cell[6] = {};
  unsigned known = 0;  // a bit for each
  Word group;
  double wavelength = 0.0;
};

void take_item(Word name, Word value, Crystal& crystal) {
  constexpr const char* names[] = {"_cell.length_a",    "_cell.length_b",   "_cell.length_c",
                                   "_cell.angle_alpha", "_cell.angle_beta", "_cell.angle_gamma"};
  for (unsigned i = 0; i < 6; ++i) {
    const Word number = {value.start, std::min(value.size, std::strcspn(value.start, "("))};
    if (is_word(name, names[i]) && read_number(number, crystal.cell[i])) crystal.known |= 1U << i;
  }
  if (is_word(name, "_symmetry.space_group_name_H-M") ||
      is_word(name, "_space_group.name_H-M_alt")) {
    crystal.group = value;
  }
  double wavelength = 0.0;
  if (is_word(name, "_diffrn_radiation_wavelength.wavelength") && read_number(value, wavelength)) {
    crystal.wavelength = wavelength;
  }
}

struct Loop {
  std::size_t count = 0;
  std::int32_t column[most_items];  // of the table; -1: not kept
  bool flags[most_items] = {};      // of the status item
};

Status add_item(TableText& table, Word name, Loop& loop) {
  if (loop.count == most_items) return table.broken("too many items in a loop");
  constexpr const char* indices[] = {"_refln.index_h", "_refln.index_k", "_refln.index_l"};
  std::int32_t& column = loop.column[loop.count];
  column = -1;
  loop.flags[loop.count] = is_word(name, "_refln.status");
  ++loop.count;
  for (std::int32_t a = 0; a < 3; ++a) {
    if (is_word(name, indices[a])) column = a;
  }
  const MmcifItem* item = find_mmcif_item(name);
  if (column >= 0 || (!item && !word_begins(name, "_refln."))) return ok;
  for (const char* text : {"_id", "_details", ".scale_group_code", "_code"}) {
    const std::size_t size = std::strlen(text);
    if (name.size > size && is_word({name.end() - size, size}, text)) return ok;
  }
  column = static_cast<std::int32_t>(table.columns());
  char label[mtz_record_size] = {};
  std::snprintf(label, sizeof label, "%.*s", static_cast<int>(name.size), name.start);
  return table.add_column(label, item ? item->type : 'R');
}

float flag_of(Word word) {
  if (is_word(word, "f")) return 1.0F;
  return is_word(word, "o") || is_word(word, "<") || is_word(word, "h") || is_word(word, "l")
             ? 0.0F
             : none;
}

Status take_value(const TableText& table, Word word, bool flag, std::int32_t column, float* row) {
  if (column < 0) return ok;
  double value = 0.0;
  std::int32_t index = 0;
  if (column < 3) {
    if (!read_index(word, index)) return table.broken("an index is no whole number");
    row[column] = static_cast<float>(index);
    return ok;
  }
  if (flag) {
    row[column] = flag_of(word);
    return ok;
  }
  row[column] = none;
  if (is_word(word, "?") || is_word(word, ".")) return ok;
  const Word number = {word.start, std::min(word.size, std::strcspn(word.start, "("))};
  if (!read_number(number, value)) return table.broken("a value is no number");
  row[column] = static_cast<float>(value);
  return ok;
}

// Values of the loop behind its items; `word` is the first, and then the word behind the last.
Status read_loop(TableText& table, Tokens& tokens, const Loop& loop, Word& word) {
  float row[most_items + 3];
  std::size_t n = 0;
  for (; !tokens.is_key(word); word = tokens.next()) {
    QX_TRY(take_value(table, word, loop.flags[n], loop.column[n], row));
    if (++n == loop.count) QX_TRY(table.add_row(row));
    n %= loop.count;
  }
  return n == 0 ? ok : table.broken("a loop ends within a row");
}

Status skip_loop(const TableText& table, Tokens& tokens, Crystal& crystal, Word& word) {
  Word names[most_items];
  std::size_t count = 0, n = 0;
  for (; !tokens.ended() && !tokens.is_quoted() && *word.start == '_'; word = tokens.next()) {
    if (count == most_items) return table.broken("too many items in a loop");
    names[count++] = word;
  }
  for (; !tokens.is_key(word); word = tokens.next()) {
    if (count == 0) return table.broken("a loop without items");
    take_item(names[n], word, crystal);
    n = (n + 1) % count;
  }
  return ok;
}

Status read_refln(TableText& table, Tokens& tokens, Word& word) {
  Loop loop;
  for (; !tokens.ended() && *word.start == '_'; word = tokens.next()) {
    QX_TRY(add_item(table, word, loop));
  }
  for (std::int32_t a = 0; a < 3; ++a) {
    if (std::find(loop.column, loop.column + loop.count, a) == loop.column + loop.count) {
      return table.broken("a loop of reflections without an index");
    }
  }
  return read_loop(table, tokens, loop, word);
}

Status read_blocks(TableText& table, Crystal& crystal) {
  Tokens tokens(table);
  bool found = false, block = false;
  for (Word word = tokens.next(); !tokens.ended();) {
    if (word_begins(word, "data_")) {
      if (found) break;
      block = true;
      crystal = {};
      word = tokens.next();
    } else if (is_word(word, "loop_")) {
      word = tokens.next();
      if (word_begins(word, "_refln.") && !found) {
        found = true;
        QX_TRY(read_refln(table, tokens, word));
      } else {
        QX_TRY(skip_loop(table, tokens, crystal, word));
      }
    } else if (block && *word.start == '_') {
      const Word value = tokens.next();
      if (tokens.is_key(value)) return table.broken("an item without a value");
      take_item(word, value, crystal);
      word = tokens.next();
    } else {
      return table.broken("a word that is no part of such a file");
    }
  }
  return ok;
}

}  // namespace

Status read_mmcif(qxrefdata* refdata, const char* path) {
  TableText table(reading, path);
  QX_TRY(table.open(*refdata));
  Crystal crystal;
  QX_TRY(read_blocks(table, crystal));
  if (crystal.known == 63) table.set_cell(crystal.cell);
  if (crystal.group.size > 0) table.set_group(crystal.group);
  table.set_wavelength(crystal.wavelength);
  return table.close();
}

}  // namespace qx
