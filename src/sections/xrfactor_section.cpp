// The R-factor section: agreement of the scaled model, as text and as a file.
#include "core/tagged.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/scaling.h>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xrfactor_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xrfactor task: ", " ***"};

struct NoState {};

Status calculate(NoState& /*none*/) {
  double high = 0.0;
  double low = 99999.0;
  QX_TRY(qx::take_number("high", high));
  QX_TRY(qx::take_number("low", low));
  if (high > low) std::swap(high, low);
  return qx_calc_rfactor(high, low);
}

Status print(NoState& /*none*/) { return qx_print_rfactor(); }

Status json(NoState& /*none*/) {
  const char* path = "";
  QX_TRY(qx::take_file(texts.heading, "There is no file name for the R factors.", path));
  const auto name = qx::Tagged<char>(qx::duplicate_text(path, "pxr_file"));
  if (!name) return failed;
  return qx_write_rfactor_json(name.get());
}

Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"CALC", calculate}, {"PRIN", print}, {"JSON", json}, {"XEND", finish, true}};

}  // namespace

Status qx_xrfactor_ctrl() {
  NoState none;
  (void)qx::run_section(texts, commands, none);
  return ok;
}
