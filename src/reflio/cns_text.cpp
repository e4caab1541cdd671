// CNS reflection files: declarations, then INDEx h k l and NAME= values. A complex object is an
// amplitude and its phase in degrees. What a row leaves out is missing.
#include "core/output_file.h"
#include "core/say.h"
#include "reflio/mmcif_items.h"
#include "reflio/table_text.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <strings.h>

namespace qx {

namespace {

constexpr const char* reading = "read_cns():";
constexpr const char* writing = "write_cns():";
constexpr float none = std::numeric_limits<float>::quiet_NaN();

// Words of the file. Comments are {} and what follows !; = is a blank; lines of REMARK and CRYST1
// are kept apart.
class Words {
 public:
  explicit Words(TableText& table) : table_(table), at_(table.rest()) { table_.count_line(); }

  // Empty at the end.
  Word next() {
    for (;;) {
      if (new_line_) take_line_start();
      if (*at_ == '\n') {
        ++at_;
        table_.count_line();
        new_line_ = true;
      } else if (*at_ == '{') {
        skip_comment();
      } else if (*at_ == '!') {
        at_ += std::strcspn(at_, "\n");
      } else if (*at_ == '=' || std::isspace(static_cast<unsigned char>(*at_))) {
        ++at_;
      } else {
        break;
      }
    }
    const Word word = {at_, std::strcspn(at_, " \t\r\n={}!")};
    at_ = word.size > 0 ? word.end() : at_;
    return word;
  }
  // A brace that closes no comment is no word either.
  [[nodiscard]] bool ended() const { return !*at_; }
  // The word behind; it stays to be taken.
  Word peek() {
    const char* const at = at_;
    const bool fresh = new_line_;
    const std::int32_t line = table_.line();
    const Word word = next();
    table_.rewind(table_.rest(), line);
    at_ = at;
    new_line_ = fresh;
    return word;
  }

 private:
  void skip_comment() {
    for (; *at_ && *at_ != '}'; ++at_) {
      if (*at_ == '\n') table_.count_line();
    }
    if (*at_) ++at_;
  }

  // A remark may tell the crystal: a= .. b= .. sg= ..; a CRYST1 record does.
  void take_line_start() {
    new_line_ = false;
    const char* start = at_ + std::strspn(at_, " \t");
    const std::size_t length = std::strcspn(start, "\r\n");
    if (strncasecmp(start, "REMARK", 6) == 0) {
      take_remark({start + 6, length - 6});
    } else if (strncasecmp(start, "CRYST1", 6) == 0) {
      take_record(at_, length);
    } else {
      return;
    }
    at_ = start + length;
  }

  void take_remark(Word remark) {
    double cell[6] = {};
    std::size_t found = 0;
    Word group;
    const char* at = remark.start;
    while (at < remark.end()) {
      at += std::strspn(at, " \t");
      const Word name = {at, std::strcspn(at, "= \t\r\n")};
      at = name.end();
      at += std::strspn(at, " \t");
      if (*at != '=') {
        if (name.size == 0) break;  // an = without a name is passed, the end of the line is not
        continue;
      }
      ++at;
      at += std::strspn(at, " \t");
      const Word value = {at, std::strcspn(at, " \t\r\n")};
      at = value.end() + std::strspn(value.end(), " \t");
      constexpr const char* names[] = {"a", "b", "c", "alpha", "beta", "gamma"};
      for (std::size_t i = 0; i < 6; ++i) {
        if (is_word(name, names[i]) && read_number(value, cell[i])) ++found;
      }
      if (is_word(name, "sg")) group = value;
      double wavelength = 0.0;
      if (is_word(name, "wavelength") && read_number(value, wavelength)) {
        table_.set_wavelength(wavelength);
      }
    }
    if (found == 6 && group.size > 0) {
      table_.set_cell(cell);
      table_.set_group(group);
    }
  }

  void take_record(const char* line, std::size_t length) {
    char text[81] = {};
    std::snprintf(text, sizeof text, "%.*s", static_cast<int>(std::min<std::size_t>(length, 80)),
                  line);
    double cell[6];
    for (std::size_t i = 0; i < 6; ++i) {
      if (!read_number(i < 3 ? field(text, 6 + 9 * i, 9) : field(text, 33 + 7 * (i - 3), 7),
                       cell[i])) {
        return;
      }
    }
    table_.set_cell(cell);
    table_.set_group(field(text, 55, 11));
  }

  TableText& table_;
  const char* at_;
  bool new_line_ = true;
};

enum class Kind { real, complex, integer };

struct Object {
  char name[31];
  Kind kind;
  std::int32_t column;
};
constexpr std::size_t most_objects = 100;
struct Objects {
  Object items[most_objects];
  std::size_t count = 0;

