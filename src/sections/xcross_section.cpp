// The cross-validation section: parameters, and the split they lead to.
#include "core/say.h"
#include "core/tagged.h"
#include "sections/section.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflection_view.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_cross_validate_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xcross task: ", " ***"};
constexpr std::int32_t mtz_format = 1;

struct WorkText {
  qx::Tagged<char> block;
};

// A number below 1 is replaced by its default, with a warning.
Status take_count(const char* key, const char* name, std::int32_t otherwise,
                  Status (*set)(std::int32_t)) {
  std::int32_t value = 0;
  const qx::Key state = qx::take_int(key, value);
  if (state == qx::key_died) return failed;
  if (state == qx::absent) return ok;
  if (value < 1) {
    qx::say("WARNING: not a valid %s value %d\n", name, value);
    qx::say("reset it to the default value %d\n", otherwise);
    value = otherwise;
  }
  return set(value);
}

Status set_parameters(WorkText&) {
  double percent = 0.0;
  const qx::Key state = qx::take_double("percent", percent);
  if (state == qx::key_died) return failed;
  if (state == qx::found) QX_TRY(qx_set_qxcross_percent(percent));
  QX_TRY(take_count("seed", "seed", 137, qx_set_qxcross_seed));
  QX_TRY(take_count("NBIN", "nbin", 10, qx_set_qxcross_nbin));
  return qx_set_work_free_reflection(0, 1);
}

Status use_flags(WorkText&) {
  qx_reflection_view data;
  if (!qx_get_reflection_view(&data)) {
    return fail(texts.heading, "qxrefdata object has not been created yet");
  }
  // MTZ files number the free set 0, others 1.
  std::int32_t value = data.format == mtz_format ? 0 : 1;
  if (qx::take_int("free_flag", value) == qx::key_died) return failed;
  return qx_set_work_free_reflection(1, value);
}

Status finish(WorkText& text) {
  text.block.reset();
  return ok;
}

constexpr qx::Command<WorkText> commands[] = {
    {"PARA", set_parameters}, {"INPU", use_flags}, {"XEND", finish, true}};

Status run_xcross() {
  if (!qx_get_qxcross()) {
    if (!qx_exist_quorix()) return failed;
    QX_TRY(qx_new_qxcross());
  }
  WorkText text{qx::Tagged<char>(1024, "pcvc_str")};
  if (!text.block) return failed;
  return qx::run_section(texts, commands, text);
}

}  // namespace

Status qx_cross_validate_ctrl() {
  (void)run_xcross();
  return ok;
}
