// The transform section: memory budget, sine and cosine planes, the density's B offset; at its end
// the split into sub-boxes.
#include "core/refsys.h"
#include "core/require.h"
#include "core/say.h"
#include "fft/fft.h"
#include "grid/grid.h"
#include "sections/section.h"

#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/model.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xfft_ctrl():", " Failed to get quorix command. ",
                                    " *** Unknow xfft task: ", " *** "};

struct NoState {};

// The number after the command word.
Status take_number(const char* name, double& value) {
  const char* text = "";
  if (qx::take_argument_word(text) == qx::key_died) return qx::failed;
  if (std::sscanf(text, "%lf", &value) == 1 && std::isfinite(value)) return ok;
  return fail(texts.heading, " Invalid specification for %s: %s ", name, text);
}

Status memory(NoState& /*none*/) {
  double megabytes = 0;
  QX_TRY(take_number("memory", megabytes));
  if (!qx_get_qxgrid()) return fail(texts.heading, "qxgrid object has not been created yet ");
  qxsubgrid* box = nullptr;
  QX_TRY(qx::require(texts.heading, qx_get_qxsubgrid, box,
                     "qxsubgrid object has not been created yet."));
  box->memory = std::max(megabytes, 0.0);
  return ok;
}

Status sine_planes(NoState& /*none*/) {
  char word[5];
  QX_TRY(qx::next_choice(word));
  if (qx::begins_with(word, "YES")) return qx_set_grid_sincosmem(1);
  if (qx::begins_with(word, "NO")) return qx_set_grid_sincosmem(0);
  qx::warn_no_choice("sincos", word);
  return ok;
}

Status b_offset(NoState& /*none*/) {
  double b0 = 0;
  QX_TRY(take_number("B0", b0));
  if (b0 >= 0) {
    QX_TRY(qx_set_qxatomb_B0(b0));
    return qx_set_ioafrmfact_b0(b0);
  }
  qx::say(" WARNING: B0 is set as negative, no effect. \n");
  return ok;
}

Status finish(NoState& /*none*/) {
  QX_TRY(qx_run_qxsubgrid_checker());
  QX_TRY(qx_print_qxgrid());
  qx::say("\n");
  return ok;
}

constexpr qx::Command<NoState> commands[] = {
    {"MEMO", memory}, {"SINC", sine_planes}, {"B0", b_offset}, {"XEN", finish, true}};

Status run() {
  if (!qx::fft_object()) return qx::failed;
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xfft_ctrl() {
  (void)run();
  return ok;
}
