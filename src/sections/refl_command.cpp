// The commands `read refl` and `write refl`: format word, file, column assignments.
#include "core/command.h"
#include "core/name_code.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/tagged.h"
#include "crystal/columns.h"
#include "crystal/reflection_formats.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

// A text that outlives a die, so that the reports after one can still name the file.
class PlainText {
 public:
  explicit PlainText(const char* text) : text_(strdup(text)) {}
  PlainText(const PlainText&) = delete;
  PlainText& operator=(const PlainText&) = delete;
  ~PlainText() { std::free(text_); }
  [[nodiscard]] const char* get() const { return text_ ? text_ : ""; }

 private:
  char* text_;
};

// Null after a report.
const qx::FileFormat* take_format(const char* heading) {
  char word[5];
  do {
    if (qx::next_short_word(word) != ok) return nullptr;
  } while (qx::begins_with(word, "REFL"));
  if (const qx::FileFormat* format = qx::find_format(word)) return format;
  if (word[0]) {
    (void)fail(heading, " Unknow reflection data type %s. \n", word);
  } else {
    (void)fail(heading, " Failed to get reflection data type. ");
  }
  return nullptr;
}

Status take_file(const char* heading, const char*& name) {
  const qx::Key key = qx::take_name("file", name);
  if (key == qx::found && *name) return ok;
  return key == qx::key_died ? failed : fail(heading, " Failed to get reflection data file name. ");
}

const char* skip_blanks(const char* at) {
  while (*at == ' ') ++at;
  return at;
}

using Labels = qx::Tagged<char>[qx::coid_count + 1];

Status keep_label(const char* name, std::size_t length, qx::Tagged<char>& label) {
  qx::Tagged<char> copy(length + 1, "prrc_lab");
  if (!copy) return failed;
  std::memcpy(copy.get(), name, length);
  copy[length] = '\0';
  label = std::move(copy);
  return ok;
}

// A label, which may be coded; `at` is moved behind it.
Status take_label(const char*& at, qx::Tagged<char>& label) {
  if (!qx::opens_name_code(at)) {
    const std::size_t length = std::strcspn(at, " ");
    QX_TRY(keep_label(at, length, label));
    at += length;
    return ok;
  }
  qx::Tagged<char> name(std::strlen(at) + 1, "prrc_lab");
  if (!name) return failed;
  at = qx::decode_name(at, name.get());
  label = std::move(name);
  return ok;
}

// "FOBS=F SIGF = SIGF TEST": labels by identifier, empty where no name follows. Columns that the
// engine has `made` have their own names alone.
Status parse_coids(const char* heading, const char* text, Labels& labels,
                   qxrefdata* made = nullptr) {
  for (const char* at = skip_blanks(text); *at; at = skip_blanks(at)) {
    const std::size_t length = std::strcspn(at, " =");
    const qx::Column* column = qx::find_column(at, length);
    if (qx::DerivedColumn* own = made && !column ? qx::find_derived(*made, at, length) : nullptr) {
      own->wanted = true;
      at = skip_blanks(at + length);
      continue;
    }
    if (!column) {
      return fail(heading, " Invalid COID value: %.*s \n", static_cast<int>(length), at);
    }
    at = skip_blanks(at + length);
    if (*at == '=') {
      at = skip_blanks(at + 1);
      QX_TRY(take_label(at, labels[column->number]));
    } else {
      QX_TRY(keep_label(at, 0, labels[column->number]));
    }
  }
  return ok;
}

// A reader has reported: add the line that names the file.
Status file_failed(const char* heading, const qx::FileFormat& format, const char* name) {
  if (format.code == qx::mmcif_format) return failed;
  return fail(heading, " Failed to read %s file %s. \n", format.name, name);
}

Status read_file(const char* heading, const qx::FileFormat& format, qxrefdata& refdata,
                 const char* name) {
  QX_TRY(qx::forget_file(refdata));
  return format.read(&refdata, name) == ok ? ok : file_failed(heading, format, name);
}

// A file that somebody takes for the whole of the input must not be short of rows in silence.
void tell_rows_left_out(const qxrefdata& refdata) {
  const qx::LeftOut& left = refdata.left_out;
  const std::int32_t n = left.origin + left.outside + left.by_cuts;
  if (n < 1) return;
  qx::say(
      "Reflections of the input not written: %d ((0,0,0): %d, outside the resolution limits: %d, "
      "by reject: %d)\n",
      n, left.origin, left.outside, left.by_cuts);
}

Status write_file(const qx::FileFormat& format, const char* name, const qxrefdata& refdata,
                  const Labels* labels, bool others) {
  const char* wanted[qx::coid_count + 1] = {};
  for (int i = 1; labels && i <= qx::coid_count; ++i) wanted[i] = (*labels)[i].get();
  QX_TRY(qx::write_reflections(format, name, refdata, labels ? wanted : nullptr, others));
  tell_rows_left_out(refdata);
  return ok;
}

}  // namespace

Status qx_read_refdata_ctrl(qxrefdata* refdata, std::int32_t /*mode*/) {
  constexpr const char* heading = "qx_read_refdata_ctrl():";
  if (!refdata) return fail(heading, " qxrefdata object has not been created yet ");
  const qx::FileFormat* format = take_format(heading);
  if (!format) return failed;
  const char* text = nullptr;
  QX_TRY(take_file(heading, text));
  const PlainText name(text);
  QX_TRY(read_file(heading, *format, *refdata, name.get()));
  const qx::Key key = qx::take_end("coid", text);
  if (key != qx::found) {
    return key == qx::key_died ? failed : fail(heading, " Failed to get COID values. ");
  }
  Labels labels;
  QX_TRY(parse_coids(heading, text, labels));
  for (int i = 1; i <= qx::coid_count; ++i) refdata->selected[i] = labels[i].release();
  refdata->format = format->code;
  return ok;
}

Status qx_write_refdata_ctrl() {
  constexpr const char* heading = "qx_write_refdata_ctrl():";
  qxrefdata* refdata = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxrefdata, refdata,
                     " qxrefdata object has not been created yet "));
  for (std::int32_t i = 0; i < refdata->nderived; ++i) refdata->derived[i].wanted = false;
  const qx::FileFormat* format = take_format(heading);
  if (!format) return failed;
  const char* text = nullptr;
  QX_TRY(take_file(heading, text));
  const PlainText name(text);
  if (refdata->nreflections < 1) return fail(heading, "There are no reflections to write. ");
  const qx::Key key = qx::take_end("coid", text);
  if (key == qx::key_died) return failed;
  Labels labels;
  if (key == qx::found) QX_TRY(parse_coids(heading, text, labels, refdata));
  const bool others = qx::take_key("others");  // a label may begin so: those are gone
  return write_file(*format, name.get(), *refdata, key == qx::found ? &labels : nullptr, others);
}