  Object* find(Word name) {
    for (std::size_t i = 0; i < count; ++i) {
      if (is_word(name, items[i].name)) return items + i;
    }
    return nullptr;
  }
};

char type_of(const char* name, Kind kind) {
  if (kind == Kind::integer) return 'I';
  if (kind == Kind::complex) return 'F';
  constexpr struct {
    const char* name;
    char type;
  } usual[] = {{"FOBS", 'F'},       {"SIGMA", 'Q'},  {"SIGF", 'Q'},     {"IOBS", 'J'},
               {"SIGI", 'Q'},       {"IMEAN", 'J'},  {"FOM", 'W'},      {"PHASE", 'P'},
               {"PA", 'A'},         {"PB", 'A'},     {"PC", 'A'},       {"PD", 'A'},
               {"HLA", 'A'},        {"HLB", 'A'},    {"HLC", 'A'},      {"HLD", 'A'},
               {"SIGFP", 'Q'},      {"FP", 'F'},     {"SIGIMEAN", 'Q'}, {"I", 'J'},
               {"F", 'F'},          {"I_PLUS", 'K'}, {"I_MINUS", 'K'},  {"SIGI_PLUS", 'M'},
               {"SIGI_MINUS", 'M'}, {"F_PLUS", 'G'}, {"F_MINUS", 'G'},  {"SIGF_PLUS", 'L'},
               {"SIGF_MINUS", 'L'}, {"FC", 'F'},     {"PHIC", 'P'},     {"PHIB", 'P'},
               {"WEIGHT", 'W'}};
  for (const auto& row : usual) {
    if (strcasecmp(name, row.name) == 0) return row.type;
  }
  // Coefficients of maps have the labels of other programs.
  const char type = usual_column_type(name);
  return type != '\0' ? type : 'R';
}

// The phase of FOBS stands in PHI_FOBS.
Status add_object(TableText& table, Objects& objects, Word name, Kind kind) {
  if (objects.find(name)) return ok;
  if (objects.count == most_objects || name.size == 0 || name.size > 26) {
    return table.broken("not the name of an object, or too many objects");
  }
  Object& object = objects.items[objects.count++];
  std::snprintf(object.name, sizeof object.name, "%.*s", static_cast<int>(name.size), name.start);
  for (char* c = object.name; *c; ++c) *c = to_upper(*c);
  object.kind = kind;
  object.column = static_cast<std::int32_t>(table.columns());
  QX_TRY(table.add_column(object.name, type_of(object.name, kind)));
  if (kind != Kind::complex) return ok;
  char phase[40];
  std::snprintf(phase, sizeof phase, "PHI_%s", object.name);
  return table.add_column(phase, 'P');
}

Status read_declaration(TableText& table, Words& words, Objects& objects) {
  Word name;
  Kind kind = Kind::real;
  for (Word word = words.next(); !is_word(word, "END"); word = words.next()) {
    if (word.size == 0) return table.broken("a declaration without its end");
    if (word_begins(word, "NAME")) name = words.next();
    if (word_begins(word, "DOMA") && !word_begins(words.next(), "RECI")) {
      return table.broken("not an object of reciprocal space");
    }
    if (!word_begins(word, "TYPE")) continue;
    const Word type = words.next();
    kind = word_begins(type, "COMP")   ? Kind::complex
           : word_begins(type, "INTE") ? Kind::integer
                                       : Kind::real;
  }
  return add_object(table, objects, name, kind);
}

bool is_numeric(Word word) {
  double value = 0.0;
  return read_number(word, value);
}

// Files without declarations: an object is what stands before numbers, complex if these are two.
Status find_objects(TableText& table, const char* start, std::int32_t line, Objects& objects) {
  Words words(table);
  for (Word word = words.next(); word.size > 0;) {
    if (word_begins(word, "DECL")) {
      QX_TRY(read_declaration(table, words, objects));
    } else if (word_begins(word, "GROU")) {
      while (word.size > 0 && !is_word(word, "END")) word = words.next();
    } else if (word_begins(word, "INDE")) {
      for (int i = 0; i < 3; ++i) (void)words.next();
    } else if (word_begins(word, "NREF") || word_begins(word, "ANOM")) {
      (void)words.next();
    } else if (!objects.find(word) && !is_numeric(word) && is_numeric(words.peek())) {
      (void)words.next();
      QX_TRY(
          add_object(table, objects, word, is_numeric(words.peek()) ? Kind::complex : Kind::real));
    }
    word = words.next();
  }
  table.rewind(start, line);
  return ok;
}

Status read_values(TableText& table, Words& words, const Object& object, float* row) {
  double value = 0.0;
  if (!read_number(words.next(), value)) return table.broken("a value is no number");
  row[object.column] = static_cast<float>(value);
  if (object.kind != Kind::complex) return ok;
  row[object.column + 1] = 0.0F;  // of a complex object the phase may be left out
  if (!is_numeric(words.peek())) return ok;
  (void)read_number(words.next(), value);
  row[object.column + 1] = static_cast<float>(value);
  return ok;
}

struct Row {
  float values[2 * most_objects + 3];
  bool begun = false;
};

Status read_index(TableText& table, Words& words, Row& row) {
  if (row.begun) QX_TRY(table.add_row(row.values));
  std::fill(std::begin(row.values), std::end(row.values), none);
  row.begun = true;
  for (int i = 0; i < 3; ++i) {
    std::int32_t index = 0;
    if (!qx::read_index(words.next(), index)) return table.broken("INDEx without h, k, l");
    row.values[i] = static_cast<float>(index);
  }
  return ok;
}

Status read_rows(TableText& table, Objects& objects, std::int32_t& declared, Row& row) {
  Words words(table);
  for (Word word = words.next(); word.size > 0; word = words.next()) {
    if (word_begins(word, "INDE")) {
      QX_TRY(read_index(table, words, row));
    } else if (word_begins(word, "NREF")) {
      double count = 0.0;
      if (!read_number(words.next(), count) || count < 0.0 || count > 1e9) {
        return table.broken("NREFlection without a number");
      }
      declared = static_cast<std::int32_t>(count);
    } else if (word_begins(word, "ANOM")) {
      (void)words.next();
    } else if (word_begins(word, "DECL") || word_begins(word, "GROU")) {
      while (word.size > 0 && !is_word(word, "END")) word = words.next();
      if (word.size == 0) return table.broken("a declaration without its end");
    } else {
      const Object* object = objects.find(word);
      if (!object || !row.begun) return table.broken("a word that is no part of such a file");
      QX_TRY(read_values(table, words, *object, row.values));
    }
  }
  if (!words.ended()) return table.broken("a word that is no part of such a file");
  return row.begun ? table.add_row(row.values) : ok;
}

}  // namespace

Status read_cns(qxrefdata* refdata, const char* path) {
  TableText table(reading, path);
  QX_TRY(table.open(*refdata));
  const char* const start = table.rest();
  Objects objects;
  QX_TRY(find_objects(table, start, 0, objects));
  std::int32_t declared = -1;
  Row row;
  QX_TRY(read_rows(table, objects, declared, row));
  if (declared > table.mtz().nreflections) {
    say("WARNING: %s declares %d reflections and has %d: it may have been cut short \n", path,
        declared, table.mtz().nreflections);
  }
  return table.close();
}

namespace {

// Letters, digits and underscores; F(+) is F_PLUS.
void name_object(const char* label, char (&name)[64]) {
  std::size_t n = 0;
  for (const char* c = label; *c && n < 48; ++c) {
    const char* sign = std::strncmp(c, "(+)", 3) == 0   ? "_PLUS"
                       : std::strncmp(c, "(-)", 3) == 0 ? "_MINUS"
                                                        : nullptr;
    if (sign) {
      n += static_cast<std::size_t>(std::snprintf(name + n, sizeof name - n, "%s", sign));
      c += 2;
    } else {
      name[n++] = std::isalnum(static_cast<unsigned char>(*c)) ? to_upper(*c) : '_';
    }
  }
  name[n] = '\0';
}

void print_header(std::FILE* out, const qxmtz& mtz) {
  if (mtz.has_cell) {
    const double* c = mtz.cell;
    std::fprintf(out,
                 " REMARK a= %.6g b= %.6g c= %.6g alpha= %.6g beta= %.6g gamma= %.6g sg= ", c[0],
                 c[1], c[2], c[3], c[4], c[5]);
    for (const char* at = mtz.spacegroup_name; *at; ++at) {
      if (*at != ' ') std::fputc(*at, out);
    }
    std::fputc('\n', out);
  }
  for (const MtzLine& line : mtz.symops) std::fprintf(out, " REMARK symop (%s)\n", line.text);
  const double wavelength = wavelength_of(mtz);
  if (wavelength > 0.0) std::fprintf(out, " REMARK wavelength= %.5f\n", wavelength);
  std::fprintf(out, " NREFlection=%10d\n ANOMalous=FALSe\n", mtz.nreflections);
  for (const MtzColumn& column : mtz.columns) {
    if (column.type == 'H') continue;
    char name[64];
    name_object(column.label, name);
    std::fprintf(out, " DECLare NAME=%s DOMAin=RECIprocal TYPE=%s END\n", name,
                 column.type == 'I' ? "INTEger" : "REAL");
  }
}

}  // namespace

bool write_cns(const char* path, const qxmtz& mtz) {
  const TableOutput output(writing, path, mtz);
  OutputFile file;
  if (!output.open(file)) return false;
  std::FILE* out = file.stream();
  print_header(out, mtz);
  for (std::int32_t i = 0; i < mtz.nreflections; ++i) {
    std::fputs(" INDE", out);
    for (std::int32_t a = 0; a < 3; ++a) std::fprintf(out, " %d", index_of(mtz, a, i));
    for (const MtzColumn& column : mtz.columns) {
      if (column.type == 'H' || is_missing(mtz, column, i)) continue;
      char name[64];
      name_object(column.label, name);
      if (column.type == 'I') {
        std::fprintf(out, " %s= %ld", name, std::lround(column.values[i]));
      } else {
        std::fprintf(out, " %s= %s", name, NumberText(column.values[i]).text);
      }
    }
    std::fputc('\n', out);
  }
  return output.commit(file);
}

}  // namespace qx
