// Reflection files of text as tables of columns: lines and numbers, strictly; rows that become the
// columns of the same object that holds an MTZ file, so that all that is known of one is known of
// the others.
#pragma once

#include "core/text.h"
#include "crystal/columns.h"
#include "reflio/mtz.h"

#include <cstdio>

namespace qx {

class OutputFile;

// The word as a number, as a whole; letters other than an exponent's are none.
bool read_number(Word word, double& value) noexcept;
bool read_index(Word word, std::int32_t& value) noexcept;
// A field of fixed width, blanks around its content taken off.
Word field(const char* line, std::size_t first, std::size_t width) noexcept;
bool is_word(Word word, const char* text) noexcept;      // any case
bool word_begins(Word word, const char* text) noexcept;  // any case

class TableText {
 public:
  TableText(const char* heading, const char* path) : heading_(heading), path_(path) {}

  // Reads the file and makes the object in the data set, with columns H, K and L.
  Status open(qxrefdata& refdata);
  // The next line, ended with a NUL; null behind the last.
  char* next_line() noexcept;
  // Behind the last line that was taken: for formats without lines.
  [[nodiscard]] const char* rest() const noexcept { return at_; }
  void count_line() noexcept { ++line_; }
  // Back to the first line; only where none was taken as one.
  void rewind(const char* to, std::int32_t line) noexcept;
  [[nodiscard]] std::int32_t line() const noexcept { return line_; }

  Status add_column(const char* label, char type);
  [[nodiscard]] std::size_t columns() const noexcept;
  // As many values as there are columns, H, K and L first; no columns come behind it.
  Status add_row(const float* values);
  // Ends the object: columns from rows, data sets, ranges.
  Status close();
  void set_cell(const double (&cell)[6]) noexcept;
  void set_group(Word name) noexcept;
  void set_wavelength(double wavelength) noexcept { wavelength_ = wavelength; }

  // Reports the line at work.
  Status broken(const char* what) const;
  [[nodiscard]] qxmtz& mtz() noexcept { return *mtz_; }

 private:
  Status grow();

  const char* heading_;
  const char* path_;
  Tagged<char> text_;
  char* at_ = nullptr;
  std::int32_t line_ = 0;
  qxmtz* mtz_ = nullptr;
  Tagged<float> rows_;
  std::size_t capacity_ = 0;  // rows
  double wavelength_ = 0.0;
};

// What a format of text can hold of a table, and how it says what it cannot.
class TableOutput {
 public:
  TableOutput(const char* heading, const char* path, const qxmtz& mtz)
      : heading_(heading), path_(path), mtz_(mtz) {}
  // False after a note of what is wrong.
  bool open(OutputFile& file) const;
  bool commit(OutputFile& file) const;
  // Tells the columns that none of `held` are; index columns are held by all.
  void tell_others(const MtzColumn* const* held, std::size_t n) const;
  [[nodiscard]] bool refuse(const char* what) const;

 private:
  const char* heading_;
  const char* path_;
  const qxmtz& mtz_;
};

// NaN, infinity or the table's own mark.
bool is_missing(const qxmtz& mtz, const MtzColumn& column, std::int32_t row) noexcept;
std::int32_t index_of(const qxmtz& mtz, std::int32_t axis, std::int32_t row) noexcept;

// The first column of a type, and the one behind it if that is of the other.
struct ColumnPair {
  const MtzColumn* value = nullptr;
  const MtzColumn* sigma = nullptr;
};
ColumnPair find_pair(const qxmtz& mtz, char type, char sigma_type, int nth = 0) noexcept;
const MtzColumn* find_type(const qxmtz& mtz, char type) noexcept;

// Wavelength of the last data set that tells one; 0 if none does.
double wavelength_of(const qxmtz& mtz) noexcept;
// The shortest text that is read as this number again.
struct NumberText {
  char text[32];
  explicit NumberText(float value) noexcept;
};

// Readers and writers; a writer gives false after a note.
Status read_hkl(qxrefdata* refdata, const char* path);
Status read_cns(qxrefdata* refdata, const char* path);
Status read_scalepack(qxrefdata* refdata, const char* path);
Status read_dtrek(qxrefdata* refdata, const char* path);
Status read_mmcif(qxrefdata* refdata, const char* path);
bool write_hkl(const char* path, const qxmtz& mtz);
bool write_cns(const char* path, const qxmtz& mtz);
bool write_scalepack(const char* path, const qxmtz& mtz);
bool write_dtrek(const char* path, const qxmtz& mtz);
bool write_mmcif(const char* path, const qxmtz& mtz);

// The column that an identifier without a name means, null if the table has none.
const char* usual_column(const qxmtz& mtz, std::int32_t coid) noexcept;
const char* usual_mmcif_column(const qxmtz& mtz, std::int32_t coid) noexcept;

}  // namespace qx
