// The form-factor section: which Gaussians, and what scatters.
#include "core/tagged.h"
#include "core/text.h"
#include "model/formfactors.h"
#include "sections/section.h"

#include <quorix/engine.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_ffac_ctrl():", "Failed to get quorix command.",
                                    "*** Unknow xform task: \"", "\" ****\n"};

struct NoState {};

// Pairs of a type and its number of Gaussians, to the end of the line.
Status force_gaussians(NoState&) {
  QX_TRY(qx_run_atfrmfactbase_checker());
  for (;;) {
    const char* text = nullptr;
    const qx::Key state = qx::take_word(text);
    if (state == qx::key_died) return failed;
    if (state == qx::absent) return ok;
    const qx::Tagged<char> type(qx::duplicate_text(text, "pfc_type"));
    if (!type) return failed;
    std::int32_t ngauss = 0;
    const qx::Key second = qx::take_word(text);
    if (second == qx::key_died) return failed;
    if (second == qx::absent || !qx::read_int(text, ngauss)) {
      return fail("qx_get_quorix_pair_string_int():", "Failed to get pair (string, int) ");
    }
    QX_TRY(qx_insert_ioafrmfact_aff(type.get(), ngauss));
  }
}

Status set_diffraction(NoState&) {
  const char* text = nullptr;
  if (qx::take_argument(text) == qx::key_died) return failed;
  const bool neutron = qx::begins_with(text, "NEUTRON");
  if (!neutron && !qx::begins_with(text, "ELECTRON")) {
    return fail(texts.heading, "Invalid specification: %s for diff.", text);
  }
  const auto method = neutron ? qx::neutron_diffraction : qx::electron_diffraction;
  QX_TRY(qx_set_ioafrmfact_diffraction(method));
  QX_TRY(qx_set_atfrmfactbase_diffmethod(method));
  return qx_fill_atfrmfactbase(method);
}

Status finish(NoState&) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"ATMF", force_gaussians}, {"DIFF", set_diffraction}, {"XEND", finish, true}};

Status run_xformfact() {
  if (!qx_exist_quorix()) return failed;
  if (!qx_get_xmolformfact()) QX_TRY(qx_new_xmolformfact());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_ffac_ctrl() {
  (void)run_xformfact();
  return ok;
}
