#include "reflio/table_text.h"

#include "core/files_read.h"
#include "core/output_file.h"
#include "core/say.h"
#include "crystal/reflections.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>

namespace qx {

namespace {

constexpr std::int64_t largest_file = std::int64_t{1} << 34;
constexpr std::int32_t largest_index = 1 << 20;

bool is_blank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

bool read_number(Word word, double& value) noexcept {
  const char* first = word.start;
  if (word.size > 0 && *first == '+') ++first;
  if (first == word.end() || std::isalpha(static_cast<unsigned char>(*first))) return false;
  if (*first == '-' && first + 1 < word.end() && std::isalpha(static_cast<unsigned char>(first[1])))
    return false;
  const auto [end, error] = std::from_chars(first, word.end(), value);
  constexpr double largest = 3e38;  // of single precision
  return error == std::errc() && end == word.end() && std::fabs(value) <= largest;
}

bool read_index(Word word, std::int32_t& value) noexcept {
  const char* first = word.start;
  if (word.size > 0 && *first == '+') ++first;
  const auto [end, error] = std::from_chars(first, word.end(), value);
  return word.size > 0 && error == std::errc() && end == word.end() &&
         std::abs(value) <= largest_index;
}

Word field(const char* line, std::size_t first, std::size_t width) noexcept {
  const std::size_t length = std::strlen(line);
  const char* start = line + std::min(first, length);
  const char* end = line + std::min(first + width, length);
  while (start < end && is_blank(*start)) ++start;
  while (end > start && is_blank(end[-1])) --end;
  return {start, static_cast<std::size_t>(end - start)};
}

bool is_word(Word word, const char* text) noexcept {
  return std::strlen(text) == word.size && strncasecmp(word.start, text, word.size) == 0;
}

bool word_begins(Word word, const char* text) noexcept {
  const std::size_t size = std::strlen(text);
  return word.size >= size && strncasecmp(word.start, text, size) == 0;
}

Status TableText::open(qxrefdata& refdata) {
  struct stat state = {};
  const bool there = stat(path_, &state) == 0 && S_ISREG(state.st_mode);
  const InputFile file = there ? InputFile(path_) : InputFile();
  if (!file || state.st_size > largest_file) {
    return fail(heading_, "Failed to open file %s for reading reflection data \n", path_);
  }
  const auto size = static_cast<std::size_t>(state.st_size);
  text_ = Tagged<char>(size + 1, "prt_text");
  if (!text_) return failed;
  if (std::fread(text_.get(), 1, size, file.get()) != size) {
    return fail(heading_, "Failed to read file %s ", path_);
  }
  text_[size] = '\0';
  if (std::memchr(text_.get(), '\0', size)) {
    return fail(heading_, "The file %s is no text ", path_);
  }
  at_ = text_.get();
  QX_TRY(qx_new_refdata_mtz_obj(&refdata));
  mtz_ = refdata.mtz;
  QX_TRY(open_text(mtz_->path, path_, "pm_path"));
  mtz_->mark = mark_of(state);
  copy_text(mtz_->version, "MTZ:V1.1");
  for (const char* label : {"H", "K", "L"}) QX_TRY(add_column(label, 'H'));
  return ok;
}

char* TableText::next_line() noexcept {
  if (!*at_) return nullptr;
  char* line = at_;
  ++line_;
  at_ += std::strcspn(at_, "\n");
  char* end = at_;
  if (*at_) ++at_;
  while (end > line && (end[-1] == '\r' || is_blank(end[-1]))) --end;
  *end = '\0';
  return line;
}

void TableText::rewind(const char* to, std::int32_t line) noexcept {
  at_ = text_.get() + (to - text_.get());
  line_ = line;
}

Status TableText::add_column(const char* label, char type) {
  MtzColumn* column = append(mtz_->columns, "pm_col");
  if (!column) return failed;
  copy_text(column->label, label);
  column->type = type;
  column->dataset_id = type == 'H' ? 0 : 1;
  return ok;
}

std::size_t TableText::columns() const noexcept {
  return static_cast<std::size_t>(mtz_->columns.count);
}

Status TableText::grow() {
  const std::size_t wanted = capacity_ > 0 ? 2 * capacity_ : 1024;
  Tagged<float> rows(wanted * columns(), "prt_rows");
  if (!rows) return failed;
  std::copy_n(rows_.get(), capacity_ * columns(), rows.get());
  rows_ = std::move(rows);
  capacity_ = wanted;
  return ok;
}

Status TableText::add_row(const float* values) {
  constexpr std::int32_t most = 1 << 28;
  const auto row = static_cast<std::size_t>(mtz_->nreflections);
  if (row == capacity_) QX_TRY(grow());
  if (mtz_->nreflections == most) return broken("too many reflections");
  std::copy_n(values, columns(), rows_.get() + row * columns());
  ++mtz_->nreflections;
  return ok;
}

Status TableText::close() {
  qxmtz& mtz = *mtz_;
  if (mtz.nreflections < 1) return fail(heading_, "There are no reflections in %s ", path_);
  const std::size_t n = columns();
  mtz.ncolumns_declared = mtz.columns.count;
  QX_TRY(open_values(mtz));
  for (std::size_t c = 0; c < n; ++c) {
    MtzColumn& column = mtz.columns.items[c];
    for (std::int32_t i = 0; i < mtz.nreflections; ++i) {
      column.values[i] = rows_[static_cast<std::size_t>(i) * n + c];
    }
    set_range(column, mtz.nreflections);
  }
  for (std::int32_t id = 0; id < 2; ++id) {
    MtzDataset* set = append(mtz.datasets, "pm_set");
    if (!set) return failed;
    set->id = id;
    for (MtzText* name : {&set->project, &set->crystal, &set->name}) {
      copy_text(*name, id == 0 ? "HKL_base" : "unknown");
    }
    std::copy_n(mtz.cell, 6, set->cell);
    set->wavelength = id == 0 ? 0.0 : wavelength_;
  }
  return ok;
}

void TableText::set_cell(const double (&cell)[6]) noexcept {
  std::copy_n(cell, 6, mtz_->cell);
  mtz_->has_cell = true;
}

void TableText::set_group(Word name) noexcept {
  std::snprintf(mtz_->spacegroup_name, sizeof mtz_->spacegroup_name, "%.*s",
                static_cast<int>(std::min<std::size_t>(name.size, 40)), name.start);
  if (name.size > 0) mtz_->lattice = to_upper(*name.start);
}

Status TableText::broken(const char* what) const {
  return fail(heading_, "Line %d of %s: %s ", line_, path_, what);
}

bool TableOutput::open(OutputFile& file) const {
  if (is_file_read(path_)) {
    note(heading_, "The file \"%s\" has been read in this job: write to another one. ", path_);
    return false;
  }
  if (file.open(path_)) return true;
  note(heading_, "Failed to open file %s for writing reflection data \n", path_);
  return false;
}

bool TableOutput::commit(OutputFile& file) const {
  if (std::ferror(file.stream()) == 0 && file.commit()) return true;
  note(heading_, "Failed to write the reflection data. ");
  return false;
}

bool TableOutput::refuse(const char* what) const {
  note(heading_, "%s ", what);
  return false;
}

void TableOutput::tell_others(const MtzColumn* const* held, std::size_t n) const {
  bool first = true;
  for (const MtzColumn& column : mtz_.columns) {
    if (column.type == 'H' || std::find(held, held + n, &column) != held + n) continue;
    say("%s%s", first ? "Columns that the format cannot hold: " : ", ", column.label);
    first = false;
  }
  if (!first) say("\n");
}

bool is_missing(const qxmtz& mtz, const MtzColumn& column, std::int32_t row) noexcept {
  const float value = column.values[row];
  return !std::isfinite(value) || value == mtz.missing;
}

std::int32_t index_of(const qxmtz& mtz, std::int32_t axis, std::int32_t row) noexcept {
  const char label[2] = {static_cast<char>('H' + (axis == 0 ? 0 : axis == 1 ? 3 : 4)), '\0'};
  for (const MtzColumn& column : mtz.columns) {
    if (std::strcmp(column.label, label) != 0) continue;
    const float value = column.values[row];
    return std::fabs(value) <= static_cast<float>(largest_index)
               ? static_cast<std::int32_t>(std::lround(value))
               : 0;
  }
  return 0;
}

ColumnPair find_pair(const qxmtz& mtz, char type, char sigma_type, int nth) noexcept {
  for (std::int32_t i = 0; i < mtz.columns.count; ++i) {
    if (mtz.columns[i].type != type || nth-- > 0) continue;
    const bool followed = i + 1 < mtz.columns.count && mtz.columns[i + 1].type == sigma_type;
    return {&mtz.columns[i], followed ? &mtz.columns[i + 1] : nullptr};
  }
  return {};
}

const MtzColumn* find_type(const qxmtz& mtz, char type) noexcept {
  return find_pair(mtz, type, type).value;
}

double wavelength_of(const qxmtz& mtz) noexcept {
  double wavelength = 0.0;
  for (const MtzDataset& set : mtz.datasets) {
    if (set.wavelength > 0.0) wavelength = set.wavelength;
  }
  return wavelength;
}

NumberText::NumberText(float value) noexcept {
  const auto end = std::to_chars(text, text + sizeof text - 1, value).ptr;
  *end = '\0';
}

// By name, else by type, which the readers give by what a column is; types that several identifiers
// have are those of the first of them.
const char* usual_column(const qxmtz& mtz, std::int32_t coid) noexcept {
  const Column& column = columns()[coid - 1];
  for (const MtzColumn& own : mtz.columns) {
    if (strcasecmp(own.label, column.word) == 0) return own.label;
  }
  constexpr std::int32_t phib = 8, first_mate = 15, last_mate = 22, imean = 31, sigimean = 32;
  const bool amplitude = coid == coid_fobs || coid == coid_sigf;
  const bool intensity =
      coid == coid_iobs || coid == coid_sigi || coid == imean || coid == sigimean;
  if (amplitude || intensity) {
    const ColumnPair pair = find_pair(mtz, amplitude ? 'F' : 'J', 'Q');
    const MtzColumn* found = column.mtz_type == 'Q' ? pair.sigma : pair.value;
    return found ? found->label : nullptr;
  }
  const bool mate = coid >= first_mate && coid <= last_mate;
  if (!mate && coid != phib && coid != coid_fom && coid != coid_test) return nullptr;
  const int nth = mate ? (coid - first_mate) % 2 : 0;
  const MtzColumn* found = find_pair(mtz, column.mtz_type, column.mtz_type, nth).value;
  return found ? found->label : nullptr;
}

}  // namespace qx
