// Reading an MTZ file: preamble, two passes over the main header, data, history and batches. Every
// size is held against the length of the file before memory is asked for.
#include "core/files_read.h"
#include "core/require.h"
#include "crystal/reflections.h"
#include "reflio/mtz_records.h"
#include "reflio/mtz_words.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cstring>
#include <sys/stat.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

std::size_t qx_read_mtz_char(std::FILE* stream, char* buffer, std::size_t n) {
  const std::size_t got = std::fread(buffer, 1, n, stream);
  if (got < n && std::ferror(stream)) {
    (void)fail("qx_read_mtz_char():", "Failed to read chars from mtz file ");
    return 0;
  }
  return got;
}

std::size_t qx_read_mtz_int(std::FILE* stream, std::int32_t* buffer, std::size_t n,
                            std::int32_t code) {
  if (!qx::known_number_format(code)) {
    (void)fail("qx_read_mtz_int():", "Donot know to how convert the bits for int ");
    return 0;
  }
  const std::size_t got = std::fread(buffer, sizeof *buffer, n, stream);
  if (got < n && std::ferror(stream)) {
    (void)fail("qx_read_mtz_int():", "Failed to read ints from mtz file ");
    return 0;
  }
  qx::convert_words(buffer, got, code);
  return got;
}

std::size_t qx_read_mtz_float(std::FILE* stream, float* buffer, std::size_t n, std::int32_t code) {
  if (!qx::known_number_format(code)) {
    (void)fail("qx_read_mtz_flaot():", "Donot know how to handle this file arch code: %d \n", code);
    return 0;
  }
  const std::size_t got = std::fread(buffer, sizeof *buffer, n, stream);
  if (got < n && std::ferror(stream)) {
    (void)fail("qx_read_mtz_float():", "Failed to read reals from mtz file ");
    return 0;
  }
  qx::convert_words(buffer, got, code);
  return got;
}

