// The xcry section: crystal, limits, thresholds, reflection input and output.
#include "core/refsys.h"
#include "core/say.h"
#include "core/tagged.h"
#include "crystal/crystal.h"
#include "sections/section.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/parser.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

#include <cstdio>
#include <utility>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {" qx_xcry_ctrl():", " *** Unknow xcry task:  *** \n",
                                    " *** Unknow xcry task: ", " *** \n"};

struct Xcry {
  bool written = false;  // a `write refl` has run the checkers
  bool fill = false;
};

// The rest of the line goes to a setter; an empty rest is an empty text.
template <Status (*set)(const char*)>
Status set_text(Xcry&) {
  const char* text = nullptr;
  if (qx::take_rest(text) == qx::key_died) return failed;
  if (*text == '=') {
    qx::say("WARNING: the name \"%s\" is taken with its \"=\" \n", text);
  }
  return set(text);
}

// No group and no operator begins with an "=".
template <Status (*set)(const char*)>
Status set_symmetry(Xcry&) {
  const char* text = nullptr;
  if (qx::take_argument(text) == qx::key_died) return failed;
  return set(text);
}

// The rest of the line with commas turned into blanks; null after a report.
qx::Tagged<char> take_numbers() {
  const char* text = nullptr;
  if (qx::take_argument(text) == qx::key_died) return {};
  qx::Tagged<char> numbers(qx::duplicate_text(text, "qxc_str"));
  if (numbers) qx_replace_comma_with_blank(numbers.get());
  return numbers;
}

// Reads up to N numbers and gives how many there are; what stands behind them is warned of.
template <int N>
int read_numbers(const char* command, const char* text, float (&values)[N]) {
  int count = 0;
  for (int used = 0; count < N && std::sscanf(text, "%f%n", &values[count], &used) == 1; ++count) {
    text += used;
  }
  text = qx_first_word_char_position(text);
  if (*text) {
    qx::say("WARNING: \"%s\" of the command %s is not read \n", text, command);
  }
  return count;
}

Status read_reflections(Xcry&) {
  if (qx_read_refdata_ctrl(qx_get_qxrefdata(), 0) == ok) return ok;
  return fail(texts.heading, " Failed to read reflection data. ");
}

Status set_cell(Xcry&) {
  const qx::Tagged<char> text = take_numbers();
  if (!text) return failed;
  float cell[6] = {0, 0, 0, 90, 90, 90};
  const int count = read_numbers("cell", text.get(), cell);
  if (count != 3 && count != 6) {
    return fail(texts.heading, " Invalid specification \"%s\" for cell \n", text.get());
  }
  bool empty = false;
  for (int i = 0; i < 3; ++i) empty = empty || static_cast<double>(cell[i]) < 1e-10;
  for (float& value : cell) value = empty ? 0.0F : value;
  return qx_set_qxcell_cell(cell);
}

Status set_resolution(Xcry&) {
  const qx::Tagged<char> text = take_numbers();
  if (!text) return failed;
  float read[2] = {0, 99999.0F};
  if (read_numbers("reso", text.get(), read) < 1) {
    qx::say("WARNING: the command reso names no limit: nothing is changed \n");
    return ok;
  }
  float first = read[0] < 0 ? 0.0F : read[0];
  float second = read[1] < 0 ? 0.0F : read[1];
  // Kept: the order is judged by the numbers as read, before negatives became 0.
  if (read[0] > read[1]) std::swap(first, second);
  return qx_set_qxresol_resol(first, second);
}

Status set_orthogonalisation(Xcry&) {
  const qx::Tagged<char> text = take_numbers();
  if (!text) return failed;
  float m[12];
  if (read_numbers("orth", text.get(), m) != 12) {
    return fail(texts.heading,
                " Invalid specification \"%s\" for: \n"
                " orthogonal framce to fraction frame transformation matrix definition. ",
                text.get());
  }
  return qx_set_qxcell_orth2frac(m);
}

