// Reading the coefficient files into the base and the two type tables.
#include "core/data_file.h"
#include "core/files_read.h"
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/text.h"
#include "model/formfactor_base.h"
#include "model/formfactors.h"
#include "model/type_table.h"

#include <quorix/engine.h>

#include <cstdio>
#include <cstring>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* heading = "qx_fill_atfrmfactbase():";
constexpr std::size_t line_size = 132;

// What differs between the two files of a method.
struct FileKind {
  std::int32_t ngauss;
  qxatformfacthash* (*table)();
  const char* open_failure;
};

constexpr FileKind kinds[2] = {{5, qx_get_qxatformfacthash5, "Failed to open file %s\n"},
                               {2, qx_get_qxatformfacthash2, "Failed to open file %s \n"}};

struct MethodFiles {
  const char* names[2];
  const char* failures[2];
};

constexpr MethodFiles methods[2] = {
    {{"atomformfactor5.dat", "atomformfactor2.dat"},
     {"Failed to get atomformfactor5.dat", "Failed to get atomformfactor2.dat "}},
    {{"neu_atomformfactor5.dat", "neu_atomformfactor2.dat"},
     {"Failed to get neu_atomformfactor5.dat", "Failed to get neu_atomformfactor2.dat"}}};

// More records than any periodic table could ask for; a count beyond it is a broken file.
constexpr std::int32_t most_records = 100000;

// One open file: its path for reports, its declared count.
struct Source {
  const char* path;
  std::FILE* stream;
  std::int32_t declared;
};

Status read_count(Source& source) {
  char line[line_size];
  if (!qx::next_significant_line(source.stream, line, sizeof line) ||
      !qx::read_int(line, source.declared)) {
    return fail(heading, "Failed to read file %s\n", source.path);
  }
  if (source.declared < 1 || source.declared > most_records) {
    return fail(heading, "number of atom form factors defined %s is wrong: %d\n", source.path,
                source.declared);
  }
  return ok;
}

Status open_base(atfrmfactbase* base, std::int32_t ng5, std::int32_t ng2) {
  QX_TRY(qx::release_base_arrays(base));
  const auto n = static_cast<std::size_t>(ng5) + static_cast<std::size_t>(ng2);
  constexpr const char* tag = "pfa_base";
  QX_TRY(qx::open_zeroed(base->names, n, tag));
  QX_TRY(qx::open_zeroed(base->weight, n, tag));
  QX_TRY(qx::open_zeroed(base->electrons, n, tag));
  QX_TRY(qx::open_zeroed(base->a, n, tag));
  QX_TRY(qx::open_zeroed(base->b, n, tag));
  QX_TRY(qx::open_zeroed(base->cw, n, tag));
  QX_TRY(qx::open_zeroed(base->mw, n, tag));
  base->ng5atfrmfact = ng5;
  base->ng2atfrmfact = ng2;
  base->natomformfactors = ng5 + ng2;
  return ok;
}

// Values are single precision in the files' format, kept as doubles. The fifth a is the constant
// term: its b stays 0.
bool scan(const char* line, std::int32_t wanted, double (&out)[5]) {
  float v[5] = {};
  const int read = std::sscanf(line, "%f %f %f %f %f\n", &v[0], &v[1], &v[2], &v[3], &v[4]);
  if (read < wanted) return false;
  for (std::int32_t i = 0; i < wanted; ++i) out[i] = static_cast<double>(v[i]);
  return true;
}

Status read_coefficients(const Source& source, const char* kind, std::int32_t wanted,
                         double (&out)[5], bool& at_end) {
  char line[line_size];
  at_end = !qx::next_significant_line(source.stream, line, sizeof line);
  if (at_end || scan(line, wanted, out)) return ok;
  return fail(heading,
              "Failed to get data (%s-factor) from atom form factor file %s\nfor line \"%s\" \n",
              kind, source.path, line);
}

Status too_many(const Source& source) {
  return fail(heading,
              "There are more atom form factors specified in file %s than declared as %d\n",
              source.path, source.declared);
}

// Reads a record's two lines; at_end when the file ends before they are complete.
Status read_record(const FileKind& kind, const Source& source, double (&a)[5], double (&b)[5],
                   bool& at_end) {
  QX_TRY(read_coefficients(source, "a", kind.ngauss, a, at_end));
  return at_end ? ok : read_coefficients(source, "b", kind.ngauss == 5 ? 4 : 2, b, at_end);
}

