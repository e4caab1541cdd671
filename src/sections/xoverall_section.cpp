// The scale section: form of the bulk solvent and of the scale, the fit, the fit as text.
#include "scaling/scale.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/scaling.h>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xoverall_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xoverall task: ", " ***"};

constexpr qx::Choice<qx::SolventMode> modes[] = {{"none", qx::no_solvent},
                                                 {"exp", qx::exponential_solvent},
                                                 {"bins", qx::binned_solvent},
                                                 {"smooth", qx::smooth_solvent}};

struct NoState {};

Status parameters(NoState& /*none*/) {
  qxscale* scale = qx_get_qxscale();
  if (!scale) return failed;
  qxscale next = *scale;
  bool chosen = false;
  QX_TRY(qx::choose(texts.heading, "solvent", modes, next.mode, &chosen));
  next.mode_chosen = next.mode_chosen || chosen;
  QX_TRY(qx::choose(texts.heading, "aniso", qx::yes_or_no, next.anisotropic));
  QX_TRY(qx::take_number("ksol", next.k_sol));
  QX_TRY(qx::take_number("bsol", next.b_sol));
  *scale = next;
  return ok;
}

Status scale(NoState& /*none*/) { return qx_fit_overall_scale(); }

// print [brief]
Status print(NoState& /*none*/) {
  const bool brief = qx::take_key("brief");
  return qx_print_overall_scale(brief ? 0 : 1);
}

Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"PARA", parameters}, {"SCAL", scale}, {"PRIN", print}, {"XEND", finish, true}};

Status run() {
  if (!qx_get_refsys()) return failed;
  if (!qx_get_qxscale()) QX_TRY(qx_new_qxscale());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xoverall_ctrl() {
  (void)run();
  return ok;
}
