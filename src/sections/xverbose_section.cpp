// The section that sets the verbosity switches.
#include "core/verbosity.h"
#include "sections/section.h"

#include <quorix/engine.h>

using qx::ok;
using qx::Status;

namespace {

struct SwitchKey {
  const char* key;
  std::int32_t qxverbsys::*field;
};

constexpr SwitchKey switch_keys[] = {
    {"verb_ml", &qxverbsys::ml},   {"verb_ls", &qxverbsys::ls},     {"verb_mtz", &qxverbsys::mtz},
    {"verb_hkl", &qxverbsys::hkl}, {"verb_cns", &qxverbsys::cns},   {"verb_mem", &qxverbsys::mem},
    {"verb_cpu", &qxverbsys::cpu}, {"verb_binr", &qxverbsys::binr},
};

struct NoState {};

Status set_switches(NoState&) {
  for (const SwitchKey& row : switch_keys) {
    std::int32_t level = 0;
    const qx::Key key = qx::take_int(row.key, level);
    if (key == qx::key_died) return qx::failed;
    if (key == qx::found) QX_TRY(qx::set_switch(row.field, level));
  }
  return ok;
}

Status finish(NoState&) { return ok; }

constexpr qx::Command<NoState> commands[] = {{"PARA", set_switches}, {"XEND", finish, true}};
constexpr qx::SectionTexts texts = {"qx_xverbose_ctrl():", " Failed to get quorix command . ",
                                    " *** Unknow xverb task: ", " ***\n"};

Status run_xverbose() {
  if (!qx_get_qxverbsys()) {
    return qx_exist_quorix()
               ? qx::fail(texts.heading, " qxverbsys object has not been created yet.")
               : qx::failed;
  }
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xverbose_ctrl() {
  (void)run_xverbose();
  return ok;
}
