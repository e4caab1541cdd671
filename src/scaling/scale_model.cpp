// Scaling the atoms' structure factors alone to the observations: k and B, agreement overall and by
// bin.
#include "core/constants.h"
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/root.h"
#include "core/say.h"
#include "crystal/reflections.h"
#include "scaling/bin_agreement.h"
#include "scaling/cross_record.h"
#include "sf/partition.h"
#include "stats/scale_fit.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>

#include <cmath>
#include <numeric>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

// F of the model per reflection, in scratch.
struct ModelF {
  qx::Tagged<double> re;
  qx::Tagged<double> im;

  [[nodiscard]] double amplitude(std::int32_t i) const {
    const auto at = static_cast<std::size_t>(i);
    return std::hypot(re[at], im[at]);
  }
};

Status calculate_model(std::int32_t n, ModelF& f) {
  f.re = qx::Tagged<double>(static_cast<std::size_t>(n), "pxf_re");
  if (!f.re) return failed;
  f.im = qx::Tagged<double>(static_cast<std::size_t>(n), "pxf_im");
  if (!f.im) return failed;
  return qx_calc_model_structure_factor(f.re.get(), f.im.get());
}

Status amplitudes(const ModelF& f, std::int32_t n, qx::Tagged<double>& fc) {
  fc = qx::Tagged<double>(static_cast<std::size_t>(n), "pxf_fc");
  if (!fc) return failed;
  for (std::int32_t i = 0; i < n; ++i) fc[static_cast<std::size_t>(i)] = f.amplitude(i);
  return ok;
}

Status list_all(std::int32_t n, qx::Tagged<std::int32_t>& all) {
  all = qx::Tagged<std::int32_t>(static_cast<std::size_t>(n), "pxf_all");
  if (!all) return failed;
  std::iota(all.get(), all.get() + n, 0);
  return ok;
}

void print_scaling(const qxcross& cross, const qx::ScaleResult& result) {
  qx::say("Overall scale of Fc         : k = %.5f  B = %.3f\n", result.scale.k, result.scale.b);
  qx::print_agreement(result.split ? "Working set" : "All reflections", result.work);
  const bool with_free = result.split && cross.nfree > 0;
  if (with_free) qx::print_agreement("Free set", result.free);
  qx::print_bins(cross, with_free);
}

}  // namespace

Status qx_scale_model_structure_factor() {
  constexpr const char* heading = "qx_scale_model_structure_factor():";
  const qxrefdata* data = nullptr;
  qxstructfact* sf = nullptr;
  QX_TRY(qx::require(
      heading, qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet."),
      qx::need(qx_get_qxstructfact, sf, "qxstructfact object has not been created yet ")));
  if (!data->fobs) return fail(heading, "There are no observed amplitudes to scale to.");
  const std::int32_t n = data->nreflections;
  if (n < 1) return fail(heading, "There is no reflection to scale to.");
  QX_TRY(qx::reset_scales(*sf));
  ModelF f;
  QX_TRY(calculate_model(n, f));
  qx::Tagged<double> fc;
  QX_TRY(amplitudes(f, n, fc));
  qxcross* cross = nullptr;
  QX_TRY(qx::ensure_bins(n, cross));
  qx::Tagged<std::int32_t> all;
  QX_TRY(list_all(n, all));
  const bool split = cross->nwork > 0 && cross->ntotal == n;
  const auto work = split ? qx::Listed{cross->nwork, cross->work} : qx::Listed{n, all.get()};
  const auto free = split ? qx::Listed{cross->nfree, cross->free} : qx::Listed{0, nullptr};
  const qx::OverallScale scale =
      qx::fit_scale(work.n, work.members, data->fobs, fc.get(), data->s_length);
  for (std::int32_t part = 0; part < sf->nparts; ++part) {
    sf->parts[part].scale *= scale.k;
    sf->parts[part].b += scale.b;
  }
  for (std::int32_t i = 0; i < n; ++i) {
    const double s = data->s_length[i];
    fc[static_cast<std::size_t>(i)] *= scale.k * std::exp(-0.25 * scale.b * s * s);
  }
  qx::ScaleResult& result = sf->scaling;
  result = {};
  result.scale = scale;
  result.split = split;
  result.work = qx::agreement(work.n, work.members, data->fobs, fc.get());
  result.free = qx::agreement(free.n, free.members, data->fobs, fc.get());
  QX_TRY(qx::measure_bins(*cross, work, free, data->fobs, fc.get()));
  result.done = true;
  print_scaling(*cross, result);
  return ok;
}

std::int32_t qx_get_atoms_scale_view(qx_atoms_scale_view* view) {
  const refsys* system = quorix ? quorix->reflections : nullptr;
  const qxstructfact* factors = system ? system->structfact : nullptr;
  if (!factors || !factors->scaling.done) return 0;
  const qx::ScaleResult& found = factors->scaling;
  const auto shown = [](const qx::Agreement& a) -> qx_agreement {
    return {a.n, a.r, a.correlation};
  };
  *view = {found.scale.k, found.scale.b, found.split ? 1 : 0, shown(found.work), shown(found.free)};
  return 1;
}
