#include "crystal/spacegroup_file.h"

#include "core/data_file.h"
#include "core/files_read.h"
#include "core/text.h"
#include "crystal/matrix.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/stat.h>
#include <utility>

namespace qx {

Status OperatorList::add(const char* heading, const char* text) {
  double matrix[16];
  std::int32_t denominators[3];
  QX_TRY(qx_parse_spg_symm_oper(text, matrix, denominators));
  return add(heading, text, matrix, denominators);
}

Status OperatorList::add(const char* heading, const char* text, const double matrix[16],
                         const std::int32_t denominators[3]) {
  for (int row = 0; row < 3; ++row) {
    if (!possible_divisor(denominators[row])) {
      return fail(heading, "No grid holds the translations of the symmetry operator %s", text);
    }
  }
  if (!is_symmetry_operator(matrix)) return fail(heading, "Not a symmetry operator: %s", text);
  if (count_ >= most_operators) {
    return fail(heading, "More than %d symmetry operators ", most_operators);
  }
  Tagged<symoperstrmat> node(1, "pip_op");
  if (!node) return failed;
  Tagged<char> copy(duplicate_text(text, "pip_sos"));
  if (!copy) return failed;
  Tagged<double> values(16, "pip_som");
  if (!values) return failed;
  std::memcpy(values.get(), matrix, 16 * sizeof *matrix);
  normalize_translations(values.get());
  node[0] = {copy.release(), values.release(), {}, head_};
  std::memcpy(node[0].denominators, denominators, sizeof node[0].denominators);
  head_ = node.release();
  ++count_;
  epoch_ = memory_epoch();
  return ok;
}

Status OperatorList::clear() {
  if (epoch_ == memory_epoch()) return qx_delete_symoperstrmats(&head_, &count_);
  head_ = nullptr;
  count_ = 0;
  return ok;
}

Status combine_operators(const char* heading, const OperatorList& centring,
                         const OperatorList& primitive, FullOperators& full) {
  const std::int32_t nc = centring.count();
  const std::int32_t np = primitive.count();
  if (nc < 1) return fail(heading, " there are 0 central symmetry operations ");
  if (np < 1) return fail(heading, " there are 0 primitive symmetry operations ");
  if (nc * np > most_operators) {
    return fail(heading, "More than %d symmetry operators ", most_operators);
  }
  full.count = nc * np;
  full.matrices = Tagged<double[16]>(static_cast<std::size_t>(full.count), "pcs_full");
  if (!full.matrices) return failed;
  std::int32_t ic = nc;
  for (const symoperstrmat* c = centring.newest(); c; c = c->next) {
    --ic;
    std::int32_t ip = np;
    for (const symoperstrmat* p = primitive.newest(); p; p = p->next) {
      --ip;
      double* product = full.matrices[static_cast<std::size_t>(ic) * static_cast<std::size_t>(np) +
                                      static_cast<std::size_t>(ip)];
      if (!compose_operators(c->matrix, p->matrix, product)) {
        return fail(heading, " Failed to get the inverse matrix ");
      }
    }
  }
  return ok;
}

namespace {

// Operators by their keys, to find one among many.
class OperatorIndex {
 public:
  explicit OperatorIndex(const FullOperators& full) noexcept : full_(full) {
    for (std::int32_t i = 0; i < full.count; ++i) {
      rows_[i] = {operator_key(full.matrices[static_cast<std::size_t>(i)]), i};
    }
    std::sort(rows_, rows_ + full.count);
  }

  [[nodiscard]] std::int32_t count(const double op[16]) const noexcept {
    const int key = operator_key(op);
    std::int32_t n = 0;
    for (const Row* row = std::lower_bound(rows_, rows_ + full_.count, Row{key, 0});
         row != rows_ + full_.count && row->first == key; ++row) {
      if (same_operator(full_.matrices[static_cast<std::size_t>(row->second)], op)) ++n;
    }
    return n;
  }

