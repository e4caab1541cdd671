#include "reflio/mtz_records.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace qx {

Status record_fault(const char* before, const MtzTokens& tokens, const char* after) {
  return fail("qx_read_refdata_mtz_file():", "%s%s%s\n", before, tokens.line, after);
}

void split_record(const char* record, std::size_t size, MtzTokens& tokens) noexcept {
  std::size_t used = 0;
  for (std::size_t i = 0; i < size && i < mtz_record_size; ++i) {
    const auto byte = static_cast<unsigned char>(record[i]);
    const bool control = byte < 0x20 || byte == 0x7f;
    tokens.line[i] = control ? ' ' : record[i];
    if (tokens.line[i] != ' ') used = i + 1;
  }
  tokens.line[used] = '\0';
  std::memcpy(tokens.text, tokens.line, used + 1);
  tokens.count = 0;
  for (char* at = tokens.text; *at;) {
    if (*at == ' ') {
      ++at;
      continue;
    }
    const char stop = *at == '\'' ? '\'' : ' ';
    if (stop == '\'') ++at;
    tokens.token[tokens.count++] = at;
    while (*at && *at != stop) ++at;
    if (*at) *at++ = '\0';
  }
}

bool is_record(const MtzTokens& tokens, const char* keyword) noexcept {
  return std::strncmp(tokens.line, keyword, 4) == 0;
}

bool read_number(const char* token, std::int32_t& value) noexcept {
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(token, &end, 10);
  if (end == token || *end || errno == ERANGE || number < INT32_MIN || number > INT32_MAX) {
    return false;
  }
  value = static_cast<std::int32_t>(number);
  return true;
}

bool read_number(const char* token, double& value) noexcept {
  char* end = nullptr;
  value = std::strtod(token, &end);
  return end != token && *end == '\0';
}

