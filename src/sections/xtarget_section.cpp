// The target section: which target, its value, its gradient.
#include "core/say.h"
#include "core/tagged.h"
#include "refine/target.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/target.h>

#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_target_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xtarget task: ", " ***"};

constexpr qx::Choice<qx::TargetType> types[] = {{"ls", qx::least_squares_target},
                                                {"ml", qx::likelihood_target}};

struct NoState {};

Status parameters(NoState& /*none*/) {
  const qxtargetfunc* target = qx_get_qxtargetfunc();
  if (!target) return failed;
  qx::TargetType type = target->type;
  QX_TRY(qx::choose(texts.heading, "type", types, type));
  return qx_set_qxtargetfunc_type(type);
}

Status calculate(NoState& /*none*/) {
  double value = 0.0;
  QX_TRY(qx_calc_target(&value));
  qx::say("Target                      : %.8f\n", value);
  return ok;
}

Status gradient(NoState& /*none*/) {
  QX_TRY(qx_calc_target_gradient());
  const char* path = "";
  const qx::Key state = qx::take_value("file", path);
  if (state != qx::found) return state == qx::key_died ? failed : ok;
  const auto name = qx::Tagged<char>(qx::duplicate_text(path, "pxt_file"));
  if (!name) return failed;
  return qx_write_target_gradient(name.get());
}

Status check(NoState& /*none*/) {
  const char* word = "";
  if (qx::take_word(word) == qx::key_died) return failed;
  int count = 0;
  if (std::sscanf(word, "%d", &count) != 1) {
    return fail(texts.heading, "Invalid number of atoms to check: %s ", word);
  }
  return qx_check_target_gradient(count);
}

Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {{"PARA", parameters},
                                             {"CALC", calculate},
                                             {"GRAD", gradient},
                                             {"CHEC", check},
                                             {"XEND", finish, true}};

Status run() {
  if (!qx_get_refsys()) return failed;
  if (!qx_get_qxtargetfunc()) QX_TRY(qx_new_qxtargetfunc());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_target_ctrl() {
  (void)run();
  return ok;
}
