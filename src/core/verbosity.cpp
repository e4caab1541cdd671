// Verbosity record, its getters and setters, and the section that sets the switches.
#include "core/verbosity.h"

#include "core/object.h"
#include "core/section.h"

#include <quorix/engine.h>

using qx::ok;
using qx::Status;

namespace {

constexpr const char* missing = "The Quorix verbose system is not created yet";

qxverbsys* checked() {
  qxverbsys* record = qx_get_qxverbsys();
  if (!record && qx_exist_quorix()) (void)qx::fail("check_and_get_qxverbsys():", "%s", missing);
  return record;
}

std::int32_t read_switch(std::int32_t qxverbsys::*field) {
  const qxverbsys* record = checked();
  return record ? record->*field : 0;
}

Status set_switch(std::int32_t qxverbsys::*field, std::int32_t level) {
  qxverbsys* record = checked();
  if (!record) return qx::failed;
  record->*field = level;
  return ok;
}

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
    if (key == qx::found) QX_TRY(set_switch(row.field, level));
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

Status qx_new_qxverbsys() {
  return qx::create_in(qx_delete_qxverbsys, qx_set_qxverbsys, "pnp_verbsys");
}
Status qx_delete_qxverbsys() { return qx::remove_from(qx_get_qxverbsys(), qx_set_qxverbsys); }

std::int32_t qx_get_qxverbsys_verb_ls() { return read_switch(&qxverbsys::ls); }
std::int32_t qx_get_qxverbsys_verb_ml() { return read_switch(&qxverbsys::ml); }
std::int32_t qx_get_qxverbsys_verb_cpu() { return read_switch(&qxverbsys::cpu); }
std::int32_t qx_get_qxverbsys_verb_mtz() { return read_switch(&qxverbsys::mtz); }
std::int32_t qx_get_qxverbsys_verb_hkl() { return read_switch(&qxverbsys::hkl); }
std::int32_t qx_get_qxverbsys_verb_debug() { return read_switch(&qxverbsys::debug); }
std::int32_t qx_get_qxverbsys_verb_mem() { return read_switch(&qxverbsys::mem); }
std::int32_t qx_get_qxverbsys_verb_binr() { return read_switch(&qxverbsys::binr); }
Status qx_set_qxverbsys_verb_mtz(std::int32_t level) { return set_switch(&qxverbsys::mtz, level); }
Status qx_set_qxverbsys_verb_hkl(std::int32_t level) { return set_switch(&qxverbsys::hkl, level); }
Status qx_set_qxverbsys_verb_debug(std::int32_t level) {
  return set_switch(&qxverbsys::debug, level);
}

Status qx_xverbose_ctrl() {
  (void)run_xverbose();
  return ok;
}