 private:
  using Row = std::pair<int, std::int32_t>;
  const FullOperators& full_;
  Row rows_[most_operators] = {};
};

}  // namespace

// Of equal length, and each operator of one stands in the other as often as in its own list.
bool same_group(const FullOperators& a, const FullOperators& b) noexcept {
  if (a.count != b.count) return false;
  const OperatorIndex in_a(a);
  const OperatorIndex in_b(b);
  for (std::int32_t i = 0; i < a.count; ++i) {
    const double* op = a.matrices[static_cast<std::size_t>(i)];
    if (in_a.count(op) != in_b.count(op)) return false;
  }
  return true;
}

bool is_group(const FullOperators& full) noexcept {
  const OperatorIndex index(full);
  const auto n = static_cast<std::size_t>(full.count);
  for (std::size_t i = 0; i < n; ++i) {
    if (index.count(full.matrices[i]) != 1) return false;
    for (std::size_t j = 0; j < n; ++j) {
      double product[16];
      if (!compose_operators(full.matrices[i], full.matrices[j], product)) return false;
      if (index.count(product) != 1) return false;
    }
  }
  return true;
}

namespace {

bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

}  // namespace

void plain_group_name(char* name) noexcept {
  char* to = name;
  for (const char* from = name; *from; ++from) {
    if (*from == '_') continue;
    // Other parentheses tell settings apart.
    const bool bracketed = *from == '(' && is_digit(from[1]) && from[2] == ')';
    if (bracketed) ++from;
    *to++ = *from;
    if (bracketed) ++from;
  }
  *to = '\0';
}

std::int32_t group_number(const char* name) noexcept {
  std::int32_t number = 0;
  while (*name == ' ') ++name;
  for (; is_digit(*name) && number <= 230; ++name) number = 10 * number + (*name - '0');
  while (*name == ' ') ++name;
  return *name == '\0' && number <= 230 ? number : 0;
}

namespace {

constexpr const char* here = "qx_set_spg_guts():";
constexpr std::size_t line_size = 132;

// The value behind a keyword, one character after it; null when the line has another keyword.
const char* value_of(const char* line, const char* keyword) noexcept {
  if (!starts_with(line, keyword)) return nullptr;
  const char* value = line + std::strlen(keyword);
  return *value ? value + 1 : value;
}

bool is_end(const char* line) noexcept {
  return starts_with(line, "endofdef") && line[std::strlen("endofdef")] == '\0';
}

Status read_number(const char* line, const char* value, std::int32_t* number) {
  if (!qx::read_int(value, *number)) {
    return fail(here, " Failed to get space group number from line:\n%s", line);
  }
  return ok;
}

// The first value of a kind is kept.
Status keep_text(const char* value, Tagged<char>& text) {
  if (text) return ok;
  text = Tagged<char>(duplicate_text(value, "prg_text"));
  return text ? ok : failed;
}

Status keep_line(const char* line, GroupRecord& record) {
  const std::pair<const char*, Tagged<char>*> texts[] = {
      {"sspgname", &record.short_name}, {"fspgname", &record.full_name},
      {"pgname", &record.point_group},  {"crysym", &record.crystal_system},
      {"patname", &record.patterson},   {"launame", &record.laue},
      {"xyzasu", &record.xyzasu},       {"hklasu", &record.hklasu},
  };
  for (const auto& [keyword, text] : texts) {
    if (const char* value = value_of(line, keyword)) return keep_text(value, *text);
  }
  constexpr const char* fill = " qx_fill_spg():";
  if (const char* value = value_of(line, "primoper")) return record.primitive.add(fill, value);
  if (const char* value = value_of(line, "centoper")) return record.centring.add(fill, value);
  return ok;
}

// Reads on from behind the "spgid" line of a record that is known to be closed.
Status read_record(std::FILE* stream, GroupRecord& record) {
  char line[line_size];
  while (next_significant_line(stream, line, sizeof line) && !is_end(line)) {
    QX_TRY(keep_line(line, record));
  }
  return ok;
}

// The operators of the record that is being scanned; too many or unreadable ones match nothing.
class ScannedOperators {
 public:
  Status open() {
    primitive_ = Tagged<double[16]>(most_operators, "psg_scan");
    if (!primitive_) return failed;
    centring_ = Tagged<double[16]>(most_operators, "psg_scan");
    if (!centring_) return failed;
    full_.matrices = Tagged<double[16]>(most_operators, "psg_scan");
    return full_.matrices ? ok : failed;
  }
  void clear() { nprimitive_ = ncentring_ = 0; }

  void take(const char* line) {
    if (const char* value = value_of(line, "primoper")) {
      take(value, primitive_, nprimitive_);
    } else if (const char* centring = value_of(line, "centoper")) {
      take(centring, centring_, ncentring_);
    }
  }

  bool same_as(const FullOperators& wanted) {
    if (nprimitive_ * ncentring_ != static_cast<std::size_t>(wanted.count)) return false;
    full_.count = wanted.count;
    for (std::size_t c = 0; c < ncentring_; ++c) {
      for (std::size_t p = 0; p < nprimitive_; ++p) {
        double* product = full_.matrices[c * nprimitive_ + p];
        if (!compose_operators(centring_[c], primitive_[p], product)) return false;
      }
    }
    return same_group(wanted, full_);
  }

