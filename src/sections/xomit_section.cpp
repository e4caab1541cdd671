// The omit section: what is left out of the model, and the maps without it.
#include "core/refsys.h"
#include "core/tagged.h"
#include "sections/map_commands.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/omit.h>

#include <cstdio>
#include <cstdlib>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xomit_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xomit task: ", " ***"};

struct NoState {};

Status sphere() {
  constexpr const char* keys[4] = {"x", "y", "z", "radius"};
  double at[4] = {};
  for (int i = 0; i < 4; ++i) {
    const qx::Key state = qx::take_double(keys[i], at[i]);
    if (state == qx::key_died) return failed;
    if (state == qx::absent) return fail(texts.heading, "No %s for sphere defined. ", keys[i]);
  }
  const double centre[3] = {at[0], at[1], at[2]};
  return qx_add_omit_sphere(centre, at[3]);
}

// 7 or 7:12, numbers from 1.
Status add_atoms(const char* word) {
  char* end = nullptr;
  const long first = std::strtol(word, &end, 10);
  const bool range = end != word && *end == ':';
  const char* second = range ? end + 1 : word;
  const long last = range ? std::strtol(second, &end, 10) : first;
  constexpr long most = INT32_MAX;
  if (end == second || *end != '\0' || first < 1 || last < first || last > most) {
    return fail(texts.heading, "Invalid number of atoms to omit: %s ", word);
  }
  for (long atom = first; atom <= last; ++atom) {
    const auto number = static_cast<std::int32_t>(atom - 1);
    QX_TRY(qx_add_omit_atoms(1, &number));
  }
  return ok;
}

Status atoms() {
  for (;;) {
    const char* word = "";
    const qx::Key state = qx::take_word(word);
    if (state != qx::found) return state == qx::key_died ? failed : ok;
    QX_TRY(add_atoms(word));
  }
}

// region box|frac LIMITS, sphere x= y= z= radius=, atoms LIST
Status region(NoState& /*none*/) {
  char word[5];
  QX_TRY(qx::next_choice(word));
  if (qx::begins_with(word, "SPHE")) return sphere();
  if (qx::begins_with(word, "ATOM")) return atoms();
  const bool box = qx::begins_with(word, "BOX");
  if (!box && !qx::begins_with(word, "FRAC")) {
    return fail(texts.heading, "Unknown region type. ");
  }
  double limits[6] = {};
  QX_TRY(qx::take_map_limits(texts.heading, box ? "box" : "frac", limits));
  return box ? qx_add_omit_box(limits) : qx_add_omit_frac(limits);
}

Status composite(NoState& /*none*/) {
  std::int32_t boxes = 20;
  QX_TRY(qx::take_count("boxes", boxes));
  return qx_set_qxomit_boxes(boxes);
}

constexpr qx::Choice<std::int32_t> masks[] = {{"keep", 0}, {"clear", 1}};

// The region's words are taken first: what is left is the map's.
Status parameters(NoState& /*none*/) {
  double rim = 0.0;
  const qx::Key state = qx::take_double("rim", rim);
  if (state == qx::key_died) return failed;
  if (state == qx::found) QX_TRY(qx_set_qxomit_rim(rim));
  std::int32_t clear = 0;
  bool given = false;
  QX_TRY(qx::choose(texts.heading, "mask", masks, clear, &given));
  if (given) QX_TRY(qx_set_qxomit_mask(clear));
  qxmap* map = qx_get_qxmap();
  return map ? qx::take_map_parameters(texts.heading, *map) : failed;
}

Status extent(NoState& /*none*/) {
  qxmap* map = qx_get_qxmap();
  return map ? qx::take_map_extent(texts.heading, *map) : failed;
}

Status generate(NoState& /*none*/) { return qx_generate_omit_map(); }
Status exclude(NoState& /*none*/) { return qx_exclude_omit_atoms(); }
Status restore(NoState& /*none*/) { return qx_restore_omit_atoms(); }

Status write(NoState& /*none*/) {
  qxmap* map = qx_get_qxmap();
  return map ? qx::write_map_as_told(texts.heading, *map) : failed;
}

Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"REGI", region},  {"COMP", composite}, {"PARA", parameters},
    {"EXTE", extent},  {"GENE", generate},  {"EXCL", exclude},
    {"REST", restore}, {"WRIT", write},     {"XEND", finish, true}};

Status run() {
  if (!qx_get_refsys()) return failed;
  QX_TRY(qx_new_qxomit());
  if (!qx_get_qxmap()) QX_TRY(qx_new_qxmap());
  QX_TRY(qx_set_map_default());
  qxmap* map = qx_get_qxmap();
  if (!map) return failed;
  map->type = qx::sigmaa_map;
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xomit_ctrl() {
  (void)run();
  return ok;
}