namespace {

// Numbers of `count` consecutive tokens from `first` on.
template <class T>
bool read_numbers(const MtzTokens& tokens, std::int32_t first, std::int32_t count, T* values) {
  for (std::int32_t i = 0; i < count; ++i) {
    if (!read_number(tokens.token[first + i], values[i])) return false;
  }
  return true;
}

bool read_count(const char* token, std::int32_t& value) {
  return read_number(token, value) && value >= 0;
}

Status version(qxmtz& mtz, const MtzTokens& t) {
  copy_text(mtz.version, t.count > 1 ? t.token[1] : "");
  return ok;
}

Status title(qxmtz& mtz, const MtzTokens& t) {
  const char* text = std::strchr(t.line, ' ');
  while (text && *text == ' ') ++text;
  copy_text(mtz.title, text ? text : "");
  return ok;
}

Status ncol(qxmtz& mtz, const MtzTokens& t) {
  if (t.count < 4) return record_fault("Not a valid format on NCOL line \"", t, "\" ");
  // A number below 0 is too few columns, as the reader of the file says.
  if (!read_number(t.token[1], mtz.ncolumns_declared)) {
    return record_fault("Failed to get number of columns from NCOL line ", t);
  }
  if (!read_count(t.token[2], mtz.nreflections)) {
    return record_fault("Failed to get number of reflection data from NCOL line ", t);
  }
  if (!read_count(t.token[3], mtz.nbatches_declared)) {
    return record_fault("Failed to get number of batches from NCOL line ", t);
  }
  return ok;
}

Status cell(qxmtz& mtz, const MtzTokens& t) {
  if (t.count < 7) return record_fault("Not a valid format on CEL line ", t);
  if (!read_numbers(t, 1, 6, mtz.cell)) {
    return record_fault("Failed to get cell data from CELL line ", t);
  }
  mtz.has_cell = true;
  return ok;
}

Status sort(qxmtz& mtz, const MtzTokens& t) {
  if (t.count < 6) return record_fault("Not a valid format on SORT line ", t);
  if (!read_numbers(t, 1, 5, mtz.sort)) {
    return record_fault("Failed to get sort value from SORT line ", t);
  }
  return ok;
}

Status syminf(qxmtz& mtz, const MtzTokens& t) {
  if (t.count < 7) return record_fault("Not a valid format on SYMI line ", t);
  if (!read_count(t.token[1], mtz.nsymops_declared)) {
    return record_fault("Failed to get number of symmetry from SYMINF line ", t);
  }
  if (!read_number(t.token[2], mtz.nprimitive)) {
    return record_fault("Failed to get number of primitive symmetry from SYMI line ", t);
  }
  mtz.lattice = t.token[3][0] ? t.token[3][0] : 'P';
  if (!read_number(t.token[4], mtz.spacegroup_number)) {
    return record_fault("Failed to get space group number from SYMI line ", t);
  }
  copy_text(mtz.spacegroup_name, t.token[5]);
  copy_text(mtz.point_group, t.token[6]);
  return ok;
}

Status symm(qxmtz& mtz, const MtzTokens& t) {
  if (mtz.symops.count >= mtz.nsymops_declared) {
    return record_fault("There are more symmetry operations than declared ", {}, "");
  }
  MtzLine* line = append(mtz.symops, "pm_symm");
  if (!line) return failed;
  const char* text = std::strchr(t.line, ' ');
  while (text && *text == ' ') ++text;
  copy_text(line->text, text ? text : "");
  return ok;
}

// Limits that cannot be read are no fault: the engine has its own.
Status reso(qxmtz& mtz, const MtzTokens& t) {
  double limits[2];
  if (t.count > 2 && read_numbers(t, 1, 2, limits)) {
    mtz.resolution[0] = limits[0];
    mtz.resolution[1] = limits[1];
  }
  return ok;
}

Status valm(qxmtz& mtz, const MtzTokens& t) {
  double marker = 0;
  if (t.count > 1 && read_number(t.token[1], marker)) mtz.missing = static_cast<float>(marker);
  return ok;
}

Status colu(qxmtz& mtz, const MtzTokens& t) {
  if (mtz.columns.count >= mtz.ncolumns_declared) {
    return record_fault("There are more COLU lines than declared ", {}, "");
  }
  if (t.count < 5) return record_fault("Not a valid format on COLUMN line ", t);
  MtzColumn* column = append(mtz.columns, "pm_col");
  if (!column) return failed;
  copy_text(column->label, t.token[1]);
  column->type = t.token[2][0] ? t.token[2][0] : 'R';
  if (!read_number(t.token[3], column->minimum)) {
    return record_fault("Failed to get minimum value from COLU line ", t);
  }
  if (!read_number(t.token[4], column->maximum)) {
    return record_fault("Failed to get maximum value from COLU line ", t);
  }
  if (t.count > 5 && !read_number(t.token[5], column->dataset_id)) {
    return record_fault("Failed to get dataset ID number from COLU line ", t);
  }
  if (t.count > 6 && !read_number(t.token[6], column->extra[0])) {
    return record_fault("Failed to get 7th int number from COLU line ", t);
  }
  if (t.count > 7 && !read_number(t.token[7], column->extra[1])) {
    return record_fault("Failed to get 8th int number from COLU line ", t);
  }
  return ok;
}

Status ndif(qxmtz& mtz, const MtzTokens& t) {
  if (t.count < 2) return record_fault("Not a valid format on NDIF line ", t);
  if (!read_count(t.token[1], mtz.ndatasets_declared)) {
    return record_fault("Failed to get number of dataset from NDIF line ", t);
  }
  mtz.has_dataset_count = true;
  return ok;
}

// The data set with an id; the first record of any kind that names the id makes it, so that files
// without one kind (CRYSTAL is the usual one) are read.
MtzDataset* dataset(qxmtz& mtz, std::int32_t id) {
  const std::int32_t position = find_dataset(mtz, id);
  if (position >= 0) return &mtz.datasets[position];
  if (mtz.has_dataset_count && mtz.datasets.count >= mtz.ndatasets_declared) {
    (void)record_fault("There are more PROJ lines than declared ", {}, "");
    return nullptr;
  }
  MtzDataset* set = append(mtz.datasets, "pm_set");
  if (set) set->id = id;
  return set;
}

// Project, crystal and data set records: an id and a name that may be missing.
Status named(qxmtz& mtz, const MtzTokens& t, const char* no_id, MtzText MtzDataset::*member) {
  std::int32_t id = 0;
  if (t.count < 2 || !read_number(t.token[1], id)) return record_fault(no_id, t);
  MtzDataset* set = dataset(mtz, id);
  if (!set) return failed;
  copy_text(set->*member, t.count > 2 ? t.token[2] : "");
  return ok;
}

Status project(qxmtz& mtz, const MtzTokens& t) {
  return named(mtz, t, "Failed to get project ID number from PROJ line ", &MtzDataset::project);
}

Status crystal(qxmtz& mtz, const MtzTokens& t) {
  return named(mtz, t, "Failed to get crystal ID number from CRYS line ", &MtzDataset::crystal);
}

Status data(qxmtz& mtz, const MtzTokens& t) {
  if (t.count < 2) return record_fault("Not a valid format on DATASET line ", t);
  return named(mtz, t, "Failed to get Dataset ID number from DATA line ", &MtzDataset::name);
}

Status dcell(qxmtz& mtz, const MtzTokens& t) {
  std::int32_t id = 0;
  double values[6];
  if (t.count < 8) return record_fault("Not a valid format on DCEL line ", t);
  if (!read_number(t.token[1], id))
    return record_fault("Failed to get dcell ID from DCEL line ", t);
  if (!read_numbers(t, 2, 6, values)) {
    return record_fault("Failed get cell data from DCEL line ", t);
  }
  MtzDataset* set = dataset(mtz, id);
  if (!set) return failed;
  std::memcpy(set->cell, values, sizeof values);
  return ok;
}

Status dwave(qxmtz& mtz, const MtzTokens& t) {
  std::int32_t id = 0;
  double wavelength = 0;
  if (t.count < 2 || !read_number(t.token[1], id)) {
    return record_fault("Failed to get dwave ID from DWAV line ", t);
  }
  if (t.count < 3 || !read_number(t.token[2], wavelength)) {
    return record_fault("Failed to get wavelength from DWAV line ", t);
  }
  MtzDataset* set = dataset(mtz, id);
  if (!set) return failed;
  set->wavelength = wavelength;
  return ok;
}

struct Row {
  const char* keyword;
  HeaderPass pass;
  Status (*parse)(qxmtz& mtz, const MtzTokens& tokens);
};

constexpr Row rows[] = {
    {"NCOL", HeaderPass::counts, ncol},      {"NDIF", HeaderPass::counts, ndif},
    {"SYMI", HeaderPass::counts, syminf},    {"VERS", HeaderPass::contents, version},
    {"TITL", HeaderPass::contents, title},   {"CELL", HeaderPass::contents, cell},
    {"SORT", HeaderPass::contents, sort},    {"SYMM", HeaderPass::contents, symm},
    {"RESO", HeaderPass::contents, reso},    {"VALM", HeaderPass::contents, valm},
    {"COLU", HeaderPass::contents, colu},    {"PROJ", HeaderPass::contents, project},
    {"CRYS", HeaderPass::contents, crystal}, {"DATA", HeaderPass::contents, data},
    {"DCEL", HeaderPass::contents, dcell},   {"DWAV", HeaderPass::contents, dwave},
};

}  // namespace

Status parse_record(qxmtz& mtz, const MtzTokens& tokens, HeaderPass pass) {
  for (const Row& row : rows) {
    if (row.pass == pass && is_record(tokens, row.keyword)) return row.parse(mtz, tokens);
  }
  return ok;
}

}  // namespace qx
