// The section of the density's threshold.
#include "core/say.h"
#include "sections/section.h"

#include <quorix/density.h>
#include <quorix/engine.h>

#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xcut_ctrl():", " Failed to get quorix command. ",
                                    " *** Unknow xcut task: ", " *** "};

struct NoState {};

Status set_threshold(double ecut) {
  if (!(ecut > 0.0)) {
    qx::say("Warning: ecut <= 0.0, and reset it to 0.005\n");
    ecut = 0.005;
  }
  return qx_set_elec_den_rad_cutoff(ecut);
}

Status read_threshold(NoState&) {
  const char* text = nullptr;
  if (qx::take_argument(text) == qx::key_died) return failed;
  double ecut = 0.0;
  if (std::sscanf(text, "%lf", &ecut) != 1) {
    return fail(texts.heading, "Invalid specification for ecut: %s ", text);
  }
  return set_threshold(ecut);
}

Status read_parameters(NoState&) {
  double ecut = 0.0;
  switch (qx::take_double("ecut", ecut)) {
    case qx::found:
      return set_threshold(ecut);
    case qx::absent:
      return ok;
    default:
      return failed;
  }
}

Status finish(NoState&) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"ECUT", read_threshold}, {"PARA", read_parameters}, {"XEND", finish, true}};

Status run_xcut() {
  if (!qx_exist_quorix()) return failed;
  if (!qx_get_qxradcut()) QX_TRY(qx_new_qxradcut());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xcut_ctrl() {
  (void)run_xcut();
  return ok;
}
