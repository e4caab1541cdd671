// The bulk-solvent section: the mask's settings, the mask, the mask as a file.
#include "core/say.h"
#include "core/tagged.h"
#include "sections/values.h"
#include "solvent/solvent.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/solvent.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xbulk_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xbulk task: ", " ***"};

struct NoState {};

Status set_if_given(const char* key, Status (*set)(double)) {
  double value = 0.0;
  const qx::Key state = qx::take_double(key, value);
  if (state != qx::found) return state == qx::key_died ? failed : ok;
  return set(value);
}

Status parameters(NoState& /*none*/) {
  QX_TRY(set_if_given("probe", qx_set_qxsolvent_probe));
  QX_TRY(set_if_given("shrink", qx_set_qxsolvent_shrink));
  QX_TRY(set_if_given("spacing", qx_set_qxsolvent_spacing));
  return set_if_given("cutoff", qx_set_qxsolvent_cutoff);
}

Status mask(NoState& /*none*/) {
  QX_TRY(qx_make_solvent_mask());
  const qxsolvent* solvent = qx_get_qxsolvent();
  if (!solvent) return failed;
  qx::say("Bulk solvent mask           : %d x %d x %d points, %.1f %% of the cell\n",
          solvent->grid.nx, solvent->grid.ny, solvent->grid.nz, 100.0 * solvent->fraction);
  return ok;
}

Status write(NoState& /*none*/) {
  const char* word = "";
  if (qx::take_word(word) == qx::key_died) return failed;
  if (!qx::begins_with(word, "ccp4")) return fail(texts.heading, "Unknown map format: %s", word);
  const char* path = "";
  QX_TRY(qx::take_file(texts.heading, "Undefined map file name. ", path));
  const auto name = qx::Tagged<char>(qx::duplicate_text(path, "pxb_file"));
  if (!name) return failed;
  return qx_write_solvent_mask(name.get());
}

Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"PARA", parameters}, {"MASK", mask}, {"WRIT", write}, {"XEND", finish, true}};

Status run() {
  if (!qx_get_xmolsys()) return failed;
  if (!qx_get_qxsolvent()) QX_TRY(qx_new_qxsolvent());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xbulk_ctrl() {
  (void)run();
  return ok;
}
