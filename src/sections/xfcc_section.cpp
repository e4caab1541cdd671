// The structure-factor section: calculate, scale to the observations, put into the data set.
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/structfact.h>

using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xfc_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xfc task: ", " ***"};

struct NoState {};

Status calculate(NoState& /*none*/) { return qx_calc_system_struct_factor(); }
Status scale(NoState& /*none*/) { return qx_scale_model_structure_factor(); }

// replace [atoms|both [fitted]]
Status replace(NoState& /*none*/) {
  if (qx::take_key("both")) {
    const bool fitted = qx::take_key("fitted");
    return qx_replace_refdata_both(fitted ? 1 : 0);
  }
  return qx::take_key("atoms") ? qx_replace_refdata_atoms() : qx_replace_refdata_fc();
}

Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"CALC", calculate}, {"SCAL", scale}, {"REPL", replace}, {"XEND", finish, true}};

}  // namespace

Status qx_xfc_ctrl() {
  NoState none;
  (void)qx::run_section(texts, commands, none);
  return ok;
}
