// The partition section: which parts the model's structure factors are the sum of, and how each
// counts.
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/parser.h>
#include <quorix/partition.h>

#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_syspart_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xpartition task: ", " ***"};

constexpr qx::Choice<std::int32_t> kinds[] = {{"all", 0}, {"entry", 1}};

struct NoState {};

// by all|entry
Status by(NoState& /*none*/) {
  const char* word = "";
  if (qx::take_argument_word(word) == qx::key_died) return failed;
  for (const auto& [name, kind] : kinds) {
    if (qx::begins_with(word, name)) return qx_set_qxsyspart_by(kind);
  }
  return fail(texts.heading, " Unknow by value: %s ", word);
}

// fpart yes|no
Status fpart(NoState& /*none*/) {
  const char* word = "";
  if (qx::take_argument_word(word) == qx::key_died) return failed;
  for (const auto& [name, with] : qx::yes_or_no) {
    if (qx::begins_with(word, name)) return qx_set_qxsyspart_fpart(with ? 1 : 0);
  }
  return fail(texts.heading, " Unknow fpart value: %s ", word);
}

// scale PART FACTOR [B]
Status scale(NoState& /*none*/) {
  const char* rest = "";
  if (qx::take_argument(rest) == qx::key_died) return failed;
  int part = 0;
  double factor = 1.0;
  double b = 0.0;
  int used = 0;
  bool read = std::sscanf(rest, "%d%lf%n", &part, &factor, &used) == 2;
  const char* more = rest + used;
  if (read && qx_first_word_char_position(more)[0] != '\0') {
    read = std::sscanf(more, "%lf%n", &b, &used) == 1 && more[used] == '\0';
  }
  if (!read) {
    return fail(texts.heading, "A part, its scale and its B are wanted: %s ", rest);
  }
  return qx_set_qxsyspart_scale(part, factor, b);
}

Status finish(NoState& /*none*/) { return qx_print_qxsyspart(); }

constexpr qx::Command<NoState> commands[] = {
    {"BY", by}, {"FPAR", fpart}, {"SCAL", scale}, {"XEND", finish, true}};

Status run() {
  if (!qx_get_xmolsys()) return failed;
  if (!qx_get_qxsyspart()) QX_TRY(qx_new_qxsyspart());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_syspart_ctrl() {
  (void)run();
  return ok;
}