 private:
  static void take(const char* text, const Tagged<double[16]>& list, std::size_t& count) {
    int denominators[3];
    if (count < most_operators) (void)parse_operator(text, list[count++], denominators);
  }

  Tagged<double[16]> primitive_, centring_;
  std::size_t nprimitive_ = 0, ncentring_ = 0;
  FullOperators full_;
};

// Where the scan stands: a record is open between its "spgid" and its "endofdef"; one that is not
// closed is passed over.
class Scan {
 public:
  explicit Scan(const GroupRequest& request) : request_(request) {}

  Status open() { return request_.ops ? operators_.open() : ok; }

  // True in `*match` at the end of the record that was asked for.
  Status take(std::FILE* stream, const char* line, bool* match) {
    *match = false;
    if (const char* value = value_of(line, "spgid")) {
      QX_TRY(read_number(line, value, &number));
      open_ = true;
      match_ = request_.number != 0 && number == request_.number;
      operators_.clear();
      start = std::ftell(stream);
    } else if (open_ && is_end(line)) {
      *match = request_.ops ? operators_.same_as(*request_.ops) : match_;
      open_ = false;
    } else if (open_ && request_.ops) {
      operators_.take(line);
    } else if (open_ && request_.name && !match_) {
      const char* name = value_of(line, "sspgname");
      if (!name) name = value_of(line, "fspgname");
      match_ = name && qx_match_spg_names(name, request_.name) == 1;
    }
    return ok;
  }

  std::int32_t number = 0;
  long start = 0;  // behind the "spgid" line of the record

 private:
  const GroupRequest& request_;
  bool open_ = false;
  bool match_ = false;
  ScannedOperators operators_;
};

// Where the record was that this thread asked for last: who maps one crystal after another asks for
// the same group, and the scan of the file is longer than all else that is read for it.
struct Remembered {
  std::uint64_t request;  // 0: nothing
  std::int64_t start;
  std::int32_t number;
};
thread_local Remembered remembered = {};

// Of the request and the file as it is now; 0: not to be remembered.
std::uint64_t fingerprint(std::FILE* stream, const GroupRequest& request) {
  struct stat state = {};
  if (request.ops || fstat(fileno(stream), &state) != 0) return 0;
  // What was written a moment ago may be written again without its times telling.
  if (std::time(nullptr) - state.st_mtim.tv_sec < 2) return 0;
  std::uint64_t hash = 14695981039346656037U;  // as FNV-1a, by words
  const auto add = [&hash](auto number) {
    hash = (hash ^ static_cast<std::uint64_t>(number)) * 1099511628211U;
    hash ^= hash >> 32;
  };
  add(state.st_dev);
  add(state.st_ino);
  add(state.st_size);
  add(state.st_mtim.tv_sec);
  add(state.st_mtim.tv_nsec);
  add(request.number);
  for (const char* at = request.name; at && *at; ++at) add(*at);
  return hash;
}

Status scan_for(std::FILE* stream, const GroupRequest& request, bool* found, Remembered& place) {
  const std::uint64_t asked = fingerprint(stream, request);
  *found = asked != 0 && asked == remembered.request;
  if (*found) {
    place = remembered;
    return ok;
  }
  Scan scan(request);
  QX_TRY(scan.open());
  char line[line_size];
  while (!*found && next_significant_line(stream, line, sizeof line)) {
    QX_TRY(scan.take(stream, line, found));
  }
  place = {asked, scan.start, scan.number};
  if (*found) remembered = place;
  return ok;
}

}  // namespace

Status find_group(const char* file, const GroupRequest& request, GroupRecord& record, bool* found) {
  *found = false;
  const Tagged<char> path(qx_get_database_file(file));
  if (!path) return failed;
  const InputFile stream(path.get());
  if (!stream) return fail(here, " Failed to open file %s \n", path.get());
  Remembered place = {};
  QX_TRY(scan_for(stream.get(), request, found, place));
  if (!*found) return ok;
  if (place.start < 0 || std::fseek(stream.get(), place.start, SEEK_SET) != 0) {
    return fail(here, " Failed to read file %s \n", path.get());
  }
  record.number = place.number;
  return read_record(stream.get(), record);
}

}  // namespace qx

std::int32_t qx_plain_group_name(char* name) {
  qx::plain_group_name(name);
  return qx::group_number(name);
}