namespace {

constexpr const char* heading = "qx_read_refdata_mtz_file():";
constexpr std::int64_t data_start = 80;
constexpr std::size_t block_values =
    16384;  // of the row buffer: it stays in the second-level cache, and costs few pages

struct Source {
  std::FILE* stream;
  const char* path;
  std::int64_t length = 0;
  qx::MachineStamp stamp = {};
  std::int64_t header = 0;  // byte at which the header records start
};

bool seek(const Source& source, std::int64_t offset) {
  return fseeko(source.stream, offset, SEEK_SET) == 0;
}

Status appears_broken(const Source& source) {
  return fail(heading, "The mtz file %s appears broken \n", source.path);
}

// Pipes and directories have no length to hold the sizes against.
bool regular_length(const char* path, std::int64_t& length, qx::FileMark& mark) {
  struct stat status = {};
  if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  length = status.st_size;
  mark = qx::mark_of(status);
  return true;
}

Status read_stamp(Source& source) {
  char bytes[4];
  if (!seek(source, 8) || qx_read_mtz_char(source.stream, bytes, 4) != 4) {
    return fail(heading, "mtz file %s is empty \n", source.path);
  }
  unsigned char stamp[4];
  std::memcpy(stamp, bytes, 4);
  source.stamp = qx::machine_stamp(stamp);
  if (source.stamp.reals == qx::no_numbers && source.stamp.integers == qx::no_numbers) {
    return fail(heading, "Not valid machine number format information ");
  }
  return ok;
}

Status read_magic(const Source& source) {
  char magic[5] = {};
  if (!seek(source, 0) || qx_read_mtz_char(source.stream, magic, 4) == 0) {
    return fail(heading, "mtz file %s is empty \n", source.path);
  }
  if (std::strncmp(magic, "MTZ", 3) != 0) {
    magic[3] = '\0';
    return fail(heading,
                "file %s is not a valid mtz file: \n"
                "Wrong with the first 3 characters is %3s, shold be MTZ \n",
                source.path, magic);
  }
  return ok;
}

// Word number of the header; files too long for 32 bits say -1 and have it in bytes 12-19.
Status read_location(Source& source) {
  std::int32_t word = 0;
  if (qx_read_mtz_int(source.stream, &word, 1, source.stamp.integers) != 1) {
    return appears_broken(source);
  }
  std::int64_t location = word;
  if (word == -1) {
    char bytes[8] = {};
    if (!seek(source, 12) || qx_read_mtz_char(source.stream, bytes, 8) != 8) {
      return appears_broken(source);
    }
    std::memcpy(&location, bytes, 8);
    qx::convert_long_word(location, source.stamp.integers);
  }
  if (word < -1 || (word == -1 && location <= 0)) {
    return fail(heading, "It appears the bits for int is not read correctly");
  }
  if (location - 1 < data_start / 4 || location - 1 > source.length / 4) {
    return appears_broken(source);
  }
  source.header = 4 * (location - 1);
  return ok;
}

enum class Record { whole, none, cut };

// The last record may lack its padding.
Record next_record(const Source& source, qx::MtzTokens& tokens) {
  char bytes[qx::mtz_record_size];
  const std::size_t got = qx_read_mtz_char(source.stream, bytes, sizeof bytes);
  qx::split_record(bytes, got, tokens);
  if (got == sizeof bytes || qx::is_record(tokens, "MTZE")) return Record::whole;
  return got == 0 ? Record::none : Record::cut;
}

bool is_end(const qx::MtzTokens& tokens) {
  return tokens.count > 0 && std::strcmp(tokens.token[0], "END") == 0;
}

bool known_version(const qxmtz& mtz) { return std::strcmp(mtz.version, "MTZ:V1.1") == 0; }

Status unknown_version() { return fail(heading, "Quorix Only supports MTZ:V1.1 mtz file "); }

// `more` tells whether history and batches may follow.
Status read_main_header(const Source& source, qxmtz& mtz, qx::HeaderPass pass, bool& more) {
  if (!seek(source, source.header)) return appears_broken(source);
  qx::MtzTokens tokens;
  while (next_record(source, tokens) == Record::whole) {
    more = is_end(tokens);
    if (more || qx::is_record(tokens, "MTZE")) return ok;
    if (qx::parse_record(mtz, tokens, pass) != ok) {
      return fail(heading, "The mtz file %s is a broken mtz format file \n", source.path);
    }
    const bool version = pass == qx::HeaderPass::contents && qx::is_record(tokens, "VERS");
    if (version && !known_version(mtz)) return unknown_version();
  }
  return appears_broken(source);
}

// Number and array sizes from the BH record; the sizes are held against what is left of the file.
Status read_batch_head(const Source& source, const qx::MtzTokens& head, qx::MtzBatch& batch) {
  if (head.count < 5) return qx::record_fault("Not a valid format under MTZB ", head);
  if (!qx::read_number(head.token[1], batch.number)) {
    return qx::record_fault("Failed to get batch number from BATCH line ", head);
  }
  if (!qx::read_number(head.token[3], batch.nintegers) || batch.nintegers < 0) {
    return qx::record_fault("Failed to get integer size from BATCH line ", head);
  }
  if (!qx::read_number(head.token[4], batch.nreals) || batch.nreals < 0) {
    return qx::record_fault("Failed to get real size from BATCH line ", head);
  }
  const std::int64_t left = source.length - ftello(source.stream);
  const std::int64_t needed = 4 * (std::int64_t{batch.nintegers} + batch.nreals);
  return needed <= left ? ok : appears_broken(source);
}

template <class T, class Read>
Status read_words(const Source& source, T*& words, std::int32_t count, Read read, int format) {
  const auto n = static_cast<std::size_t>(count);
  if (n == 0) return ok;
  QX_TRY(qx::open_block(words, n, "pm_batw"));
  return read(source.stream, words, n, format) == n ? ok : appears_broken(source);
}

Status read_batch(const Source& source, qxmtz& mtz, const qx::MtzTokens& head) {
  qx::MtzBatch* batch = qx::append(mtz.batches, "pm_batch");
  if (!batch) return failed;
  QX_TRY(read_batch_head(source, head, *batch));
  qx::MtzTokens tokens;
  if (next_record(source, tokens) != Record::whole) return appears_broken(source);
  qx::copy_text(batch->title, std::strlen(tokens.line) > 6 ? tokens.line + 6 : "");
  QX_TRY(read_words(source, batch->integers, batch->nintegers, qx_read_mtz_int,
                    source.stamp.integers));
  QX_TRY(read_words(source, batch->reals, batch->nreals, qx_read_mtz_float, source.stamp.reals));
  if (next_record(source, tokens) != Record::whole) return appears_broken(source);
  for (std::int32_t i = 0; i < 3 && i + 1 < tokens.count; ++i) {
    qx::copy_text(batch->axes[i], tokens.token[i + 1]);
  }
  return ok;
}

Status start_history(qxmtz& mtz, const qx::MtzTokens& tokens) {
  if (tokens.count < 2) return qx::record_fault("Not a valid format for MTZH line ", tokens);
  if (!qx::read_number(tokens.token[1], mtz.nhistory_declared) || mtz.nhistory_declared < 0) {
    return qx::record_fault("Failed to get number of history lines from MTZH line ", tokens);
  }
  return ok;
}

Status add_history(qxmtz& mtz, const qx::MtzTokens& tokens) {
  qx::MtzLine* line = qx::append(mtz.history, "pm_hist");
  if (!line) return failed;
  qx::copy_text(line->text, tokens.line);
  return ok;
}

// History and batches, up to the end mark or the end of the file.
Status read_trailer(const Source& source, qxmtz& mtz) {
  qx::MtzTokens tokens;
  bool in_batches = false;
  for (;;) {
    const bool history = mtz.history.count < mtz.nhistory_declared;
    const Record record = next_record(source, tokens);
    if (record == Record::none && !history) return ok;
    if (record != Record::whole) return appears_broken(source);
    if (qx::is_record(tokens, "MTZE")) return ok;
    if (history) {
      QX_TRY(add_history(mtz, tokens));
    } else if (qx::is_record(tokens, "MTZH")) {
      QX_TRY(start_history(mtz, tokens));
      in_batches = false;
    } else if (qx::is_record(tokens, "MTZB")) {
      in_batches = true;
    } else if (in_batches) {
      if (std::strncmp(tokens.line, "BH ", 3) != 0) {
        return qx::record_fault("Not a valid format under MTZB ", tokens);
      }
      QX_TRY(read_batch(source, mtz, tokens));
    }
  }
}

// By value: the words may have been reported already, and the object be gone.
Status no_data(const Source& source, std::int32_t nreflections) {
  return fail(heading, "Failed to read %d reflection data from file %s\n", nreflections,
              source.path);
}

// The declared data lie between the preamble and the header.
bool data_fit(const Source& source, const qxmtz& mtz) {
  const std::int64_t values = (source.header - data_start) / 4;
  return mtz.nreflections == 0 || mtz.ncolumns_declared <= values / mtz.nreflections;
}

Status read_data(const Source& source, qxmtz& mtz) {
  const std::int32_t nreflections = mtz.nreflections;
  const auto nrows = static_cast<std::size_t>(nreflections);
  const auto ncolumns = static_cast<std::size_t>(mtz.columns.count);
  if (nrows == 0) return ok;
  QX_TRY(qx::open_values(mtz));
  qx::Tagged<float*> columns(ncolumns, "pm_cols");
  if (!columns) return failed;
  for (std::size_t c = 0; c < ncolumns; ++c) columns[c] = mtz.columns.items[c].values;
  const std::size_t block = std::min(nrows, std::max<std::size_t>(1, block_values / ncolumns));
  qx::Tagged<float> rows(block * ncolumns, "pm_rows");
  if (!rows) return failed;
  if (!seek(source, data_start)) return no_data(source, nreflections);
  for (std::size_t first = 0; first < nrows; first += block) {
    const std::size_t n = std::min(block, nrows - first);
    if (qx_read_mtz_float(source.stream, rows.get(), n * ncolumns, source.stamp.reals) !=
        n * ncolumns) {
      return no_data(source, nreflections);
    }
    qx::rows_to_columns(rows.get(), n, ncolumns, columns.get(), first);
  }
  return ok;
}

Status show_if_wanted(const qxmtz& mtz) {
  if (qx_get_qxverbsys_verb_mtz() >= 1) qx::print_mtz(mtz);
  return qx_exist_quorix() ? ok : failed;
}

enum class Part { header, whole };

Status read_all(Source& source, qxmtz& mtz, Part part) {
  QX_TRY(read_stamp(source));
  QX_TRY(read_magic(source));
  QX_TRY(read_location(source));
  bool more = false;
  QX_TRY(read_main_header(source, mtz, qx::HeaderPass::counts, more));
  if (mtz.ncolumns_declared < 3) {
    return fail(heading, "There are less than 3 columns in the mtz file: %s\n", source.path);
  }
  if (!data_fit(source, mtz)) return no_data(source, mtz.nreflections);
  QX_TRY(read_main_header(source, mtz, qx::HeaderPass::contents, more));
  if (!known_version(mtz)) return unknown_version();
  if (mtz.columns.count != mtz.ncolumns_declared) return appears_broken(source);
  if (more) QX_TRY(read_trailer(source, mtz));
  return part == Part::whole ? read_data(source, mtz) : ok;
}

Status read_file(qxrefdata* refdata, const char* path, Part part) {
  Source source = {nullptr, path};
  qx::FileMark mark;
  const bool regular = regular_length(path, source.length, mark);
  const qx::InputFile file = regular ? qx::InputFile(path) : qx::InputFile();
  if (!file) {
    return fail(heading, "Failed to open file %s for reading reflection data \n", path);
  }
  source.stream = file.get();
  QX_TRY(qx_new_refdata_mtz_obj(refdata));
  qxmtz* mtz = refdata->mtz;
  QX_TRY(qx::open_text(mtz->path, path, "pm_path"));
  mtz->mark = mark;
  QX_TRY(read_all(source, *mtz, part));
  return show_if_wanted(*mtz);
}

}  // namespace

Status qx_read_refdata_mtz_file_obj(qxrefdata* refdata, const char* path) {
  return read_file(refdata, path, Part::whole);
}

Status qx_read_refdata_mtz_header_obj(qxrefdata* refdata, const char* path) {
  return read_file(refdata, path, Part::header);
}

Status qx::read_mtz_once(qxrefdata* refdata, const char* path) {
  qxmtz* held = held_mtz(path);
  if (!held) return qx_read_refdata_mtz_file_obj(refdata, path);
  QX_TRY(qx_delete_refdata_mtz_obj(refdata));
  refdata->mtz = held;
  return show_if_wanted(*held);
}

Status qx_read_refdata_mtz_file(const char* path) {
  qxrefdata* refdata = nullptr;
  QX_TRY(
      qx::require(heading, qx_get_qxrefdata, refdata, "refdata object has not been created yet "));
  return qx_read_refdata_mtz_file_obj(refdata, path);
}