// Records from index `at` on; `limit` is the first index that is one too many, reported once its
// record is complete. A file that ends early is accepted: what is missing keeps empty names and
// zero coefficients.
Status read_records(atfrmfactbase* base, const FileKind& kind, const Source& source,
                    std::int32_t at, std::int32_t limit) {
  qxatformfacthash* table = kind.table();
  if (!table)
    return qx_exist_quorix()
               ? fail(heading, "qxatformfact%d has not been created yet ", kind.ngauss)
               : failed;
  char line[line_size];
  while (qx::next_significant_line(source.stream, line, sizeof line)) {
    bool at_end = false;
    if (at >= limit) {
      double surplus[2][5] = {};
      QX_TRY(read_record(kind, source, surplus[0], surplus[1], at_end));
      return at_end ? ok : too_many(source);
    }
    std::snprintf(base->names[at], sizeof base->names[at], "%.4s", line);
    QX_TRY(qx_insert_qxatformfacthash_kv(table, base->names[at], at));
    QX_TRY(read_record(kind, source, base->a[at], base->b[at], at_end));
    if (at_end) return ok;
    ++at;
  }
  return ok;
}

// What points into the arrays of an earlier fill goes with them: a type that the new files do not
// know must not lead to an entry that is another element's now, or nobody's.
Status forget_earlier_fill() {
  for (const FileKind& kind : kinds) {
    qxatformfacthash* table = kind.table();
    QX_TRY(qx::release_entries(table->buckets, table->nbuckets));
  }
  molformfact* pickup = qx_get_molformfact();
  if (!pickup) return ok;
  pickup->natom = 0;
  QX_TRY(qx::release(pickup->ngauss));
  return qx::release(pickup->index);
}

Status read_files(atfrmfactbase* base, const char* const (&paths)[2]) {
  const qx::InputFile five(paths[0]);
  if (!five) return fail(heading, "Failed to open file %s\n", paths[0]);
  const qx::InputFile two(paths[1]);
  if (!two) return fail(heading, "Failed to open file %s \n", paths[1]);
  Source sources[2] = {{paths[0], five.get(), 0}, {paths[1], two.get(), 0}};
  QX_TRY(read_count(sources[0]));
  QX_TRY(read_count(sources[1]));
  QX_TRY(forget_earlier_fill());
  QX_TRY(open_base(base, sources[0].declared, sources[1].declared));
  QX_TRY(read_records(base, kinds[0], sources[0], 0, base->ng5atfrmfact));
  return read_records(base, kinds[1], sources[1], base->ng5atfrmfact, base->natomformfactors);
}

// The look-up has reported and died; the file's own line follows, as every caller adds one.
Status missing_file(const char* text) { return fail(heading, "%s", text); }

}  // namespace

Status qx_fill_atfrmfactbase(std::int32_t method) {
  atfrmfactbase* base = qx_get_atfrmfactbase();
  if (!base) {
    // Kept: the missing "not".
    return qx_exist_quorix() ? fail(heading, "atomformfactorbase object has been defined yet.")
                             : failed;
  }
  if (!qx_get_qxatformfacthash5()) {
    return fail(heading, "qxatformfact5 object has not been created yet.");
  }
  if (!qx_get_qxatformfacthash2()) {
    return fail(heading, "qxatformfact2 object has not been created yet.");
  }
  if (method != qx::electron_diffraction && method != qx::neutron_diffraction) {
    return fail(heading, "diffraction_method is not a valid value, should be 0 or 1 ");
  }
  const MethodFiles& files = methods[method];
  const qx::Tagged<char> five(qx_get_database_file(files.names[0]));
  if (!five) return missing_file(files.failures[0]);
  const qx::Tagged<char> two(qx_get_database_file(files.names[1]));
  if (!two) return missing_file(files.failures[1]);
  return read_files(base, {five.get(), two.get()});
}

Status qx_run_atfrmfactbase_checker() {
  const atfrmfactbase* base = nullptr;
  QX_TRY(qx::require_of_engine("qx_run_atfrmfactbase_checker():", qx_get_atfrmfactbase, base,
                               "atomformfactorbase object has not been created yet."));
  return base->natomformfactors > 0 ? ok : qx_fill_atfrmfactbase(base->method);
}
