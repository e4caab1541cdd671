// Verbosity record, its getters and setters.
#include "core/verbosity.h"

#include "core/object.h"
#include "core/report.h"

#include <quorix/engine.h>

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

}  // namespace

Status qx::set_switch(std::int32_t qxverbsys::*field, std::int32_t level) {
  qxverbsys* record = checked();
  if (!record) return qx::failed;
  record->*field = level;
  return ok;
}

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
Status qx_set_qxverbsys_verb_mtz(std::int32_t level) {
  return qx::set_switch(&qxverbsys::mtz, level);
}
Status qx_set_qxverbsys_verb_hkl(std::int32_t level) {
  return qx::set_switch(&qxverbsys::hkl, level);
}
Status qx_set_qxverbsys_verb_debug(std::int32_t level) {
  return qx::set_switch(&qxverbsys::debug, level);
}
