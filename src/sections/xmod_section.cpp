// The sections that take the model in and build the molecular system from it.
#include "core/say.h"
#include "core/tagged.h"
#include "sections/section.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/parser.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts xmod_texts = {"qx_xmod_ctrl():", "Failed to get quorix command. ",
                                         nullptr, nullptr};
constexpr qx::SectionTexts xmol_texts = {"qx_xmol_ctrl():", " Failed to get quorix command. ",
                                         " *** Unknow xmol task: ", " *** \n"};

struct NoState {};

Status read_model(NoState&) {
  const char* text = nullptr;
  const qx::Key word = qx::take_word(text);
  if (word == qx::key_died) return failed;
  if (word == qx::absent) {
    return fail(xmod_texts.heading, "Failed to get read keyword [trv | pdb] ");
  }
  if (!qx::begins_with(text, "TRV") && !qx::begins_with(text, "PDB")) {
    return fail(xmod_texts.heading,
                "Unknow model format \"%s\" \nQuorix supports: trevan and pdb structure format",
                text);
  }
  const qx::Tagged<char> format(qx::duplicate_text(text, "pxm_format"));
  if (!format) return failed;
  const qx::Key file = qx::take_value("FILE", text);
  if (file == qx::key_died) return failed;
  if (file == qx::absent) return fail(xmod_texts.heading, "Failed to get model file ");
  return qx_read_xmodel(format.get(), text);
}

Status finish_model(NoState&) {
  qx::say("end xmodel processing.\n");
  return ok;
}

constexpr qx::Command<NoState> xmod_commands[] = {{"READ", read_model},
                                                  {"XEND", finish_model, true}};

Status run_xmod() {
  if (!qx_exist_quorix()) return failed;
  qx::say(" \nbegin xmodel processing:\n");
  if (!qx_get_qxmodel()) QX_TRY(qx_new_qxmodel());
  QX_TRY(qx_set_xmodel_default());
  NoState none;
  return qx::run_section(xmod_texts, xmod_commands, none);
}

struct MolState {
  std::int32_t hydrogens = 0;
};

Status set_hydrogens(MolState& state) {
  const char* text = nullptr;
  if (qx::take_argument(text) == qx::key_died) return failed;
  if (qx::begins_with(text, "YES")) {
    state.hydrogens = 1;
  } else if (qx::begins_with(text, "NO")) {
    state.hydrogens = 0;
  } else {
    qx::warn_no_choice("hydr", text);
  }
  return ok;
}

Status ignore_rest(MolState&) {
  const char* text = nullptr;
  return qx::take_rest(text) == qx::key_died ? failed : ok;
}

Status build(MolState& state) { return qx_create_molsys(state.hydrogens); }

constexpr qx::Command<MolState> xmol_commands[] = {
    {"HYDR", set_hydrogens}, {"ANIS", ignore_rest}, {"XEND", build, true}};

}  // namespace

Status qx_read_xmodel(const char* /*format*/, const char* /*file*/) { return ok; }

Status qx_xmod_ctrl() {
  (void)run_xmod();
  return ok;
}

Status qx_xmol_ctrl() {
  MolState state;
  (void)qx::run_section(xmol_texts, xmol_commands, state);
  return ok;
}