struct Cut {
  const char* key;
  Status (*set)(double value);
};

template <std::size_t N>
Status set_cuts(const Cut (&cuts)[N]) {
  bool any = false;
  for (const Cut& cut : cuts) {
    double value = 0;
    const qx::Key key = qx::take_double(cut.key, value);
    if (key == qx::key_died) return failed;
    if (key == qx::absent) continue;
    any = true;
    if (value > 0) {
      QX_TRY(cut.set(value));
    } else if (value != 0) {
      qx::say("WARNING: %s %g is not above 0: nothing is changed \n", cut.key, value);
    }
  }
  if (!any) qx::say("WARNING: the command reject names no cut: nothing is changed \n");
  return ok;
}

constexpr Cut amplitude_cuts[] = {{"sigcut", qx_set_qxrefreject_Fsig},
                                  {"rmscut", qx_set_qxrefreject_Frms},
                                  {"minimum", qx_set_qxrefreject_Fo_min}};
constexpr Cut intensity_cuts[] = {{"sigcut", qx_set_qxrefreject_Isig},
                                  {"rmscut", qx_set_qxrefreject_Irms}};

Status set_rejection(Xcry&) {
  if (qx::take_key("amplitude")) return set_cuts(amplitude_cuts);
  if (qx::take_key("intensity")) return set_cuts(intensity_cuts);
  if (!qx_exist_quorix()) return failed;
  qx::say(
      "WARNING: reject takes \"amplitude\" or \"intensity\" before its cuts: nothing is changed "
      "\n");
  return ok;
}

Status write_reflections(Xcry& state) {
  QX_TRY(qx_run_xcry_checker());
  char word[5];
  QX_TRY(qx::next_short_word(word));
  if (word[0] == '\0') return fail(texts.heading, "Failed to write keyword.");
  if (!qx::begins_with(word, "REFL")) return fail(texts.heading, "Unknown write keyword.");
  if (qx_write_refdata_ctrl() != ok) {
    return fail(texts.heading, "Failed to write reflection data. ");
  }
  state.written = true;
  return ok;
}

Status ask_to_fill(Xcry& state) {
  state.fill = true;
  return ok;
}

Status fill() {
  std::int32_t added = 0;
  QX_TRY(qx_fill_refdata(&added));
  qx::say("Reflections added           : %d, which the input lacks within its limits\n", added);
  return ok;
}

Status finish(Xcry& state) {
  if (!state.written) QX_TRY(qx_run_xcry_checker());
  if (state.fill) QX_TRY(fill());
  qx::say("end x-ray and crystal data settings:\n");
  return ok;
}

constexpr qx::Command<Xcry> commands[] = {
    {"READ", read_reflections},
    {"XNAM", set_text<qx_set_refdata_crystalname>},
    {"PNAM", set_text<qx_set_refdata_projectname>},
    {"DNAM", set_text<qx_set_refdata_datasetname>},
    {"SPGN", set_symmetry<qx_set_qxspg_spgname>},
    {"SYMP", set_symmetry<qx_insert_qxspg_symop_prim>},
    {"SYMC", set_symmetry<qx_insert_qxspg_symop_cent>},
    {"CELL", set_cell},
    {"RESO", set_resolution},
    {"ORTH", set_orthogonalisation},
    {"REJE", set_rejection},
    {"WRIT", write_reflections},
    {"FILL", ask_to_fill},
    {"XEND", finish, true},
};

Status run_xcry() {
  qx::say(" \nbegin x-ray and crystal data settings:\n");
  const refsys* system = qx_get_refsys();
  if (!system) return failed;
  if (!system->crystal) QX_TRY(qx_new_qxxcry());
  Xcry state;
  return qx::run_section(texts, commands, state);
}

}  // namespace

Status qx_xcry_ctrl() {
  (void)run_xcry();
  return ok;
}
