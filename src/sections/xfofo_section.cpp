// The section of differences between two sets: the second one, scale and weights, the map.
#include "core/require.h"
#include "crystal/cell.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "map/fofo.h"
#include "reflio/mtz.h"
#include "sections/map_commands.h"
#include "sections/values.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

#include <cmath>
#include <utility>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {
    "qx_fofomap_generation_ctrl():", "Failed to get quorix command. ",
    "*** Unknow xfofo task: ", " ***"};

constexpr qx::Choice<qx::FofoScale> scales[] = {
    {"none", qx::fofo_unscaled}, {"iso", qx::fofo_isotropic}, {"aniso", qx::fofo_anisotropic}};
constexpr qx::Choice<qx::FofoWeight> weights[] = {{"none", qx::fofo_unweighted}, {"q", qx::fofo_q}};

struct FofoSection {
  qxmap* map;
};

// The reader has warned of another cell; one as far off as this is of another crystal form.
bool is_another_form(const qxmtz& mtz, const qxcell& cell) {
  const double own[6] = {cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma};
  for (int i = 0; mtz.has_cell && i < 6; ++i) {
    const double slack = i < 3 ? 0.05 * own[i] : 5.0;
    if (mtz.cell[i] > 0.0 && std::fabs(mtz.cell[i] - own[i]) > slack) return true;
  }
  return false;
}

// Reflections of the crystal, as far as their file tells.
Status check_form(const qxrefdata& set) {
  const qxspg* group = qx_get_qxspg();
  if (!group) return failed;
  const qxcell* cell = qx_get_qxcell();
  if (!cell) return failed;
  if (!set.mtz) return ok;
  if (!qx::has_same_group(*set.mtz, *group)) {
    return fail(texts.heading, "The second set is of another space group: %s ",
                set.mtz->spacegroup_name);
  }
  if (!is_another_form(*set.mtz, *cell)) return ok;
  const double* c = set.mtz->cell;
  return fail(texts.heading,
              "The second set's cell is that of another crystal form: %g %g %g %g %g %g ", c[0],
              c[1], c[2], c[3], c[4], c[5]);
}

// read refl ...
Status read(FofoSection& /*section*/) {
  char word[5];
  QX_TRY(qx::next_short_word(word));
  if (!qx::begins_with(word, "REFL")) {
    return fail(texts.heading, "Failed to read reflection data.");
  }
  qxfofo* fofo = qx_get_qxfofo();
  if (!fofo) return failed;
  QX_TRY(qx::drop_differences(*fofo));
  if (qxrefdata* earlier = std::exchange(fofo->second, nullptr)) {
    QX_TRY(qx_delete_qxrefdata_obj(earlier));
  }
  qxrefdata* set = qx_new_qxrefdata_obj();
  if (!set) return failed;
  fofo->second = set;
  QX_TRY(qx_read_refdata_ctrl(set, 0));
  const qxrefreject* reject = nullptr;
  QX_TRY(qx::require_of_engine(texts.heading, qx_get_qxrefreject, reject,
                               "qxrefreject has not been created yet"));
  QX_TRY(qx_build_qxrefdata(set, reject, 1));
  return check_form(*set);
}

Status parameters(FofoSection& /*section*/) {
  qxfofo* fofo = qx_get_qxfofo();
  if (!fofo) return failed;
  QX_TRY(qx::choose(texts.heading, "scale", scales, fofo->scale));
  QX_TRY(qx::choose(texts.heading, "weight", weights, fofo->weight));
  double alpha = fofo->alpha;
  double reject = fofo->reject;
  QX_TRY(qx::take_number("alpha", alpha));
  QX_TRY(qx::take_number("reject", reject));
  if (!(alpha >= 0.0) || !(reject >= 0.0)) {
    return fail(texts.heading, "alpha and reject must not lie below 0: %f %f ", alpha, reject);
  }
  fofo->alpha = alpha;
  fofo->reject = reject;
  return qx::drop_differences(*fofo);
}

Status extent(FofoSection& section) { return qx::take_map_extent(texts.heading, *section.map); }
Status generate(FofoSection& /*section*/) { return qx_generate_fofo_map(); }
Status write(FofoSection& section) { return qx::write_map_as_told(texts.heading, *section.map); }
Status replace(FofoSection& /*section*/) { return qx_replace_refdata_fofo(); }
Status finish(FofoSection& /*section*/) { return ok; }

constexpr qx::Command<FofoSection> commands[] = {
    {"READ", read},  {"PARA", parameters}, {"EXTE", extent},      {"GENE", generate},
    {"WRIT", write}, {"REPL", replace},    {"XEND", finish, true}};

Status run() {
  if (!qx_get_refsys()) return failed;
  if (!qx_get_qxfofo()) QX_TRY(qx_new_qxfofo());
  if (!qx_get_qxmap()) QX_TRY(qx_new_qxmap());
  QX_TRY(qx_set_map_default());
  qxmap* map = qx_get_qxmap();
  if (!map) return failed;
  map->of_two_sets = true;
  FofoSection section = {map};
  return qx::run_section(texts, commands, section);
}

}  // namespace

Status qx_fofomap_generation_ctrl() {
  (void)run();
  return ok;
}
