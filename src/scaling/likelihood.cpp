// The likelihood's parameters: their object, the fit, what follows for every reflection.
#include "scaling/likelihood.h"

#include "core/constants.h"
#include "core/harvest.h"
#include "core/object.h"
#include "core/parallel.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/reflections.h"
#include "scaling/observed.h"
#include "scaling/scale.h"
#include "stats/likelihood.h"

#include <quorix/engine.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

qxml* qx_get_qxml() { return qx::slot(qx_get_refsys(), &refsys::ml); }
Status qx_set_qxml(qxml* object) { return qx::install(qx_get_refsys(), &refsys::ml, object); }
Status qx_new_qxml() { return qx::create_in(qx_delete_qxml, qx_set_qxml, "pns_ml"); }
Status qx_delete_qxml() { return qx::remove_from(qx_get_qxml(), qx_set_qxml); }

namespace {

constexpr const char* here = "qx_estimate_likelihood():";

// A free set smaller than this says less about sigmaA than the working set's bias costs.
constexpr std::int32_t least_free = 300;
constexpr std::int32_t least_used = 20;

void run_on_threads(std::int32_t parts, qx::Task task, void* context) noexcept {
  constexpr double operations_of_a_part = 5e4;
  qx::run_parts(parts, qx::threads_worth(operations_of_a_part * parts), task, context);
}

// Observed reflections packed for the fit, and where each came from.
struct Packed {
  Tagged<double> values;  // Fo, F, s2, epsilon, sigma
  Tagged<std::int16_t> centric;
  Tagged<std::uint8_t> used;
  qx::SigmaaData data;
};

Status open_packed(std::int32_t n, bool errors, Packed& packed) {
  const auto size = static_cast<std::size_t>(n);
  packed.values = Tagged<double>(5 * size, "pel_values");
  if (!packed.values) return failed;
  packed.centric = Tagged<std::int16_t>(size, "pel_centric");
  if (!packed.centric) return failed;
  packed.used = Tagged<std::uint8_t>(size, "pel_used");
  if (!packed.used) return failed;
  double* v = packed.values.get();
  packed.data = {n,
                 v,
                 v + size,
                 v + 2 * size,
                 v + 3 * size,
                 errors ? v + 4 * size : nullptr,
                 packed.centric.get(),
                 packed.used.get()};
  return ok;
}

double usable_sigma(const qxrefdata& data, std::int32_t i) {
  if (!data.sigf || !std::isfinite(data.sigf[i])) return 0.0;
  return std::max(0.0, static_cast<double>(data.sigf[i]));
}

// What the reflections of a list add to the pack; `c` takes the variation of the scale off.
void add_list(const qxrefdata& data, const qx::ComplexF& f, const double* c, std::int32_t n,
              const std::int32_t* list, bool use, std::int32_t& at, const Packed& packed) {
  const auto size = static_cast<std::size_t>(packed.data.n);
  for (std::int32_t j = 0; j < n; ++j) {
    const std::int32_t i = list[j];
    const auto to = static_cast<std::size_t>(at++);
    double* v = packed.values.get() + to;
    v[0] = static_cast<double>(data.fobs[i]) * c[i];
    v[size] = f.amplitude(i) * c[i];
    v[2 * size] = data.s_length[i] * data.s_length[i];
    v[3 * size] = data.epsilon[i];
    v[4 * size] = usable_sigma(data, i) * c[i];
    packed.centric[to] = data.centric[i];
    packed.used[to] = use ? 1 : 0;
  }
}

// Factors <k_tot> / k_tot: amplitudes times them have no anisotropy and no fall of the scale.
Status level_factors(const qxrefdata& data, Tagged<double>& c, double& mean) {
  const std::int32_t n = data.nreflections;
  c = Tagged<double>(static_cast<std::size_t>(n), "pel_c");
  if (!c) return failed;
  QX_TRY(qx_calc_total_scale(c.get()));
  double sum = 0.0;
  for (std::int32_t i = 0; i < n; ++i) sum += c[static_cast<std::size_t>(i)];
  mean = sum / n;
  for (std::int32_t i = 0; i < n; ++i) {
    double& value = c[static_cast<std::size_t>(i)];
    if (!(value > 0.0) || !std::isfinite(mean)) {
      return fail(here, "The scale of the model is not above 0 everywhere.");
    }
    value = mean / value;
  }
  return ok;
}

// Which set the likelihood is taken over.
qx::LikelihoodSet choose_set(const qxml& ml, const qx::Observed& observed) {
  if (ml.use != qx::use_free_set || observed.nfree >= least_free) return ml.use;
  qx::say(
      "WARNING: %d observed reflections in the free set are too few: sigmaA comes from the "
      "working set and is too high.\n",
      observed.nfree);
  return qx::use_working_set;
}

Status pack(const qxrefdata& data, const qxml& ml, const qx::Observed& observed,
            const qx::ComplexF& f, const double* c, Packed& packed) {
  QX_TRY(open_packed(observed.nwork + observed.nfree, ml.errors, packed));
  const qx::LikelihoodSet set = choose_set(ml, observed);
  std::int32_t at = 0;
  add_list(data, f, c, observed.nwork, observed.work.get(), set != qx::use_free_set, at, packed);
  add_list(data, f, c, observed.nfree, observed.free.get(), set != qx::use_working_set, at, packed);
  return ok;
}

Status check(const Packed& packed, std::int32_t& used) {
  const qx::SigmaaData& d = packed.data;
  used = static_cast<std::int32_t>(std::count(d.used, d.used + d.n, std::uint8_t{1}));
  if (used < least_used) {
    return fail(here, "%d observed reflections are too few to estimate sigmaA from.", used);
  }
  const bool flat = std::all_of(d.f, d.f + d.n, [](double f) { return !(f > 0.0); });
  return flat ? fail(here, "The model's structure factors are zero throughout.") : ok;
}

Status tell() {
  const bool wanted = qx_get_qxverbsys_verb_ml() >= 1;
  if (!qx_exist_quorix()) return failed;
  const qxml* found = qx_get_qxml();
  if (!found) return failed;
  const qxml& ml = *found;
  if (!wanted) return ok;
  qx::say("Likelihood                  : %d reflections, %d nodes, %d steps, -log P = %.6f\n",
          ml.used, ml.fit.model.nnodes, ml.fit.steps, ml.fit.mean_minus_log);
  return ok;
}

}  // namespace

