// The likelihood section: how sigmaA is estimated, the estimate, and what it puts into the data
// set.
#include "scaling/scale.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/scaling.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_xmlf_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xmlf task: ", " ***"};

constexpr qx::Choice<qx::LikelihoodMode> modes[] = {{"binned", qx::binned_likelihood},
                                                    {"continuous", qx::continuous_likelihood}};
constexpr qx::Choice<qx::LikelihoodSet> sets[] = {
    {"free", qx::use_free_set}, {"work", qx::use_working_set}, {"all", qx::use_all}};
constexpr qx::Choice<bool> missing_reflections[] = {{"df", true}, {"zero", false}};
constexpr qx::Choice<bool> test_reflections[] = {{"keep", false}, {"fill", true}};

struct NoState {};

Status parameters(NoState& /*none*/) {
  qxml* ml = qx_get_qxml();
  if (!ml) return failed;
  qxml next = *ml;
  QX_TRY(qx::choose(texts.heading, "mode", modes, next.mode));
  QX_TRY(qx::choose(texts.heading, "use", sets, next.use));
  QX_TRY(qx::take_count("nodes", next.nodes));
  QX_TRY(qx::choose(texts.heading, "sigf", qx::yes_or_no, next.errors));
  QX_TRY(qx::choose(texts.heading, "test", test_reflections, next.fill_free));
  QX_TRY(qx::choose(texts.heading, "missing", missing_reflections, next.fill_missing));
  if (next.nodes < 0 || next.nodes > qx::SigmaaModel::most_nodes) {
    return fail(texts.heading, "The number of nodes must lie between 0 and %d: %d ",
                qx::SigmaaModel::most_nodes, next.nodes);
  }
  *ml = next;
  return ok;
}

Status estimate(NoState& /*none*/) { return qx_estimate_likelihood(); }
Status replace(NoState& /*none*/) { return qx_replace_refdata_ml(); }
Status print(NoState& /*none*/) { return qx_print_likelihood(); }
Status anomalous(NoState& /*none*/) { return qx_calc_anomalous_coefficients(); }
Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {{"PARA", parameters}, {"ESTI", estimate},
                                             {"REPL", replace},    {"ANOM", anomalous},
                                             {"PRIN", print},      {"XEND", finish, true}};

Status run() {
  if (!qx_get_refsys()) return failed;
  if (!qx_get_qxml()) QX_TRY(qx_new_qxml());
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_xmlf_ctrl() {
  (void)run();
  return ok;
}
