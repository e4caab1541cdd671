// The grid section.
#include "core/refsys.h"
#include "core/require.h"
#include "crystal/crystal.h"
#include "grid/grid.h"
#include "sections/section.h"

#include <quorix/asu.h>
#include <quorix/engine.h>
#include <quorix/parser.h>

#include <cstdio>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

constexpr auto heading = "qx_grid_ctrl():";

enum class Request { none, counts, spacings };

// One request per section.
struct GridSection {
  Request request = Request::none;
};

Status refuse_second_request(const GridSection& section, const char* after_counts) {
  if (section.request == Request::counts) return fail(heading, "%s", after_counts);
  if (section.request == Request::spacings) {
    return fail(heading, "grid has been defined through space or frac.");
  }
  return ok;
}

// `yes` or `no` after the command word; anything else changes nothing.
Status switched(const char* command, Status (*on)(), Status (*off)()) {
  char word[5];
  QX_TRY(qx::next_choice(word));
  if (qx::begins_with(word, "YES")) return on();
  if (qx::begins_with(word, "NO")) return off();
  qx::warn_no_choice(command, word);
  return ok;
}

Status coarse(GridSection& /*section*/) {
  return switched("coarse", qx_set_coarse_grid_flag_on, qx_set_coarse_grid_flag_off);
}

Status asu_check(GridSection& /*section*/) {
  return switched("asucheck", qx_set_asu_check_flag_on, qx_set_asu_check_flag_off);
}

// The rest of the line, empty if there is none; null after a report.
const char* rest_of_line() {
  const char* text = "";
  switch (qx::take_argument(text)) {
    case qx::found:
      return text;
    case qx::absent:
      return "";
    case qx::key_died:
      break;
  }
  return nullptr;
}

Status spacings(GridSection& section) {
  QX_TRY(refuse_second_request(section, "grid has been defined through ngrid."));
  const char* text = rest_of_line();
  if (!text) return qx::failed;
  constexpr const char* keys[3] = {"sx", "sy", "sz"};
  double s[3];
  for (int axis = 0; axis < 3; ++axis) {
    if (!qx_get_key_double_value(text, keys[axis], &s[axis])) {
      // Kept: only the first of the three texts ends in a full stop.
      return fail(heading, "Failed to get %s value%s", keys[axis], axis == 0 ? "." : "");
    }
    if (!(s[axis] > 0)) return fail(heading, "Invalid %s value: %f", keys[axis], s[axis]);
  }
  section.request = Request::spacings;
  return qx_init_qxgrid_sxyz(s[0], s[1], s[2]);
}

Status counts(GridSection& section) {
  QX_TRY(refuse_second_request(section, "grid has been defined through ngrid"));
  const char* text = rest_of_line();
  if (!text) return qx::failed;
  constexpr const char* keys[3] = {"nx", "ny", "nz"};
  std::int32_t n[3];
  for (int axis = 0; axis < 3; ++axis) {
    if (!qx_get_key_int_value(text, keys[axis], &n[axis])) {
      return fail(heading, "Failed to get %s value", keys[axis]);
    }
    if (n[axis] < 1) return fail(heading, "Invalid %s value: %d", keys[axis], n[axis]);
  }
  section.request = Request::counts;
  return qx_init_qxgrid_nxyz(n[0], n[1], n[2]);
}

Status fraction(GridSection& section) {
  QX_TRY(refuse_second_request(section, "grid has been defined through ngrid"));
  const char* text = rest_of_line();
  if (!text) return qx::failed;
  float value = 0;
  if (std::sscanf(text, "%f \n", &value) != 1) {
    return fail(heading, "Invalid specification for frac: %s", text);
  }
  const double frac = value;
  if (!(frac >= 0)) return fail(heading, "Invalid frac value: %f", frac);
  const qxresol* resol = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxresol, resol, "qxresol object has not been created yet."));
  if (!(resol->high > 0)) {
    return fail(heading,
                "Can not define spacing through fraction of high resolution.\n"
                "Since the high resolution is: %f ",
                resol->high);
  }
  const double spacing = frac * resol->high;
  section.request = Request::spacings;
  return qx_init_qxgrid_sxyz(spacing, spacing, spacing);
}

Status finish(GridSection& /*section*/) { return qx_run_qxgrid_checker(); }

constexpr qx::SectionTexts texts = {heading, "Failed to get quorix command. ",
                                    "*** Unknow xgrid task: ", " ***"};

constexpr qx::Command<GridSection> commands[] = {
    {"COAR", coarse},   {"SPAC", spacings},  {"NGRI", counts},
    {"FRAC", fraction}, {"ASUC", asu_check}, {"XEN", finish, true},
};

Status run() {
  const refsys* system = qx_get_refsys();
  if (!system) return qx::failed;
  if (!system->grid) QX_TRY(qx_new_xgrid());
  GridSection section;
  return qx::run_section(texts, commands, section);
}

}  // namespace

Status qx_grid_ctrl() {
  (void)run();
  return ok;
}