namespace qx {

Status likelihood_values(const char* heading, const qxrefdata& data, const ComplexF& f,
                         LikelihoodValues& out) {
  const qxml* ml = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxml, ml, "qxml object has not been created yet."));
  const std::int32_t n = data.nreflections;
  if (!ml->fitted || ml->nref != n) {
    return fail(heading, "The likelihood has not been estimated for these reflections.");
  }
  const auto size = static_cast<std::size_t>(n);
  for (Tagged<double>* column : {&out.fom, &out.d, &out.variance}) {
    *column = Tagged<double>(size, "plv");
    if (!*column) return failed;
  }
  Tagged<double> k_tot(size, "plv_k");
  if (!k_tot) return failed;
  QX_TRY(qx_calc_total_scale(k_tot.get()));
  for (std::int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double c = ml->mean_scale / k_tot[at];
    const SigmaaAt here_at = sigmaa_at(ml->fit.model, data.s_length[i] * data.s_length[i]);
    const bool centric = data.centric[i] != 0;
    const double sigma = ml->errors ? usable_sigma(data, i) : 0.0;
    out.d[at] = here_at.d;
    out.variance[at] =
        data.epsilon[i] * here_at.s / (c * c) + (centric ? 1.0 : 2.0) * sigma * sigma;
    out.fom[at] = 0.0;
    if (!is_observed(data, i)) continue;
    out.fom[at] = Conditional{static_cast<double>(data.fobs[i]), here_at.d * f.amplitude(i),
                              out.variance[at], centric}
                      .fom();
  }
  return ok;
}

}  // namespace qx

Status qx_estimate_likelihood() {
  const qxml* settings = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxml, settings, "qxml object has not been created yet."),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  qx::Observed observed;
  QX_TRY(qx::select_observed(here, *data, observed));
  if (!data->centric || !data->epsilon) {
    return fail(here, "The reflections have no centric flags yet.");
  }
  qx::ComplexF f;
  QX_TRY(qx::open_f(data->nreflections, f));
  QX_TRY(qx_calc_total_structure_factor(f.re.get(), f.im.get()));
  Tagged<double> c;
  double mean = 0.0;
  QX_TRY(level_factors(*data, c, mean));
  Packed packed;
  QX_TRY(pack(*data, *settings, observed, f, c.get(), packed));
  std::int32_t used = 0;
  QX_TRY(check(packed, used));
  const Tagged<double> scratch(qx::sigmaa_scratch_size(packed.data.n), "pel_scratch");
  if (!scratch) return failed;
  qxml* ml = qx_get_qxml();
  if (!ml) return failed;
  ml->used = used;
  ml->fit = qx::fit_sigmaa(packed.data, ml->mode, ml->nodes, scratch.get(), run_on_threads);
  ml->mean_scale = mean;
  ml->nref = data->nreflections;
  ml->fitted = true;
  QX_TRY(tell());
  qx::LikelihoodValues values;
  QX_TRY(qx::likelihood_values(here, *data, f, values));
  double sum = 0.0;
  for (std::int32_t i = 0; i < data->nreflections; ++i)
    sum += values.fom[static_cast<std::size_t>(i)];
  ml->mean_fom = sum / packed.data.n;
  return qx_set_hv_fom(ml->mean_fom);
}

Status qx_print_likelihood() {
  constexpr const char* heading = "qx_print_likelihood():";
  const qxml* ml = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxml, ml, "qxml object has not been created yet."));
  if (!ml->fitted) return fail(heading, "The likelihood has not been estimated yet.");
  const qx::SigmaaModel& model = ml->fit.model;
  qx::say("Figure of merit             : %.4f  (sigmaA from %d reflections)\n", ml->mean_fom,
          ml->used);
  qx::say("node #         d    sigmaA         D            S\n");
  for (int i = 0; i < model.nnodes; ++i) {
    const qx::SigmaaAt at = qx::sigmaa_at(model, model.node_s2[i]);
    qx::say("%6d  %8.3f  %8.4f  %8.4f  %11.5g\n", i + 1, 1.0 / std::sqrt(model.node_s2[i]),
            at.sigmaa, at.d, at.s);
  }
  return ok;
}
