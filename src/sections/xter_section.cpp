// Termination: writes reflections on request, reports the memory peak, releases the root.
#include "core/say.h"
#include "sections/section.h"

#include <quorix/engine.h>
#include <quorix/memory.h>
#include <quorix/parser.h>
#include <quorix/reflections.h>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {" qx_xter_ctrl():", " Failed to get quorix command. ",
                                    " *** Unknow xter task: ", " *** \n"};

struct NoState {};

Status write_reflections(NoState&) {
  char word[5];
  QX_TRY(qx::next_short_word(word));
  if (word[0] == '\0') return fail(texts.heading, "Failed to write keyword.");
  if (qx_strncmp_nocase(word, "refl", 4) != 0) {
    return fail(texts.heading, "Unknown write keyword.");
  }
  if (qx_write_refdata_ctrl() == ok) return ok;
  return fail(texts.heading, "Failed to write reflection data. ");
}

Status finish(NoState&) {
  if (qx_get_qxverbsys_verb_mem() != 0) {
    qx::say("Maximum memory used in Quorix: %10.3f MB\n", qx_get_max_memory_size());
  }
  qx_terminate_quorix();
  return ok;
}

constexpr qx::Command<NoState> commands[] = {{"WRIT", write_reflections}, {"XEND", finish, true}};

Status run_xter() {
  if (!qx_get_qxverbsys()) {
    return qx_exist_quorix() ? fail(texts.heading, "The Quorix verbose system is not created yet")
                             : qx::failed;
  }
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xter_ctrl() {
  (void)run_xter();
  return ok;
}
